#pragma once
// VLANs that the source guard lets through whole. Their filters do not depend on any port being guarded.

#include <cstdint>

#include "l2/dhcp6snooping/clients/limits.h"

extern uint32_t no_ip6_source_guard_vlan[DHCP6SNOOPING_VLANS]; // by VLAN id, 1 = exempt; only 1 to 4094 are used

inline constexpr int32_t IP6_EXEMPTION_REMOVE = 1; // any other operation adds

// Adds or removes the exemption of every VLAN in `input` (512 bytes, VLAN v is bit 0x80 >> (v % 8) of byte v / 8), going on
// after failures. VLANs that failed are set in `failed`, which the caller has cleared. 0 all done; -1 otherwise, and for a
// null input.
int32_t ip6_source_guard_vlanlist_config(int32_t operation, const uint8_t *input, uint8_t *failed);

// The exempt VLANs, into 512 bytes. 0; -1 for a null list.
int32_t no_ip6_source_guard_vlanlist_get(uint8_t *vlan_list);
