#pragma once
// Completion for other shells: the words that may stand as the last one of a command line.

#include "shell/session.h"

// `words` are the command so far; the last one, which may be empty, is what the word starts with. One word a line. Ports,
// VLANs and clients are the daemon's own; of other values, and without a daemon, there are none.
std::string completeWords(Session *session, std::vector<std::string_view> words);
