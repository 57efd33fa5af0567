// The growable array of leases.

#include "l2/dhcp6snooping/base/attrarray.h"
#include "tests/platform/recording.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

namespace {

std::vector<void *> released;

void releaseAndNote(void **slot) {
    released.push_back(*slot);
    free(*slot);
    *slot = nullptr;
}

void noteOnly(void **slot) { released.push_back(*slot); }

struct AttrArrayTest : testing::Test {
    Dhcp6AttrArray array = {};
    int things[40] = {};

    void SetUp() override { released.clear(); }
    void TearDown() override { dhcp6snooping_attr_array_free(&array, nullptr); }

    // Adds pointers to the first `count` things.
    void fill(uint32_t count) {
        for (uint32_t i = 0; i < count; i++)
            dhcp6snooping_attr_array_add(&array, &things[i], 0);
    }
    std::vector<void *> items() const { return std::vector<void *>(array.items, array.items + array.count); }
};

TEST_F(AttrArrayTest, GrowsSixTwelveTwentyFour) {
    for (uint32_t i = 0; i < 40; i++) {
        dhcp6snooping_attr_array_add(&array, &things[i], 0);
        EXPECT_EQ(array.count, i + 1);
        EXPECT_EQ(array.capacity, i < 6 ? 6u : i < 12 ? 12u : i < 24 ? 24u : 48u);
        for (uint32_t j = 0; j <= i; j++)
            ASSERT_EQ(array.items[j], &things[j]);
        for (uint32_t j = array.count; j < array.capacity; j++)
            ASSERT_EQ(array.items[j], nullptr) << "new slots are zero";
    }
}

TEST_F(AttrArrayTest, GrowsToTwiceTheLargerOfCapacityAndThree) {
    for (uint32_t capacity = 0; capacity < 6; capacity++) {
        Dhcp6AttrArray odd = {};
        if (capacity != 0)
            odd = {capacity, capacity, static_cast<void **>(calloc(capacity, sizeof(void *)))};
        dhcp6snooping_attr_array_add(&odd, things, 0);
        EXPECT_EQ(odd.capacity, std::max(capacity, 3u) * 2);
        EXPECT_EQ(odd.count, capacity + 1);
        EXPECT_EQ(odd.items[capacity], things);
        dhcp6snooping_attr_array_free(&odd, nullptr);
    }
}

TEST_F(AttrArrayTest, WithASizeAHeapCopyIsKept) {
    char item[5] = "abcd";
    dhcp6snooping_attr_array_add(&array, item, sizeof item);
    item[0] = 'x';
    EXPECT_NE(array.items[0], item);
    EXPECT_STREQ(static_cast<char *>(array.items[0]), "abcd");
    dhcp6snooping_attr_array_free(&array, releaseAndNote);
    EXPECT_EQ(released.size(), 1u);
}

TEST_F(AttrArrayTest, RemoveTakesThePointerAndKeepsTheOrder) {
    fill(5);
    dhcp6snooping_attr_array_remove(&array, &things[1], noteOnly);
    EXPECT_EQ(items(), (std::vector<void *>{&things[0], &things[2], &things[3], &things[4]}));
    EXPECT_EQ(released, std::vector<void *>{&things[1]});
    EXPECT_EQ(array.capacity, 6u);
    EXPECT_EQ(array.items[4], nullptr);
    dhcp6snooping_attr_array_remove(&array, &things[4], noteOnly);
    dhcp6snooping_attr_array_remove(&array, &things[0], nullptr);
    EXPECT_EQ(items(), (std::vector<void *>{&things[2], &things[3]}));
    EXPECT_EQ(released.size(), 2u);
}

TEST_F(AttrArrayTest, RemoveGoesByIdentityNotByContent) {
    fill(2); // both things are 0
    dhcp6snooping_attr_array_remove(&array, &things[1], nullptr);
    EXPECT_EQ(items(), std::vector<void *>{&things[0]});
}

TEST_F(AttrArrayTest, RemoveReleasesACopyOfThePointer) {
    static void **seen;
    fill(1);
    dhcp6snooping_attr_array_remove(&array, &things[0], [](void **slot) { seen = slot; });
    EXPECT_NE(seen, array.items);
}

TEST_F(AttrArrayTest, AForeignPointerIsLeftAlone) {
    fill(6); // full: nothing behind the last slot
    int other = 0;
    dhcp6snooping_attr_array_remove(&array, &other, noteOnly);
    EXPECT_EQ(array.count, 6u);
    EXPECT_TRUE(released.empty());
    Dhcp6AttrArray empty = {};
    dhcp6snooping_attr_array_remove(&empty, &other, noteOnly);
    EXPECT_TRUE(released.empty());
}

TEST_F(AttrArrayTest, RemoveFromAFullArray) {
    fill(6);
    for (uint32_t i = 6; i-- > 0;)
        dhcp6snooping_attr_array_remove(&array, &things[i], nullptr);
    EXPECT_EQ(array.count, 0u);
    EXPECT_EQ(array.capacity, 6u);
}

TEST_F(AttrArrayTest, FreeReleasesInOrderAndEmpties) {
    fill(3);
    dhcp6snooping_attr_array_free(&array, noteOnly);
    EXPECT_EQ(released, (std::vector<void *>{&things[0], &things[1], &things[2]}));
    EXPECT_EQ(array.count, 0u);
    EXPECT_EQ(array.capacity, 0u);
    EXPECT_EQ(array.items, nullptr);
    dhcp6snooping_attr_array_free(&array, noteOnly);
    EXPECT_EQ(released.size(), 3u);
    fill(2);
    EXPECT_EQ(array.capacity, 6u);
}

TEST_F(AttrArrayTest, FreeLeavesAnArrayWithoutStorageAlone) {
    Dhcp6AttrArray odd = {.count = 3, .capacity = 0, .items = nullptr};
    dhcp6snooping_attr_array_free(&odd, noteOnly);
    EXPECT_EQ(odd.count, 3u);
    EXPECT_TRUE(released.empty());
}

TEST_F(AttrArrayTest, AnItemIsLostWhenTheArrayCannotGrow) {
    recordingAllocationsBegin(1);
    dhcp6snooping_attr_array_add(&array, things, 0);
    EXPECT_EQ(recordingAllocationsEnd(), 1u);
    EXPECT_EQ(array.count, 0u);
    EXPECT_EQ(array.capacity, 0u);
    fill(6);
    recordingAllocationsBegin(1);
    dhcp6snooping_attr_array_add(&array, &things[6], sizeof things[6]);
    EXPECT_EQ(recordingAllocationsEnd(), 1u) << "without a slot no copy is made";
    EXPECT_EQ(array.count, 6u);
    EXPECT_EQ(array.capacity, 6u);
    EXPECT_EQ(array.items[5], &things[5]);
}

TEST_F(AttrArrayTest, AGrownBlockIsKeptWhenTheCopyFails) {
    recordingAllocationsBegin(2);
    dhcp6snooping_attr_array_add(&array, things, sizeof things[0]);
    EXPECT_EQ(recordingAllocationsEnd(), 2u);
    EXPECT_EQ(array.count, 0u);
    EXPECT_EQ(array.capacity, 6u);
    EXPECT_NE(array.items, nullptr);
}

TEST_F(AttrArrayTest, GrowthIsRefusedBeforeTheCapacityOverflows) {
    Dhcp6AttrArray huge = {.count = 0x10000000, .capacity = 0x10000000, .items = nullptr};
    recordingAllocationsBegin(0);
    dhcp6snooping_attr_array_add(&huge, things, 0);
    EXPECT_EQ(recordingAllocationsEnd(), 0u);
    EXPECT_EQ(huge.count, 0x10000000u);
    EXPECT_EQ(huge.capacity, 0x10000000u);
}

} // namespace
