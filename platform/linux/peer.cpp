#include "platform/linux/peer.h"

#include <cstdint>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/loglimit.h"

static constexpr uint32_t GROUPS_MAX = 65536; // the kernel's own bound of a process's supplementary groups
static constexpr uint32_t REFUSED_MAX = 64;   // refused users that are remembered; the oldest is forgotten first

static gid_t groups[GROUPS_MAX];
static uid_t refused[REFUSED_MAX];
static uint32_t refusedCount;

static bool inGroup(int fd, const ucred *peer, gid_t group) {
    if (peer->gid == group) {
        return true;
    }
    socklen_t size = sizeof groups;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups, &size) != 0) {
        return false;
    }
    for (uint32_t i = 0; i < size / sizeof groups[0]; i++) {
        if (groups[i] == group) {
            return true;
        }
    }
    return false;
}

static void sayRefused(const ucred *peer, const char *path) {
    const uint32_t known = refusedCount < REFUSED_MAX ? refusedCount : REFUSED_MAX;
    for (uint32_t i = 0; i < known; i++) {
        if (refused[i] == peer->uid) {
            return;
        }
    }
    refused[refusedCount % REFUSED_MAX] = peer->uid;
    refusedCount++;
    linuxLogLimited("user %u (process %d) may not use %s: not root, not the daemon's user, not in the file's group", peer->uid,
                    peer->pid, path);
}

bool linuxPeerAllowed(int fd, const char *path, int *pid) {
    ucred peer = {};
    socklen_t size = sizeof peer;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        return false;
    }
    *pid = peer.pid;
    if (peer.uid == 0 || peer.uid == geteuid()) {
        return true;
    }
    struct stat file;
    if (stat(path, &file) == 0 && inGroup(fd, &peer, file.st_gid)) {
        return true;
    }
    sayRefused(&peer, path);
    return false;
}
