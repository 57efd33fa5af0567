#pragma once
// A growable array of pointers, used for the leases of a message and of a client. All zeros is an empty array. It owns the
// items that were added by copy. When memory runs out an item is lost without a word; the array stays whole.

#include <cstdint>

struct Dhcp6AttrArray {
    uint32_t count;    // slots in use
    uint32_t capacity; // slots allocated; 0 = no storage
    void **items;      // heap block of `capacity` pointers, or null
};

// Gives back what *slot_ref points to.
typedef void (*Dhcp6AttrRelease)(void **slot_ref);

// Appends a heap copy of `size` bytes of item, or, with size 0, the pointer itself. A full array grows 0, 6, 12, 24 ...
void dhcp6snooping_attr_array_add(Dhcp6AttrArray *array, const void *item, uint32_t size);

// Takes out the slot that holds exactly this pointer, keeps the order of the others, then releases the item (if asked to). A
// pointer that is not in the array is left alone.
void dhcp6snooping_attr_array_remove(Dhcp6AttrArray *array, void *item, Dhcp6AttrRelease release);

// The item whose first bytes are this identity (attrindex.h), or null. All items of the array must have one, each another.
[[nodiscard]] void *dhcp6snooping_attr_array_find(const Dhcp6AttrArray *array, const void *identity);

// Asked for each item in order, except empty slots: whether it stays.
typedef bool (*Dhcp6AttrKeep)(void *item, void *context);

// Takes out, in one pass, every item that `keep` refuses, keeps the order of the others, and releases each right after its
// refusal. The array must not be used while it lasts.
void dhcp6snooping_attr_array_keep(Dhcp6AttrArray *array, Dhcp6AttrKeep keep, void *context, Dhcp6AttrRelease release);

// Releases every item (if asked to) and the storage. The array is empty afterwards.
void dhcp6snooping_attr_array_free(Dhcp6AttrArray *array, Dhcp6AttrRelease release);
