#include "platform/linux/startupfile.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t PIECE = 65536;

LinuxStartupVerdict damaged(std::string reason) {
    return {.kind = LinuxStartupKind::damaged, .lines = 0, .reason = std::move(reason)};
}

LinuxStartupVerdict unreadable(int error) {
    return damaged(error == ELOOP ? "is a symbolic link, which is not followed"
                                  : std::string("cannot be read: ") + strerror(error));
}

// Reads the file to its end, or one byte over the bound. Returns 0 or an errno.
int readText(int fd, std::string *text) {
    while (text->size() <= LINUX_STARTUP_BYTES_MAX) {
        const size_t before = text->size();
        text->resize(before + PIECE);
        const ssize_t n = read(fd, text->data() + before, PIECE);
        text->resize(before + static_cast<size_t>(n > 0 ? n : 0));
        if (n == 0)
            return 0;
        if (n < 0 && errno != EINTR)
            return errno;
    }
    return 0;
}

LinuxStartupVerdict readAndJudge(int fd, std::string *text) {
    struct stat file;
    if (fstat(fd, &file) != 0)
        return unreadable(errno);
    if (!S_ISREG(file.st_mode))
        return damaged("is not an ordinary file");
    const int error = readText(fd, text);
    return error == 0 ? linuxStartupJudge(*text) : unreadable(error);
}

} // namespace

LinuxStartupFile linuxStartupFileRead(int folder, const std::string &path) {
    LinuxStartupFile file = {.path = path, .absent = false, .verdict = {}, .text = {}};
    // Without O_NONBLOCK a FIFO would wait for its other end.
    constexpr int HOW = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY;
    const int fd = folder < 0 ? -1 : openat(folder, linuxStartupName(path).c_str(), HOW);
    const int error = folder < 0 ? -folder : errno;
    if (fd < 0) {
        file.absent = error == ENOENT;
        file.verdict = error == ENXIO ? damaged("is not an ordinary file") : unreadable(error); // ENXIO: a socket
        return file;
    }
    file.verdict = readAndJudge(fd, &file.text);
    close(fd);
    return file;
}

LinuxStartupFiles linuxStartupFilesRead(const std::string &path) {
    const int opened = open(linuxStartupFolder(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const int folder = opened < 0 ? -errno : opened;
    LinuxStartupFiles files = {.current = linuxStartupFileRead(folder, path),
                               .lastGood = linuxStartupFileRead(folder, path + LINUX_LAST_GOOD)};
    if (opened >= 0)
        close(opened);
    if (files.current.absent && !files.lastGood.absent) {
        files.current.absent = false;
        files.current.verdict = damaged("is missing, although " + files.lastGood.path + " is there");
    }
    return files;
}

bool linuxStartupIsGood(const LinuxStartupFile &file) { return !file.absent && file.verdict.kind != LinuxStartupKind::damaged; }

std::string linuxStartupFolder(const std::string &path) { return path.substr(0, path.rfind('/') + 1); }

std::string linuxStartupName(const std::string &path) { return path.substr(path.rfind('/') + 1); }
