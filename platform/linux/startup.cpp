#include "platform/linux/startup.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <event2/event.h>
#include <event2/event_struct.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/linux/loop.h"
#include "platform/linux/notify.h"
#include "platform/linux/switchfile.h"

timeval linuxStartupPatience = {60, 0};

namespace {

constexpr int FIRST_INHERITED = 3; // descriptors from here on are not the shell's

pid_t shell; // 0 while none runs
void (*whenReady)();
event shellEnded;
event shellHangs;

const char *shellPath() {
    const char *path = getenv("SNOOPD6_SHELL");
    return path != nullptr && path[0] != '\0' ? path : SNOOPD6_SHELL_DEFAULT;
}

void reportReady(const char *status) {
    char state[256];
    snprintf(state, sizeof state, "READY=1\nSTATUS=%s", status);
    if (whenReady != nullptr) {
        whenReady();
    }
    linuxNotify(state);
}

void endReplay(int status) {
    shell = 0;
    event_del(&shellEnded);
    event_del(&shellHangs);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        linuxLog("%s is in force", linuxStartupFile());
        reportReady("startup file in force");
        return;
    }
    linuxLog("not all of %s is in force", linuxStartupFile());
    reportReady("not all of the startup file is in force");
}

void onShellEnded(evutil_socket_t, short, void *) {
    int status = 0;
    if (shell != 0 && waitpid(shell, &status, WNOHANG) == shell) {
        endReplay(status);
    }
}

void stopShell() {
    if (shell != 0) {
        kill(shell, SIGKILL);
    }
}

void onShellHangs(evutil_socket_t, short, void *) {
    linuxLog("the shell does not come to an end with %s", linuxStartupFile());
    stopShell();
}

// 0, or an errno.
int startShell() {
    const char *arguments[] = {shellPath(), "--keep-going", "-f", linuxStartupFile(), nullptr};
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    sigset_t ignored;
    sigemptyset(&ignored);
    sigaddset(&ignored, SIGPIPE);
    sigaddset(&ignored, SIGUSR2);
    posix_spawn_file_actions_init(&files);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &ignored);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    posix_spawn_file_actions_addclosefrom_np(&files, FIRST_INHERITED);
    const int error = posix_spawn(&shell, arguments[0], &files, &attributes, const_cast<char **>(arguments), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return error;
}

} // namespace

void linuxStartupWhenReady(void (*ready)()) { whenReady = ready; }

const char *linuxStartupFile() {
    static std::string path;
    if (!path.empty()) {
        return path.c_str();
    }
    const char *given = getenv("SNOOPD6_STARTUP");
    if (given != nullptr && given[0] != '\0') {
        path = given;
    } else {
        path = linuxSwitchFilePath();
        path.resize(path.rfind('/') + 1); // to nothing when there is none
        path += "startup.conf";
    }
    char folder[PATH_MAX];
    if (path[0] != '/' && getcwd(folder, sizeof folder) != nullptr) { // callers have folders of their own
        path.insert(0, std::string(folder) + "/");
    }
    return path.c_str();
}

void linuxStartupReplay() {
    static bool done;
    if (done) {
        return;
    }
    done = true;
    if (access(linuxStartupFile(), F_OK) != 0 && errno == ENOENT) {
        reportReady("no startup file");
        return;
    }
    evsignal_assign(&shellEnded, linuxLoopBase(), SIGCHLD, onShellEnded, nullptr);
    evtimer_assign(&shellHangs, linuxLoopBase(), onShellHangs, nullptr);
    const int error =
        evsignal_add(&shellEnded, nullptr) != 0 || evtimer_add(&shellHangs, &linuxStartupPatience) != 0 ? ENOMEM : startShell();
    if (error != 0) {
        linuxLog("cannot replay %s: %s: %s", linuxStartupFile(), shellPath(), strerror(error));
        event_del(&shellEnded);
        event_del(&shellHangs);
        shell = 0;
        reportReady("the startup file could not be replayed");
        return;
    }
    linuxAtStop(stopShell);
}
