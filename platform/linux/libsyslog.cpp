#include "platform/libsyslog.h"

#include <cstring>

#include "platform/linux/debugswitch.h"
#include "platform/linux/logline.h"
#include "platform/linux/protocol.h"
#include "platform/linux/switchfile.h"

static bool snoopingDebug;

bool linuxDebugIsOn(uint32_t module) { return module == LINUX_MODULE_DHCP6_SNOOPING && snoopingDebug; }

bool linuxDebugSet(uint32_t module, bool on) {
    if (module != LINUX_MODULE_DHCP6_SNOOPING) {
        return false;
    }
    snoopingDebug = on;
    return true;
}

int32_t linuxDebugMessage(const uint8_t *payload, uint32_t length, uint8_t *reply, uint32_t replyMax, uint32_t *replyLength) {
    LinuxDebugMsg message;
    if (length != sizeof message || replyMax < sizeof message) {
        return LINUX_RESULT_BAD;
    }
    memcpy(&message, payload, sizeof message);
    if (message.set > 2) {
        return LINUX_RESULT_BAD;
    }
    if (message.module != LINUX_MODULE_DHCP6_SNOOPING) {
        return LINUX_RESULT_UNKNOWN;
    }
    if (message.set != 2) {
        linuxDebugSet(message.module, message.set == 1);
    }
    message.set = linuxDebugIsOn(message.module) ? 1 : 0;
    memcpy(reply, &message, sizeof message);
    *replyLength = sizeof message;
    return LINUX_RESULT_OK;
}

int32_t syslogModuleSwitch(uint32_t module, uint32_t level) {
    return level < LINUX_LOG_DEBUG || linuxDebugIsOn(module) ? 1 : 0;
}

static bool isLineEnd(char c) { return c == '\r' || c == '\n'; }

// The daemon's lines bring their own line ends, in front or behind, as a serial console wants them.
int32_t syslogSendInfo(uint32_t, uint32_t level, const char *, const char *, const char *argument, uint64_t, uint64_t,
                       uint64_t) {
    if (argument == nullptr) {
        return -1;
    }
    size_t length = strlen(argument);
    while (length > 0 && isLineEnd(argument[0])) {
        argument++;
        length--;
    }
    while (length > 0 && isLineEnd(argument[length - 1])) {
        length--;
    }
    return linuxLogLine(level, "", argument, static_cast<uint32_t>(length));
}

const char *get_str_by_mid(uint32_t module) { return module == LINUX_MODULE_DHCP6_SNOOPING ? linuxSwitch.title : nullptr; }
