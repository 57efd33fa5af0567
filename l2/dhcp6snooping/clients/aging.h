#pragma once
// Aging of clients and leases. One pass walks the whole table, takes the seconds since the record's last pass off every lease,
// and deletes what has run out. There is no timer per lease: elapsed time is measured per record, so that the pass stays
// right whatever its period is.

#include <cstdint>

#include "l2/dhcp6snooping/base/lease.h"

// A lease or an unacknowledged client with fewer seconds left than this is gone.
inline constexpr uint32_t DHCP6SNOOPING_EXPIRE_BELOW = 2;

inline constexpr uint32_t LEASE_TEXT_SIZE = 64; // bytes, NUL included

// One pass. Always 0.
uint32_t dhcp6snooping_timer();

// The lease as text, "2001:db8::1" or "2001:db8::/48", in the caller's buffer of LEASE_TEXT_SIZE bytes. Returns buf.
char *dhcp6snooping_lease_to_str(const Dhcp6LeaseAttr *lease, char *buf);
