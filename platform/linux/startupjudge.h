#pragma once
// Judges the text of a saved configuration: is it all there, and is it text at all. Pure functions over bytes.
//
// A save puts a head line in front of the text and an end mark after it, both comments to the shell. They prove that the file
// is complete, not what it says: it may be edited by hand. A file with neither mark is taken for one that was written by hand.

#include <cstdint>
#include <string>
#include <string_view>

inline constexpr uint32_t LINUX_STARTUP_BYTES_MAX = 8u << 20; // of a file, with its marks
inline constexpr uint32_t LINUX_STARTUP_LINES_MAX = 100'000;  // far more than the shell replays in its minute

inline constexpr std::string_view LINUX_STARTUP_HEAD =
    "! Saved configuration of snoopd6. Its last line says that it is complete.";
inline constexpr std::string_view LINUX_STARTUP_END = "! End of the saved configuration.";

enum class LinuxStartupKind : uint32_t {
    complete, // head line and end mark
    byHand,   // neither
    damaged,
};

struct LinuxStartupVerdict {
    LinuxStartupKind kind;
    uint32_t lines;     // that are neither empty nor a comment
    std::string reason; // of a damaged one: the end of a sentence that starts with the file's name
};

LinuxStartupVerdict linuxStartupJudge(std::string_view text);

// Returns why a text without marks cannot be saved, as the end of a sentence that starts with "the configuration"; null when
// it can. It may be empty.
const char *linuxStartupRefusal(std::string_view text);

// Returns the text as it is kept in a file.
std::string linuxStartupMarked(std::string_view text);

// Returns the ports that the text trusts, bit 1 << p for port index p. Reads the two forms in which the daemon prints trust:
// within "interface ethernet 0/N", and on the same line.
uint32_t linuxStartupTrusted(std::string_view text);
