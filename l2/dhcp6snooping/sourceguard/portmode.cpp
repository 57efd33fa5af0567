#include "l2/dhcp6snooping/sourceguard/portmode.h"

#include <algorithm>
#include <iterator>

uint32_t Ip6SourceGuardPort[DHCP6SNOOPING_PORTS];

void ip6_source_guard_port_init() { std::fill(std::begin(Ip6SourceGuardPort), std::end(Ip6SourceGuardPort), 1u); }

bool ip6_source_guard_port_on(uint32_t port0) { return port0 < DHCP6SNOOPING_PORTS && Ip6SourceGuardPort[port0] == 0; }
