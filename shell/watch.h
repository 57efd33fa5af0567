#pragma once
// "watch": a `show` again and again. On a terminal each picture takes the place of the last one, cut to the window; elsewhere
// it is written behind the last one, under a line with the time (none with JSON). It ends when a key is pressed, Ctrl-C
// included, or after session.watchTimes runs. A show that fails is told and tried again: the daemon may come back.

#include "shell/parser.h"
#include "shell/session.h"

// Runs the command every session.watchSeconds seconds. The outcome is that of its last run.
Outcome watchRun(Session *session, const ParsedCommand &shown);

// The picture that a terminal of this size is sent: the cursor's way home, the title, and as many lines as there is room for.
std::string watchPicture(const std::string &title, const std::string &text, size_t rows);
