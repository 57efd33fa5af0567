#pragma once
// The bindings that an operator configured: source addresses that may pass a guarded port, each for a MAC, a port and a VLAN,
// or for any.
//
// A doubly linked list, newest first, headed by a sentinel. No two entries have the same address, and no two the same non-zero
// MAC; there is no other bound than memory, because only the operator adds to it. Entries live until they are deleted. Every
// change goes along with its filters: the entry's own, and those of learned addresses that the entry shadows.

#include <cstddef>
#include <cstdint>

#include "l2/dhcp6snooping/clients/table.h"

struct Ip6Address {
    uint8_t bytes[16]; // network order
};
static_assert(sizeof(Ip6Address) == 16);

struct Ip6SourceGuardBindNode {
    Ip6SourceGuardBindNode *next; // toward older entries; first two members as insque and remque want them
    Ip6SourceGuardBindNode *previous;
    Ip6Address address;    // always a whole address
    uint8_t mac[MAC_SIZE]; // all zeros = any
    uint32_t port;         // from 1; 0 = any
    uint32_t vlan;         // 0 = any
};
static_assert(offsetof(Ip6SourceGuardBindNode, next) == 0);
static_assert(offsetof(Ip6SourceGuardBindNode, previous) == 8);
static_assert(offsetof(Ip6SourceGuardBindNode, address) == 16);
static_assert(offsetof(Ip6SourceGuardBindNode, mac) == 32);
static_assert(offsetof(Ip6SourceGuardBindNode, port) == 40);
static_assert(offsetof(Ip6SourceGuardBindNode, vlan) == 44);
static_assert(sizeof(Ip6SourceGuardBindNode) == 48);

inline constexpr uint32_t IP6_BIND_PAGE = 64; // records of one answer of bind_node_get
inline constexpr int32_t IP6_BIND_PRESENT = 2;

extern Ip6SourceGuardBindNode Ip6SourceGuardBindListHead; // the sentinel: never a binding, its address stays ::
extern Ip6SourceGuardBindNode *const pIp6SourceGuardBindListHead;
extern uint32_t gIp6SourceGuardBindNum; // entries

uint32_t ip6_source_guard_bind_entry_num_get();

// 0 when exactly this address, MAC and port are bound (whatever the VLAN), else -1.
int32_t ip6_source_guard_bind_node_check(Ip6Address address, const uint8_t *mac, uint32_t port);

// 0 added; IP6_BIND_PRESENT when address, MAC and port are bound already (the VLAN is not changed); -1 when the address or a
// non-zero MAC is bound otherwise, or memory ran out.
int32_t ip6_source_guard_bind_node_add(Ip6Address address, const uint8_t *mac, uint32_t port, uint32_t vlan);

// 0 deleted; -1 when the address is not bound.
int32_t ip6_source_guard_bind_node_delete(Ip6Address address);

// Deletes all; returns how many there were.
int32_t ip6_source_guard_bind_node_delete_all();

// Copies up to IP6_BIND_PAGE entries from position `start` (from 1, newest first) into `records`, links excepted. *next is
// where to go on, 0 at the end. 0; -1 for a null argument.
int32_t ip6_source_guard_bind_node_get(uint16_t start, uint16_t *next, uint16_t *count, Ip6SourceGuardBindNode *records);

// The entry with this address, links excepted. 0, or -1 with the record untouched.
int32_t ip6_source_guard_bind_node_get_by_ip(Ip6Address address, Ip6SourceGuardBindNode *record);
