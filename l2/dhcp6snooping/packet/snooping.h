#pragma once
// The decision about every DHCPv6 frame: which direction it may go, and what the client table learns from it.
//
// Messages of clients go toward the servers and are recorded when they came from an untrusted port; messages of servers count
// only from trusted ports and go toward the clients. The kernel or the switch chip does not forward DHCPv6 while snooping is
// on: a frame that this file does not hand to forward.h is dropped.

#include <cstdint>

#include "l2/dhcp6snooping/base/descriptor.h"

// Seconds that a client may stay in the table without an accepted REPLY.
inline constexpr uint32_t DHCP6SNOOPING_UNACK_TIMEOUT = 180;

// Judges one frame. `offset` is where the DHCPv6 message starts in the frame, `port` the receiving port's index (from 0). The
// frame may be changed in place. -1 for a null packet or frame, 0 otherwise, dropped or not.
int32_t dhcp6snooping_packet_process(Dhcp6PacketDescriptor *packet, uint32_t offset, uint16_t vlan, uint32_t port);
