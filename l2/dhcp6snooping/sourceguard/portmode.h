#pragma once
// On which ports only bound IPv6 sources pass. Trust and source guard exclude each other: clients/limits.h refuses trust on a
// guarded port, and this file refuses the guard on a trusted one.

#include <cstdint>

#include "l2/dhcp6snooping/clients/limits.h"

enum : uint32_t { IP6_SOURCE_GUARD_ON = 0, IP6_SOURCE_GUARD_OFF = 1 };

// By port - 1. Mind the sense: 0 = source guard on, 1 = off. Start value 1.
extern uint32_t Ip6SourceGuardPort[DHCP6SNOOPING_PORTS];

// Sets every port to its start value.
void ip6_source_guard_port_init();

// True when source guard is on for the port index (from 0); false outside the table.
[[nodiscard]] bool ip6_source_guard_port_on(uint32_t port0);

// 1 when the guard is on for this port, for any port, or for any port but this one. Only ports that the device has count.
uint32_t dhcp6snooping_ip6_source_guard_configed_port(uint32_t port);
uint32_t dhcp6snooping_ip6_source_guard_configed_any();
uint32_t dhcp6snooping_ip6_source_guard_configed_any_other(uint32_t port);

// Turns the guard on (0) or off (1) for a port from 1 to 28. 0, also when nothing changes; -1 for a bad port or mode or a
// trusted port; the platform's status when the port could not be closed, and nothing has changed then.
int32_t set_ip6_source_guard_port_mode(uint32_t port, uint32_t mode);
int32_t get_ip6_source_guard_port_mode(uint32_t port, uint32_t *mode);
