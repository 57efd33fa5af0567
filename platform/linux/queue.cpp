#include "platform/linux/queue.h"

#include <cerrno>
#include <cstring>
#include <event2/event.h>
#include <event2/event_struct.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/linux/loglimit.h"
#include "platform/linux/loop.h"
#include "platform/linux/peer.h"
#include "platform/linux/protocol.h"

static constexpr uint32_t HANDLERS_MAX = 16;  // platform message types, from 0x8000
static constexpr uint32_t ACCEPTS_A_TURN = 8; // so that a crowd of callers cannot hold the loop
static constexpr uint32_t PAYLOAD_MAX = VOS_MSG_MAX - sizeof(VosMsgHeader);
static constexpr timeval ACCEPT_PAUSE = {1, 0}; // after the process ran out of descriptors

struct Caller {
    uint64_t id; // never used twice; 0 while the place is free. Place in the table + LINUX_CALLERS_MAX times a counter
    int fd;
    int pid;           // for the log
    uint64_t lastUsed; // count of messages at the time of its last one; 0 before the first
    uint32_t length;   // bytes of its message; 0 while none waits
    event readable;    // taken out of the loop when it comes while no message may be read
};

static Caller callers[LINUX_CALLERS_MAX];
alignas(16) static uint8_t messages[LINUX_CALLERS_MAX][VOS_MSG_MAX]; // by place of the caller
static uint8_t answer[PAYLOAD_MAX];

static uint32_t waiting[LINUX_CALLERS_MAX]; // places of callers whose message waits, a ring
static uint32_t waitingFirst;
static uint32_t waitingCount;

static uint64_t answeredNow; // caller of the platform message that is being answered
static uint64_t takenFrom;   // caller of the message that was taken last; 0 when that is done with
static uint64_t connectionCount;
static uint64_t messageCount;

static int listenFd = -1;
static event listenReadable;
static event listenAgain;

static LinuxMsgHandler handlers[HANDLERS_MAX];

// ---- Connections ---------------------------------------------------------------------------------------------------

static Caller *callerById(uint64_t id) {
    Caller *caller = &callers[id % LINUX_CALLERS_MAX];
    return id != 0 && caller->id == id ? caller : nullptr;
}

// Takes a caller whose message waits out of the ring; the order of the others stays.
static void stopWaiting(uint32_t place) {
    const uint32_t count = waitingCount;
    waitingCount = 0;
    for (uint32_t i = 0; i < count; i++) {
        const uint32_t other = waiting[(waitingFirst + i) % LINUX_CALLERS_MAX];
        if (other != place) {
            waiting[(waitingFirst + waitingCount) % LINUX_CALLERS_MAX] = other;
            waitingCount++;
        }
    }
}

static void closeCaller(Caller *caller) {
    if (caller->length > 0) {
        stopWaiting(static_cast<uint32_t>(caller - callers));
    }
    event_del(&caller->readable);
    close(caller->fd);
    *caller = Caller{};
}

// True when `caller` was silent longer than `other`. Whoever never said anything was, whenever it came.
static bool silentLonger(const Caller &caller, const Caller &other) {
    return caller.lastUsed != other.lastUsed ? caller.lastUsed < other.lastUsed : caller.id < other.id;
}

// A free place. When there is none, the connection that was silent longest is closed for it; one whose message waits is
// never closed. Null when they all wait.
static Caller *freePlace() {
    Caller *silent = nullptr;
    for (Caller &caller : callers) {
        if (caller.id == 0) {
            return &caller;
        }
        if (caller.length == 0 && (silent == nullptr || silentLonger(caller, *silent))) {
            silent = &caller;
        }
    }
    if (silent != nullptr) {
        linuxLogLimited("%u callers are connected: process %d, silent longest, is disconnected", LINUX_CALLERS_MAX,
                        silent->pid);
        closeCaller(silent);
    }
    return silent;
}

// ---- Messages ------------------------------------------------------------------------------------------------------

void linuxMsgHandle(uint16_t type, LinuxMsgHandler handler) {
    if (type < 0x8000 || type >= 0x8000 + HANDLERS_MAX) {
        linuxFatal("message type 0x%x is no platform message", type);
    }
    handlers[type - 0x8000] = handler;
}

static void answerPlatformMessage(const VosMsgHeader *header, const VosMsgReplyCtx *ctx, const uint8_t *payload) {
    const uint32_t index = header->type - 0x8000u;
    const LinuxMsgHandler handler = index < HANDLERS_MAX ? handlers[index] : nullptr;
    int32_t result = LINUX_RESULT_UNKNOWN;
    uint32_t length = 0;
    if (handler != nullptr) {
        answeredNow = ctx->caller;
        result = handler(payload, header->payloadLength, answer, PAYLOAD_MAX, &length);
    }
    linuxQueueReply(ctx, result, answer, length);
}

// What is wrong with a datagram of n bytes; null when nothing is.
static const char *faultOf(ssize_t n, int flags, const VosMsgHeader *header) {
    if ((flags & MSG_TRUNC) != 0) {
        return "longer than any message";
    }
    if (static_cast<size_t>(n) < sizeof *header) {
        return "shorter than a header";
    }
    if (header->version != 1) {
        return "of another version";
    }
    if (static_cast<size_t>(n) != sizeof *header + header->payloadLength) {
        return "not as long as it says";
    }
    return nullptr;
}

// Nothing is read from a caller whose message waits or was taken and is not done with.
static bool mayRead(const Caller *caller) { return caller->length == 0 && caller->id != takenFrom; }

static void readAgain(Caller *caller) {
    if (event_pending(&caller->readable, EV_READ, nullptr) == 0) {
        event_add(&caller->readable, nullptr);
    }
}

static void messageArrived(Caller *caller, uint32_t place, uint32_t length) {
    messageCount++;
    caller->lastUsed = messageCount;
    caller->length = length;
    waiting[(waitingFirst + waitingCount) % LINUX_CALLERS_MAX] = place;
    waitingCount++;
}

static void callerReadable(evutil_socket_t fd, short, void *user) {
    Caller *caller = static_cast<Caller *>(user);
    const uint32_t place = static_cast<uint32_t>(caller - callers);
    if (!mayRead(caller)) { // most callers wait for their reply before they send again, and never get here
        event_del(&caller->readable);
        return;
    }
    iovec space = {messages[place], VOS_MSG_MAX};
    msghdr call = {};
    call.msg_iov = &space;
    call.msg_iovlen = 1;
    const ssize_t n = recvmsg(fd, &call, MSG_DONTWAIT);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    if (n <= 0) { // gone; an empty datagram looks the same and is as useless
        closeCaller(caller);
        return;
    }
    VosMsgHeader header = {};
    memcpy(&header, messages[place], sizeof header); // what a short message leaves of it is judged by its length
    const char *fault = faultOf(n, call.msg_flags, &header);
    if (fault != nullptr) {
        linuxLogLimited("process %d sent a message that is %s: disconnected", caller->pid, fault);
        closeCaller(caller);
        return;
    }
    messageArrived(caller, place, static_cast<uint32_t>(n));
}

// ---- What libvos asks for ------------------------------------------------------------------------------------------

bool linuxQueueReady() { return waitingCount > 0; }

void linuxQueueResume() {
    Caller *caller = callerById(takenFrom);
    takenFrom = 0;
    if (caller != nullptr) {
        readAgain(caller);
    }
}

// One platform message is as much as a turn of the loop gives to the callers: some take milliseconds.
static void answerTaken(uint32_t place, const VosMsgHeader *header, const VosMsgReplyCtx *ctx) {
    answerPlatformMessage(header, ctx, &messages[place][sizeof *header]);
    Caller *caller = callerById(ctx->caller);
    if (caller != nullptr) { // it may have lost its connection
        readAgain(caller);
    }
}

uint32_t linuxQueueTake(uint8_t *buf, uint32_t size, VosMsgReplyCtx *ctx) {
    while (waitingCount > 0) {
        const uint32_t place = waiting[waitingFirst];
        waitingFirst = (waitingFirst + 1) % LINUX_CALLERS_MAX;
        waitingCount--;
        Caller *caller = &callers[place];
        const uint32_t length = caller->length;
        caller->length = 0;
        VosMsgHeader header;
        memcpy(&header, messages[place], sizeof header);
        *ctx = {.caller = caller->id, .requestId = header.requestId, .type = header.type, .reserved = 0};
        if (header.type >= 0x8000) {
            answerTaken(place, &header, ctx);
            return 0;
        }
        if (length > size) {
            linuxLogLimited("process %d sent a message of %u bytes where %u are taken: disconnected", caller->pid, length,
                            size);
            closeCaller(caller);
            continue;
        }
        memcpy(buf, messages[place], length);
        takenFrom = caller->id;
        return length;
    }
    return 0;
}

uint64_t linuxQueueCaller() { return answeredNow; }

bool linuxQueueConnected(uint64_t caller) { return callerById(caller) != nullptr; }

int32_t linuxQueueReply(const VosMsgReplyCtx *ctx, int32_t result, const uint8_t *payload, uint32_t length) {
    Caller *caller = callerById(ctx->caller);
    if (caller == nullptr || length > PAYLOAD_MAX) {
        return -1;
    }
    VosMsgHeader header = {.type = ctx->type,
                           .version = 1,
                           .requestId = ctx->requestId,
                           .flags = 0,
                           .payloadLength = static_cast<uint16_t>(length),
                           .result = result,
                           .reserved = 0};
    iovec pieces[] = {{&header, sizeof header}, {const_cast<uint8_t *>(payload), length}};
    msghdr call = {};
    call.msg_iov = pieces;
    call.msg_iovlen = 2;
    if (sendmsg(caller->fd, &call, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) {
        return 0;
    }
    if (errno == EAGAIN) {
        linuxLogLimited("process %d does not read its replies: disconnected", caller->pid);
    }
    closeCaller(caller);
    return -1;
}

// ---- The listening socket ------------------------------------------------------------------------------------------

static void welcome(int fd) {
    int pid = 0;
    if (!linuxPeerAllowed(fd, linuxSocketPath(), &pid)) {
        close(fd);
        return;
    }
    Caller *caller = freePlace();
    if (caller == nullptr) {
        close(fd);
        return;
    }
    connectionCount++;
    caller->fd = fd;
    caller->pid = pid;
    caller->id = connectionCount * LINUX_CALLERS_MAX + static_cast<uint64_t>(caller - callers);
    event_assign(&caller->readable, linuxLoopBase(), fd, EV_READ | EV_PERSIST, callerReadable, caller);
    event_add(&caller->readable, nullptr);
}

static void callerConnects(evutil_socket_t, short, void *) {
    for (uint32_t i = 0; i < ACCEPTS_A_TURN; i++) {
        const int fd = accept4(listenFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd >= 0) {
            welcome(fd);
        } else if (errno == EAGAIN) {
            return;
        } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            // The caller stays in the backlog and keeps the socket readable: without a pause the loop would spin.
            event_del(&listenReadable);
            event_add(&listenAgain, &ACCEPT_PAUSE);
            return;
        }
    }
}

static void listenOn(evutil_socket_t, short, void *) { event_add(&listenReadable, nullptr); }

static void closeQueue() { unlink(linuxSocketPath()); }

void linuxQueueOpen() {
    listenFd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    strncpy(name.sun_path, linuxSocketPath(), sizeof name.sun_path - 1);
    const mode_t mask = umask(0117); // the file is made with mode 0660, there is no moment with another
    const bool bound = listenFd >= 0 && bind(listenFd, reinterpret_cast<const sockaddr *>(&name), sizeof name) == 0;
    const int bindError = errno;
    umask(mask);
    if (!bound) {
        linuxFatal("the socket %s cannot be opened: %s", name.sun_path, strerror(bindError));
    }
    linuxAtStop(closeQueue);
    if (listen(listenFd, LINUX_CALLERS_MAX) != 0) {
        linuxFatal("the socket %s cannot be listened to: %s", name.sun_path, strerror(errno));
    }
    event_assign(&listenReadable, linuxLoopBase(), listenFd, EV_READ | EV_PERSIST, callerConnects, nullptr);
    evtimer_assign(&listenAgain, linuxLoopBase(), listenOn, nullptr);
    event_add(&listenReadable, nullptr);
}
