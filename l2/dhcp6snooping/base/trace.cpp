#include "l2/dhcp6snooping/base/trace.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

#include "platform/libsyslog.h"
#include "platform/libvos.h"

namespace {

constexpr uint32_t TRACE_LINE_SIZE = 256; // bytes, NUL included
constexpr const char *SOURCE_PATH = "l2/dhcp6snooping/Dhcp6Snooping";
constexpr int32_t LENGTH_LINE = 1213;

} // namespace

bool dhcp6snooping_debug_on() { return syslogModuleSwitch(DHCP6SNOOPING_SYSLOG_MODULE, DHCP6SNOOPING_SYSLOG_DEBUG) != 0; }

void dhcp6snooping_debug_printf(const char *format, ...) {
    if (format == nullptr || !dhcp6snooping_debug_on())
        return;
    char line[TRACE_LINE_SIZE] = {};
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    if (length <= 0 || static_cast<uint32_t>(length) >= TRACE_LINE_SIZE)
        dhcp6snooping_assertion_failed("ulDebugStrLen < sizeof(debugStr) && ulDebugStrLen > 0", "dhcp6snooping_debug_printf",
                                       LENGTH_LINE);
    syslogSendInfo(DHCP6SNOOPING_SYSLOG_MODULE, DHCP6SNOOPING_SYSLOG_DEBUG, "dhcp6snooping", line, line, 0, 0, 0);
}

void dhcp6snooping_assertion_failed(const char *condition, const char *function, int32_t line) {
    vosPrintf("\r\n%s(%d):Assertion failed!%s, %s, %s, line=%d.\r\n", vosProcessGetName(), getpid(), condition, SOURCE_PATH,
              function, line);
    abort();
}
