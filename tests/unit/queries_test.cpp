// Paging through the client table.

#include "l2/dhcp6snooping/clients/queries.h"
#include "tests/unit/fixture.h"

#include <cstring>

namespace {

constexpr uint32_t END = 0xFFFFFFFF;

struct QueriesTest : SnoopingTest {
    // One entry more than an answer may fill.
    uint32_t vlan = 91, port = 92, count = 93;
    Dhcp6LeaseLine lines[11];
    uint32_t valid[11];
    uint8_t mac[6] = {};

    void SetUp() override {
        SnoopingTest::SetUp();
        memset(lines, 0xEE, sizeof lines);
        memset(valid, 0xEE, sizeof valid);
    }
    uint32_t next() { return dhcp6snooping_get_nextclients_ext(mac, &vlan, &port, &count, lines, valid); }
    uint32_t current(const std::string &wanted) {
        return dhcp6snooping_get_currentclients_ext(macBytes(wanted).data(), &vlan, &port, &count, lines, valid);
    }
    std::string macNow() const {
        char text[18];
        return macToStr(mac, text);
    }
    void expectUntouched() const {
        EXPECT_EQ(vlan, 91u);
        EXPECT_EQ(port, 92u);
        EXPECT_EQ(count, 93u);
        EXPECT_EQ(lines[0].prefix_len, 0xEEEEEEEEu);
        EXPECT_EQ(valid[0], 0xEEEEEEEEu);
    }
};

TEST_F(QueriesTest, PagesInOrderAndSkipsTheUnacknowledged) {
    addAckedClient("02:00:00:00:00:03", 30, 3);
    addAckedClient("02:00:00:00:00:01", 10, 1);
    addClient("02:00:00:00:00:02", 20, 2);
    addClient("02:00:00:00:00:04", 20, 2);
    EXPECT_EQ(next(), 0u);
    EXPECT_EQ(macNow(), "02:00:00:00:00:01");
    EXPECT_EQ(vlan, 10u);
    EXPECT_EQ(port, 1u);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(next(), 0u);
    EXPECT_EQ(macNow(), "02:00:00:00:00:03");
    EXPECT_EQ(vlan, 30u);
    EXPECT_EQ(port, 3u);
    EXPECT_EQ(next(), END);
    EXPECT_EQ(macNow(), "02:00:00:00:00:03");
}

TEST_F(QueriesTest, AtTheEndNothingIsWritten) {
    addClient(CLIENT, 10, 1);
    EXPECT_EQ(next(), END);
    EXPECT_EQ(macNow(), NO_MAC);
    expectUntouched();
    dhcp6snooping_delete_allavlnode();
    EXPECT_EQ(next(), END);
    expectUntouched();
}

TEST_F(QueriesTest, AMacThatIsGoneIsAPlaceInTheOrder) {
    addAckedClient("02:00:00:00:00:01", 10, 1);
    addAckedClient("02:00:00:00:00:05", 10, 1);
    mac[0] = 2;
    mac[5] = 3;
    EXPECT_EQ(next(), 0u);
    EXPECT_EQ(macNow(), "02:00:00:00:00:05");
}

TEST_F(QueriesTest, LeasesComeInOrderWithTheirRemainingSeconds) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 1);
    addLease(client, "2001:db8::1", 128, 100);
    addLease(client, "2001:db8:1::", 56, 200);
    static_cast<Dhcp6LeaseAttr *>(client->leases.items[0])->valid_lifetime = 33;
    EXPECT_EQ(next(), 0u);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(memcmp(lines[0].address, addressBytes("2001:db8::1").data(), 16), 0);
    EXPECT_EQ(lines[0].prefix_len, 128u);
    EXPECT_EQ(memcmp(lines[1].address, addressBytes("2001:db8:1::").data(), 16), 0);
    EXPECT_EQ(lines[1].prefix_len, 56u);
    EXPECT_EQ(valid[0], 33u);
    EXPECT_EQ(valid[1], 200u);
    EXPECT_EQ(lines[2].prefix_len, 0xEEEEEEEEu) << "further entries stay as they were";
    EXPECT_EQ(valid[2], 0xEEEEEEEEu);
}

TEST_F(QueriesTest, TenLeasesAreTheMost) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 1);
    for (uint32_t i = 1; i <= 12; i++) {
        addLease(client, "2001:db8::1", i, 100 + i);
        if (i < 9 || i == 12)
            continue;
        memset(mac, 0, sizeof mac);
        EXPECT_EQ(next(), 0u);
        EXPECT_EQ(count, std::min(i, 10u));
    }
    EXPECT_EQ(current(CLIENT), 0u);
    EXPECT_EQ(count, 10u);
    EXPECT_EQ(lines[9].prefix_len, 10u);
    EXPECT_EQ(valid[9], 110u);
    EXPECT_EQ(lines[10].prefix_len, 0xEEEEEEEEu);
    EXPECT_EQ(valid[10], 0xEEEEEEEEu);
}

TEST_F(QueriesTest, EmptySlotsAreSkipped) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 1);
    addLease(client, "2001:db8::1", 128, 1);
    dhcp6snooping_attr_array_add(&client->leases, nullptr, 0);
    addLease(client, "2001:db8::2", 128, 2);
    EXPECT_EQ(next(), 0u);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(valid[0], 1u);
    EXPECT_EQ(valid[1], 2u);
    for (uint32_t i = 3; i <= 11; i++)
        addLease(client, "2001:db8::1", i, i);
    EXPECT_EQ(current(CLIENT), 0u);
    EXPECT_EQ(count, 10u) << "and do not count";
    EXPECT_EQ(valid[9], 10u);
}

TEST_F(QueriesTest, MissingArgumentsAreRefused) {
    addAckedClient(CLIENT, 10, 1);
    EXPECT_EQ(dhcp6snooping_get_nextclients_ext(nullptr, &vlan, &port, &count, lines, valid), END);
    EXPECT_EQ(dhcp6snooping_get_nextclients_ext(mac, nullptr, &port, &count, lines, valid), END);
    EXPECT_EQ(dhcp6snooping_get_nextclients_ext(mac, &vlan, nullptr, &count, lines, valid), END);
    EXPECT_EQ(dhcp6snooping_get_nextclients_ext(mac, &vlan, &port, nullptr, lines, valid), END);
    EXPECT_EQ(dhcp6snooping_get_nextclients_ext(mac, &vlan, &port, &count, nullptr, valid), END);
    EXPECT_EQ(dhcp6snooping_get_nextclients_ext(mac, &vlan, &port, &count, lines, nullptr), END);
    const Bytes wanted = macBytes(CLIENT);
    EXPECT_EQ(dhcp6snooping_get_currentclients_ext(nullptr, &vlan, &port, &count, lines, valid), END);
    EXPECT_EQ(dhcp6snooping_get_currentclients_ext(wanted.data(), nullptr, &port, &count, lines, valid), END);
    EXPECT_EQ(dhcp6snooping_get_currentclients_ext(wanted.data(), &vlan, nullptr, &count, lines, valid), END);
    EXPECT_EQ(dhcp6snooping_get_currentclients_ext(wanted.data(), &vlan, &port, nullptr, lines, valid), END);
    EXPECT_EQ(dhcp6snooping_get_currentclients_ext(wanted.data(), &vlan, &port, &count, nullptr, valid), END);
    EXPECT_EQ(dhcp6snooping_get_currentclients_ext(wanted.data(), &vlan, &port, &count, lines, nullptr), END);
    EXPECT_EQ(macNow(), NO_MAC);
    expectUntouched();
}

TEST_F(QueriesTest, OneClientIsFoundAcknowledgedOrNot) {
    Dhcp6SnoopingNode *client = addClient(CLIENT, 10, 2);
    addLease(client, "2001:db8::1", 128, 100);
    EXPECT_EQ(current(CLIENT), 0u);
    EXPECT_EQ(vlan, 10u);
    EXPECT_EQ(port, 2u);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(valid[0], 100u);
}

TEST_F(QueriesTest, OnlyTheExactMacIsFound) {
    addAckedClient(OTHER_CLIENT, 10, 2);
    EXPECT_EQ(current(CLIENT), END);
    EXPECT_EQ(current(NO_MAC), END);
    expectUntouched();
}

TEST_F(QueriesTest, TheZeroMacIsRefusedEvenIfItWereThere) {
    addAckedClient(NO_MAC, 10, 2);
    EXPECT_EQ(current(NO_MAC), END);
    expectUntouched();
    EXPECT_EQ(next(), 0u) << "a walk begins with the first record, whatever its MAC";
    EXPECT_EQ(macNow(), NO_MAC);
}

TEST_F(QueriesTest, TheRecordItselfCanBeAskedFor) {
    addClient("02:00:00:00:00:01", 10, 1);
    Dhcp6SnoopingNode *second = addAckedClient("02:00:00:00:00:02", 10, 1);
    Dhcp6SnoopingNode *third = addAckedClient("02:00:00:00:00:03", 10, 1);
    Dhcp6SnoopingNode *found = nullptr;
    EXPECT_EQ(dhcp6snooping_get_nextclients(mac, &found), 0u);
    EXPECT_EQ(found, second);
    EXPECT_EQ(macNow(), NO_MAC) << "the MAC is not moved on";
    EXPECT_EQ(dhcp6snooping_get_nextclients(second->mac, &found), 0u);
    EXPECT_EQ(found, third);
    EXPECT_EQ(dhcp6snooping_get_nextclients(third->mac, &found), END);
    EXPECT_EQ(found, third);
    EXPECT_EQ(dhcp6snooping_get_nextclients(mac, nullptr), END);
    EXPECT_EQ(dhcp6snooping_get_nextclients(nullptr, &found), END);
}

TEST_F(QueriesTest, AFullTableIsListedOnce) {
    for (uint32_t i = 0; i < 2048; i++) {
        const uint8_t key[6] = {2, 0, 0, 1, static_cast<uint8_t>((i * 37) >> 8), static_cast<uint8_t>(i * 37)};
        dhcp6snooping_add_avlnode(key)->acked = 1;
    }
    uint32_t listed = 0;
    std::string before;
    while (next() == 0) {
        EXPECT_LT(before, macNow());
        before = macNow();
        listed++;
    }
    EXPECT_EQ(listed, tableMacs().size());
    EXPECT_EQ(listed, 2048u);
}

} // namespace
