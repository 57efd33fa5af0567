#pragma once
// The bindings that SNMP managers made, by the row number under which they made them: the list of bindings is keyed by address,
// a manager addresses rows by an index.
//
// A fixed table of rows, and one scratch row that collects the columns of a row being made. A binding that goes by another way
// leaves its row behind: only its own destruction, or deleting the row by its address, clears it.

#include <cstddef>
#include <cstdint>

#include "l2/dhcp6snooping/sourceguard/bindings.h"

inline constexpr uint32_t IP6_SNMP_ROWS = 240; // row n answers to index n + 1

struct Ip6BindSnmpRow {
    uint32_t status;    // 1 in use, 0 free; in the scratch row the number of the row that is wanted
    Ip6Address address; // network order
    uint8_t mac[MAC_SIZE];
    uint32_t port; // from 1
    uint32_t vlan; // 0 = any
};
static_assert(sizeof(Ip6BindSnmpRow) == 36);
static_assert(offsetof(Ip6BindSnmpRow, address) == 4);
static_assert(offsetof(Ip6BindSnmpRow, mac) == 20);
static_assert(offsetof(Ip6BindSnmpRow, port) == 28);

extern Ip6BindSnmpRow ip6SourceGuardBindForSnmp[IP6_SNMP_ROWS];
extern Ip6BindSnmpRow snmpIp6Bind; // the scratch row

// Writes a row: the first free one from row number `first` (from 0) on. Rows below it are never used; with none free above,
// nothing is recorded. Always 0.
int32_t ip6_source_guard_bind_for_snmp_add(int32_t first, Ip6Address address, const uint8_t *mac, uint32_t port, uint32_t vlan);

// Clears the first row with this address, in use or not. 0; -1 when there is none.
int32_t ip6_source_guard_bind_for_snmp_delete(Ip6Address address);

// Clears all rows. 0.
int32_t ip6_source_guard_bind_for_snmp_delete_all();
