// libvos, libsyslog and liboem of the lean switch, and libcommon's port text.

#include <algorithm>
#include <arpa/inet.h>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "fuzz/check.h"
#include "fuzz/platform/lean.h"
#include "platform/libcommon.h"
#include "platform/liboem.h"
#include "platform/libsyslog.h"
#include "platform/libvos.h"

const uint8_t *leanMessage;
uint32_t leanMessageLength;

extern "C" {

int32_t vosMsgInit(const char *, uint32_t, uint32_t *queueId) {
    *queueId = 1;
    return 0;
}

int32_t vosMsgRecv(uint32_t, void *buf, uint32_t size, int32_t, VosMsgReplyCtx *ctx) {
    if (leanMessage == nullptr)
        return -1;
    const uint32_t length = std::min(leanMessageLength, size);
    std::memcpy(buf, leanMessage, length);
    leanMessage = nullptr;
    *ctx = {};
    return static_cast<int32_t>(length);
}

int32_t vosMsgResp(uint32_t, int32_t, void *buf, uint32_t length, VosMsgReplyCtx *) {
    static uint8_t reply[VOS_MSG_MAX];
    fuzzCheck(length >= sizeof(VosMsgHeader) && length <= VOS_MSG_MAX, "a reply fits the queue");
    std::memcpy(reply, buf, length);
    leanSwitch.sends++;
    return 0;
}

int32_t vosMsgRegisterBldrun(int32_t (*cb)(char *, uint32_t *, uint32_t, uint32_t)) {
    leanSwitch.build = cb;
    return 0;
}

int32_t vosTimerRegister(uint32_t, uint32_t, int32_t (*cb)(uint32_t, void *), uint32_t *timerId, void *) {
    leanSwitch.tick = cb;
    *timerId = 1;
    return 0;
}

uint32_t vosUpSeconds(void) {
    leanSwitch.now += leanSwitch.clockStep;
    return leanSwitch.now;
}

// The console is not shown: a fuzz run prints a million unknown message types. The text is measured all the same.
int32_t vosPrintf(const char *fmt, ...) {
    char line[512];
    va_list ap;
    va_start(ap, fmt);
    const int32_t length = std::vsnprintf(line, sizeof line, fmt, ap);
    va_end(ap);
    fuzzCheck(length > 0 && length < static_cast<int32_t>(sizeof line), "a console line fits its buffer");
    return length;
}

const char *vosProcessGetName(void) { return "/sbin/snoopd6"; }

const char *vosInetNtop(int32_t family, const void *addr, char *buf, uint32_t limit) {
    if (family != VOS_AF_INET6 || limit == 0)
        return nullptr;
    buf[0] = '\0';
    return inet_ntop(AF_INET6, addr, buf, limit);
}

int32_t syslogModuleSwitch(uint32_t, uint32_t) { return static_cast<int32_t>(leanSwitch.debug); }

int32_t syslogSendInfo(uint32_t, uint32_t, const char *, const char *format, const char *argument, uint64_t, uint64_t,
                       uint64_t) {
    fuzzCheck(std::strcmp(format, argument) == 0, "a log line is passed twice");
    fuzzCheck(argument[0] != '\0' && std::strlen(argument) <= 255, "a log line has 1 to 255 characters");
    leanSwitch.lines++;
    return 0;
}

int32_t OemInit(void) { return 0; }

// Without snprintf: the packet path asks for it, and a bench would measure the C library.
char *transPort2EtherPort(uint32_t port, char *buf) {
    char *at = buf;
    if (port >= 1 && port <= LEAN_PORTS) {
        *at++ = '0';
        *at++ = '/';
        if (port >= 10)
            *at++ = static_cast<char>('0' + port / 10);
        *at++ = static_cast<char>('0' + port % 10);
    }
    *at = '\0';
    return buf;
}

} // extern "C"
