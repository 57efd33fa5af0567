#include "l2/dhcp6snooping/base/attrarray.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "l2/dhcp6snooping/base/attrindex.h"
#include "l2/dhcp6snooping/base/option.h"

namespace {

constexpr uint32_t GROWTH_BASE = 3;
constexpr uint32_t CAPACITY_MAX = 0x0FFFFFFF; // the next growth of a larger array would not fit 32 bits of bytes

bool grow(Dhcp6AttrArray *array) {
    if (array->capacity > CAPACITY_MAX)
        return false;
    const uint32_t capacity = std::max(array->capacity, GROWTH_BASE) * 2;
    void **items = static_cast<void **>(calloc(1, capacity * sizeof(void *) + dhcp6snooping_attr_index_bytes(capacity)));
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
    dhcp6snooping_attr_index_add(array, stored);
}

void dhcp6snooping_attr_array_remove(Dhcp6AttrArray *array, void *item, Dhcp6AttrRelease release) {
    uint32_t slot = 0;
    while (slot < array->count && array->items[slot] != item)
        ++slot;
    if (slot == array->count)
        return;
    dhcp6snooping_attr_index_remove(array, item);
    for (; slot + 1 < array->count; ++slot)
        array->items[slot] = array->items[slot + 1];
    array->items[slot] = nullptr;
    --array->count;
    void *removed = item;
    if (release != nullptr)
        release(&removed);
}

void *dhcp6snooping_attr_array_find(const Dhcp6AttrArray *array, const void *identity) {
    if (dhcp6snooping_attr_index_fits(array->capacity))
        return dhcp6snooping_attr_index_find(array, identity);
    for (uint32_t slot = 0; slot < array->count; ++slot)
        if (array->items[slot] != nullptr && memcmp(array->items[slot], identity, DHCP6_ATTR_IDENTITY) == 0)
            return array->items[slot];
    return nullptr;
}

void dhcp6snooping_attr_array_keep(Dhcp6AttrArray *array, Dhcp6AttrKeep keep, void *context, Dhcp6AttrRelease release) {
    const uint32_t count = array->count;
    uint32_t kept = 0;
    for (uint32_t slot = 0; slot < count; ++slot) {
        void *item = array->items[slot];
        if (item == nullptr || keep(item, context)) {
            array->items[kept++] = item;
            continue;
        }
        dhcp6snooping_attr_index_remove(array, item);
        if (release != nullptr)
            release(&item);
    }
    for (uint32_t slot = kept; slot < count; ++slot)
        array->items[slot] = nullptr;
    array->count = kept;
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
