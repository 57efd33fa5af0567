#pragma once
// What is configured per port and per VLAN: trust, the most clients that may be recorded, and how many are; and the global
// switches.
//
// The tables are plain values indexed by port - 1 and by VLAN id. Port and VLAN numbers come from the wire, from callers and
// from the platform, so the packet path goes through the small functions below: outside the tables a port is untrusted and
// full, a VLAN is full, and nothing is counted. A message from such a place never makes a record.

#include <cstdint>

inline constexpr uint32_t DHCP6SNOOPING_PORTS = 28;
inline constexpr uint32_t DHCP6SNOOPING_VLANS = 4096;
inline constexpr uint32_t DHCP6SNOOPING_LIMIT_MAX = 2048; // the size of the client pool, and the default
inline constexpr uint32_t DHCP6SNOOPING_REFUSED = 0xFFFFFFFFu;

extern uint32_t dhcp6SnoopingTrustPort[DHCP6SNOOPING_PORTS];     // 1 = trusted, servers may live there
extern uint16_t dhcp6SnoopingPortMaxIP[DHCP6SNOOPING_PORTS];     // most clients
extern uint16_t dhcp6SnoopingPortIpNum[DHCP6SNOOPING_PORTS];     // clients counted
extern uint16_t dhcp6SnoopingDhcpVlanMaxIP[DHCP6SNOOPING_VLANS]; // most clients
extern uint16_t dhcp6SnoopingDhcpVlanIpNum[DHCP6SNOOPING_VLANS]; // clients counted

extern uint32_t dhcp6SnoopingOn;          // 1 while snooping is on, set by packet/onoff.h. Start value 0
extern uint32_t bDhcp6SnoopingFastRemove; // non-zero: a port that goes down loses its clients at once. Start value 1
extern uint32_t dhcp6L2Relay;             // non-zero: messages that get options are wrapped, replies unwrapped. Start value 0

struct Dhcp6SnoopingGlobalInfo {
    uint32_t enabled;    // dhcp6SnoopingOn
    uint32_t fastRemove; // bDhcp6SnoopingFastRemove
};
static_assert(sizeof(Dhcp6SnoopingGlobalInfo) == 8);

struct Dhcp6SnoopingPortInfo {
    uint32_t mode; // 1 = trusted
    uint32_t maxClients;
    uint32_t clients;
};
static_assert(sizeof(Dhcp6SnoopingPortInfo) == 12);

// Sets ports and VLANs to their start values.
void dhcp6snooping_limits_init();

// For the packet path; port0 is a port index from 0.
[[nodiscard]] inline bool dhcp6snooping_port_trusted(uint32_t port0) {
    return port0 < DHCP6SNOOPING_PORTS && dhcp6SnoopingTrustPort[port0] == 1;
}
// All trusted ports at once, the first one's bit highest, as in a port list.
[[nodiscard]] inline uint64_t dhcp6snooping_trusted_ports() {
    uint32_t ports = 0;
#pragma GCC unroll 4 // every message toward the servers comes by here
    for (const uint32_t trust : dhcp6SnoopingTrustPort)
        ports = ports << 1 | (trust == 1);
    return uint64_t{ports} << (64 - DHCP6SNOOPING_PORTS);
}
[[nodiscard]] inline bool dhcp6snooping_port_full(uint32_t port0) {
    return port0 >= DHCP6SNOOPING_PORTS || dhcp6SnoopingPortIpNum[port0] >= dhcp6SnoopingPortMaxIP[port0];
}
[[nodiscard]] inline bool dhcp6snooping_vlan_full(uint32_t vlan) {
    return vlan >= DHCP6SNOOPING_VLANS || dhcp6SnoopingDhcpVlanIpNum[vlan] >= dhcp6SnoopingDhcpVlanMaxIP[vlan];
}
void dhcp6snooping_count_client(uint32_t port0, uint32_t vlan);
void dhcp6snooping_uncount_client(uint32_t port0, uint32_t vlan); // each count stops at 0 by itself

// For management. 0, or DHCP6SNOOPING_REFUSED with nothing changed.
//
// Setters take ports 1 to 28 whatever the device has; port_maxclients_get and PortInfoGet only those it has. Making a port
// trusted is refused while source guard is on for it. A limit is a ceiling: lowering it removes nobody.
uint32_t dhcp6snooping_port_mode(uint32_t port, int32_t mode);
uint32_t dhcp6snooping_port_mode_get(uint32_t port, uint32_t *out);
uint32_t dhcp6snooping_port_maxclients(uint32_t port, uint32_t max);
uint32_t dhcp6snooping_port_maxclients_get(uint32_t port, uint32_t *out_max, uint32_t *out_num);
uint32_t dhcp6snooping_vlan_maxclients(uint32_t vlan, uint32_t max);
uint32_t dhcp6snooping_vlanlist_maxclients(uint32_t max, const uint8_t *vlan_list);
uint32_t dhcp6snooping_vlan_maxclients_get(uint32_t vlan, uint32_t *out_max, uint32_t *out_num);
// Limits of the VLANs in the list back to the default and their counts to 0, though their clients stay. 0.
uint32_t dhcp6snooping_vlan_reset(const uint8_t *vlan_list);
uint32_t dhcp6snoopingGlobalInfoGet(Dhcp6SnoopingGlobalInfo *out);
uint32_t dhcp6snoopingPortInfoGet(uint32_t port, Dhcp6SnoopingPortInfo *out);
// Stored as they are; non-zero is on. 0.
uint32_t dhcp6snooping_fastRemove_enable(uint32_t value);
uint32_t dhcp6snooping_l2Relay_enable(uint32_t value);
