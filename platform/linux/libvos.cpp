#include "platform/libvos.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <event2/event.h>
#include <event2/event_struct.h>
#include <sys/utsname.h>

#include "platform/linux/debugswitch.h"
#include "platform/linux/loglimit.h"
#include "platform/linux/loop.h"
#include "platform/linux/protocol.h"
#include "platform/linux/queue.h"
#include "platform/linux/runningconfig.h"
#include "platform/linux/startup.h"
#include "platform/linux/startupsave.h"

static constexpr uint32_t QUEUE_ID = 1;
static constexpr uint32_t TIMERS_MAX = 8;
static constexpr timespec ERROR_PAUSE = {0, 100'000'000}; // before an error is said, so that no caller can spin on it

static_assert(VOS_AF_INET6 == AF_INET6);

// ---- Message queue -------------------------------------------------------------------------------------------------

static bool queueOpen;

int32_t vosMsgInit(const char *name, uint32_t, uint32_t *queueId) {
    if (name == nullptr || queueId == nullptr || queueOpen) {
        return -1;
    }
    linuxInstanceLock();
    linuxQueueOpen();
    linuxMsgHandle(LINUX_MSG_DEBUG, linuxDebugMessage);
    linuxStartupSaveInit();
    queueOpen = true;
    *queueId = QUEUE_ID;
    return 0;
}

int32_t vosMsgRegisterBldrun(int32_t (*cb)(char *text, uint32_t *space, uint32_t flags, uint32_t context)) {
    return linuxRunningConfigBuilder(cb);
}

static int32_t receiveError() {
    nanosleep(&ERROR_PAUSE, nullptr);
    return -1;
}

static void timeIsUp(evutil_socket_t, short, void *user) { *static_cast<bool *>(user) = true; }

// One turn of the loop comes before every message, so that a stream of messages does not hold up frames and timers.
int32_t vosMsgRecv(uint32_t queueId, void *buf, uint32_t size, int32_t timeoutMs, VosMsgReplyCtx *ctx) {
    if (!queueOpen || queueId != QUEUE_ID || buf == nullptr || ctx == nullptr) {
        return receiveError();
    }
    linuxStartupReplay();
    linuxQueueResume();
    bool late = false;
    event timer;
    evtimer_assign(&timer, linuxLoopBase(), timeIsUp, &late);
    if (timeoutMs >= 0) {
        const timeval wait = {timeoutMs / 1000, timeoutMs % 1000 * 1000L};
        evtimer_add(&timer, &wait);
    }
    uint32_t bytes = 0;
    int turn = 0;
    while (bytes == 0 && !late && turn != -1) {
        // Without EVLOOP_ONCE the loop would go on for as long as frames keep coming, and the message would wait.
        turn = event_base_loop(linuxLoopBase(), linuxQueueReady() ? EVLOOP_ONCE | EVLOOP_NONBLOCK : EVLOOP_ONCE);
        bytes = linuxQueueTake(static_cast<uint8_t *>(buf), size, ctx);
    }
    evtimer_del(&timer);
    if (bytes == 0 && turn == -1) {
        return receiveError();
    }
    return static_cast<int32_t>(bytes);
}

int32_t vosMsgResp(uint32_t queueId, int32_t result, void *buf, uint32_t length, VosMsgReplyCtx *ctx) {
    if (!queueOpen || queueId != QUEUE_ID || buf == nullptr || ctx == nullptr || length < sizeof(VosMsgHeader)) {
        return -1;
    }
    const uint8_t *payload = static_cast<const uint8_t *>(buf) + sizeof(VosMsgHeader);
    return linuxQueueReply(ctx, result, payload, length - static_cast<uint32_t>(sizeof(VosMsgHeader)));
}

// ---- Timers --------------------------------------------------------------------------------------------------------

struct Timer {
    int32_t (*cb)(uint32_t timerId, void *user);
    void *user;
    uint32_t id;
    event tick;
};

static Timer timers[TIMERS_MAX];
static uint32_t timerCount;

static void timerTick(evutil_socket_t, short, void *user) {
    const Timer *timer = static_cast<const Timer *>(user);
    timer->cb(timer->id, timer->user);
}

int32_t vosTimerRegister(uint32_t mode, uint32_t periodMs, int32_t (*cb)(uint32_t timerId, void *user), uint32_t *timerId,
                         void *user) {
    if (mode != 1 || periodMs == 0 || cb == nullptr || timerId == nullptr || timerCount == TIMERS_MAX) {
        return -1;
    }
    Timer *timer = &timers[timerCount];
    timer->cb = cb;
    timer->user = user;
    timer->id = timerCount + 1;
    const timeval period = {static_cast<time_t>(periodMs / 1000), periodMs % 1000 * 1000L};
    event_assign(&timer->tick, linuxLoopBase(), -1, EV_PERSIST, timerTick, timer);
    if (event_add(&timer->tick, &period) != 0) {
        return -1;
    }
    timerCount++;
    *timerId = timer->id;
    return 0;
}

static bool inTurn;
static uint32_t turnSeconds; // the clock in a turn; 0 until somebody asks

void linuxTurnBegin() {
    inTurn = true;
    turnSeconds = 0;
}

void linuxTurnEnd() { inTurn = false; }

uint32_t vosUpSeconds(void) {
    if (inTurn && turnSeconds != 0) {
        return turnSeconds;
    }
    timespec now = {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    turnSeconds = static_cast<uint32_t>(now.tv_sec);
    return turnSeconds;
}

// ---- Texts ---------------------------------------------------------------------------------------------------------

static bool printed;

static void print(const char *text) { printed = fputs(text, stdout) >= 0 && fflush(stdout) == 0; }

// A caller can make the daemon say what it does not know, again and again.
int32_t vosPrintf(const char *fmt, ...) {
    char text[512];
    va_list args;
    va_start(args, fmt);
    const int length = vsnprintf(text, sizeof text, fmt, args);
    va_end(args);
    printed = true;
    linuxLogThrough(fmt, print, text);
    return printed ? length : -1;
}

const char *vosProcessGetName(void) { return "/sbin/snoopd6"; }

// Asked for with every frame that gets an option, so the answer may be up to a second old.
int32_t vosHostNameGet(char *buf, uint32_t size) {
    static utsname system;
    static uint32_t askedAt;
    if (buf == nullptr || size == 0) {
        return -1;
    }
    buf[0] = '\0';
    const uint32_t now = vosUpSeconds();
    const bool known = now == askedAt && system.nodename[0] != '\0';
    if (!known && uname(&system) != 0) {
        return -1;
    }
    askedAt = now;
    const size_t length = std::min<size_t>(strlen(system.nodename), size - 1);
    memcpy(buf, system.nodename, length);
    buf[length] = '\0';
    return 0;
}

const char *vosInetNtop(int32_t family, const void *addr, char *buf, uint32_t limit) {
    if (buf == nullptr || limit == 0) {
        return nullptr;
    }
    buf[0] = '\0';
    if (family != VOS_AF_INET6 || addr == nullptr) {
        return nullptr;
    }
    return inet_ntop(AF_INET6, addr, buf, limit);
}
