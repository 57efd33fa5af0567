#include "tests/contract/linux_caller.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/linux/queue.h"

uint32_t queueOpened() {
    static uint32_t queueId;
    if (queueId == 0) {
        EXPECT_EQ(vosMsgInit("/sbin/snoopd6", 255, &queueId), 0);
    }
    return queueId;
}

int callerConnect() {
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    strncpy(name.sun_path, linuxSocketPath(), sizeof name.sun_path - 1);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&name), sizeof name) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

Bytes message(uint16_t type, uint32_t requestId, const Bytes &payload) {
    const VosMsgHeader header = {.type = type,
                                 .version = 1,
                                 .requestId = requestId,
                                 .flags = 0,
                                 .payloadLength = static_cast<uint16_t>(payload.size()),
                                 .result = 0,
                                 .reserved = 0};
    Bytes bytes(HEADER + payload.size());
    memcpy(bytes.data(), &header, HEADER);
    std::copy(payload.begin(), payload.end(), bytes.begin() + HEADER);
    return bytes;
}

void callerSend(int fd, const Bytes &bytes) {
    ASSERT_EQ(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size())) << strerror(errno);
}

Reply callerRead(int fd) {
    Bytes bytes(70000);
    const ssize_t n = recv(fd, bytes.data(), bytes.size(), 0);
    Reply reply = {.got = Got::reply, .header = {}, .payload = {}};
    if (n < static_cast<ssize_t>(HEADER)) {
        reply.got = n < 0 && errno == EAGAIN ? Got::nothing : Got::hangUp;
        return reply;
    }
    memcpy(&reply.header, bytes.data(), HEADER);
    reply.payload.assign(bytes.begin() + HEADER, bytes.begin() + n);
    return reply;
}

// ---- The daemon's end ----------------------------------------------------------------------------------------------

Taken daemonTake(int32_t timeoutMs) {
    static std::array<uint8_t, VOS_MSG_MAX> buffer;
    Taken taken = {};
    taken.result = vosMsgRecv(queueOpened(), buffer.data(), buffer.size(), timeoutMs, &taken.ctx);
    if (taken.result > 0) {
        taken.bytes.assign(buffer.begin(), buffer.begin() + taken.result);
    }
    return taken;
}

int32_t daemonReply(Taken *taken, int32_t result) {
    return vosMsgResp(queueOpened(), result, taken->bytes.data(), static_cast<uint32_t>(taken->bytes.size()), &taken->ctx);
}

void daemonIdle() {
    for (uint32_t i = 0; i < 3; i++) {
        ASSERT_EQ(daemonTake(0).result, 0);
    }
}

void expectServed(int fd, uint32_t requestId) {
    const Bytes sent = message(1, requestId, {1, 2, 3});
    callerSend(fd, sent);
    Taken taken = daemonTake();
    ASSERT_EQ(taken.bytes, sent);
    ASSERT_EQ(daemonReply(&taken, 5), 0);
    const Reply reply = callerRead(fd);
    ASSERT_EQ(reply.got, Got::reply);
    ASSERT_EQ(reply.header.requestId, requestId);
}

void Queue::SetUp() {
    queueOpened();
    caller = callerConnect();
    ASSERT_GE(caller, 0);
}

void Queue::TearDown() {
    close(caller);
    daemonIdle();
}
