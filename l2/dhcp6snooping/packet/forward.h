#pragma once
// Sending a judged frame on: to the one port where its destination lives, or to the VLAN. Never back out of the port or the
// trunk that it came in by. Toward servers only trusted ports count, and options 18 and 37 are added first where they are
// wanted: the packet's frame then lies in another buffer.

#include <cstdint>

#include "l2/dhcp6snooping/base/descriptor.h"

// `port` is the receiving port's index (from 0), `offset` where the DHCPv6 message starts. 0 when the frame was sent, or was
// held back by policy; -1 for a null packet or frame, or when the switch refused to send.
int32_t dhcp6snooping_send_packet_to_sever(Dhcp6PacketDescriptor *packet, uint16_t vlan, uint32_t port, uint32_t offset);
int32_t dhcp6snooping_send_packet_to_client(Dhcp6PacketDescriptor *packet, uint16_t vlan, uint32_t port);
