#include "l2/dhcp6snooping/clients/queries.h"

#include <cstring>

#include "l2/dhcp6snooping/base/lease.h"
#include "l2/dhcp6snooping/clients/limits.h"

namespace {

// The first acknowledged client behind `mac`, or of the whole table for the all-zero MAC.
Dhcp6SnoopingNode *next_acknowledged(const uint8_t *mac) {
    Dhcp6SnoopingNode *client =
        dhcp6snooping_mac_is_zero(mac) ? dhcp6snooping_first_avlnode() : dhcp6snooping_next_avlnode(mac);
    while (client != nullptr && client->acked == 0)
        client = dhcp6snooping_next_avlnode(client->mac);
    return client;
}

// The buffers are a caller's and need not be aligned, hence memcpy.
void copy_client(const Dhcp6SnoopingNode *client, uint32_t *out_vlan, uint32_t *out_port, uint32_t *out_count,
                 Dhcp6LeaseLine *out_leases, uint32_t *out_valid) {
    uint32_t count = 0;
    for (uint32_t slot = 0; slot < client->leases.count && count < DHCP6SNOOPING_LEASE_LINES; ++slot) {
        const Dhcp6LeaseAttr *lease = dhcp6snooping_lease_at(&client->leases, slot);
        if (lease == nullptr)
            continue;
        Dhcp6LeaseLine line;
        memcpy(line.address, lease->address, sizeof line.address);
        line.prefix_len = lease->prefix_len;
        memcpy(out_leases + count, &line, sizeof line);
        memcpy(out_valid + count, &lease->valid_lifetime, sizeof lease->valid_lifetime);
        ++count;
    }
    memcpy(out_vlan, &client->vlan, sizeof client->vlan);
    memcpy(out_port, &client->port, sizeof client->port);
    memcpy(out_count, &count, sizeof count);
}

bool any_null(const void *mac, const void *vlan, const void *port, const void *count, const void *leases, const void *valid) {
    return mac == nullptr || vlan == nullptr || port == nullptr || count == nullptr || leases == nullptr || valid == nullptr;
}

} // namespace

uint32_t dhcp6snooping_get_nextclients(const uint8_t *mac, Dhcp6SnoopingNode **out_node) {
    if (mac == nullptr || out_node == nullptr)
        return DHCP6SNOOPING_REFUSED;
    Dhcp6SnoopingNode *client = next_acknowledged(mac);
    if (client == nullptr)
        return DHCP6SNOOPING_REFUSED;
    *out_node = client;
    return 0;
}

uint32_t dhcp6snooping_get_nextclients_ext(uint8_t *mac, uint32_t *out_vlan, uint32_t *out_port, uint32_t *out_count,
                                           Dhcp6LeaseLine *out_leases, uint32_t *out_valid) {
    if (any_null(mac, out_vlan, out_port, out_count, out_leases, out_valid))
        return DHCP6SNOOPING_REFUSED;
    const Dhcp6SnoopingNode *client = next_acknowledged(mac);
    if (client == nullptr)
        return DHCP6SNOOPING_REFUSED;
    copy_client(client, out_vlan, out_port, out_count, out_leases, out_valid);
    memcpy(mac, client->mac, MAC_SIZE);
    return 0;
}

uint32_t dhcp6snooping_get_currentclients_ext(const uint8_t *mac, uint32_t *out_vlan, uint32_t *out_port, uint32_t *out_count,
                                              Dhcp6LeaseLine *out_leases, uint32_t *out_valid) {
    if (any_null(mac, out_vlan, out_port, out_count, out_leases, out_valid) || dhcp6snooping_mac_is_zero(mac))
        return DHCP6SNOOPING_REFUSED;
    const Dhcp6SnoopingNode *client = dhcp6snooping_get_avlnode(mac);
    if (client == nullptr)
        return DHCP6SNOOPING_REFUSED;
    copy_client(client, out_vlan, out_port, out_count, out_leases, out_valid);
    return 0;
}
