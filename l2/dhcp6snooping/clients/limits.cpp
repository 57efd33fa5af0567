#include "l2/dhcp6snooping/clients/limits.h"

#include <algorithm>
#include <iterator>

#include "l2/dhcp6snooping/base/vlanlist.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "platform/libsmd.h"

uint32_t dhcp6SnoopingTrustPort[DHCP6SNOOPING_PORTS];
uint16_t dhcp6SnoopingPortMaxIP[DHCP6SNOOPING_PORTS];
uint16_t dhcp6SnoopingPortIpNum[DHCP6SNOOPING_PORTS];
uint16_t dhcp6SnoopingDhcpVlanMaxIP[DHCP6SNOOPING_VLANS];
uint16_t dhcp6SnoopingDhcpVlanIpNum[DHCP6SNOOPING_VLANS];
uint32_t dhcp6SnoopingOn = 0;
uint32_t bDhcp6SnoopingFastRemove = 1;
uint32_t dhcp6L2Relay = 0;

namespace {

bool port_settable(uint32_t port) { return port >= 1 && port <= DHCP6SNOOPING_PORTS; }

bool port_on_device(uint32_t port) { return port >= 1 && port <= std::min(gul_max_port_num, DHCP6SNOOPING_PORTS); }

void add_one(uint16_t *count) {
    if (*count < UINT16_MAX)
        ++*count;
}

void take_one(uint16_t *count) {
    if (*count > 0)
        --*count;
}

} // namespace

void dhcp6snooping_limits_init() {
    std::fill(std::begin(dhcp6SnoopingTrustPort), std::end(dhcp6SnoopingTrustPort), 0u);
    std::fill(std::begin(dhcp6SnoopingPortMaxIP), std::end(dhcp6SnoopingPortMaxIP), uint16_t{DHCP6SNOOPING_LIMIT_MAX});
    std::fill(std::begin(dhcp6SnoopingPortIpNum), std::end(dhcp6SnoopingPortIpNum), uint16_t{0});
    std::fill(std::begin(dhcp6SnoopingDhcpVlanMaxIP), std::end(dhcp6SnoopingDhcpVlanMaxIP), uint16_t{DHCP6SNOOPING_LIMIT_MAX});
    std::fill(std::begin(dhcp6SnoopingDhcpVlanIpNum), std::end(dhcp6SnoopingDhcpVlanIpNum), uint16_t{0});
}

// ---- packet path -----------------------------------------------------------------------------------------------------

void dhcp6snooping_count_client(uint32_t port0, uint32_t vlan) {
    if (vlan < DHCP6SNOOPING_VLANS)
        add_one(&dhcp6SnoopingDhcpVlanIpNum[vlan]);
    if (port0 < DHCP6SNOOPING_PORTS)
        add_one(&dhcp6SnoopingPortIpNum[port0]);
}

void dhcp6snooping_uncount_client(uint32_t port0, uint32_t vlan) {
    if (port0 < DHCP6SNOOPING_PORTS)
        take_one(&dhcp6SnoopingPortIpNum[port0]);
    if (vlan < DHCP6SNOOPING_VLANS)
        take_one(&dhcp6SnoopingDhcpVlanIpNum[vlan]);
}

// ---- management ------------------------------------------------------------------------------------------------------

uint32_t dhcp6snooping_port_mode(uint32_t port, int32_t mode) {
    if (!port_settable(port) || (mode != 0 && mode != 1))
        return DHCP6SNOOPING_REFUSED;
    const uint32_t port0 = port - 1;
    const uint32_t wanted = static_cast<uint32_t>(mode);
    if (dhcp6SnoopingTrustPort[port0] == wanted)
        return 0;
    if (wanted == 1 && ip6_source_guard_port_on(port0))
        return DHCP6SNOOPING_REFUSED;
    dhcp6SnoopingTrustPort[port0] = wanted;
    return 0;
}

uint32_t dhcp6snooping_port_mode_get(uint32_t port, uint32_t *out) {
    if (!port_settable(port) || out == nullptr)
        return DHCP6SNOOPING_REFUSED;
    *out = dhcp6SnoopingTrustPort[port - 1];
    return 0;
}

uint32_t dhcp6snooping_port_maxclients(uint32_t port, uint32_t max) {
    if (!port_settable(port) || max > DHCP6SNOOPING_LIMIT_MAX)
        return DHCP6SNOOPING_REFUSED;
    dhcp6SnoopingPortMaxIP[port - 1] = static_cast<uint16_t>(max);
    return 0;
}

uint32_t dhcp6snooping_port_maxclients_get(uint32_t port, uint32_t *out_max, uint32_t *out_num) {
    if (!port_on_device(port) || out_max == nullptr || out_num == nullptr)
        return DHCP6SNOOPING_REFUSED;
    *out_max = dhcp6SnoopingPortMaxIP[port - 1];
    *out_num = dhcp6SnoopingPortIpNum[port - 1];
    return 0;
}

uint32_t dhcp6snooping_vlan_maxclients(uint32_t vlan, uint32_t max) {
    if (!vlan_valid(vlan) || max > DHCP6SNOOPING_LIMIT_MAX)
        return DHCP6SNOOPING_REFUSED;
    dhcp6SnoopingDhcpVlanMaxIP[vlan] = static_cast<uint16_t>(max);
    return 0;
}

uint32_t dhcp6snooping_vlanlist_maxclients(uint32_t max, const uint8_t *vlan_list) {
    if (max > DHCP6SNOOPING_LIMIT_MAX || vlan_list == nullptr)
        return DHCP6SNOOPING_REFUSED;
    for (uint32_t vlan = VLAN_FIRST; vlan <= VLAN_LAST; ++vlan)
        if (vlan_listed(vlan_list, vlan))
            dhcp6snooping_vlan_maxclients(vlan, max);
    return 0;
}

uint32_t dhcp6snooping_vlan_maxclients_get(uint32_t vlan, uint32_t *out_max, uint32_t *out_num) {
    if (!vlan_valid(vlan) || out_max == nullptr || out_num == nullptr)
        return DHCP6SNOOPING_REFUSED;
    *out_max = dhcp6SnoopingDhcpVlanMaxIP[vlan];
    *out_num = dhcp6SnoopingDhcpVlanIpNum[vlan];
    return 0;
}

uint32_t dhcp6snooping_vlan_reset(const uint8_t *vlan_list) {
    if (vlan_list == nullptr)
        return 0;
    for (uint32_t vlan = VLAN_FIRST; vlan <= VLAN_LAST; ++vlan) {
        if (!vlan_listed(vlan_list, vlan))
            continue;
        dhcp6SnoopingDhcpVlanMaxIP[vlan] = DHCP6SNOOPING_LIMIT_MAX;
        dhcp6SnoopingDhcpVlanIpNum[vlan] = 0;
    }
    return 0;
}

uint32_t dhcp6snoopingGlobalInfoGet(Dhcp6SnoopingGlobalInfo *out) {
    if (out == nullptr)
        return DHCP6SNOOPING_REFUSED;
    *out = {.enabled = dhcp6SnoopingOn, .fastRemove = bDhcp6SnoopingFastRemove};
    return 0;
}

uint32_t dhcp6snoopingPortInfoGet(uint32_t port, Dhcp6SnoopingPortInfo *out) {
    if (!port_on_device(port) || out == nullptr)
        return DHCP6SNOOPING_REFUSED;
    out->mode = dhcp6SnoopingTrustPort[port - 1];
    return dhcp6snooping_port_maxclients_get(port, &out->maxClients, &out->clients);
}

uint32_t dhcp6snooping_fastRemove_enable(uint32_t value) {
    bDhcp6SnoopingFastRemove = value;
    return 0;
}

uint32_t dhcp6snooping_l2Relay_enable(uint32_t value) {
    dhcp6L2Relay = value;
    return 0;
}
