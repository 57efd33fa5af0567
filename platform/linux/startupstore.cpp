#include "platform/linux/startupstore.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/startup.h"
#include "platform/linux/startupfile.h"

namespace {

constexpr mode_t MODE = 0640;
constexpr int TRIES = 8; // of making a file under a name that somebody else takes again and again

bool fail(const std::string &path, const char *what, int error) {
    printf("cannot %s %s: %s", what, path.c_str(),
           error == ELOOP || error == ENOTDIR ? "it is a symbolic link" : strerror(error));
    return false;
}

// The folder itself, not what a link of its name leads to. Returns a descriptor, or a negative errno.
int openFolder(const std::string &path) {
    std::string folder = linuxStartupFolder(path);
    while (folder.size() > 1 && folder.back() == '/') // "folder/" would look through a link
        folder.pop_back();
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    return fd < 0 ? -errno : fd;
}

// False with a sentence when there is something else than an ordinary file.
bool mayReplace(int folder, const std::string &path) {
    struct stat file;
    if (fstatat(folder, linuxStartupName(path).c_str(), &file, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT || fail(path, "look at", errno);
    if (S_ISREG(file.st_mode))
        return true;
    printf("cannot write %s: it is %s", path.c_str(), S_ISLNK(file.st_mode) ? "a symbolic link" : "not an ordinary file");
    return false;
}

// Makes a file that was not there before. Returns a descriptor, or a negative errno.
int makeFile(int folder, const std::string &name) {
    for (int i = 0; i < TRIES; ++i) {
        const int fd = openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, MODE);
        if (fd >= 0)
            return fd;
        if (errno != EEXIST || unlinkat(folder, name.c_str(), 0) != 0)
            return -errno;
    }
    return -EEXIST;
}

// Returns 0 or an errno.
int fill(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t n = write(fd, text.data(), text.size());
        if (n < 0 && errno != EINTR)
            return errno;
        text.remove_prefix(n > 0 ? static_cast<size_t>(n) : 0);
    }
    return fchmod(fd, MODE) != 0 || fsync(fd) != 0 ? errno : 0;
}

bool writeFile(int folder, const std::string &path, std::string_view text) {
    const std::string name = linuxStartupName(path);
    const std::string beside = "." + name + ".new"; // one that a killed writer left is removed by the next
    const int fd = makeFile(folder, beside);
    int error = fd < 0 ? -fd : fill(fd, text);
    if (fd >= 0 && close(fd) != 0 && error == 0)
        error = errno;
    if (error == 0 && renameat(folder, beside.c_str(), folder, name.c_str()) != 0)
        error = errno;
    if (error != 0 && fd >= 0)
        unlinkat(folder, beside.c_str(), 0);
    return error == 0 || fail(path, "write", error);
}

bool readInput(std::string *text) {
    char piece[65536];
    ssize_t n = 0;
    while (text->size() <= LINUX_STARTUP_BYTES_MAX && (n = read(STDIN_FILENO, piece, sizeof piece)) > 0)
        text->append(piece, static_cast<size_t>(n));
    return n >= 0 || fail("standard input", "read", errno);
}

bool storeIn(int folder, const std::string &path, const std::string &text) {
    const std::string keptPath = path + LINUX_LAST_GOOD;
    if (!mayReplace(folder, path) || !mayReplace(folder, keptPath))
        return false;
    const LinuxStartupFile former = linuxStartupFileRead(folder, path);
    const bool good = linuxStartupIsGood(former);
    const bool keep = good || !linuxStartupIsGood(linuxStartupFileRead(folder, keptPath));
    if (keep && !writeFile(folder, keptPath, good ? former.text : text))
        return false;
    return writeFile(folder, path, text) && (fsync(folder) == 0 || fail(path, "write", errno));
}

bool removeFile(int folder, const std::string &path) {
    return unlinkat(folder, linuxStartupName(path).c_str(), 0) == 0 || errno == ENOENT || fail(path, "remove", errno);
}

} // namespace

bool linuxStoreStartup() {
    const std::string path = linuxStartupFile();
    std::string text;
    if (!readInput(&text))
        return false;
    const char *refusal = linuxStartupRefusal(text);
    if (refusal != nullptr) {
        printf("nothing was saved: the configuration %s", refusal);
        return false;
    }
    const int folder = openFolder(path);
    if (folder < 0)
        return fail(path, "write", -folder);
    const bool stored = storeIn(folder, path, linuxStartupMarked(text));
    close(folder);
    return stored;
}

bool linuxEraseStartup() {
    const std::string path = linuxStartupFile();
    const int folder = openFolder(path);
    if (folder == -ENOENT)
        return true;
    if (folder < 0)
        return fail(path, "remove", -folder);
    const bool erased = removeFile(folder, path) && removeFile(folder, path + LINUX_LAST_GOOD) &&
                        (fsync(folder) == 0 || fail(path, "remove", errno));
    close(folder);
    return erased;
}
