// libvos of the recording platform, and libsyslog and liboem beside it: what the process asks for as a process.

#include "platform/libvos.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <deque>

#include "platform/liboem.h"
#include "platform/libsyslog.h"
#include "tests/platform/recording.h"

std::function<void()> recordingOnEmptyQueue;
std::vector<RecordingReply> recordingReplies;
RecordingCallbacks recordingCallbacks;
uint32_t recordingDebugOn = 0;
std::string recordingProcessName;
RecordingIdentity recordingIdentity;
RecordingOddities recordingOddities;

namespace {

struct QueueItem {
    std::vector<uint8_t> bytes;
    int32_t result;
    std::function<void()> event; // instead of a message
};

std::deque<QueueItem> queue;
uint32_t nextCaller = 0;

void put16(std::vector<uint8_t> &bytes, uint32_t offset, uint32_t value) {
    bytes[offset] = static_cast<uint8_t>(value);
    bytes[offset + 1] = static_cast<uint8_t>(value >> 8);
}

} // namespace

void recordingResetVos() {
    queue.clear();
    nextCaller = 0;
    recordingOnEmptyQueue = nullptr;
    recordingReplies.clear();
    recordingCallbacks = {};
    recordingDebugOn = 0;
    recordingProcessName = "/sbin/snoopd6";
    recordingIdentity = {.hostName = "switch",
                         .systemMac = {0x02, 0, 0, 0, 0, 0xFE},
                         .enterprise = 47119,
                         .seller = "",
                         .title = "DHCPv6 snooping"};
    recordingOddities = {};
}

void recordingQueueMessage(uint16_t type, const std::vector<uint8_t> &payload) {
    std::vector<uint8_t> bytes(sizeof(VosMsgHeader), 0);
    put16(bytes, 0, type);
    put16(bytes, 2, 1);
    put16(bytes, 4, 0x1234);
    put16(bytes, 10, static_cast<uint32_t>(payload.size()));
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    recordingQueueRaw(bytes, static_cast<int32_t>(bytes.size()));
}

void recordingQueueRaw(const std::vector<uint8_t> &bytes, int32_t result) { queue.push_back({bytes, result, nullptr}); }

void recordingQueueEvent(std::function<void()> event) { queue.push_back({{}, 0, std::move(event)}); }

int32_t vosMsgInit(const char *name, uint32_t flag, uint32_t *queueId) {
    if (recordingCall("vosMsgInit name=\"%s\" flag=%u", name, flag))
        return -1;
    *queueId = 7;
    return 0;
}

int32_t vosMsgRecv(uint32_t queueId, void *buf, uint32_t size, int32_t timeoutMs, VosMsgReplyCtx *ctx) {
    if (recordingCall("vosMsgRecv queue=%u size=%u timeout=%d", queueId, size, timeoutMs))
        return -1;
    while (!queue.empty() && queue.front().event) {
        const std::function<void()> event = queue.front().event;
        queue.pop_front();
        event();
    }
    if (queue.empty()) {
        if (recordingOnEmptyQueue)
            recordingOnEmptyQueue();
        return -1;
    }
    const QueueItem item = queue.front();
    queue.pop_front();
    if (!item.bytes.empty())
        memcpy(buf, item.bytes.data(), std::min<size_t>(item.bytes.size(), size));
    *ctx = {.caller = ++nextCaller, .requestId = 0x1234, .type = 1, .reserved = 0};
    return item.result;
}

int32_t vosMsgResp(uint32_t queueId, int32_t result, void *buf, uint32_t length, VosMsgReplyCtx *ctx) {
    const bool fails = recordingCall("vosMsgResp queue=%u result=%d length=%u caller=%llu", queueId, result, length,
                                     static_cast<unsigned long long>(ctx->caller));
    const auto *bytes = static_cast<const uint8_t *>(buf);
    recordingReplies.push_back({result, std::vector<uint8_t>(bytes, bytes + length), *ctx});
    return fails ? -1 : 0;
}

int32_t vosMsgRegisterBldrun(int32_t (*cb)(char *text, uint32_t *space, uint32_t flags, uint32_t context)) {
    if (recordingCall("vosMsgRegisterBldrun"))
        return -1;
    recordingCallbacks.buildRunning = cb;
    return 0;
}

int32_t vosTimerRegister(uint32_t mode, uint32_t periodMs, int32_t (*cb)(uint32_t timerId, void *user), uint32_t *timerId,
                         void *user) {
    if (recordingCall("vosTimerRegister mode=%u period=%u user=%s", mode, periodMs, user == nullptr ? "0" : "set"))
        return -1;
    recordingCallbacks.timer = cb;
    recordingCallbacks.timerUser = user;
    *timerId = 3;
    return 0;
}

uint32_t vosUpSeconds(void) {
    recordingQuietCall("vosUpSeconds");
    return recordingClock;
}

int32_t vosPrintf(const char *fmt, ...) {
    char text[4096];
    va_list arguments;
    va_start(arguments, fmt);
    const int32_t written = vsnprintf(text, sizeof text, fmt, arguments);
    va_end(arguments);
    recordingConsole.emplace_back(text);
    // A death test sees the line on the standard error of the process that dies.
    fprintf(stderr, "%s", text);
    return recordingCall("vosPrintf \"%s\"", recordingEscape(text).c_str()) ? -1 : written;
}

const char *vosProcessGetName(void) {
    recordingQuietCall("vosProcessGetName");
    return recordingProcessName.c_str();
}

int32_t vosHostNameGet(char *buf, uint32_t size) {
    const bool fails = recordingCall("vosHostNameGet size=%u", size);
    if (fails && recordingOddities.failuresLeaveOuts)
        return -1;
    const std::string name = fails ? "" : recordingIdentity.hostName;
    if (recordingOddities.hostNameUnending && name.size() >= size)
        memcpy(buf, name.data(), size);
    else if (size != 0)
        snprintf(buf, size, "%s", name.c_str());
    return fails ? -1 : 0;
}

const char *vosInetNtop(int32_t family, const void *addr, char *buf, uint32_t limit) {
    if (recordingQuietCall("vosInetNtop family=%d limit=%u", family, limit) || limit == 0)
        return nullptr;
    char text[INET6_ADDRSTRLEN];
    buf[0] = 0;
    if (family != VOS_AF_INET6 || inet_ntop(AF_INET6, addr, text, sizeof text) == nullptr || strlen(text) >= limit)
        return nullptr;
    memcpy(buf, text, strlen(text) + 1);
    return buf;
}

int32_t syslogModuleSwitch(uint32_t module, uint32_t level) {
    if (recordingQuietCall("syslogModuleSwitch module=%u level=%u", module, level))
        return 0;
    return static_cast<int32_t>(recordingDebugOn);
}

int32_t syslogSendInfo(uint32_t module, uint32_t level, const char *tag, const char *format, const char *argument, uint64_t a,
                       uint64_t b, uint64_t c) {
    if (module == 53 && level == 7)
        recordingTraces.emplace_back(argument);
    const char *oddity = strcmp(format, argument) == 0 && (a | b | c) == 0 ? "" : " (arguments differ)";
    const bool fails = recordingCall("syslogSendInfo module=%u level=%u tag=\"%s\" \"%s\"%s", module, level, tag,
                                     recordingEscape(argument).c_str(), oddity);
    return fails ? -1 : 0;
}

const char *get_str_by_mid(uint32_t module) {
    const bool fails = recordingQuietCall("get_str_by_mid module=%u", module);
    return module == 53 && !fails ? recordingIdentity.title.c_str() : nullptr;
}

int32_t OemInit(void) { return recordingCall("OemInit") ? -1 : 0; }

uint32_t oemPenGet(void) {
    recordingCall("oemPenGet");
    return recordingIdentity.enterprise;
}

int32_t oem_type_check(const char *name) {
    const bool fails = recordingCall("oem_type_check name=\"%s\"", name);
    return fails || recordingIdentity.seller == name ? -1 : 0; // not 1: only non-zero is promised
}
