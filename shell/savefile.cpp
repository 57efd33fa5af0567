#include "shell/savefile.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "shell/values.h"

namespace {

constexpr mode_t MODE = 0640;
constexpr uid_t SAME_USER = static_cast<uid_t>(-1); // for fchown

std::string resolved(const std::string &path) {
    char *real = realpath(path.c_str(), nullptr);
    std::string text = real != nullptr ? real : path;
    free(real);
    return text;
}

bool fail(const std::string &path, int code, std::string *error) {
    *error = "cannot write " + textPrintable(path) + ": " + std::strerror(code);
    if (code == EACCES || code == EPERM || code == EROFS) {
        *error += ": run snoopctl as a user who may, or name another file";
    }
    return false;
}

// 0, or an errno.
int writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written < 0 && errno != EINTR) {
            return errno;
        }
        text.remove_prefix(written > 0 ? static_cast<size_t>(written) : 0);
    }
    return 0;
}

// Owner and group of the former file as far as the caller may give them; a file of the caller's own is as good.
void keepOwner(int fd, const struct stat &former) {
    if (fchown(fd, former.st_uid, former.st_gid) != 0 && fchown(fd, SAME_USER, former.st_gid) != 0) {
        errno = 0;
    }
}

// Fills the open file and brings it to the disk. 0, or an errno.
int fill(int fd, std::string_view text, const struct stat *former) {
    if (former != nullptr) {
        keepOwner(fd, *former);
    }
    if (fchmod(fd, MODE) != 0) {
        return errno;
    }
    const int code = writeAll(fd, text);
    return code == 0 && fsync(fd) != 0 ? errno : code;
}

int syncFolder(const std::string &folder) {
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        return errno;
    }
    const int code = fsync(fd) != 0 ? errno : 0;
    close(fd);
    return code;
}

} // namespace

bool saveFile(const std::string &path, std::string_view text, std::string *error) {
    const std::string target = resolved(path);
    const size_t slash = target.rfind('/');
    const std::string folder = slash == std::string::npos ? "./" : target.substr(0, slash + 1);
    std::string beside = folder + "." + target.substr(slash == std::string::npos ? 0 : slash + 1) + ".XXXXXX";
    struct stat former = {};
    const bool exists = stat(target.c_str(), &former) == 0;
    if (exists && !S_ISREG(former.st_mode)) {
        *error = "cannot write " + textPrintable(path) + ": it is not an ordinary file";
        return false;
    }
    const int fd = mkostemp(beside.data(), O_CLOEXEC);
    if (fd < 0) {
        return fail(path, errno, error);
    }
    int code = fill(fd, text, exists ? &former : nullptr);
    if (close(fd) != 0 && code == 0) {
        code = errno;
    }
    if (code == 0 && rename(beside.c_str(), target.c_str()) != 0) {
        code = errno;
    }
    if (code != 0) {
        unlink(beside.c_str());
        return fail(path, code, error);
    }
    code = syncFolder(folder);
    return code == 0 || fail(path, code, error);
}
