#include "platform/linux/check.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/loop.h"
#include "platform/linux/startup.h"
#include "platform/linux/switchfile.h"

namespace {

constexpr uint32_t ERROR_MAX = 512;

// What a startup file can be found as.
enum class StartupState { none, lines, notAFile, unreadable };

struct StartupFile {
    StartupState state;
    uint32_t lines;
    int error; // errno of one that is unreadable
};

uint32_t countPorts(const LinuxSwitchConfig &config) {
    uint32_t count = 0;
    for (const LinuxPortConfig &port : config.ports)
        count += port.exists;
    return count;
}

bool checkSwitchFile() {
    static LinuxSwitchConfig config;
    char error[ERROR_MAX];
    if (!linuxSwitchFileRead(linuxSwitchFilePath(), &config, error, sizeof error)) {
        linuxLog("%s", error);
        return false;
    }
    printf("%s: bridge %s, ports %u, highest 0/%u\n", linuxSwitchFilePath(), config.bridge, countPorts(config), config.portMax);
    return true;
}

// Counts the lines that are neither empty nor a comment.
int countLines(int fd, uint32_t *lines) {
    char piece[4096];
    bool atStart = true;
    ssize_t n = 0;
    while ((n = read(fd, piece, sizeof piece)) > 0) {
        for (ssize_t i = 0; i < n; ++i) {
            const bool blank = strchr(" \t\r\n", piece[i]) != nullptr;
            *lines += atStart && !blank && piece[i] != '!' && piece[i] != '#' ? 1 : 0;
            atStart = piece[i] == '\n' || (atStart && blank);
        }
    }
    return n < 0 ? errno : 0;
}

StartupFile readStartupFile(const char *path) {
    StartupFile found = {.state = StartupState::unreadable, .lines = 0, .error = 0};
    struct stat file;
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        found.error = errno;
        found.state = errno == ENOENT ? StartupState::none : StartupState::unreadable;
        return found;
    }
    if (fstat(fd, &file) != 0 || !S_ISREG(file.st_mode)) {
        found.state = StartupState::notAFile;
    } else {
        found.error = countLines(fd, &found.lines);
        found.state = found.error == 0 ? StartupState::lines : StartupState::unreadable;
    }
    close(fd);
    return found;
}

bool checkStartupFile() {
    const char *path = linuxStartupFile();
    const StartupFile found = readStartupFile(path);
    switch (found.state) {
    case StartupState::none: printf("%s: not there, nothing is snooped or guarded after a start\n", path); return true;
    case StartupState::lines: printf("%s: lines %u\n", path, found.lines); return true;
    case StartupState::notAFile: linuxLog("%s is no ordinary file", path); return false;
    case StartupState::unreadable: break;
    }
    linuxLog("%s cannot be read: %s", path, strerror(found.error));
    return false;
}

} // namespace

bool linuxCheck() {
    const bool switchFine = checkSwitchFile();
    const bool startupFine = checkStartupFile();
    return switchFine && startupFine;
}
