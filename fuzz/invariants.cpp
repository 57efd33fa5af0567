#include "fuzz/invariants.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>

#include "fuzz/check.h"
#include "l2/dhcp6snooping/base/lease.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/clients/table.h"

// Counted by the walk, in the form of the daemon's own counts so that they compare as blocks.
static uint16_t portClients[DHCP6SNOOPING_PORTS];
static uint16_t vlanClients[DHCP6SNOOPING_VLANS];
static_assert(sizeof portClients == sizeof dhcp6SnoopingPortIpNum && sizeof vlanClients == sizeof dhcp6SnoopingDhcpVlanIpNum);

static bool inPool(const Dhcp6SnoopingNode *node) {
    const auto at = reinterpret_cast<uintptr_t>(node);
    const auto first = reinterpret_cast<uintptr_t>(&gDhcp6SnoopingAvlNode[0]);
    return at >= first && at - first < sizeof gDhcp6SnoopingAvlNode && (at - first) % sizeof(Dhcp6SnoopingNode) == 0;
}

static void checkLeases(const Dhcp6SnoopingNode *node) {
    const Dhcp6AttrArray *leases = &node->leases;
    fuzzCheck(leases->count <= leases->capacity, "a lease array holds no more than it has room for");
    fuzzCheck((leases->capacity == 0) == (leases->items == nullptr), "a lease array has storage exactly when it has room");
    fuzzCheck(node->acked == 1 || leases->count == 0, "only acknowledged clients have leases");
    for (uint32_t i = 0; i < leases->count; i++) {
        const auto *lease = static_cast<const Dhcp6LeaseAttr *>(leases->items[i]);
        fuzzCheck(lease != nullptr && lease->prefix_len <= 255 && lease->status == 0, "a lease is a usable one");
        for (uint32_t k = 0; k < i; k++) {
            const auto *other = static_cast<const Dhcp6LeaseAttr *>(leases->items[k]);
            fuzzCheck(lease->prefix_len != other->prefix_len || std::memcmp(lease->address, other->address, 16) != 0,
                      "a client holds a lease once");
        }
    }
}

static void checkRecord(const Dhcp6SnoopingNode *node) {
    fuzzCheck(inPool(node), "a record in use is one of the pool");
    fuzzCheck(node->port >= 1 && node->port <= DHCP6SNOOPING_PORTS, "a record has a port of the switch");
    fuzzCheck(node->vlan < DHCP6SNOOPING_VLANS, "a record has a VLAN");
    fuzzCheck(std::any_of(node->mac, node->mac + MAC_SIZE, [](uint8_t byte) { return byte != 0; }), "a record has a MAC");
    fuzzCheck(node->acked <= 1 && node->counted == 1, "a record is counted");
    checkLeases(node);
    portClients[node->port - 1]++;
    vlanClients[node->vlan]++;
}

void invariantsCheck(bool vlanCountsReset) {
    std::memset(portClients, 0, sizeof portClients);
    std::memset(vlanClients, 0, sizeof vlanClients);
    uint32_t used = 0;
    const uint8_t *last = nullptr;
    for (const Dhcp6SnoopingNode *node = dhcp6snooping_first_avlnode(); node != nullptr;
         node = dhcp6snooping_next_avlnode(node->mac)) {
        used++;
        fuzzCheck(used <= DHCP6SNOOPING_CLIENTS_MAX, "the table holds at most 2048 clients");
        checkRecord(node);
        fuzzCheck(last == nullptr || std::memcmp(last, node->mac, MAC_SIZE) < 0, "a walk ascends by MAC");
        last = node->mac;
    }
    fuzzCheck(used + listDhcp6SnoopingAvlNode.count == DHCP6SNOOPING_CLIENTS_MAX, "every record is used or free");
    fuzzCheck(std::memcmp(dhcp6SnoopingPortIpNum, portClients, sizeof portClients) == 0,
              "a port's count is that of its records");
    if (!vlanCountsReset)
        fuzzCheck(std::memcmp(dhcp6SnoopingDhcpVlanIpNum, vlanClients, sizeof vlanClients) == 0,
                  "a VLAN's count is that of its records");
    else
        fuzzCheck(
            std::equal(std::begin(vlanClients), std::end(vlanClients), dhcp6SnoopingDhcpVlanIpNum, std::greater_equal<>()),
            "a VLAN's count is no more than that of its records");
}

void invariantsCheckEmpty() {
    static std::array<bool, DHCP6SNOOPING_CLIENTS_MAX> seen;
    seen.fill(false);
    uint32_t free = 0;
    fuzzCheck(dhcp6snooping_first_avlnode() == nullptr, "the table is empty");
    for (const LstNode *link = listDhcp6SnoopingAvlNode.first; link != nullptr; link = link->next, free++) {
        const auto *node = reinterpret_cast<const Dhcp6SnoopingNode *>(link);
        fuzzCheck(inPool(node), "a free record is one of the pool");
        bool *mark = &seen[static_cast<size_t>(node - gDhcp6SnoopingAvlNode)];
        fuzzCheck(!*mark, "a free record is free once");
        *mark = true;
        static const Dhcp6SnoopingNode cleared{};
        fuzzCheck(std::memcmp(&node->vlan, &cleared.vlan, sizeof cleared - offsetof(Dhcp6SnoopingNode, vlan)) == 0,
                  "a free record is cleared");
    }
    fuzzCheck(free == DHCP6SNOOPING_CLIENTS_MAX, "the whole pool is free");
}
