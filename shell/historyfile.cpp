#include "shell/historyfile.h"

#include <cerrno>
#include <cstdlib>
#include <sys/stat.h>

namespace {

std::string stateFolder() {
    const char *state = getenv("XDG_STATE_HOME");
    if (state != nullptr && state[0] == '/') { // a relative path there means nothing
        return state;
    }
    const char *home = getenv("HOME");
    return home != nullptr && home[0] == '/' ? std::string(home) + "/.local/state" : "";
}

// Makes the folder and those above it.
bool makeFolder(const std::string &path) {
    for (size_t at = 1; at != std::string::npos;) {
        at = path.find('/', at + 1);
        if (mkdir(path.substr(0, at).c_str(), 0700) != 0 && errno != EEXIST) {
            return false;
        }
    }
    return true;
}

} // namespace

std::string historyFilePath() {
    const std::string state = stateFolder();
    const std::string folder = state + "/snoopctl";
    return !state.empty() && makeFolder(folder) ? folder + "/history" : "";
}
