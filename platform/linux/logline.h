#pragma once
// Lines on standard error, the only log the daemon writes. Each goes out with one system call, so that lines of several
// processes on one terminal or pipe do not mix. Under systemd a line starts with its level in angle brackets.

#include <cstdint>

// Levels of the log, as in syslog.
inline constexpr uint32_t LINUX_LOG_ERROR = 3;
inline constexpr uint32_t LINUX_LOG_NOTICE = 5;
inline constexpr uint32_t LINUX_LOG_DEBUG = 7;

// Writes prefix, `length` bytes of text and a line end. The text is written as it is. 0 on success.
int32_t linuxLogLine(uint32_t level, const char *prefix, const char *text, uint32_t length);
