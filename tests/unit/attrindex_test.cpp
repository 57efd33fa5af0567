// Searching arrays of any size by identity, against a plain walk; and the pass that takes items out.

#include "l2/dhcp6snooping/base/attrindex.h"
#include "l2/dhcp6snooping/base/lease.h"
#include "tests/platform/recording.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

Dhcp6LeaseAttr lease(uint32_t number, uint32_t prefixLength = 128) {
    Dhcp6LeaseAttr made = {};
    memcpy(made.address + 12, &number, sizeof number);
    made.prefix_len = prefixLength;
    return made;
}

struct AttrIndexTest : testing::Test {
    Dhcp6AttrArray array = {};

    void TearDown() override { dhcp6snooping_attr_array_free(&array, dhcp6snooping_attr_binding_free); }

    void add(uint32_t number) {
        const Dhcp6LeaseAttr made = lease(number);
        dhcp6snooping_attr_array_add(&array, &made, sizeof made);
    }

    void remove(uint32_t number) {
        const Dhcp6LeaseAttr wanted = lease(number);
        dhcp6snooping_attr_array_remove(&array, dhcp6snooping_lease_find(&array, &wanted), dhcp6snooping_attr_binding_free);
    }

    Dhcp6LeaseAttr *find(uint32_t number) const {
        const Dhcp6LeaseAttr wanted = lease(number);
        return dhcp6snooping_lease_find(&array, &wanted);
    }

    // What a walk finds, in the order of the slots.
    std::vector<uint32_t> numbers() const {
        std::vector<uint32_t> found;
        for (uint32_t slot = 0; slot < array.count; ++slot) {
            uint32_t number = 0;
            memcpy(&number, dhcp6snooping_lease_at(&array, slot)->address + 12, sizeof number);
            found.push_back(number);
        }
        return found;
    }
};

TEST_F(AttrIndexTest, FindsEachAtEverySize) {
    for (uint32_t number = 0; number < 1000; ++number) {
        ASSERT_EQ(find(number), nullptr);
        add(number);
        ASSERT_EQ(find(number), dhcp6snooping_lease_at(&array, number));
        ASSERT_EQ(find(number / 2), dhcp6snooping_lease_at(&array, number / 2));
    }
    const Dhcp6LeaseAttr prefix = lease(7, 64);
    EXPECT_EQ(dhcp6snooping_lease_find(&array, &prefix), nullptr);
}

TEST_F(AttrIndexTest, OnlyBlocksThatGrewHaveRoom) {
    for (const uint32_t capacity : {0u, 6u, 12u, 24u, 48u, 95u, 97u, 100u, 128u, 144u, 191u, 288u})
        EXPECT_EQ(dhcp6snooping_attr_index_bytes(capacity), 0u) << capacity;
    for (const uint32_t capacity : {96u, 192u, 384u, 98304u})
        EXPECT_GT(dhcp6snooping_attr_index_bytes(capacity), capacity * 2 * sizeof(void *)) << capacity;
}

TEST_F(AttrIndexTest, StaysTrueThroughChanges) {
    std::mt19937 random(9); // the same changes in every run
    std::vector<uint32_t> model;
    for (uint32_t step = 0; step < 20000; ++step) {
        const auto number = static_cast<uint32_t>(random() % 600);
        const auto known = std::find(model.begin(), model.end(), number);
        ASSERT_EQ(find(number) != nullptr, known != model.end()) << step;
        if (known == model.end()) {
            add(number);
            model.push_back(number);
        } else if (random() % 3 != 0) {
            remove(number);
            model.erase(known);
        }
        if (step % 1000 == 0) {
            ASSERT_EQ(numbers(), model);
        }
    }
    EXPECT_GT(model.size(), DHCP6_ATTR_INDEX_FROM);
}

struct Refusal {
    uint32_t divisor;
    std::vector<void *> asked;
};

bool isNotDivided(void *item, void *context) {
    auto *refusal = static_cast<Refusal *>(context);
    uint32_t number = 0;
    memcpy(&number, static_cast<Dhcp6LeaseAttr *>(item)->address + 12, sizeof number);
    refusal->asked.push_back(item);
    return number % refusal->divisor != 0;
}

// Pairs of addresses that differ in the last bit of each half alone: a mixer without a key in every step puts each pair into one
// place, whatever the key.
TEST_F(AttrIndexTest, ChosenPairsDoNotFallTogether) {
    constexpr uint32_t PAIRS = 2000;
    std::mt19937_64 random(11);
    std::vector<Dhcp6LeaseAttr> pairs;
    for (uint32_t pair = 0; pair < PAIRS; ++pair) {
        uint64_t words[2] = {random(), random()};
        for (int half = 0; half < 2; ++half) {
            Dhcp6LeaseAttr made = lease(0);
            memcpy(made.address, words, sizeof words);
            dhcp6snooping_attr_array_add(&array, &made, sizeof made);
            pairs.push_back(made);
            words[0] ^= uint64_t{1} << 63;
            words[1] ^= uint64_t{1} << 63 | uint64_t{1} << 31;
        }
    }
    void **places = array.items + array.capacity + 1; // behind the pointers and one number
    const auto placeOf = [&](const Dhcp6LeaseAttr &wanted) {
        const void *item = dhcp6snooping_lease_find(&array, &wanted);
        int64_t at = 0;
        while (places[at] != item)
            ++at;
        return at;
    };
    uint32_t together = 0;
    for (uint32_t pair = 0; pair < PAIRS; ++pair)
        together += std::abs(placeOf(pairs[2 * pair]) - placeOf(pairs[2 * pair + 1])) <= 1 ? 1u : 0u;
    EXPECT_LT(together, PAIRS / 20);
}

TEST_F(AttrIndexTest, KeepAsksForEachInOrderAndKeepsTheOrder) {
    for (const uint32_t size : {0u, 1u, 5u, 6u, 300u}) {
        for (uint32_t number = 0; number < size; ++number)
            add(number);
        static_cast<void>(find(0)); // fills the index where there is room for one
        const std::vector<void *> items(array.items, array.items + array.count);
        Refusal refusal = {.divisor = 3, .asked = {}};
        const uint32_t capacity = array.capacity;
        dhcp6snooping_attr_array_keep(&array, isNotDivided, &refusal, dhcp6snooping_attr_binding_free);
        EXPECT_EQ(refusal.asked, items);
        EXPECT_EQ(array.capacity, capacity);
        EXPECT_EQ(array.count, size - (size + 2) / 3);
        for (uint32_t slot = array.count; slot < size; ++slot)
            EXPECT_EQ(array.items[slot], nullptr);
        uint32_t slot = 0;
        for (uint32_t number = 0; number < size; ++number)
            EXPECT_EQ(find(number), number % 3 == 0 ? nullptr : dhcp6snooping_lease_at(&array, slot++)) << number;
        dhcp6snooping_attr_array_free(&array, dhcp6snooping_attr_binding_free);
    }
}

TEST_F(AttrIndexTest, KeepLeavesEmptySlotsWhereTheyAre) {
    for (uint32_t number = 0; number < 5; ++number)
        add(number);
    void *taken = array.items[1];
    array.items[1] = nullptr;
    Refusal refusal = {.divisor = 2, .asked = {}};
    dhcp6snooping_attr_array_keep(&array, isNotDivided, &refusal, dhcp6snooping_attr_binding_free);
    EXPECT_EQ(refusal.asked.size(), 4u);
    ASSERT_EQ(array.count, 2u);
    EXPECT_EQ(array.items[0], nullptr);
    EXPECT_EQ(array.items[1], find(3));
    dhcp6snooping_attr_binding_free(&taken);
}

// Where the block could not grow, the item is lost and the index is as it was.
TEST_F(AttrIndexTest, AnItemThatIsLostIsNotFound) {
    for (uint32_t number = 0; number < 96; ++number)
        add(number);
    ASSERT_NE(find(95), nullptr);
    recordingAllocationsBegin(1);
    add(96);
    EXPECT_EQ(recordingAllocationsEnd(), 1u);
    EXPECT_EQ(find(96), nullptr);
    EXPECT_EQ(array.count, 96u);
    add(96);
    EXPECT_EQ(find(96), dhcp6snooping_lease_at(&array, 96));
}

} // namespace
