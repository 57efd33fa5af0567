#include "l2/dhcp6snooping/base/attrindex.h"

#include <bit>
#include <cstring>

namespace {

// What follows the pointers of a block: at most three eighths of the places are taken.
struct Index {
    uint64_t filled; // 1 once the items are in it
    void *place[];
};

uint64_t places(uint32_t capacity) { return std::bit_ceil(uint64_t{capacity} * 2); }

Index *index_of(const Dhcp6AttrArray *array) { return reinterpret_cast<Index *>(array->items + array->capacity); }

// A number of this process: where the loader has put this program, or its library.
uint64_t key(const void *anchor) { return reinterpret_cast<uintptr_t>(anchor); }

struct Sip {
    uint64_t v0, v1, v2, v3;
};

void sip_round(Sip *s) {
    s->v0 += s->v1;
    s->v2 += s->v3;
    s->v1 = std::rotl(s->v1, 13) ^ s->v0;
    s->v3 = std::rotl(s->v3, 16) ^ s->v2;
    s->v0 = std::rotl(s->v0, 32) + s->v3;
    s->v2 += s->v1;
    s->v3 = std::rotl(s->v3, 21) ^ s->v0;
    s->v1 = std::rotl(s->v1, 17) ^ s->v2;
    s->v2 = std::rotl(s->v2, 32);
}

void sip_word(Sip *s, uint64_t word) {
    s->v3 ^= word;
    sip_round(s);
    s->v0 ^= word;
}

// SipHash-1-3: whoever chooses the addresses and does not know the key cannot know which of them fall together.
uint64_t first_place(const void *identity, uint64_t mask) {
    static const char anchor = 0;
    const uint64_t ours = key(&anchor);
    const uint64_t libraries = key(reinterpret_cast<const void *>(&memcmp));
    uint64_t words[2];
    uint32_t rest;
    memcpy(words, identity, sizeof words);
    memcpy(&rest, static_cast<const uint8_t *>(identity) + sizeof words, sizeof rest);
    static_assert(sizeof words + sizeof rest == DHCP6_ATTR_IDENTITY);
    Sip s = {ours ^ 0x736F6D6570736575u, libraries ^ 0x646F72616E646F6Du, ours ^ 0x6C7967656E657261u,
             libraries ^ 0x7465646279746573u};
    sip_word(&s, words[0]);
    sip_word(&s, words[1]);
    sip_word(&s, rest | uint64_t{DHCP6_ATTR_IDENTITY} << 56);
    s.v2 ^= 0xFF;
    for (int i = 0; i < 3; ++i)
        sip_round(&s);
    return (s.v0 ^ s.v1 ^ s.v2 ^ s.v3) & mask;
}

bool same(const void *a, const void *b) { return memcmp(a, b, DHCP6_ATTR_IDENTITY) == 0; }

void put(Index *index, uint64_t mask, void *item) {
    uint64_t at = first_place(item, mask);
    while (index->place[at] != nullptr)
        at = (at + 1) & mask;
    index->place[at] = item;
}

void fill(const Dhcp6AttrArray *array, Index *index, uint64_t mask) {
    for (uint32_t slot = 0; slot < array->count; ++slot)
        if (array->items[slot] != nullptr)
            put(index, mask, array->items[slot]);
    index->filled = 1;
}

// Moves back the items that a search would no longer reach past the free place.
void close_gap(Index *index, uint64_t mask, uint64_t gap) {
    for (uint64_t at = (gap + 1) & mask; index->place[at] != nullptr; at = (at + 1) & mask) {
        const uint64_t wanted = first_place(index->place[at], mask);
        if (((at - wanted) & mask) < ((at - gap) & mask))
            continue;
        index->place[gap] = index->place[at];
        gap = at;
    }
    index->place[gap] = nullptr;
}

} // namespace

// Blocks grow from 6 slots by doubling; an array of another capacity did not grow, and has no index.
bool dhcp6snooping_attr_index_fits(uint32_t capacity) {
    const uint32_t third = capacity / 3;
    return capacity >= DHCP6_ATTR_INDEX_FROM && capacity % 3 == 0 && (third & (third - 1)) == 0;
}

size_t dhcp6snooping_attr_index_bytes(uint32_t capacity) {
    return dhcp6snooping_attr_index_fits(capacity) ? sizeof(Index) + places(capacity) * sizeof(void *) : 0;
}

void *dhcp6snooping_attr_index_find(const Dhcp6AttrArray *array, const void *identity) {
    Index *index = index_of(array);
    const uint64_t mask = places(array->capacity) - 1;
    if (index->filled == 0)
        fill(array, index, mask);
    for (uint64_t at = first_place(identity, mask); index->place[at] != nullptr; at = (at + 1) & mask)
        if (same(index->place[at], identity))
            return index->place[at];
    return nullptr;
}

void dhcp6snooping_attr_index_add(const Dhcp6AttrArray *array, void *item) {
    if (dhcp6snooping_attr_index_fits(array->capacity) && index_of(array)->filled != 0)
        put(index_of(array), places(array->capacity) - 1, item);
}

void dhcp6snooping_attr_index_remove(const Dhcp6AttrArray *array, const void *item) {
    if (!dhcp6snooping_attr_index_fits(array->capacity) || index_of(array)->filled == 0)
        return;
    Index *index = index_of(array);
    const uint64_t mask = places(array->capacity) - 1;
    uint64_t at = first_place(item, mask);
    while (index->place[at] != nullptr && index->place[at] != item)
        at = (at + 1) & mask;
    if (index->place[at] == item)
        close_gap(index, mask, at);
}
