#pragma once
// The table of snooped clients: who (MAC) was seen where (VLAN, port), and which addresses and prefixes servers granted it.
//
// Key: the client's MAC address; walks go in ascending order of its bytes. Bound: 2048 records in a fixed pool, free ones on a
// list (first in, first out), used ones in a tree. A client that finds the pool empty is still served, only not recorded. One
// port can fill it until its limit (limits.h), at first the whole pool, is set lower. A record is all zeros while it is free.
// Only the lease array of a record is heap memory, owned by it.
//
// A record enters the tree in dhcp6snooping_add_avlnode and leaves it in dhcp6snooping_delete_avlnode, nowhere else. The
// all-zero MAC is never a key.

#include <cstddef>
#include <cstdint>

#include "l2/dhcp6snooping/base/attrarray.h"
#include "platform/libcommon.h"

inline constexpr uint32_t DHCP6SNOOPING_CLIENTS_MAX = 2048;
inline constexpr uint32_t MAC_SIZE = 6;

struct Dhcp6SnoopingNode {
    AvlNode link;           // of the tree; the free list uses its first bytes
    uint32_t vlan;          // VLAN id where the client was recorded
    uint32_t port;          // from 1; 0 = none
    uint8_t mac[MAC_SIZE];  // key
    uint32_t unack_timeout; // seconds that an unacknowledged client may still live
    uint32_t last_update;   // seconds since boot, of the last aging pass or REPLY
    uint32_t acked;         // 1 once a REPLY with usable leases was accepted
    uint32_t counted;       // 1 while the client is part of its port's and VLAN's count
    Dhcp6AttrArray leases;  // Dhcp6LeaseAttr
};
static_assert(offsetof(Dhcp6SnoopingNode, link) == 0);
static_assert(offsetof(Dhcp6SnoopingNode, vlan) == 32);
static_assert(offsetof(Dhcp6SnoopingNode, port) == 36);
static_assert(offsetof(Dhcp6SnoopingNode, mac) == 40);
static_assert(offsetof(Dhcp6SnoopingNode, unack_timeout) == 48);
static_assert(offsetof(Dhcp6SnoopingNode, last_update) == 52);
static_assert(offsetof(Dhcp6SnoopingNode, acked) == 56);
static_assert(offsetof(Dhcp6SnoopingNode, counted) == 60);
static_assert(offsetof(Dhcp6SnoopingNode, leases) == 64);
static_assert(sizeof(Dhcp6SnoopingNode) == 80);

extern Dhcp6SnoopingNode gDhcp6SnoopingAvlNode[DHCP6SNOOPING_CLIENTS_MAX]; // the pool
extern LstList listDhcp6SnoopingAvlNode;                                   // free records
extern AvlTree pDhcp6SnoopingNodeInfo;                                     // records in use

// Order of the tree: key is a MAC of 6 bytes, node a Dhcp6SnoopingNode. -1, 0 or 1, by unsigned bytes.
int32_t dhcp6snooping_mac_compare(const void *key, const void *node);

[[nodiscard]] bool dhcp6snooping_mac_is_zero(const uint8_t *mac);

// Empties the table and puts the whole pool on the free list, in pool order.
void dhcp6snooping_table_init();

// First client, and the first one behind a MAC (which need not be in the table); null at the end.
[[nodiscard]] Dhcp6SnoopingNode *dhcp6snooping_first_avlnode();
[[nodiscard]] Dhcp6SnoopingNode *dhcp6snooping_next_avlnode(const uint8_t *mac);

// The client's record, made if needed; null for a null MAC, or when the pool is empty.
Dhcp6SnoopingNode *dhcp6snooping_add_avlnode(const uint8_t *mac);

// The client's record, or null.
[[nodiscard]] Dhcp6SnoopingNode *dhcp6snooping_get_avlnode(const uint8_t *mac);

// Deletes a client and gives back its part of the counts. `mac` may lie in the record itself. 0, also when there is no such
// client; 0xFFFFFFFF for a null MAC.
uint32_t dhcp6snooping_delete_avlnode(const uint8_t *mac);

// Deletes every client. 0.
uint32_t dhcp6snooping_delete_allavlnode();
