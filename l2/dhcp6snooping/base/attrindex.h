#pragma once
// Finds an item of a large array by its identity: the first DHCP6_ATTR_IDENTITY bytes of the item. A record may hold any number
// of leases, and a message names some hundred of them, so that a walk over the array for each would let one client hold up
// everybody else.
//
// The index lies in the array's own block, after the pointers, and lives as long as the block. Arrays that grew to
// DHCP6_ATTR_INDEX_FROM slots have room for one; it is filled by the first search and kept by every change after that. No two
// items of an array that is searched may have the same identity.

#include <cstddef>
#include <cstdint>

#include "l2/dhcp6snooping/base/attrarray.h"

inline constexpr uint32_t DHCP6_ATTR_IDENTITY = 20;
inline constexpr uint32_t DHCP6_ATTR_INDEX_FROM = 96; // slots

// Bytes that the index adds to a block of this capacity.
[[nodiscard]] size_t dhcp6snooping_attr_index_bytes(uint32_t capacity);

// Whether an array of this capacity has room for an index.
[[nodiscard]] bool dhcp6snooping_attr_index_fits(uint32_t capacity);

// The item with this identity, or null. Only for an array with room for an index; fills it if need be.
[[nodiscard]] void *dhcp6snooping_attr_index_find(const Dhcp6AttrArray *array, const void *identity);

// The item was added, or is about to be removed. Nothing happens while the index is not filled, or has no room.
void dhcp6snooping_attr_index_add(const Dhcp6AttrArray *array, void *item);
void dhcp6snooping_attr_index_remove(const Dhcp6AttrArray *array, const void *item);
