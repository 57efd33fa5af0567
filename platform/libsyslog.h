#pragma once
// libsyslog: log lines by module and level, and the switch that turns a module's debugging on.

#include <cstdint>

extern "C" {

// Non-zero when lines of this module at this level are wanted. Cheap: it is asked for every line.
int32_t syslogModuleSwitch(uint32_t module, uint32_t level);

// Emits `argument` as one line of the module. The text stands for itself: neither it nor `format`, which callers set to the
// same text, is interpreted. The remaining arguments are 0. 0 on success.
int32_t syslogSendInfo(uint32_t module, uint32_t level, const char *tag, const char *format, const char *argument, uint64_t a,
                       uint64_t b, uint64_t c);

// The title of a module, for people; null when the module is unknown. Static storage.
const char *get_str_by_mid(uint32_t module);

} // extern "C"
