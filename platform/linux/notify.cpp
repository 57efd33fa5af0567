#include "platform/linux/notify.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/linux/loop.h"

void linuxNotify(const char *state) {
    const char *path = getenv("NOTIFY_SOCKET");
    if (path == nullptr || (path[0] != '/' && path[0] != '@')) {
        return;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const size_t length = strlen(path);
    if (length >= sizeof address.sun_path) {
        linuxLog("NOTIFY_SOCKET names no socket: the path is too long");
        return;
    }
    memcpy(address.sun_path, path, length);
    if (path[0] == '@') { // an abstract name
        address.sun_path[0] = '\0';
    }
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const socklen_t size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    if (fd < 0 ||
        sendto(fd, state, strlen(state), MSG_DONTWAIT | MSG_NOSIGNAL, reinterpret_cast<sockaddr *>(&address), size) < 0) {
        linuxLog("cannot tell the service manager: %s", strerror(errno));
    }
    if (fd >= 0) {
        close(fd);
    }
}
