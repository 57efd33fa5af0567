#pragma once
// Has the daemon keep a configuration for its next start: the files are the daemon's, whoever saves.

#include <string>
#include <string_view>

#include "shell/remotecall.h"

// Hands the text over and waits until it is on the disk. `refused` with a sentence when the daemon could not write it.
[[nodiscard]] CallEnd saveStartup(Connection *connection, std::string_view text, std::string *error);

// Removes the saved configuration and the last good one.
[[nodiscard]] CallEnd saveErase(Connection *connection, std::string *error);

// Forgets a failure of the daemon's start, and opens the switch where that closed it.
[[nodiscard]] CallEnd saveClear(Connection *connection, std::string *error);
