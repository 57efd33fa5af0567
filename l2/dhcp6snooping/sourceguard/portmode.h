#pragma once
// On which ports only bound IPv6 sources pass.

#include <cstdint>

#include "l2/dhcp6snooping/clients/limits.h"

// By port - 1. Mind the sense: 0 = source guard on, 1 = off. Start value 1.
extern uint32_t Ip6SourceGuardPort[DHCP6SNOOPING_PORTS];

// Sets every port to its start value.
void ip6_source_guard_port_init();

// True when source guard is on for the port index (from 0); false outside the table.
[[nodiscard]] bool ip6_source_guard_port_on(uint32_t port0);
