#include "platform/linux/startupshell.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <event2/event.h>
#include <event2/event_struct.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/linux/childprocess.h"
#include "platform/linux/loop.h"

timeval linuxStartupPatience = {60, 0};

namespace {

constexpr int STATUS_LINES_FAILED = 2; // the highest exit status of a shell that has looked at every line

pid_t shell; // 0 while none runs
bool hanging;
std::string file;
LinuxShellEnded whenEnded;
event shellEnded;
event shellHangs;

void endReplay(int status) {
    std::string why = "the shell that replays " + file;
    shell = 0;
    event_del(&shellEnded);
    event_del(&shellHangs);
    if (hanging)
        why += " did not come to an end";
    else if (WIFSIGNALED(status))
        why += " was ended by signal " + std::to_string(WTERMSIG(status));
    else if (WEXITSTATUS(status) > STATUS_LINES_FAILED)
        why += " ended with status " + std::to_string(WEXITSTATUS(status));
    else
        return whenEnded(WEXITSTATUS(status) == 0 ? LinuxShellEnd::done : LinuxShellEnd::partly, {});
    whenEnded(LinuxShellEnd::failed, why + ": not all of it is in force");
}

void onShellEnded(evutil_socket_t, short, void *) {
    int status = 0;
    if (shell != 0 && waitpid(shell, &status, WNOHANG) == shell)
        endReplay(status);
}

void stopShell() {
    if (shell != 0)
        kill(shell, SIGKILL);
}

void onShellHangs(evutil_socket_t, short, void *) {
    hanging = true;
    stopShell();
}

std::string ownFolder() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    const std::string program(path, static_cast<size_t>(length > 0 ? length : 0));
    return program.substr(0, program.rfind('/') + 1);
}

// Returns 0 or an errno.
int start(const std::string &text, const std::string &program) {
    const char *arguments[] = {program.c_str(), "--keep-going", "--startup", file.c_str(), "-f", "-", nullptr};
    const int input = linuxMemoryFile(text.data(), text.size());
    if (input < 0)
        return errno;
    const bool ready = event_add(&shellEnded, nullptr) == 0 && event_add(&shellHangs, &linuxStartupPatience) == 0;
    const int error = ready ? linuxChildStart(arguments, input, -1, &shell) : ENOMEM;
    close(input);
    return error;
}

} // namespace

std::string linuxShellPath() {
    const char *given = getenv("SNOOPD6_SHELL");
    if (given != nullptr && given[0] != '\0')
        return given;
    const std::string beside = ownFolder() + "snoopctl";
    return access(beside.c_str(), X_OK) == 0 ? beside : SNOOPD6_SHELL_DEFAULT;
}

bool linuxShellStart(const std::string &text, const char *path, LinuxShellEnded ended, std::string *error) {
    const std::string program = linuxShellPath();
    file = path;
    whenEnded = ended;
    evsignal_assign(&shellEnded, linuxLoopBase(), SIGCHLD, onShellEnded, nullptr);
    evtimer_assign(&shellHangs, linuxLoopBase(), onShellHangs, nullptr);
    const int refused = start(text, program);
    if (refused != 0) {
        event_del(&shellEnded);
        event_del(&shellHangs);
        shell = 0;
        *error = std::string(path) + " cannot be replayed: " + program + ": " + strerror(refused);
        return false;
    }
    linuxAtStop(stopShell);
    return true;
}
