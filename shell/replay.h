#pragma once
// Replay: lines from a file or from standard input, as if they were typed, without a terminal.
//
// A line that fails is named with its number and text, and the replay goes on with the next; it fails as a whole at the end.
// Two things are not run on purpose: the lines of a port or VLAN that could not be entered (they would hit another place),
// and everything behind a line that found no daemon (each would wait for it again).

#include <cstdio>

#include "shell/session.h"

struct ReplayResult {
    size_t failed = 0;  // lines that were refused or not understood
    size_t skipped = 0; // lines that were not run because of a failed one
};

// Runs the lines of `in`, called `name` in messages. Outputs go to `out`, failures to `err`.
ReplayResult replayRun(Session *session, FILE *in, const char *name, FILE *out, FILE *err);
