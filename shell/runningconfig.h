#pragma once
// The daemon's running configuration as the shell reads it: the lines that make a daemon as it starts into the one that runs.
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

inline constexpr std::string_view CONFIG_L2_RELAY = "dhcpv6-snooping l2-relay"; // no remote call tells this switch

// Takes one page, which was asked for with `ask`: appends its text and moves `ask` to the next one (offset 0 = no more). False
// when the payload is not such a page.
[[nodiscard]] bool runningConfigPageTake(std::span<const uint8_t> payload, LinuxConfigAsk *ask, std::string *text);

// The lines without their ends.
[[nodiscard]] CallEnd runningConfigRead(Connection *connection, std::vector<std::string> *lines, std::string *error);

[[nodiscard]] bool runningConfigHas(const std::vector<std::string> &lines, std::string_view line);

// The lines in the order in which a replay leaves the same running configuration behind. The daemon lists bindings newest
// first: they are turned round.
std::vector<std::string> runningConfigForReplay(std::vector<std::string> lines);
