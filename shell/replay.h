#pragma once
// Replay: lines from a file or from standard input, as if they were typed, without a terminal.
//
// A line that fails is named, as "FILE:LINE: the line: why". By its mode the replay ends there, or goes on with the next line
// and fails as a whole at the end. Two things are not run in any mode: the lines of a port or VLAN that could not be entered
// (they would hit another place), and everything behind a line that found no daemon (each would wait for it again). At the end
// the daemon is asked once whether the kernel has its filter rules, if any line needed them (sessionRulesLost).

#include <cstdio>

#include "shell/session.h"

enum class ReplayMode : uint32_t { stopAtFailure, keepGoing };

// What had no command in it does not count.
struct ReplayResult {
    size_t lines = 0;                // that were read
    size_t failed = 0;               // of them, refused or not understood
    size_t skipped = 0;              // of them, not run because of another one
    Outcome outcome = Outcome::done; // of the first that failed or was not run
};

// Runs the lines of `in`, called `name` in messages. Outputs go to `out`, failures to `err`.
ReplayResult replayRun(Session *session, FILE *in, const char *name, ReplayMode mode, FILE *out, FILE *err);

std::string replayLineCount(size_t count);             // "1 line", "23 lines"
std::string replaySummary(const ReplayResult &result); // "23 lines, 2 failed", and how many were not run
