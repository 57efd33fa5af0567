#pragma once
// Options 18 and 37 in a client message, and the relay header around it.
//
// Everything is done on a copy of the frame in one work buffer, which lives as long as the process: what is handed back is
// good until the next call. A frame that cannot get its options goes on without them, or with those that it has got by then;
// only what is too long for the buffer and what the drop strategy names is dropped.

#include <cstdint>

#include "l2/dhcp6snooping/base/descriptor.h"
#include "l2/dhcp6snooping/infoopt/context.h"

inline constexpr uint32_t DHCP6_INFO_FRAME_MAX = 1898; // longest frame that is taken on, bytes
inline constexpr uint32_t DHCP6_INFO_AREA_MAX = 1500;  // longest option area that an option may lead to, bytes

// Returns the packet with its frame in the work buffer, lengths and checksum agreeing; null when it must be dropped.
// msgOffset is where the DHCPv6 message starts, port the receiving port's index (from 0).
Dhcp6PacketDescriptor *dhcp6snooping_packet_add_info_option(Dhcp6PacketDescriptor *pkt, uint32_t msgOffset, uint16_t vlan,
                                                            uint32_t port);

// Changes the message in place. `options` stands behind the 4-byte message header, which has the UDP header in front of it;
// peerAddr is 16 bytes. *newLen becomes the length of the option area, relay header included. There must be room for
// DHCP6_INFO_AREA_MAX bytes from the message on, or ctx->room says how much there is for options.
// 0 when the frame goes on, -1 when it must be dropped.
int32_t dhcp6_info_option_process(uint8_t msgType, uint8_t *options, uint32_t optLen, uint32_t *newLen, Dhcp6InfoContext *ctx,
                                  uint16_t innerVlan, const uint8_t *peerAddr);
