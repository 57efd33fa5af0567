#pragma once
// The part of snoopctl's man page that the command table and its neighbours write: commands, values, elements of templates,
// use at a terminal, exit status.

#include <string>

// What the program's exit status says, for the help and the man page.
inline constexpr int STATUS_DONE = 0;
inline constexpr int STATUS_REFUSED = 1;
inline constexpr int STATUS_USAGE = 2;
inline constexpr int STATUS_UNREACHABLE = 3;

struct ExitStatus {
    int status;
    const char *help;
};

inline constexpr ExitStatus EXIT_STATUSES[] = {
    {STATUS_DONE, "done"},
    {STATUS_REFUSED, "the daemon refused, or a file or the output could not be used"},
    {STATUS_USAGE, "not a command, or a value that is not allowed: nothing was sent"},
    {STATUS_UNREACHABLE, "no daemon, or no usable answer from it"},
};

// In roff with the macros of man(7), from one section heading to the end of another section.
std::string manualText();
