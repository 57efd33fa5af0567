#include "l2/dhcp6snooping/sourceguard/portmode.h"

#include <algorithm>
#include <iterator>

#include "l2/dhcp6snooping/base/trace.h"
#include "l2/dhcp6snooping/sourceguard/filters.h"
#include "platform/libqacl.h"
#include "platform/libsmd.h"

uint32_t Ip6SourceGuardPort[DHCP6SNOOPING_PORTS];

namespace {

uint32_t ports_of_device() { return std::min(gul_max_port_num, DHCP6SNOOPING_PORTS); }

// Deny first, then open what may pass.
int32_t turn_on(uint32_t port) {
    const int32_t denied = ip6_source_guard_intstall_deny_all_ip_traffic_frm(port);
    if (denied != 0) {
        dhcp6snooping_debug_printf(" turn on ip6v6_source_guard failed because "
                                   "ip6_source_guard_intstall_deny_all_ip_traffic_frm failed.\r\n");
        return denied;
    }
    if (dhcp6snooping_ip6_source_guard_configed_any_other(port) == 0)
        ip6_source_guard_install_bind_forward_ip_rule(port);
    else
        ip6_source_guard_install_bind_forward_ip_rule_port_only(port);
    dhcp6snooping_install_all_forward_ip_rule(port);
    return 0;
}

// Close what was open, and lift the denial last, so that at no moment more passes than before or after.
void turn_off(uint32_t port) {
    dhcp6snooping_remove_all_forward_ip_rule(port);
    if (dhcp6snooping_ip6_source_guard_configed_any_other(port) == 0)
        ip6_source_guard_remove_bind_forward_ip_rule(port);
    else
        ip6_source_guard_remove_bind_forward_ip_rule_port_only(port);
    ip6_source_guard_remove_deny_all_ip6_traffic_frm(port);
}

// Neighbour discovery is open while any port is guarded; asked for again at every change.
void renew_neighbour_discovery() {
    if (dhcp6snooping_ip6_source_guard_configed_any() != 0) {
        if (FRM_InstallGlobalForwardIcmp6NdFilterResource() != 0)
            dhcp6snooping_debug_printf("FRM_InstallGlobalForwardIcmp6NdFilterResource failed.");
    } else if (FRM_RemoveGlobalForwardIcmp6NdFilterResource() != 0) {
        dhcp6snooping_debug_printf("FRM_RemoveGlobalForwardIcmp6NdFilterResource failed.");
    }
}

} // namespace

void ip6_source_guard_port_init() {
    std::fill(std::begin(Ip6SourceGuardPort), std::end(Ip6SourceGuardPort), uint32_t{IP6_SOURCE_GUARD_OFF});
}

bool ip6_source_guard_port_on(uint32_t port0) {
    return port0 < DHCP6SNOOPING_PORTS && Ip6SourceGuardPort[port0] == IP6_SOURCE_GUARD_ON;
}

uint32_t dhcp6snooping_ip6_source_guard_configed_port(uint32_t port) {
    return port >= 1 && port <= ports_of_device() && ip6_source_guard_port_on(port - 1) ? 1 : 0;
}

uint32_t dhcp6snooping_ip6_source_guard_configed_any() {
    // No port has number 0, so none is left out.
    return dhcp6snooping_ip6_source_guard_configed_any_other(0);
}

uint32_t dhcp6snooping_ip6_source_guard_configed_any_other(uint32_t port) {
    for (uint32_t other = 1; other <= ports_of_device(); ++other)
        if (other != port && ip6_source_guard_port_on(other - 1))
            return 1;
    return 0;
}

int32_t set_ip6_source_guard_port_mode(uint32_t port, uint32_t mode) {
    if (port < 1 || port > DHCP6SNOOPING_PORTS || dhcp6SnoopingTrustPort[port - 1] != 0)
        return -1;
    if (mode != IP6_SOURCE_GUARD_ON && mode != IP6_SOURCE_GUARD_OFF)
        return -1;
    if (mode == Ip6SourceGuardPort[port - 1])
        return 0;
    if (mode == IP6_SOURCE_GUARD_ON) {
        const int32_t status = turn_on(port);
        if (status != 0)
            return status;
    } else {
        turn_off(port);
    }
    Ip6SourceGuardPort[port - 1] = mode;
    renew_neighbour_discovery();
    return 0;
}

int32_t get_ip6_source_guard_port_mode(uint32_t port, uint32_t *mode) {
    if (port < 1 || port > DHCP6SNOOPING_PORTS || mode == nullptr)
        return -1;
    *mode = Ip6SourceGuardPort[port - 1];
    return 0;
}
