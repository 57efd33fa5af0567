#include "shell/connection.h"

#include <array>
#include <bit>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/libvos.h"
#include "platform/linux/protocol.h"
#include "shell/values.h"

// Headers and records are copied as they lie in memory, which is their wire form on a little-endian machine only.
static_assert(std::endian::native == std::endian::little);

namespace {

constexpr uint16_t PROTOCOL_VERSION = 1;

using Clock = std::chrono::steady_clock;

std::string connectFailure(const std::string &path, int code) {
    const std::string shown = textPrintable(path);
    if (code == ENOENT || code == ECONNREFUSED) {
        return "no answer from the daemon: is snoopd6 running? looked at " + shown;
    }
    if (code == EACCES || code == EPERM) {
        return "no right to talk to the daemon at " + shown + ": run snoopctl as root or as a member of the socket's group";
    }
    if (code == EAGAIN) {
        return "the daemon at " + shown + " takes no more callers: close other snoopctl sessions, or look whether it hangs";
    }
    return "cannot connect to the daemon at " + shown + ": " + std::strerror(code);
}

bool connectionOpen(Connection *connection, uint32_t timeoutMs, std::string *error) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (connection->socketPath.size() >= sizeof address.sun_path) {
        *error = "the run folder's name is too long for a socket: " + textQuoted(connection->socketPath) + " has " +
                 std::to_string(connection->socketPath.size()) + " characters, allowed are " +
                 std::to_string(sizeof address.sun_path - 1);
        return false;
    }
    std::memcpy(address.sun_path, connection->socketPath.data(), connection->socketPath.size());
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        *error = std::string("cannot open a socket: ") + std::strerror(errno);
        return false;
    }
    // Bounds connect and send, which wait for a daemon that takes nothing any more.
    const timeval limit = {.tv_sec = timeoutMs / 1000, .tv_usec = static_cast<suseconds_t>(timeoutMs % 1000) * 1000};
    if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0 ||
        connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        *error = connectFailure(connection->socketPath, errno);
        close(fd);
        return false;
    }
    connection->fd = fd;
    return true;
}

bool sendMessage(Connection *connection, const std::vector<uint8_t> &message) {
    ssize_t sent = 0;
    do {
        sent = send(connection->fd, message.data(), message.size(), MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent == static_cast<ssize_t>(message.size());
}

// Hands the message over, through a new connection when the old one has no daemon behind it any more.
bool connectionSend(Connection *connection, const std::vector<uint8_t> &message, uint32_t timeoutMs, std::string *error) {
    const bool kept = connection->fd >= 0;
    if (!kept && !connectionOpen(connection, timeoutMs, error)) {
        return false;
    }
    if (sendMessage(connection, message)) {
        return true;
    }
    const bool gone = errno == EPIPE || errno == ECONNRESET;
    if (kept && gone) {
        connectionClose(connection);
        return connectionOpen(connection, timeoutMs, error) && connectionSend(connection, message, timeoutMs, error);
    }
    *error = connectFailure(connection->socketPath, gone ? ECONNREFUSED : errno);
    return false;
}

bool waitReadable(const Connection *connection, uint32_t timeoutMs, std::string *error) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd wanted = {.fd = connection->fd, .events = POLLIN, .revents = 0};
        const int ready = poll(&wanted, 1, left > 0 ? static_cast<int>(left) : 0);
        if (ready > 0) {
            return true;
        }
        if (ready == 0 || errno != EINTR) {
            break;
        }
    }
    *error = "the daemon at " + textPrintable(connection->socketPath) + " has not answered within " +
             textDuration(timeoutMs / 1000) + ": whether the command took effect is not known";
    return false;
}

bool connectionReceive(Connection *connection, uint32_t timeoutMs, std::vector<uint8_t> *message, std::string *error) {
    if (!waitReadable(connection, timeoutMs, error)) {
        return false;
    }
    message->resize(VOS_MSG_MAX);
    // MSG_TRUNC: the length of the whole message, however much of it fitted.
    const ssize_t length = recv(connection->fd, message->data(), message->size(), MSG_TRUNC | MSG_DONTWAIT);
    if (length > 0 && length <= static_cast<ssize_t>(message->size())) {
        message->resize(static_cast<size_t>(length));
        return true;
    }
    *error = length > 0 ? "the daemon's answer is damaged: it is " + std::to_string(length) + " bytes long"
                        : "the daemon at " + textPrintable(connection->socketPath) +
                              " closed the connection without an answer: it may have ended, or refuse this user";
    return false;
}

bool replyTake(const std::vector<uint8_t> &message, const VosMsgHeader &request, Reply *reply, std::string *error) {
    VosMsgHeader header = {};
    if (message.size() < sizeof header) {
        *error = "the daemon's answer is damaged: it is only " + std::to_string(message.size()) + " bytes long";
        return false;
    }
    std::memcpy(&header, message.data(), sizeof header);
    if (header.version != PROTOCOL_VERSION) {
        *error = "the daemon speaks version " + std::to_string(header.version) + " of the protocol, snoopctl version " +
                 std::to_string(PROTOCOL_VERSION) + ": install both from the same release";
        return false;
    }
    if (header.type != request.type || header.requestId != request.requestId ||
        header.payloadLength != message.size() - sizeof header) {
        *error = "the daemon's answer is damaged: its header does not fit the question";
        return false;
    }
    reply->result = header.result;
    reply->payload.assign(message.begin() + sizeof header, message.end());
    return true;
}

} // namespace

std::string connectionSocketPath(const std::string &runFolder) { return runFolder + "/" + SNOOPD6_SOCKET_NAME; }

bool connectionExchange(Connection *connection, uint16_t type, std::span<const uint8_t> payload, uint32_t timeoutMs,
                        Reply *reply, std::string *error) {
    if (payload.size() > VOS_MSG_MAX - sizeof(VosMsgHeader)) {
        *error = "the request is too long: " + std::to_string(payload.size()) + " bytes";
        return false;
    }
    const VosMsgHeader header = {.type = type,
                                 .version = PROTOCOL_VERSION,
                                 .requestId = ++connection->requestId,
                                 .flags = 0,
                                 .payloadLength = static_cast<uint16_t>(payload.size()),
                                 .result = 0,
                                 .reserved = 0};
    std::vector<uint8_t> message(sizeof header + payload.size());
    std::memcpy(message.data(), &header, sizeof header);
    std::copy(payload.begin(), payload.end(), message.begin() + sizeof header);

    std::vector<uint8_t> answer;
    if (connectionSend(connection, message, timeoutMs, error) && connectionReceive(connection, timeoutMs, &answer, error) &&
        replyTake(answer, header, reply, error)) {
        return true;
    }
    connectionClose(connection);
    return false;
}

void connectionClose(Connection *connection) {
    if (connection->fd >= 0) {
        close(connection->fd);
        connection->fd = -1;
    }
}
