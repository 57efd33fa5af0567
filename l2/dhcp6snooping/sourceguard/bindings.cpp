#include "l2/dhcp6snooping/sourceguard/bindings.h"

#include <cstdlib>
#include <cstring>

#include <search.h>

#include "l2/dhcp6snooping/base/lease.h"
#include "l2/dhcp6snooping/base/trace.h"
#include "l2/dhcp6snooping/sourceguard/filters.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"

Ip6SourceGuardBindNode Ip6SourceGuardBindListHead = {
    .next = &Ip6SourceGuardBindListHead,
    .previous = &Ip6SourceGuardBindListHead,
    .address = {},
    .mac = {},
    .port = 0,
    .vlan = 0,
};
Ip6SourceGuardBindNode *const pIp6SourceGuardBindListHead = &Ip6SourceGuardBindListHead;
uint32_t gIp6SourceGuardBindNum = 0;

namespace {

enum class Match { NONE, EXACT, CONFLICT };

bool same_address(const Ip6Address &a, const Ip6Address &b) { return memcmp(a.bytes, b.bytes, sizeof a.bytes) == 0; }

bool same_mac(const uint8_t *a, const uint8_t *b) { return memcmp(a, b, MAC_SIZE) == 0; }

bool is_address(const Dhcp6LeaseAttr *lease) { return lease->prefix_len == DHCP6_ADDRESS_PREFIX_LEN; }

Match find_match(const Ip6Address &address, const uint8_t *mac, uint32_t port) {
    const Ip6SourceGuardBindNode *head = pIp6SourceGuardBindListHead;
    for (const Ip6SourceGuardBindNode *entry = head->next; entry != head; entry = entry->next) {
        if (same_address(entry->address, address))
            return same_mac(entry->mac, mac) && entry->port == port ? Match::EXACT : Match::CONFLICT;
        if (!dhcp6snooping_mac_is_zero(entry->mac) && same_mac(entry->mac, mac))
            return Match::CONFLICT;
    }
    return Match::NONE;
}

Ip6SourceGuardBindNode *find_by_address(const Ip6Address &address) {
    Ip6SourceGuardBindNode *head = pIp6SourceGuardBindListHead;
    for (Ip6SourceGuardBindNode *entry = head->next; entry != head; entry = entry->next)
        if (same_address(entry->address, address))
            return entry;
    return nullptr;
}

// ---- learned filters that a binding shadows ----------------------------------------------------------------------------
// Delegated prefixes have no filter, so none of theirs is withdrawn or reinstated.

// The address test asks the sentinel, not the new binding: a learned filter with the same address as a new binding stays, and
// only what was learned for the same MAC goes.
bool shadowed_by_new(const Dhcp6SnoopingNode *client, const Dhcp6LeaseAttr *lease, const uint8_t *mac) {
    if (!is_address(lease))
        return false;
    if (same_address(dhcp6snooping_lease_address(lease), pIp6SourceGuardBindListHead->address))
        return true;
    return !dhcp6snooping_mac_is_zero(mac) && same_mac(mac, client->mac);
}

void withdraw_shadowed_of(const Dhcp6SnoopingNode *client, const uint8_t *mac) {
    for (uint32_t slot = 0; slot < client->leases.count; ++slot) {
        const Dhcp6LeaseAttr *lease = dhcp6snooping_lease_at(&client->leases, slot);
        if (lease != nullptr && shadowed_by_new(client, lease, mac) &&
            dhcp6snooping_ip6_source_guard_configed_port(client->port) != 0)
            ip6_source_guard_remove_forward_ip6_frm(IP6_FILTER_PORT_VLAN, dhcp6snooping_lease_address(lease), client->mac,
                                                    client->port, client->vlan);
    }
}

void withdraw_shadowed(const uint8_t *mac) {
    for (const Dhcp6SnoopingNode *client = dhcp6snooping_first_avlnode(); client != nullptr;
         client = dhcp6snooping_next_avlnode(client->mac))
        withdraw_shadowed_of(client, mac);
}

bool was_shadowed_by(const Dhcp6SnoopingNode *client, const Dhcp6LeaseAttr *lease, const Ip6SourceGuardBindNode *entry) {
    return is_address(lease) &&
           (same_mac(client->mac, entry->mac) || same_address(dhcp6snooping_lease_address(lease), entry->address));
}

void reinstate_shadowed_of(const Dhcp6SnoopingNode *client, const Ip6SourceGuardBindNode *entry) {
    for (uint32_t slot = 0; slot < client->leases.count; ++slot) {
        const Dhcp6LeaseAttr *lease = dhcp6snooping_lease_at(&client->leases, slot);
        if (lease == nullptr || !was_shadowed_by(client, lease, entry))
            continue;
        const Ip6Address address = dhcp6snooping_lease_address(lease);
        if (dhcp6snooping_ip6_source_guard_configed_port(client->port) != 0 && client->acked != 0 &&
            ip6_source_guard_bind_forward_ip_rule_exist_or_conflict_more(client->mac, address, entry) == 0)
            ip6_source_guard_install_forward_ip6_frm(IP6_FILTER_PORT_VLAN, address, client->mac, client->port, client->vlan);
    }
}

// By pool slot and only for acknowledged clients, unlike the withdrawal.
void reinstate_shadowed(const Ip6SourceGuardBindNode *entry) {
    for (const Dhcp6SnoopingNode &client : gDhcp6SnoopingAvlNode)
        if (!dhcp6snooping_mac_is_zero(client.mac))
            reinstate_shadowed_of(&client, entry);
}

// ---- the filter of a binding -------------------------------------------------------------------------------------------

// The kind that is in force for the binding now; 0 for none.
uint32_t active_kind(const Ip6SourceGuardBindNode *entry) {
    if (entry->port != 0) {
        if (dhcp6snooping_ip6_source_guard_configed_port(entry->port) == 0)
            return 0;
        return entry->vlan != 0 ? IP6_FILTER_PORT_VLAN : IP6_FILTER_PORT;
    }
    if (dhcp6snooping_ip6_source_guard_configed_any() == 0)
        return 0;
    return dhcp6snooping_mac_is_zero(entry->mac) ? IP6_FILTER_ADDRESS : IP6_FILTER_MAC_ADDRESS;
}

void install_own(const Ip6SourceGuardBindNode *entry) {
    const uint32_t kind = active_kind(entry);
    if (kind != 0)
        ip6_source_guard_install_forward_ip6_frm(kind, entry->address, entry->mac, entry->port, entry->vlan);
}

void withdraw_own(const Ip6SourceGuardBindNode *entry) {
    const uint32_t kind = active_kind(entry);
    if (kind != 0)
        ip6_source_guard_remove_forward_ip6_frm(kind, entry->address, entry->mac, entry->port, entry->vlan);
}

void copy_values(Ip6SourceGuardBindNode *record, const Ip6SourceGuardBindNode *entry) {
    constexpr size_t LINKS = offsetof(Ip6SourceGuardBindNode, address);
    memcpy(reinterpret_cast<uint8_t *>(record) + LINKS, reinterpret_cast<const uint8_t *>(entry) + LINKS,
           sizeof *record - LINKS);
}

// What the entry shadowed comes back unless another binding, one that waits for its deletion included, shadows it too.
void withdraw_and_reinstate(const Ip6SourceGuardBindNode *entry) {
    withdraw_own(entry);
    reinstate_shadowed(entry);
}

} // namespace

uint32_t ip6_source_guard_bind_entry_num_get() { return gIp6SourceGuardBindNum; }

int32_t ip6_source_guard_bind_node_check(Ip6Address address, const uint8_t *mac, uint32_t port) {
    if (mac == nullptr)
        return -1;
    return find_match(address, mac, port) == Match::EXACT ? 0 : -1;
}

int32_t ip6_source_guard_bind_node_add(Ip6Address address, const uint8_t *mac, uint32_t port, uint32_t vlan) {
    if (mac == nullptr)
        return -1;
    switch (find_match(address, mac, port)) {
    case Match::EXACT: return IP6_BIND_PRESENT;
    case Match::CONFLICT: return -1;
    case Match::NONE: break;
    }
    uint8_t key[MAC_SIZE];
    memcpy(key, mac, sizeof key);
    withdraw_shadowed(key);
    auto *entry = static_cast<Ip6SourceGuardBindNode *>(calloc(1, sizeof(Ip6SourceGuardBindNode)));
    if (entry == nullptr) {
        dhcp6snooping_debug_printf("\r\nip6v6_source_guard_bind_node_add failed:malloc failed:no enough memory!");
        return -1;
    }
    entry->address = address;
    memcpy(entry->mac, key, sizeof entry->mac);
    entry->port = port;
    entry->vlan = vlan;
    insque(entry, pIp6SourceGuardBindListHead);
    install_own(entry);
    ++gIp6SourceGuardBindNum;
    return 0;
}

int32_t ip6_source_guard_bind_node_delete(Ip6Address address) {
    Ip6SourceGuardBindNode *entry = find_by_address(address);
    if (entry == nullptr)
        return -1;
    withdraw_and_reinstate(entry);
    remque(entry);
    free(entry);
    --gIp6SourceGuardBindNum;
    return 0;
}

int32_t ip6_source_guard_bind_node_delete_all() {
    Ip6SourceGuardBindNode *head = pIp6SourceGuardBindListHead;
    uint32_t deleted = 0;
    for (Ip6SourceGuardBindNode *entry = head->next; entry != head;) {
        Ip6SourceGuardBindNode *next = entry->next;
        withdraw_and_reinstate(entry);
        remque(entry);
        free(entry);
        ++deleted;
        entry = next;
    }
    head->next = head;
    head->previous = head;
    gIp6SourceGuardBindNum = 0;
    return static_cast<int32_t>(deleted);
}

int32_t ip6_source_guard_bind_node_get(uint16_t start, uint16_t *next, uint16_t *count, Ip6SourceGuardBindNode *records) {
    if (next == nullptr || count == nullptr || records == nullptr)
        return -1;
    const Ip6SourceGuardBindNode *head = pIp6SourceGuardBindListHead;
    const Ip6SourceGuardBindNode *entry = head->next;
    uint32_t position = 1; // 32 bits: the list may be longer than a position can say
    uint32_t copied = 0;
    for (; entry != head && copied < IP6_BIND_PAGE; entry = entry->next, ++position)
        if (position >= start)
            copy_values(&records[copied++], entry);
    *count = static_cast<uint16_t>(copied);
    *next = entry != head && position <= UINT16_MAX ? static_cast<uint16_t>(position) : uint16_t{0};
    return 0;
}

int32_t ip6_source_guard_bind_node_get_by_ip(Ip6Address address, Ip6SourceGuardBindNode *record) {
    const Ip6SourceGuardBindNode *entry = find_by_address(address);
    if (record == nullptr || entry == nullptr)
        return -1;
    copy_values(record, entry);
    return 0;
}
