#pragma once
// Runs the command shell on the text of a saved configuration.
//
// The shell is a process of its own that speaks to the daemon as any caller does, so that frames and timers go on meanwhile. It
// reads exactly the bytes that were judged: they are its standard input. A line that fails is named in the log and does not
// stop the rest. A shell that does not come to an end is killed after a minute.

#include <string>
#include <sys/time.h>

// How long the shell may take.
extern timeval linuxStartupPatience;

enum class LinuxShellEnd {
    done,   // every line is in force
    partly, // some lines failed
    failed, // it did not get through the text
};

// Called once, from the loop. `why` is a sentence about a shell that failed.
using LinuxShellEnded = void (*)(LinuxShellEnd end, const std::string &why);

// The shell that SNOOPD6_SHELL names, else the one beside the daemon's program, else the installed one.
std::string linuxShellPath();

// Starts the shell on the text; `path` is what it calls the file. False and a sentence when that is not possible.
[[nodiscard]] bool linuxShellStart(const std::string &text, const char *path, LinuxShellEnded ended, std::string *error);
