#pragma once
// One received frame on its way through the daemon: bytes, length, and what the switch knows about it. Lives as long as the
// receive callback; a step that makes the frame shorter or moves it to another buffer says so here.

#include <cstdint>

#include "platform/libsmd.h"

struct Dhcp6PacketDescriptor {
    uint8_t *data;       // first byte of the destination MAC
    uint32_t length;     // bytes of the frame
    SmdPktRecvInfo info; // copy
    SmdPktCtl ctl;       // copy; the send calls get a pointer to it
};

// Bytes that a second VLAN tag adds in front of the IPv6 header.
[[nodiscard]] inline uint32_t dhcp6snooping_second_tag(const Dhcp6PacketDescriptor *packet) {
    return (packet->ctl.flags & SMD_CTL_DOUBLE_TAGGED) != 0 ? 4u : 0u;
}
