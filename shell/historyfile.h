#pragma once
// Where the lines that somebody typed are remembered: snoopctl/history in his state folder, readable by himself only.

#include <string>

// The file's path, with its folder made. "" when there is no such place: no home, or one that cannot be written.
std::string historyFilePath();
