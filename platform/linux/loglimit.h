#pragma once
// Log lines that a caller of the socket, a host or another program can cause, and so repeat at will. What follows from an
// operator's doing is not limited: linuxLog writes all of it.
//
// Each place in the source has a bucket of LINUX_LOG_BURST lines, and gets one more a minute. A line that finds it empty is
// held back. When the minute is over, the newest of those is written with the number of the others: "(n more like this)". The
// end of the process writes what is held back then.

#include <cstdint>
#include <sys/time.h>

inline constexpr uint32_t LINUX_LOG_BURST = 5;

// The time after which a place may write one more line: a minute.
extern timeval linuxLogPause;

// As linuxLog, within the limit of the place. The format tells the places apart.
void linuxLogLimited(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// The same for lines of another form: `write` writes the text, now or later, or never when others like it follow.
void linuxLogThrough(const char *place, void (*write)(const char *text), const char *text);
