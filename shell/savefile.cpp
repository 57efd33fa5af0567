#include "shell/savefile.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "shell/values.h"

namespace {

constexpr mode_t MODE = 0640;
constexpr uid_t SAME_USER = static_cast<uid_t>(-1); // for fchown
constexpr int TRIES = 8;                            // of making a file under a name that somebody else takes again and again

bool fail(const std::string &path, int code, std::string *error) {
    *error = "cannot write " + textPrintable(path) + ": ";
    if (code == ELOOP)
        *error += "its folder is reached through a symbolic link, which could lead elsewhere: name the folder itself";
    else
        *error += std::strerror(code);
    if (code == EACCES || code == EPERM || code == EROFS)
        *error += ": run snoopctl as a user who may, or name another file";
    return false;
}

// Opens a folder, but not by way of a symbolic link: whoever made that would say where the caller writes. Returns a descriptor,
// or a negative errno.
int openFolder(const std::string &folder) {
    open_how how = {};
    how.flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    how.resolve = RESOLVE_NO_SYMLINKS;
    const long fd = syscall(SYS_openat2, AT_FDCWD, folder.c_str(), &how, sizeof how);
    return fd < 0 ? -errno : static_cast<int>(fd);
}

// Looks at what has the name now. False and a sentence when it is there and no ordinary file.
bool lookAtFormer(int folder, const std::string &name, const std::string &path, struct stat *former, std::string *error) {
    former->st_mode = 0;
    if (fstatat(folder, name.c_str(), former, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT || fail(path, errno, error);
    if (S_ISREG(former->st_mode))
        return true;
    *error = "cannot write " + textPrintable(path) + ": it is " +
             (S_ISLNK(former->st_mode) ? "a symbolic link, which is not followed" : "not an ordinary file");
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
int writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written < 0 && errno != EINTR)
            return errno;
        text.remove_prefix(written > 0 ? static_cast<size_t>(written) : 0);
    }
    return 0;
}

// Owner and group of the former file as far as the caller may give them; a file of the caller's own is as good.
void keepOwner(int fd, const struct stat &former) {
    if (fchown(fd, former.st_uid, former.st_gid) != 0 && fchown(fd, SAME_USER, former.st_gid) != 0)
        errno = 0;
}

// Fills the open file and brings it to the disk. Returns 0 or an errno.
int fill(int fd, std::string_view text, const struct stat &former) {
    if (former.st_mode != 0)
        keepOwner(fd, former);
    if (fchmod(fd, MODE) != 0)
        return errno;
    const int code = writeAll(fd, text);
    return code == 0 && fsync(fd) != 0 ? errno : code;
}

bool saveIn(int folder, const std::string &name, const std::string &path, std::string_view text, std::string *error) {
    const std::string beside = "." + name + ".new";
    struct stat former;
    if (!lookAtFormer(folder, name, path, &former, error))
        return false;
    const int fd = makeFile(folder, beside);
    if (fd < 0)
        return fail(path, -fd, error);
    int code = fill(fd, text, former);
    if (close(fd) != 0 && code == 0)
        code = errno;
    if (code == 0 && renameat(folder, beside.c_str(), folder, name.c_str()) != 0)
        code = errno;
    if (code != 0) {
        unlinkat(folder, beside.c_str(), 0);
        return fail(path, code, error);
    }
    return fsync(folder) == 0 || fail(path, errno, error);
}

} // namespace

bool saveFile(const std::string &path, std::string_view text, std::string *error) {
    const size_t slash = path.rfind('/');
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const int folder = openFolder(slash == std::string::npos ? "." : path.substr(0, slash + 1));
    if (folder < 0)
        return fail(path, -folder, error);
    const bool saved = saveIn(folder, name.empty() ? "." : name, path, text, error);
    close(folder);
    return saved;
}
