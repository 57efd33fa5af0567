#pragma once
// The packet filters behind the source guard: thin wrappers that count and trace, the tests that decide whether a learned
// address gets a filter of its own, and all filters of one port at once.
//
// Forward filters come in four kinds. Learned addresses always use kind 4; bindings use the kind that their fields allow.

#include <cstdint>

#include "l2/dhcp6snooping/base/lease.h"
#include "l2/dhcp6snooping/clients/table.h"
#include "l2/dhcp6snooping/sourceguard/bindings.h"

enum : uint32_t {
    IP6_FILTER_ADDRESS = 1,     // any port, any MAC
    IP6_FILTER_MAC_ADDRESS = 2, // any port
    IP6_FILTER_PORT = 3,        // any VLAN
    IP6_FILTER_PORT_VLAN = 4,
};

// Forward filters that the daemon believes installed; renewals count again. Reported, never used for a decision.
extern int32_t gIp6SourceguardFilterInsatlledNum;

// Installs or removes one forward filter; arguments that the kind does not know are ignored. The platform's status; a kind
// outside the four calls nothing, succeeds and counts.
int32_t ip6_source_guard_install_forward_ip6_frm(uint32_t kind, Ip6Address address, const uint8_t *mac, uint32_t port,
                                                 uint32_t vlan);
int32_t ip6_source_guard_remove_forward_ip6_frm(uint32_t kind, Ip6Address address, const uint8_t *mac, uint32_t port,
                                                uint32_t vlan);

int32_t ip6_source_guard_intstall_deny_all_ip_traffic_frm(uint32_t port); // the platform's status
int32_t ip6_source_guard_remove_deny_all_ip6_traffic_frm(uint32_t port);  // always 0
int32_t ip6_source_guard_intstall_forward_vlan_traffic_frm(uint32_t vlan);
int32_t ip6_source_guard_remove_forward_vlan_traffic_frm(uint32_t vlan);

// 1 when a binding covers the address, or the (non-zero) MAC whatever its address: a learned filter is not wanted then. The
// _more form steps over one entry, the one that is just being deleted.
int32_t ip6_source_guard_bind_forward_ip_rule_exist_or_conflict(const uint8_t *mac, Ip6Address address);
int32_t ip6_source_guard_bind_forward_ip_rule_exist_or_conflict_more(const uint8_t *mac, Ip6Address address,
                                                                     const Ip6SourceGuardBindNode *ignore);

// The address of a lease, by value.
[[nodiscard]] Ip6Address dhcp6snooping_lease_address(const Dhcp6LeaseAttr *lease);

// Filter of one learned lease: only for whole addresses, only while source guard is on for the port in question, and only
// when no binding conflicts. Installing asks the client's port; removing asks the port index that the caller names.
void dhcp6snooping_lease_filter_install(const Dhcp6SnoopingNode *client, const Dhcp6LeaseAttr *lease);
void dhcp6snooping_lease_filter_remove(const Dhcp6SnoopingNode *client, const Dhcp6LeaseAttr *lease, uint32_t guarded_port0);

// Filters of the bindings: those that become active with the first guarded port (global ones and the port's own), or the
// port's own only. Installed oldest first, removed newest first. Always 0.
int32_t ip6_source_guard_install_bind_forward_ip_rule(uint32_t port);
int32_t ip6_source_guard_install_bind_forward_ip_rule_port_only(uint32_t port);
int32_t ip6_source_guard_remove_bind_forward_ip_rule(uint32_t port);
int32_t ip6_source_guard_remove_bind_forward_ip_rule_port_only(uint32_t port);

// Filters of the addresses learned on the port, in the order of the client table. Always 0.
int32_t dhcp6snooping_install_all_forward_ip_rule(uint32_t port);
int32_t dhcp6snooping_remove_all_forward_ip_rule(uint32_t port);
