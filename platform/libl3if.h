#pragma once
// libl3if: the switch's own IPv4 addresses, in host order.

#include <cstdint>

extern "C" {

// The layer-3 interface that serves a VLAN; 0 when none does.
uint32_t getSWByVLAN(uint32_t vlan);

// Primary address of a layer-3 interface, or of a VLAN's. 0 on success; non-zero leaves *ip at 0.
int32_t l3ifSwPrimIpGet(uint32_t switchId, uint32_t *ip);
int32_t l3ifSwPrimIpGetByVid(uint32_t vid, uint32_t *ip);

} // extern "C"
