#include "l2/dhcp6snooping/sourceguard/exemption.h"

#include <cstring>

#include "l2/dhcp6snooping/base/vlanlist.h"
#include "l2/dhcp6snooping/sourceguard/filters.h"

uint32_t no_ip6_source_guard_vlan[DHCP6SNOOPING_VLANS];

namespace {

// True when the VLAN is now as wanted.
bool set_exemption(uint32_t vlan, uint32_t exempt) {
    if (no_ip6_source_guard_vlan[vlan] == exempt)
        return true;
    const int32_t status = exempt != 0 ? ip6_source_guard_intstall_forward_vlan_traffic_frm(vlan)
                                       : ip6_source_guard_remove_forward_vlan_traffic_frm(vlan);
    if (status != 0)
        return false;
    no_ip6_source_guard_vlan[vlan] = exempt;
    return true;
}

} // namespace

int32_t ip6_source_guard_vlanlist_config(int32_t operation, const uint8_t *input, uint8_t *failed) {
    if (input == nullptr)
        return -1;
    const uint32_t exempt = operation == IP6_EXEMPTION_REMOVE ? 0 : 1;
    int32_t result = 0;
    for (uint32_t vlan = VLAN_FIRST; vlan <= VLAN_LAST; ++vlan) {
        if (!vlan_listed(input, vlan) || set_exemption(vlan, exempt))
            continue;
        result = -1;
        if (failed != nullptr)
            vlan_list_add(failed, vlan);
    }
    return result;
}

int32_t no_ip6_source_guard_vlanlist_get(uint8_t *vlan_list) {
    if (vlan_list == nullptr)
        return -1;
    memset(vlan_list, 0, VLAN_LIST_SIZE);
    for (uint32_t vlan = VLAN_FIRST; vlan <= VLAN_LAST; ++vlan)
        if (no_ip6_source_guard_vlan[vlan] != 0)
            vlan_list_add(vlan_list, vlan);
    return 0;
}
