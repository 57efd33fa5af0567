#include "l2/dhcp6snooping/clients/table.h"

#include <bit>
#include <cstring>

#include "l2/dhcp6snooping/base/lease.h"
#include "l2/dhcp6snooping/base/trace.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/sourceguard/filters.h"

Dhcp6SnoopingNode gDhcp6SnoopingAvlNode[DHCP6SNOOPING_CLIENTS_MAX];
LstList listDhcp6SnoopingAvlNode;
AvlTree pDhcp6SnoopingNodeInfo;

namespace {

// A MAC as one number in the order of its bytes: one compare instead of six on the way down the tree.
uint64_t mac_number(const uint8_t *mac) {
    uint32_t high;
    uint16_t low;
    memcpy(&high, mac, sizeof high);
    memcpy(&low, mac + sizeof high, sizeof low);
    if constexpr (std::endian::native == std::endian::little) {
        high = __builtin_bswap32(high);
        low = __builtin_bswap16(low);
    }
    return (uint64_t{high} << 16) | low;
}

// The same of a record's key, whose eight bytes, with the two of padding behind it, are there to be read at once.
uint64_t key_number(const void *node) {
    uint64_t number;
    memcpy(&number, static_cast<const uint8_t *>(node) + offsetof(Dhcp6SnoopingNode, mac), sizeof number);
    if constexpr (std::endian::native == std::endian::little)
        number = __builtin_bswap64(number);
    return number >> 16;
}

// A client that was never acknowledged has no filters.
void withdraw_filters(const Dhcp6SnoopingNode *node) {
    if (node->acked != 1)
        return;
    for (uint32_t slot = 0; slot < node->leases.count; ++slot) {
        const Dhcp6LeaseAttr *lease = dhcp6snooping_lease_at(&node->leases, slot);
        if (lease != nullptr)
            dhcp6snooping_lease_filter_remove(node, lease, node->port - 1);
    }
}

} // namespace

int32_t dhcp6snooping_mac_compare(const void *key, const void *node) {
    const uint64_t wanted = mac_number(static_cast<const uint8_t *>(key));
    const uint64_t held = key_number(node);
    if (wanted == held)
        return 0;
    return wanted < held ? -1 : 1;
}

bool dhcp6snooping_mac_is_zero(const uint8_t *mac) { return mac_number(mac) == 0; }

void dhcp6snooping_table_init() {
    dhcp6snooping_delete_allavlnode();
    lstInit(&listDhcp6SnoopingAvlNode);
    for (Dhcp6SnoopingNode &node : gDhcp6SnoopingAvlNode)
        lstAdd(&listDhcp6SnoopingAvlNode, &node);
}

Dhcp6SnoopingNode *dhcp6snooping_first_avlnode() {
    return static_cast<Dhcp6SnoopingNode *>(avlMinimumGet(&pDhcp6SnoopingNodeInfo));
}

Dhcp6SnoopingNode *dhcp6snooping_next_avlnode(const uint8_t *mac) {
    return static_cast<Dhcp6SnoopingNode *>(avlSuccessorGet(&pDhcp6SnoopingNodeInfo, mac, dhcp6snooping_mac_compare));
}

Dhcp6SnoopingNode *dhcp6snooping_get_avlnode(const uint8_t *mac) {
    if (mac == nullptr)
        return nullptr;
    return static_cast<Dhcp6SnoopingNode *>(avlSearch(&pDhcp6SnoopingNodeInfo, mac, dhcp6snooping_mac_compare));
}

Dhcp6SnoopingNode *dhcp6snooping_add_avlnode(const uint8_t *mac) {
    if (mac == nullptr)
        return nullptr;
    uint8_t key[MAC_SIZE];
    memcpy(key, mac, sizeof key);
    Dhcp6SnoopingNode *node = dhcp6snooping_get_avlnode(key);
    if (node != nullptr)
        return node;
    node = static_cast<Dhcp6SnoopingNode *>(lstGet(&listDhcp6SnoopingAvlNode));
    if (node == nullptr) {
        dhcp6snooping_debug_printf("\r\n lstGet failed, no enough node space.");
        return nullptr;
    }
    if (avlInsert(&pDhcp6SnoopingNodeInfo, node, key, dhcp6snooping_mac_compare) != 0) {
        lstAdd(&listDhcp6SnoopingAvlNode, node);
        return nullptr;
    }
    memcpy(node->mac, key, sizeof node->mac);
    node->acked = 0;
    node->counted = 0;
    return node;
}

uint32_t dhcp6snooping_delete_avlnode(const uint8_t *mac) {
    if (mac == nullptr)
        return DHCP6SNOOPING_REFUSED;
    uint8_t key[MAC_SIZE]; // mac may lie in the record that is cleared below
    memcpy(key, mac, sizeof key);
    if (dhcp6snooping_get_avlnode(key) == nullptr)
        return 0;
    Dhcp6SnoopingNode *node =
        static_cast<Dhcp6SnoopingNode *>(avlDelete(&pDhcp6SnoopingNodeInfo, key, dhcp6snooping_mac_compare));
    if (node == nullptr)
        return 0;
    if (node->counted == 1) {
        dhcp6snooping_uncount_client(node->port - 1, node->vlan);
        node->counted = 0;
    }
    withdraw_filters(node);
    dhcp6snooping_attr_array_free(&node->leases, dhcp6snooping_attr_binding_free);
    memset(static_cast<void *>(node), 0, sizeof *node);
    lstAdd(&listDhcp6SnoopingAvlNode, node);
    return 0;
}

uint32_t dhcp6snooping_delete_allavlnode() {
    Dhcp6SnoopingNode *node = dhcp6snooping_first_avlnode();
    while (node != nullptr) {
        dhcp6snooping_delete_avlnode(node->mac);
        Dhcp6SnoopingNode *first = dhcp6snooping_first_avlnode();
        // A tree that did not give the record up would hold the loop for ever.
        if (first == node)
            break;
        node = first;
    }
    return 0;
}
