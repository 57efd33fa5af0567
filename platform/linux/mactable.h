#pragma once
// The bridge's table of learned MAC addresses, as netlink tells it: the kernel has the table, and a question costs some
// microseconds. What it last answered is remembered by maccache.h.

#include <cstdint>

#include "platform/linux/protocol.h"

struct nlmsghdr;

// An entry that came, or went.
struct LinuxMacEntry {
    bool found; // false when the message is about something else
    uint32_t ifindex;
    uint32_t bridge;
    uint16_t vlan; // 0 where the bridge does not filter VLANs
    uint8_t mac[6];
    bool local;   // the switch's own address
    bool refused; // of a station that a locked port has seen and does not let in
};

[[nodiscard]] LinuxMacEntry linuxMacEntryRead(const nlmsghdr *message);

// Whether the bridge knows the station behind the port index, or behind its bond, and lets it in: what a locked port wants.
// Asks the kernel when that is not remembered.
[[nodiscard]] bool linuxMacIsBehind(uint32_t port0, const uint8_t *mac, uint32_t vlan);

// How often the kernel was asked where a station is, since the start. Wraps.
[[nodiscard]] uint32_t linuxMacQuestions();

// Reads entries of the switch's bridge from number `start` on, in the kernel's order, at most `room` of them. Returns how many;
// *more tells whether there are further ones.
[[nodiscard]] uint32_t linuxMacList(uint32_t start, LinuxMacStatus *out, uint32_t room, bool *more);
