// The remote calls of libsmd: takes the arguments of a message apart, runs the function and puts the answers back in place.

#include "platform/libsmd.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "platform/libvos.h"
#include "platform/linux/debugswitch.h"
#include "platform/linux/logline.h"

static constexpr uint32_t FUNCTIONS_MAX = 64;
static constexpr uint32_t DEBUG_LEVELS = 0x400; // levels from here are for debugging, those below report failures

struct RemoteFunction {
    SmdWrapFn fn;
    const char *idName;
    const char *wrapperName;
};

static RemoteFunction functions[FUNCTIONS_MAX];
static uint32_t functionCount; // size of the table that was asked for

int32_t smdRMWrapInit(uint32_t entries) {
    if (entries > FUNCTIONS_MAX) {
        return -1;
    }
    std::fill_n(functions, FUNCTIONS_MAX, RemoteFunction{});
    functionCount = entries;
    return 0;
}

int32_t __smdRmWrapRegister(uint32_t id, uint32_t, SmdWrapFn fn, const char *idName, const char *wrapperName) {
    if (id >= functionCount || fn == nullptr || functions[id].fn != nullptr) {
        return -1;
    }
    functions[id] = {fn, idName != nullptr ? idName : "", wrapperName != nullptr ? wrapperName : ""};
    return 0;
}

// ---- Decoding ------------------------------------------------------------------------------------------------------

// Where one argument is kept while a function works on it. The bytes behind it stay 0, so that a text that fills its
// argument to the last byte ends all the same.
struct alignas(16) Slot {
    uint8_t bytes[SMD_RM_SLOT];
    uint8_t end[16];
};

static Slot slots[SMD_RM_ARGS];

struct RemoteCall {
    uint32_t id;
    uint32_t count;
    uint8_t *bytes[SMD_RM_ARGS]; // the arguments in the message
    uint32_t lengths[SMD_RM_ARGS];
};

static uint32_t takeU32(const uint8_t *at) {
    uint32_t value = 0;
    memcpy(&value, at, sizeof value);
    return value;
}

// False unless the payload is exactly one call, every argument of it inside.
static bool decode(uint8_t *payload, uint32_t length, RemoteCall *call) {
    if (length < 8) {
        return false;
    }
    call->id = takeU32(payload);
    call->count = takeU32(payload + 4);
    if (call->count > SMD_RM_ARGS) {
        return false;
    }
    uint8_t *at = payload + 8;
    uint32_t left = length - 8;
    for (uint32_t i = 0; i < call->count; i++) {
        if (left < 8) {
            return false;
        }
        const uint32_t bytes = takeU32(at);
        const uint32_t zero = takeU32(at + 4);
        at += 8;
        left -= 8;
        if (zero != 0 || bytes > SMD_RM_SLOT) {
            return false;
        }
        const uint32_t padded = (bytes + 7) & ~7u;
        if (padded > left) {
            return false;
        }
        call->bytes[i] = at;
        call->lengths[i] = bytes;
        at += padded;
        left -= padded;
    }
    return left == 0;
}

static int32_t run(const RemoteCall *call, SmdWrapFn fn) {
    SmdRmArg argv[SMD_RM_ARGS] = {};
    for (uint32_t i = 0; i < call->count; i++) {
        slots[i] = Slot{};
        memcpy(slots[i].bytes, call->bytes[i], call->lengths[i]);
        argv[i] = {call->lengths[i], slots[i].bytes};
    }
    const int32_t result = fn(nullptr, argv, call->count);
    for (uint32_t i = 0; i < call->count; i++) {
        memcpy(call->bytes[i], slots[i].bytes, call->lengths[i]);
    }
    return result;
}

int32_t smdCfgRmWrapProcess(void *message) {
    if (message == nullptr) {
        return SMD_RM_BAD_MESSAGE;
    }
    VosMsgHeader header;
    memcpy(&header, message, sizeof header);
    const uint32_t length = std::min<uint32_t>(header.payloadLength, VOS_MSG_MAX - static_cast<uint32_t>(sizeof header));
    RemoteCall call = {};
    if (!decode(static_cast<uint8_t *>(message) + sizeof header, length, &call)) {
        return SMD_RM_BAD_MESSAGE;
    }
    if (call.id >= functionCount || functions[call.id].fn == nullptr) {
        smdDebugPrintf(DEBUG_LEVELS, "remote call %u is not registered", call.id);
        return SMD_RM_UNKNOWN;
    }
    const RemoteFunction *function = &functions[call.id];
    const int32_t result = run(&call, function->fn);
    smdDebugPrintf(DEBUG_LEVELS, "%s (%s) answered %d", function->wrapperName, function->idName, result);
    return result;
}

// ---- Trace ---------------------------------------------------------------------------------------------------------

void smdDebugPrintf(uint32_t level, const char *fmt, ...) {
    const bool failure = level < DEBUG_LEVELS;
    if (!failure && !linuxDebugIsOn(LINUX_MODULE_DHCP6_SNOOPING)) {
        return;
    }
    char text[256];
    va_list args;
    va_start(args, fmt);
    vsnprintf(text, sizeof text, fmt, args);
    va_end(args);
    linuxLogLine(failure ? LINUX_LOG_ERROR : LINUX_LOG_DEBUG, "", text, static_cast<uint32_t>(strlen(text)));
}
