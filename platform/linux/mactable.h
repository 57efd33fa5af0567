#pragma once
// The bridge's table of learned MAC addresses. Nothing of it is kept here: a question goes to the kernel, some microseconds.

#include <cstdint>

#include "platform/linux/protocol.h"

// Reads entries of the switch's bridge from number `start` on, in the kernel's order, at most `room` of them. Returns how many;
// *more tells whether there are further ones.
[[nodiscard]] uint32_t linuxMacList(uint32_t start, LinuxMacStatus *out, uint32_t room, bool *more);
