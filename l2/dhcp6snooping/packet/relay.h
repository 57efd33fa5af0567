#pragma once
// Unwrapping of Relay-Reply: the message inside takes the place of the one around it, and the frame shrinks.

#include <cstdint>

#include "l2/dhcp6snooping/base/descriptor.h"

// Replaces the Relay-Reply at `offset` by the message in its Relay Message option, and corrects lengths, port and checksum.
// Once: a Relay-Reply inside a Relay-Reply stays as it is. Leaves the frame alone when there is no such option. The frame
// must hold at least DHCP6_MESSAGE_HEADER bytes from `offset` on.
void dhcp6snooping_relay_reply_unwrap(Dhcp6PacketDescriptor *packet, uint32_t offset);
