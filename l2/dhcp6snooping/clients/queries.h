#pragma once
// Reading the client table page by page. A caller starts with the all-zero MAC and calls again with the MAC it got, until
// the answer is 0xFFFFFFFF; the MAC need not be in the table any more, so clients may come and go during a walk.

#include <cstdint>

#include "l2/dhcp6snooping/clients/table.h"

inline constexpr uint32_t DHCP6SNOOPING_LEASE_LINES = 10; // leases that one answer holds; further ones are left out

struct Dhcp6LeaseLine {
    uint8_t address[16]; // network order
    uint32_t prefix_len;
};
static_assert(sizeof(Dhcp6LeaseLine) == 20);

// The next acknowledged client behind `mac`. 0, or 0xFFFFFFFF at the end of the table or for a null argument, with every
// output untouched. out_leases and out_valid (remaining seconds) have room for DHCP6SNOOPING_LEASE_LINES; the _ext form writes
// the client's MAC back.
uint32_t dhcp6snooping_get_nextclients(const uint8_t *mac, Dhcp6SnoopingNode **out_node);
uint32_t dhcp6snooping_get_nextclients_ext(uint8_t *mac, uint32_t *out_vlan, uint32_t *out_port, uint32_t *out_count,
                                           Dhcp6LeaseLine *out_leases, uint32_t *out_valid);

// The client with exactly this MAC, acknowledged or not; the all-zero MAC is refused.
uint32_t dhcp6snooping_get_currentclients_ext(const uint8_t *mac, uint32_t *out_vlan, uint32_t *out_port, uint32_t *out_count,
                                              Dhcp6LeaseLine *out_leases, uint32_t *out_valid);
