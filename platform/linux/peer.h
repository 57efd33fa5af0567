#pragma once
// Who is on the other end of the daemon's socket, by the credentials that the kernel vouches for.

// True when the caller on `fd` may speak: root, the daemon's own user, or a member of the group of the file `path`. Others are
// named in the log, once per user. *pid is the caller's process.
bool linuxPeerAllowed(int fd, const char *path, int *pid);
