// One snoopd6 per run folder and per network namespace (namespacelock.h).
//
// The folder's lock is a flock on a file in it. Whoever can open a file can lock it, so the file can be opened by its owner
// alone, and only root and the daemon's user may write into the folder. The lock goes with the process, however it ends.

#include "platform/linux/queue.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/linux/loop.h"
#include "platform/linux/namespacelock.h"
#include "platform/linux/ownfolder.h"
#include "platform/linux/protocol.h"

static constexpr uint32_t LOCK_TRIES = 8; // a lock file that is removed or replaced meanwhile is opened again

static bool lockHeld;
static bool folderMade;
static char lockPath[sizeof(sockaddr_un::sun_path)];
static char socketPath[sizeof(sockaddr_un::sun_path)];

const char *linuxRunFolder() {
    const char *folder = getenv("SNOOPD6_RUN");
    return folder != nullptr && folder[0] != '\0' ? folder : SNOOPD6_RUN_DEFAULT;
}

const char *linuxSocketPath() { return socketPath; }

static void makePaths() {
    const char *folder = linuxRunFolder();
    const int lockLength = snprintf(lockPath, sizeof lockPath, "%s/snoopd6.lock", folder);
    const int socketLength = snprintf(socketPath, sizeof socketPath, "%s/%s", folder, SNOOPD6_SOCKET_NAME);
    const int longest = static_cast<int>(sizeof socketPath) - 1;
    if (lockLength > longest || socketLength > longest) {
        linuxFatal("the run folder %s is too long a name for a socket in it: at most %d characters in all, set SNOOPD6_RUN",
                   folder, longest);
    }
}

// ---- The folder and its lock ---------------------------------------------------------------------------------------

static void unlockFolder() {
    if (lockHeld) {
        unlink(lockPath);
    }
    if (folderMade) {
        rmdir(linuxRunFolder()); // fails, as it should, when someone else put something there
    }
}

// Callers of the socket's group come through the folder, whatever the umask is.
static void makeFolder() {
    char error[512];
    if (!linuxOwnFolder(linuxRunFolder(), 0755, &folderMade, error, sizeof error)) {
        linuxFatal("the run folder %s", error);
    }
}

// The owner of a removed lock file is gone or going; only the file that still has the name counts.
static bool stillNamed(int fd) {
    struct stat open;
    struct stat named;
    return fstat(fd, &open) == 0 && lstat(lockPath, &named) == 0 && open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

// Takes a file away that others can open, or may have opened: they could lock it, and keep the lock. This daemon's is its own
// user's alone.
static void removeOpenFile() {
    struct stat file;
    const bool found = lstat(lockPath, &file) == 0 && S_ISREG(file.st_mode);
    const bool own = found && file.st_uid == geteuid() && (file.st_mode & 077) == 0 && file.st_nlink == 1;
    if (found && !own && unlink(lockPath) != 0 && errno != ENOENT) {
        linuxFatal("%s is open to others and cannot be removed: %s", lockPath, strerror(errno));
    }
}

static void sayLockTaken(int fd) {
    char pid[16] = "";
    const ssize_t n = pread(fd, pid, sizeof pid - 1, 0);
    const long owner = n > 0 ? strtol(pid, nullptr, 10) : 0;
    linuxFatal("%s is locked: another snoopd6 (process %ld) runs in this folder; stop that one first", lockPath, owner);
}

static void writePid(int fd) {
    char pid[16];
    const int length = snprintf(pid, sizeof pid, "%d\n", getpid());
    if (ftruncate(fd, 0) != 0 || pwrite(fd, pid, static_cast<size_t>(length), 0) != length) {
        linuxFatal("%s cannot be written: %s", lockPath, strerror(errno));
    }
}

static void lockFolder() {
    for (uint32_t i = 0; i < LOCK_TRIES; i++) {
        removeOpenFile();
        const int fd = open(lockPath, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
        if (fd < 0 || fchmod(fd, 0600) != 0) { // whatever the umask is: the next start opens it again
            linuxFatal("%s cannot be opened: %s; run as root or set SNOOPD6_RUN", lockPath, strerror(errno));
        }
        if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
            sayLockTaken(fd);
        }
        if (stillNamed(fd)) {
            lockHeld = true;
            writePid(fd);
            return; // the descriptor stays open: it is the lock
        }
        close(fd);
    }
    linuxFatal("%s vanishes again and again; is something cleaning up the folder?", lockPath);
}

// ---- The socket's name ---------------------------------------------------------------------------------------------

// A socket file outlives a process that was killed. It may go only when nobody listens to it.
static void clearSocketPath() {
    struct stat file;
    if (lstat(socketPath, &file) != 0) {
        if (errno != ENOENT) {
            linuxFatal("%s cannot be looked at: %s", socketPath, strerror(errno));
        }
        return;
    }
    if (!S_ISSOCK(file.st_mode)) {
        linuxFatal("%s is in the way and is no socket; move it away or set SNOOPD6_RUN", socketPath);
    }
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    memcpy(name.sun_path, socketPath, sizeof name.sun_path);
    const bool stale =
        fd >= 0 && connect(fd, reinterpret_cast<const sockaddr *>(&name), sizeof name) != 0 && errno == ECONNREFUSED;
    if (fd >= 0) {
        close(fd);
    }
    if (!stale) {
        linuxFatal("%s is in use by another program (ss -xlp shows which); stop that one or set SNOOPD6_RUN", socketPath);
    }
    if (unlink(socketPath) != 0) {
        linuxFatal("%s is left over and cannot be removed: %s", socketPath, strerror(errno));
    }
}

void linuxInstanceLock() {
    if (lockHeld) {
        return;
    }
    makePaths();
    linuxAtStop(unlockFolder);
    makeFolder();
    lockFolder();
    linuxNamespaceLock();
    clearSocketPath();
}
