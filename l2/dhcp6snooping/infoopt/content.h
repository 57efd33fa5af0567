#pragma once
// One option 18 or 37, written out as it goes into a message.

#include <cstdint>

#include "l2/dhcp6snooping/infoopt/context.h"

inline constexpr uint32_t DHCP6_INFO_OPTION_MAX = 512; // bytes of one option, header included

struct Dhcp6InfoOption {
    uint8_t bytes[DHCP6_INFO_OPTION_MAX];
    uint32_t length;
};

// Writes the option with this code as the policy wants it. hostName is terminated. False when a user-defined id cannot be
// made.
bool dhcp6_info_option_build(uint16_t code, const Dhcp6InfoContext *ctx, const char *hostName, Dhcp6InfoOption *option);
