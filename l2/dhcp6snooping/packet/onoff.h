#pragma once
// The switch that turns snooping on and off.

#include <cstdint>

// A second call changes nothing. Turning it off deletes every client. Always 0.
int32_t dhcp6snooping_start();
int32_t dhcp6snooping_stop();
uint32_t dhcp6snooping_is_enabled();
