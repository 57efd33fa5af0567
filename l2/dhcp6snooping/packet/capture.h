#pragma once
// Where DHCPv6 frames enter the daemon: the match rules given to the switch, and the callback that receives what matches.
//
// In mode 3 the switch forwards DHCPv6 itself and we only watch; in mode 1 it leaves the frames to us, and what we do not
// send on is dropped.

#include <cstdint>

#include "l2/dhcp6snooping/base/descriptor.h"
#include "platform/libsmd.h"

// Registers the rules for UDP ports 546 and 547 (first = 1), or changes their mode (running 1 = snooping on). Always 0:
// failures go to the log and the daemon runs on.
int32_t dhcp6snoopingPktReg(uint32_t first, uint32_t running);

// Receives one frame from the switch.
int32_t dhcp6snoopingRegPktProcess(uint8_t *frame, uint32_t length, SmdPktRecvInfo *info, SmdPktCtl *ctl);

// Passes a frame on to the snooping path while snooping is on. Always 0.
int32_t dhcp6snooping_recv(Dhcp6PacketDescriptor *packet, uint32_t offset);

// Programs the filter hardware to send DHCPv6 to the processor, or to stop that. Offered to the maker's own programs; the
// daemon uses the capture above. Always 0.
int32_t dhcp6snooping_redirect_dhcp_packets_to_cpu();
int32_t dhcp6snooping_undo_redirect_dhcp_packets_to_cpu();
