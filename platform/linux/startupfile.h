#pragma once
// The startup file and the last good one beside it, as they are found: opened once, read once, judged by their bytes. Whoever
// goes on with a file goes on with the bytes that were judged.
//
// Only an ordinary file is read, never through a symbolic link, and never more than LINUX_STARTUP_BYTES_MAX of it.

#include <string>

#include "platform/linux/startupjudge.h"

// What the name of the last good file has after that of the startup file.
inline constexpr const char *LINUX_LAST_GOOD = ".last-good";

struct LinuxStartupFile {
    std::string path;
    bool absent; // nothing is there; the verdict says nothing then
    LinuxStartupVerdict verdict;
    std::string text;
};

struct LinuxStartupFiles {
    LinuxStartupFile current;
    LinuxStartupFile lastGood;
};

// Reads the file `name` of an open folder; `folder` below 0 is a negative errno of opening it.
LinuxStartupFile linuxStartupFileRead(int folder, const std::string &path);

// Reads both. A startup file that is missing while the last good one is there is damaged.
LinuxStartupFiles linuxStartupFilesRead(const std::string &path);

[[nodiscard]] bool linuxStartupIsGood(const LinuxStartupFile &file);

// The folder and the name of a path that has at least one slash.
std::string linuxStartupFolder(const std::string &path);
std::string linuxStartupName(const std::string &path);
