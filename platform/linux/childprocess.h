#pragma once
// Programs that the daemon starts. They get three descriptors and nothing else of the daemon's, and the signals that it ignores
// have their usual effect on them.

#include <sys/types.h>

// Starts a program; `arguments` end with a null pointer, the first is its path. A descriptor below 0 stands for the daemon's
// own. Returns 0 and stores the process id, or returns an errno.
[[nodiscard]] int linuxChildStart(const char *const *arguments, int input, int output, pid_t *child);

// A file in memory with this text, read from its start; -1 and errno when there is no room.
[[nodiscard]] int linuxMemoryFile(const void *text, size_t length);
