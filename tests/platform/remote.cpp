// libsmd of the recording platform, the remote-call side: a table of functions, and the decoder of a call's message.

#include <algorithm>
#include <cstring>

#include "platform/libsmd.h"
#include "tests/platform/recording.h"

std::function<int32_t(void *)> recordingRemoteCall;

namespace {

std::vector<SmdWrapFn> functions;
alignas(16) uint8_t slots[SMD_RM_ARGS][SMD_RM_SLOT];

uint32_t get32(const uint8_t *at) {
    uint32_t value = 0;
    memcpy(&value, at, sizeof value);
    return value;
}

} // namespace

void recordingResetRemote() {
    functions.clear();
    recordingRemoteCall = nullptr;
}

SmdWrapFn recordingRemoteFunction(uint32_t id) { return id < functions.size() ? functions[id] : nullptr; }

int32_t smdRMWrapInit(uint32_t entries) {
    if (recordingCall("smdRMWrapInit entries=%u", entries))
        return -1;
    functions.assign(entries, nullptr);
    return 0;
}

int32_t __smdRmWrapRegister(uint32_t id, uint32_t zero, SmdWrapFn fn, const char *idName, const char *wrapperName) {
    if (recordingCall("__smdRmWrapRegister id=%u zero=%u %s %s", id, zero, idName, wrapperName))
        return -1;
    if (id >= functions.size() || functions[id] != nullptr)
        return -1;
    functions[id] = fn;
    return 0;
}

int32_t smdCfgRmWrapProcess(void *message) {
    if (recordingCall("smdCfgRmWrapProcess"))
        return -1;
    if (recordingRemoteCall)
        return recordingRemoteCall(message);
    VosMsgHeader header;
    memcpy(&header, message, sizeof header);
    uint8_t *payload = static_cast<uint8_t *>(message) + sizeof header;
    const uint32_t size = std::min<uint32_t>(header.payloadLength, VOS_MSG_MAX - sizeof header);
    if (size < 8)
        return SMD_RM_BAD_MESSAGE;
    const uint32_t id = get32(payload);
    const uint32_t count = get32(payload + 4);
    if (count > SMD_RM_ARGS)
        return SMD_RM_BAD_MESSAGE;
    SmdRmArg arguments[SMD_RM_ARGS] = {};
    uint32_t starts[SMD_RM_ARGS] = {};
    uint32_t at = 8;
    for (uint32_t i = 0; i < count; i++) {
        if (size - at < 8)
            return SMD_RM_BAD_MESSAGE;
        const uint32_t length = get32(payload + at);
        const uint32_t zero = get32(payload + at + 4);
        at += 8;
        if (zero != 0 || length > SMD_RM_SLOT || (length + 7) / 8 * 8 > size - at)
            return SMD_RM_BAD_MESSAGE;
        memset(slots[i], 0, SMD_RM_SLOT);
        memcpy(slots[i], payload + at, length);
        arguments[i] = {.length = length, .data = slots[i]};
        starts[i] = at;
        at += (length + 7) / 8 * 8;
    }
    if (at != size)
        return SMD_RM_BAD_MESSAGE;
    if (id >= functions.size() || functions[id] == nullptr)
        return SMD_RM_UNKNOWN;
    const int32_t result = functions[id](nullptr, arguments, count);
    for (uint32_t i = 0; i < count; i++)
        memcpy(payload + starts[i], slots[i], arguments[i].length);
    return result;
}
