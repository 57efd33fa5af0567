#pragma once
// The daemon's running configuration as it prints it: the lines that make a daemon as it starts into the one that runs.
//
// Strings and templates are printed as they are, and may look like any lines. exactconfig.h makes lines of this text that can
// be trusted.
//
// The text comes in pages. When the configuration changes between two of them, the daemon says so and the reading begins
// again, CONFIG_ATTEMPTS times at most. Pages must follow each other without a gap, belong to one text and stay within
// CONFIG_MAX, so that no peer can keep the shell reading for ever.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/protocol.h"
#include "shell/remotecall.h"

inline constexpr uint32_t CONFIG_MAX = 1u << 24; // bytes of the whole text
inline constexpr uint32_t CONFIG_ATTEMPTS = 16;

// The sentence for a configuration that changed at each of these attempts.
std::string runningConfigUnsteady();

// Takes one page, which was asked for with `ask`: appends its text and moves `ask` to the next one (offset 0 = no more). False
// when the payload is not such a page.
[[nodiscard]] bool runningConfigPageTake(std::span<const uint8_t> payload, LinuxConfigAsk *ask, std::string *text);

[[nodiscard]] CallEnd runningConfigRead(Connection *connection, std::string *text, std::string *error);

// The lines of a text without their ends.
std::vector<std::string> runningConfigLines(std::string_view text);

// The part of the text with switches, ports and VLANs, which no other manager's strings are in: the daemon prints options 18
// and 37, exempt VLANs and bindings after it.
std::string_view runningConfigHead(std::string_view text);

// Whether l2-relay is on, which no remote call tells.
[[nodiscard]] CallEnd runningConfigL2Relay(Connection *connection, bool *on, std::string *error);
