#pragma once
// The one trace routine of the daemon, and its one form of assertion.
//
// Every event is one line of 1 to 255 characters that starts with "\r\n". Lines cost a call and nothing more while the debug
// switch of the module is off. An empty or longer line is a programming error and ends the process: no text from the
// network is ever part of a line, so that nobody outside can cause it.

#include <cstdint>

inline constexpr uint32_t DHCP6SNOOPING_SYSLOG_MODULE = 53;
inline constexpr uint32_t DHCP6SNOOPING_SYSLOG_DEBUG = 7;
inline constexpr uint32_t DHCP6SNOOPING_SYSLOG_ERROR = 2;

// Whether lines are wanted at all: for a line whose texts cost more to make than the question.
[[nodiscard]] bool dhcp6snooping_debug_on();

void dhcp6snooping_debug_printf(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Prints the assertion line on the console and aborts. The line number names the condition, not this build's source line, so
// that reports from the field stay comparable.
[[noreturn]] void dhcp6snooping_assertion_failed(const char *condition, const char *function, int32_t line);
