#pragma once
// The debug switch of each module: its lines of level 7 are wanted only while it is on. Off at start, set by
// LINUX_MSG_DEBUG, never stored. One module is known: 53, DHCPv6 snooping.

#include <cstdint>

inline constexpr uint32_t LINUX_MODULE_DHCP6_SNOOPING = 53;

bool linuxDebugIsOn(uint32_t module);

// False when the module is unknown.
bool linuxDebugSet(uint32_t module, bool on);

// Answers LINUX_MSG_DEBUG.
int32_t linuxDebugMessage(const uint8_t *payload, uint32_t length, uint8_t *reply, uint32_t replyMax, uint32_t *replyLength);
