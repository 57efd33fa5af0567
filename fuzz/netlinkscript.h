#pragma once
// Netlink messages about interfaces, VLANs and MAC addresses out of the bytes of an input: well-formed ones that speak of few
// interfaces, so that they meet each other, and ones that are cut or are no messages at all.
//
// One message: u8 what, u8 bytes cut off its end, then by what it is:
//   LINK, LINK_GONE     u8 index, u8 name, u8 master's index, u8 flags, u8 kind, u8 value, u8 value
//   PORT, PORT_GONE     u8 index, u8 flags, u8 spanning-tree state, u8 count, so many times u16 flags and VLAN
//   VLAN, VLAN_GONE     u8 index, u16 first VLAN, u16 last, u8 state
//   NEIGHBOUR           u8 index, u8 number of the station, u16 VLAN, u8 flags
//   RAW                 u16 type, u8 length, so many bytes behind the header

#include <cstdint>

#include "fuzz/input.h"

struct nlmsghdr;

enum : uint32_t { // what a message is: the first byte modulo NETLINK_KINDS
    NETLINK_LINK,
    NETLINK_LINK_GONE,
    NETLINK_PORT,
    NETLINK_PORT_GONE,
    NETLINK_VLAN,
    NETLINK_VLAN_GONE,
    NETLINK_NEIGHBOUR,
    NETLINK_RAW,
    NETLINK_KINDS,
};

inline constexpr char NETLINK_BRIDGE[] = "br0"; // the switch's
inline constexpr uint32_t NETLINK_BRIDGE_INDEX = 250;

// The name with this number: of a port, of the bridge, of a bond, or of what the switch does not know.
const char *netlinkName(uint32_t number);

// Takes a message and hands it to `reader` in a block that ends where it ends. `what` is its first byte.
void netlinkTell(uint32_t what, FuzzInput *input, int (*reader)(const nlmsghdr *message, void *user), void *user);
