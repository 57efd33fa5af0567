#pragma once
// libvlan: which VLANs the switch has, and which ports belong to them.

#include <cstdint>

#include "libsmd.h"

extern "C" {

// 1 when the VLAN exists, 0 otherwise. 0 for numbers outside 1 to 4094.
int32_t vlan_exist(uint32_t vlan);

// The ports that forward in the VLAN, as port indexes; `zero` is 0. A VLAN that does not exist has none. 0 on success.
int32_t VLAN_Api_PortList_Get(uint32_t vlan, SmdPortList *list, uint32_t zero);

} // extern "C"
