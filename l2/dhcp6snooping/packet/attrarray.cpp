#include "l2/dhcp6snooping/packet/attrarray.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "l2/dhcp6snooping/packet/option.h"

namespace {

constexpr uint32_t GROWTH_BASE = 3;
constexpr uint32_t CAPACITY_MAX = 0x0FFFFFFF; // the next growth of a larger array would not fit 32 bits of bytes

bool grow(Dhcp6AttrArray *array) {
    if (array->capacity > CAPACITY_MAX)
        return false;
    const uint32_t capacity = std::max(array->capacity, GROWTH_BASE) * 2;
    void **items = static_cast<void **>(calloc(capacity, sizeof(void *)));
    if (items == nullptr)
        return false;
    if (array->count != 0)
        memcpy(items, array->items, array->count * sizeof(void *));
    void *old = array->items;
    dhcp6snooping_util_free(&old);
    array->items = items;
    array->capacity = capacity;
    return true;
}

} // namespace

void dhcp6snooping_attr_array_add(Dhcp6AttrArray *array, const void *item, uint32_t size) {
    if (array->count == array->capacity && !grow(array))
        return;
    void *stored = const_cast<void *>(item);
    if (size != 0) {
        stored = malloc(size);
        if (stored == nullptr)
            return;
        memcpy(stored, item, size);
    }
    array->items[array->count] = stored;
    ++array->count;
}

void dhcp6snooping_attr_array_remove(Dhcp6AttrArray *array, void *item, Dhcp6AttrRelease release) {
    uint32_t slot = 0;
    while (slot < array->count && array->items[slot] != item)
        ++slot;
    if (slot == array->count)
        return;
    for (; slot + 1 < array->count; ++slot)
        array->items[slot] = array->items[slot + 1];
    array->items[slot] = nullptr;
    --array->count;
    void *removed = item;
    if (release != nullptr)
        release(&removed);
}

void dhcp6snooping_attr_array_free(Dhcp6AttrArray *array, Dhcp6AttrRelease release) {
    if (array->capacity == 0)
        return;
    if (release != nullptr)
        for (uint32_t slot = 0; slot < array->count; ++slot)
            release(&array->items[slot]);
    void *block = array->items;
    dhcp6snooping_util_free(&block);
    array->items = nullptr;
    array->count = 0;
    array->capacity = 0;
}
