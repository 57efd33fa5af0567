// Bindings read page by page.

#include "tests/unit/guard.h"

#include <cstring>
#include <search.h>

namespace {

struct BindingsPageTest : GuardTest {};

// The number of an entry, counted from the newest, is what its port says.
void fill(uint32_t entries) {
    for (uint32_t number = entries; number >= 1; number--) {
        Ip6Address address = ip6("2001:db8::");
        address.bytes[14] = static_cast<uint8_t>(number >> 8);
        address.bytes[15] = static_cast<uint8_t>(number);
        const uint8_t mac[6] = {2, 0, 0, 1, address.bytes[14], address.bytes[15]};
        ASSERT_EQ(ip6_source_guard_bind_node_add(address, mac, number, number + 7), 0);
    }
}

struct Page {
    int32_t result;
    uint16_t next, count;
    Ip6SourceGuardBindNode records[66]; // two more than may ever be written
};

Page pageFrom(uint16_t start) {
    Page page;
    memset(&page, 0xEE, sizeof page);
    page.result = ip6_source_guard_bind_node_get(start, &page.next, &page.count, page.records);
    return page;
}

bool untouched(const void *bytes, size_t size) {
    const auto *at = static_cast<const uint8_t *>(bytes);
    return std::all_of(at, at + size, [](uint8_t byte) { return byte == 0xEE; });
}

// A page holds `count` entries from number `first` on, and nothing but them was written.
void expectPage(uint16_t start, uint32_t first, uint32_t count, uint32_t next) {
    SCOPED_TRACE("from " + std::to_string(start));
    const Page page = pageFrom(start);
    EXPECT_EQ(page.result, 0);
    EXPECT_EQ(page.next, next);
    ASSERT_EQ(page.count, count);
    for (uint32_t i = 0; i < count; i++) {
        EXPECT_EQ(page.records[i].port, first + i);
        EXPECT_TRUE(untouched(&page.records[i], 16)) << "links of record " << i;
    }
    EXPECT_TRUE(untouched(&page.records[count], sizeof page.records - count * sizeof page.records[0]));
}

TEST_F(BindingsPageTest, ARecordIsACopyOfItsEntry) {
    addBinding(A1, M1, 3, 10);
    const Page page = pageFrom(1);
    EXPECT_EQ(page.count, 1);
    const Ip6SourceGuardBindNode &record = page.records[0];
    EXPECT_EQ(memcmp(record.address.bytes, ip6(A1).bytes, 16), 0);
    EXPECT_EQ(memcmp(record.mac, macBytes(M1).data(), 6), 0);
    EXPECT_EQ(record.port, 3u);
    EXPECT_EQ(record.vlan, 10u);
}

TEST_F(BindingsPageTest, AnEmptyListIsOneEmptyPage) {
    for (const uint16_t start : {uint16_t{0}, uint16_t{1}, uint16_t{65535}})
        expectPage(start, 0, 0, 0);
}

TEST_F(BindingsPageTest, ZeroAndOneBeginAtTheNewest) {
    fill(3);
    expectPage(0, 1, 3, 0);
    expectPage(1, 1, 3, 0);
    expectPage(2, 2, 2, 0);
    expectPage(3, 3, 1, 0);
    expectPage(4, 0, 0, 0);
    expectPage(65535, 0, 0, 0);
}

TEST_F(BindingsPageTest, AFullPageAtTheEndIsTheLast) {
    fill(63);
    expectPage(1, 1, 63, 0);
    ip6_source_guard_bind_node_delete_all();
    fill(64);
    expectPage(1, 1, 64, 0);
    expectPage(64, 64, 1, 0);
    ip6_source_guard_bind_node_delete_all();
    fill(65);
    expectPage(1, 1, 64, 65);
    expectPage(2, 2, 64, 0);
    expectPage(65, 65, 1, 0);
}

TEST_F(BindingsPageTest, ThreePagesOf130) {
    fill(130);
    expectPage(1, 1, 64, 65);
    expectPage(65, 65, 64, 129);
    expectPage(129, 129, 2, 0);
    expectPage(3, 3, 64, 67);
}

TEST_F(BindingsPageTest, MissingPlacesAreRefusedAndNothingIsWritten) {
    fill(1);
    uint16_t next = 9, count = 9;
    Ip6SourceGuardBindNode record;
    memset(&record, 0xEE, sizeof record);
    EXPECT_EQ(ip6_source_guard_bind_node_get(1, nullptr, &count, &record), -1);
    EXPECT_EQ(ip6_source_guard_bind_node_get(1, &next, nullptr, &record), -1);
    EXPECT_EQ(ip6_source_guard_bind_node_get(1, &next, &count, nullptr), -1);
    EXPECT_EQ(next, 9);
    EXPECT_EQ(count, 9);
    EXPECT_TRUE(untouched(&record, sizeof record));
}

// Positions have 16 bits and the list has no bound: a reader comes to an end instead of starting over. The entries are the
// test's own, since adding so many one by one compares each with all.
TEST_F(BindingsPageTest, ThereIsNoPositionBehind65535) {
    for (const uint32_t entries : {65535u, 65536u, 65700u}) {
        SCOPED_TRACE(entries);
        std::vector<Ip6SourceGuardBindNode> nodes(entries);
        for (uint32_t number = entries; number >= 1; number--) {
            nodes[number - 1].port = number;
            insque(&nodes[number - 1], &Ip6SourceGuardBindListHead);
        }
        expectPage(65471, 65471, 64, 65535);
        expectPage(65472, 65472, 64, 0);
        const uint32_t last = std::min(64u, entries - 65534);
        expectPage(65535, 65535, last, 0);
        expectPage(1, 1, 64, 65);
        Ip6SourceGuardBindListHead.next = Ip6SourceGuardBindListHead.previous = &Ip6SourceGuardBindListHead;
    }
}

} // namespace
