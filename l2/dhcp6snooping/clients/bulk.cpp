#include "l2/dhcp6snooping/clients/bulk.h"

#include <cstring>

#include "l2/dhcp6snooping/base/lease.h"
#include "l2/dhcp6snooping/base/trace.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/clients/table.h"
#include "l2/dhcp6snooping/sourceguard/filters.h"
#include "platform/libvos.h"

namespace {

constexpr int32_t SLOW_SECONDS = 9;   // more than this is worth a line
constexpr int32_t LIMIT_SECONDS = 29; // more than this ends the deletion

// What to delete. Addresses and MACs are copied, because the caller's may lie in a record that goes.
struct Selector {
    uint32_t kind;
    uint32_t number;
    uint8_t address[DHCP6_ADDRESS_SIZE];
    uint8_t mac[MAC_SIZE];
};

// False for an unknown kind or a null pointer.
bool make_selector(uint32_t kind, uintptr_t value, Selector *selector) {
    *selector = {};
    selector->kind = kind;
    selector->number = static_cast<uint32_t>(value);
    const void *pointer = reinterpret_cast<const void *>(value);
    switch (kind) {
    case DHCP6SNOOPING_DELETE_BY_PORT:
    case DHCP6SNOOPING_DELETE_BY_VLAN:
    case DHCP6SNOOPING_DELETE_ALL: return true;
    case DHCP6SNOOPING_DELETE_BY_IP:
        if (pointer != nullptr)
            memcpy(selector->address, pointer, sizeof selector->address);
        return pointer != nullptr;
    case DHCP6SNOOPING_DELETE_BY_MAC:
        if (pointer != nullptr)
            memcpy(selector->mac, pointer, sizeof selector->mac);
        return pointer != nullptr;
    default: return false;
    }
}

bool matches(const Selector &selector, const Dhcp6SnoopingNode *client) {
    switch (selector.kind) {
    case DHCP6SNOOPING_DELETE_BY_PORT: return client->port == selector.number;
    case DHCP6SNOOPING_DELETE_BY_VLAN: return client->vlan == selector.number;
    case DHCP6SNOOPING_DELETE_BY_MAC: return memcmp(client->mac, selector.mac, MAC_SIZE) == 0;
    default: return true;
    }
}

Dhcp6LeaseAttr *find_address(const Dhcp6SnoopingNode *client, const uint8_t *address) {
    for (uint32_t slot = 0; slot < client->leases.count; ++slot) {
        Dhcp6LeaseAttr *lease = dhcp6snooping_lease_at(&client->leases, slot);
        if (lease != nullptr && memcmp(lease->address, address, DHCP6_ADDRESS_SIZE) == 0)
            return lease;
    }
    return nullptr;
}

// Takes the address from the client if it holds it.
bool delete_address(Dhcp6SnoopingNode *client, const uint8_t *address) {
    Dhcp6LeaseAttr *lease = find_address(client, address);
    if (lease == nullptr)
        return false;
    dhcp6snooping_lease_filter_remove(client, lease, client->port - 1);
    dhcp6snooping_attr_array_remove(&client->leases, lease, dhcp6snooping_attr_binding_free);
    if (client->leases.count == 0)
        dhcp6snooping_delete_avlnode(client->mac);
    return true;
}

// Signed on purpose, unlike the aging pass: a clock that steps back, or wraps, does not end the deletion.
int32_t elapsed_since(uint32_t start) {
    const uint32_t now = vosUpSeconds();
    const uint32_t elapsed = now - start;
    return static_cast<int32_t>(static_cast<int32_t>(now) < static_cast<int32_t>(start) ? elapsed - 1 : elapsed);
}

// True when the deletion has taken too long.
bool must_stop(uint32_t start) {
    const int32_t elapsed = elapsed_since(start);
    if (elapsed > SLOW_SECONDS)
        dhcp6snooping_debug_printf("\r\ntoo many ipv6-source-guard filters to release, it's taking long!!");
    if (elapsed <= LIMIT_SECONDS)
        return false;
    dhcp6snooping_debug_printf("\r\nhas been releasing ipv6-source-guard filters for 30 seconds, stop process");
    return true;
}

} // namespace

uint32_t dhcp6snooping_delete_by(uint32_t kind, uintptr_t value) {
    const uint32_t start = vosUpSeconds();
    Selector selector;
    const bool known = make_selector(kind, value, &selector);
    Dhcp6SnoopingNode *client = dhcp6snooping_first_avlnode();
    while (client != nullptr) {
        if (!known)
            return DHCP6SNOOPING_REFUSED;
        Dhcp6SnoopingNode *next = dhcp6snooping_next_avlnode(client->mac);
        if (kind == DHCP6SNOOPING_DELETE_BY_IP) {
            if (delete_address(client, selector.address))
                return 0;
        } else if (matches(selector, client)) {
            dhcp6snooping_delete_avlnode(client->mac);
        } else {
            client = next;
            continue;
        }
        if (must_stop(start))
            return 0;
        client = next;
    }
    return 0;
}

uint32_t dhcp6snooping_delete_by_port(uint32_t port) { return dhcp6snooping_delete_by(DHCP6SNOOPING_DELETE_BY_PORT, port); }

uint32_t dhcp6snooping_delete_by_ip(const uint8_t *address) {
    return dhcp6snooping_delete_by(DHCP6SNOOPING_DELETE_BY_IP, reinterpret_cast<uintptr_t>(address));
}

uint32_t dhcp6snooping_delete_by_vlan(uint32_t vlan) { return dhcp6snooping_delete_by(DHCP6SNOOPING_DELETE_BY_VLAN, vlan); }

uint32_t dhcp6snooping_delete_by_mac(const uint8_t *mac) {
    return dhcp6snooping_delete_by(DHCP6SNOOPING_DELETE_BY_MAC, reinterpret_cast<uintptr_t>(mac));
}

uint32_t dhcp6snooping_delete_all() { return dhcp6snooping_delete_by(DHCP6SNOOPING_DELETE_ALL, 0); }
