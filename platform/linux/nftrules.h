#pragma once
// The text of the switch's one table of bridge filter rules: the DHCPv6 trap (trap.h) and the source guard (guard.h).
//
// A frame is looked at once for each VLAN tag that it carries. Three tags are read. Deeper frames are not, so the trap holds
// all of them back and the guard blocks all of them. The same goes for IPv6, or a further tag, inside 802.3 LLC/SNAP: some
// hosts accept it as IPv6, and no host needs to send it.
//
// nftables has neither loops nor comparisons of two fields of a packet, so the rules look at fixed positions only. What they
// cannot read is held back or blocked: every rule that lets a packet through names what it has seen there.

#include <cstdint>

// Writes the text. False when it does not fit.
[[nodiscard]] bool linuxNftRulesWrite(char *text, uint32_t size);
