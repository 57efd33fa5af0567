#include "l2/dhcp6snooping/sourceguard/filters.h"

#include <cstring>

#include "l2/dhcp6snooping/base/trace.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "platform/libqacl.h"

int32_t gIp6SourceguardFilterInsatlledNum = 0;

namespace {

// In unsigned arithmetic: renewals may count for as long as the daemon lives.
void count_filters(uint32_t change) {
    gIp6SourceguardFilterInsatlledNum = static_cast<int32_t>(static_cast<uint32_t>(gIp6SourceguardFilterInsatlledNum) + change);
}

bool covers(const Ip6SourceGuardBindNode *entry, const uint8_t *mac, const Ip6Address &address) {
    if (memcmp(entry->address.bytes, address.bytes, sizeof address.bytes) == 0)
        return true;
    return !dhcp6snooping_mac_is_zero(entry->mac) && memcmp(entry->mac, mac, MAC_SIZE) == 0;
}

bool has_filter(const Dhcp6SnoopingNode *client, const Dhcp6LeaseAttr *lease, uint32_t guarded_port0) {
    return lease->prefix_len == DHCP6_ADDRESS_PREFIX_LEN && client->port != 0 && ip6_source_guard_port_on(guarded_port0) &&
           ip6_source_guard_bind_forward_ip_rule_exist_or_conflict(client->mac, dhcp6snooping_lease_address(lease)) == 0;
}

// ---- bindings of a port ------------------------------------------------------------------------------------------------

typedef int32_t (*FilterFn)(uint32_t kind, Ip6Address address, const uint8_t *mac, uint32_t port, uint32_t vlan);

void operate_binding(const Ip6SourceGuardBindNode *entry, uint32_t port, bool with_global, FilterFn operate) {
    uint32_t kind = 0;
    if (entry->port == 0 && with_global)
        kind = dhcp6snooping_mac_is_zero(entry->mac) ? IP6_FILTER_ADDRESS : IP6_FILTER_MAC_ADDRESS;
    else if (entry->port != 0 && entry->port == port)
        kind = entry->vlan != 0 ? IP6_FILTER_PORT_VLAN : IP6_FILTER_PORT;
    if (kind != 0)
        operate(kind, entry->address, entry->mac, entry->port, entry->vlan);
}

void install_bindings(uint32_t port, bool with_global) {
    const Ip6SourceGuardBindNode *head = pIp6SourceGuardBindListHead;
    for (const Ip6SourceGuardBindNode *entry = head->previous; entry != head; entry = entry->previous)
        operate_binding(entry, port, with_global, ip6_source_guard_install_forward_ip6_frm);
}

void remove_bindings(uint32_t port, bool with_global) {
    const Ip6SourceGuardBindNode *head = pIp6SourceGuardBindListHead;
    for (const Ip6SourceGuardBindNode *entry = head->next; entry != head; entry = entry->next)
        operate_binding(entry, port, with_global, ip6_source_guard_remove_forward_ip6_frm);
}

// ---- learned addresses of a port ---------------------------------------------------------------------------------------

void operate_client(const Dhcp6SnoopingNode *client, uint32_t port, FilterFn operate) {
    for (uint32_t slot = 0; slot < client->leases.count; ++slot) {
        const Dhcp6LeaseAttr *lease = dhcp6snooping_lease_at(&client->leases, slot);
        if (lease == nullptr || lease->prefix_len != DHCP6_ADDRESS_PREFIX_LEN)
            continue;
        const Ip6Address address = dhcp6snooping_lease_address(lease);
        if (ip6_source_guard_bind_forward_ip_rule_exist_or_conflict(client->mac, address) == 0)
            operate(IP6_FILTER_PORT_VLAN, address, client->mac, port, client->vlan);
    }
}

void operate_clients(uint32_t port, FilterFn operate) {
    for (const Dhcp6SnoopingNode *client = dhcp6snooping_first_avlnode(); client != nullptr;
         client = dhcp6snooping_next_avlnode(client->mac))
        if (client->port == port)
            operate_client(client, port, operate);
}

} // namespace

int32_t ip6_source_guard_install_forward_ip6_frm(uint32_t kind, Ip6Address address, const uint8_t *mac, uint32_t port,
                                                 uint32_t vlan) {
    int32_t status = 0;
    switch (kind) {
    case IP6_FILTER_ADDRESS: status = FRM_InstallGlobalForwardIp6AddrOnlyFilterResource(address.bytes); break;
    case IP6_FILTER_MAC_ADDRESS: status = FRM_InstallGlobalForwardIp6AddrFilterResource(mac, address.bytes); break;
    case IP6_FILTER_PORT: status = FRM_InstallForwardIp6AddrFilterResource(port, mac, address.bytes); break;
    case IP6_FILTER_PORT_VLAN: status = FRM_InstallForwardIp6AddrFilterResource_new(port, mac, address.bytes, vlan); break;
    default: break;
    }
    if (status == 0)
        count_filters(1);
    else
        dhcp6snooping_debug_printf(
            "dhcpv6 snooping install filter failed. Total filters installed:%d(inluding renew times).\r\n",
            gIp6SourceguardFilterInsatlledNum);
    return status;
}

int32_t ip6_source_guard_remove_forward_ip6_frm(uint32_t kind, Ip6Address address, const uint8_t *mac, uint32_t port,
                                                uint32_t vlan) {
    int32_t status = 0;
    switch (kind) {
    case IP6_FILTER_ADDRESS: status = FRM_RemoveGlobalForwardIp6AddrOnlyFilterResource(address.bytes); break;
    case IP6_FILTER_MAC_ADDRESS: status = FRM_RemoveGlobalForwardIp6AddrFilterResource(mac, address.bytes); break;
    case IP6_FILTER_PORT: status = FRM_RemoveForwardIp6AddrFilterResource(port, mac, address.bytes); break;
    case IP6_FILTER_PORT_VLAN: status = FRM_RemoveForwardIp6AddrFilterResource_new(port, mac, address.bytes, vlan); break;
    default: break;
    }
    if (status == 0)
        count_filters(UINT32_MAX);
    else
        dhcp6snooping_debug_printf(
            "dhcpv6 snooping remove filter failed. Total filters installed:%d(inluding renew times).\r\n",
            gIp6SourceguardFilterInsatlledNum);
    return status;
}

int32_t ip6_source_guard_intstall_deny_all_ip_traffic_frm(uint32_t port) {
    return FRM_OperatePortDenyAllIp6FilterResource(FRM_OP_INSTALL, port);
}

int32_t ip6_source_guard_remove_deny_all_ip6_traffic_frm(uint32_t port) {
    FRM_OperatePortDenyAllIp6FilterResource(FRM_OP_REMOVE, port);
    return 0;
}

int32_t ip6_source_guard_intstall_forward_vlan_traffic_frm(uint32_t vlan) {
    return FRM_InstallGlobalForwardIp6VidOnlyFilterResource(static_cast<uint16_t>(vlan));
}

int32_t ip6_source_guard_remove_forward_vlan_traffic_frm(uint32_t vlan) {
    return FRM_RemoveGlobalForwardIp6VidOnlyFilterResource(static_cast<uint16_t>(vlan));
}

int32_t ip6_source_guard_bind_forward_ip_rule_exist_or_conflict(const uint8_t *mac, Ip6Address address) {
    return ip6_source_guard_bind_forward_ip_rule_exist_or_conflict_more(mac, address, nullptr);
}

int32_t ip6_source_guard_bind_forward_ip_rule_exist_or_conflict_more(const uint8_t *mac, Ip6Address address,
                                                                     const Ip6SourceGuardBindNode *ignore) {
    const Ip6SourceGuardBindNode *head = pIp6SourceGuardBindListHead;
    for (const Ip6SourceGuardBindNode *entry = head->next; entry != head; entry = entry->next)
        if (entry != ignore && covers(entry, mac, address))
            return 1;
    return 0;
}

Ip6Address dhcp6snooping_lease_address(const Dhcp6LeaseAttr *lease) {
    Ip6Address address;
    memcpy(address.bytes, lease->address, sizeof address.bytes);
    return address;
}

void dhcp6snooping_lease_filter_install(const Dhcp6SnoopingNode *client, const Dhcp6LeaseAttr *lease) {
    if (has_filter(client, lease, client->port - 1))
        ip6_source_guard_install_forward_ip6_frm(IP6_FILTER_PORT_VLAN, dhcp6snooping_lease_address(lease), client->mac,
                                                 client->port, client->vlan);
}

void dhcp6snooping_lease_filter_remove(const Dhcp6SnoopingNode *client, const Dhcp6LeaseAttr *lease, uint32_t guarded_port0) {
    if (has_filter(client, lease, guarded_port0))
        ip6_source_guard_remove_forward_ip6_frm(IP6_FILTER_PORT_VLAN, dhcp6snooping_lease_address(lease), client->mac,
                                                client->port, client->vlan);
}

int32_t ip6_source_guard_install_bind_forward_ip_rule(uint32_t port) {
    install_bindings(port, true);
    return 0;
}

int32_t ip6_source_guard_install_bind_forward_ip_rule_port_only(uint32_t port) {
    install_bindings(port, false);
    return 0;
}

int32_t ip6_source_guard_remove_bind_forward_ip_rule(uint32_t port) {
    remove_bindings(port, true);
    return 0;
}

int32_t ip6_source_guard_remove_bind_forward_ip_rule_port_only(uint32_t port) {
    remove_bindings(port, false);
    return 0;
}

int32_t dhcp6snooping_install_all_forward_ip_rule(uint32_t port) {
    operate_clients(port, ip6_source_guard_install_forward_ip6_frm);
    return 0;
}

int32_t dhcp6snooping_remove_all_forward_ip_rule(uint32_t port) {
    operate_clients(port, ip6_source_guard_remove_forward_ip6_frm);
    return 0;
}
