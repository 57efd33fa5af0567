#include "platform/linux/ownfolder.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace {

// What is wrong with a folder; null when nothing is.
const char *faultOf(const struct stat &folder) {
    if (S_ISLNK(folder.st_mode))
        return "is a symbolic link: name the folder itself";
    if (!S_ISDIR(folder.st_mode))
        return "is not a folder";
    if (folder.st_uid != 0 && folder.st_uid != geteuid())
        return "belongs to another user than root and the daemon's, who could put files into it";
    if ((folder.st_mode & 022) != 0)
        return "is writable for its group or for everybody, who could put files into it: chmod go-w";
    return nullptr;
}

} // namespace

bool linuxOwnFolder(const char *path, mode_t mode, bool *made, char *error, uint32_t errorSize) {
    if (mkdir(path, mode) == 0) {
        *made = true;
        chmod(path, mode);
    } else if (errno != EEXIST) {
        snprintf(error, errorSize, "%s cannot be made: %s; run as root or name another one", path, strerror(errno));
        return false;
    }
    std::string bare = path; // "folder/" would look through a symbolic link
    while (bare.size() > 1 && bare.back() == '/')
        bare.pop_back();
    struct stat folder;
    if (lstat(bare.c_str(), &folder) != 0) {
        snprintf(error, errorSize, "%s cannot be looked at: %s", path, strerror(errno));
        return false;
    }
    const char *fault = faultOf(folder);
    if (fault != nullptr)
        snprintf(error, errorSize, "%s %s", path, fault);
    return fault == nullptr;
}
