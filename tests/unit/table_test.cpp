// The table of clients: adding, finding, deleting.

#include "l2/dhcp6snooping/clients/limits.h"
#include "tests/unit/fixture.h"

#include <cstring>

namespace {

struct TableTest : SnoopingTest {};

std::string macNumber(uint32_t number) {
    char text[18];
    const uint8_t mac[6] = {2, 0, 0, 0, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
    return macToStr(mac, text);
}

// A free record lends its first 16 bytes to the free list; everything else is zero.
bool isCleared(const Dhcp6SnoopingNode *node) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(node);
    for (size_t i = sizeof(LstNode); i < sizeof *node; i++)
        if (bytes[i] != 0)
            return false;
    return true;
}

TEST_F(TableTest, AddTakesTheFirstFreeRecord) {
    Dhcp6SnoopingNode *first = dhcp6snooping_add_avlnode(macBytes(CLIENT).data());
    EXPECT_EQ(first, &gDhcp6SnoopingAvlNode[0]);
    EXPECT_EQ(memcmp(first->mac, macBytes(CLIENT).data(), 6), 0);
    EXPECT_EQ(first->acked, 0u);
    EXPECT_EQ(first->counted, 0u);
    EXPECT_EQ(first->vlan, 0u);
    EXPECT_EQ(first->port, 0u);
    EXPECT_EQ(dhcp6snooping_add_avlnode(macBytes(OTHER_CLIENT).data()), &gDhcp6SnoopingAvlNode[1]);
    EXPECT_EQ(listDhcp6SnoopingAvlNode.count, 2046u);
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(TableTest, AFreedRecordGoesToTheEnd) {
    addClient(CLIENT, 10, 1);
    dhcp6snooping_delete_avlnode(macBytes(CLIENT).data());
    EXPECT_EQ(dhcp6snooping_add_avlnode(macBytes(CLIENT).data()), &gDhcp6SnoopingAvlNode[1]);
    EXPECT_EQ(listDhcp6SnoopingAvlNode.last, reinterpret_cast<LstNode *>(&gDhcp6SnoopingAvlNode[0]));
}

TEST_F(TableTest, AddingAKnownMacReturnsItsRecordUnchanged) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 3);
    addLease(client, "2001:db8::1", 128, 100);
    EXPECT_EQ(dhcp6snooping_add_avlnode(macBytes(CLIENT).data()), client);
    EXPECT_EQ(client->acked, 1u);
    EXPECT_EQ(client->counted, 1u);
    EXPECT_EQ(client->port, 3u);
    EXPECT_EQ(leasesOf(client->leases), Lines{"2001:db8::1/128=100"});
    EXPECT_EQ(listDhcp6SnoopingAvlNode.count, 2047u);
}

TEST_F(TableTest, AddResetsTheFlagsOfItsRecord) {
    gDhcp6SnoopingAvlNode[0].acked = 1;
    gDhcp6SnoopingAvlNode[0].counted = 1;
    const Dhcp6SnoopingNode *client = dhcp6snooping_add_avlnode(macBytes(CLIENT).data());
    EXPECT_EQ(client->acked, 0u);
    EXPECT_EQ(client->counted, 0u);
}

TEST_F(TableTest, The2049thClientFindsNoRoom) {
    for (uint32_t i = 1; i <= 2048; i++)
        ASSERT_NE(dhcp6snooping_add_avlnode(macBytes(macNumber(i)).data()), nullptr);
    EXPECT_EQ(listDhcp6SnoopingAvlNode.count, 0u);
    EXPECT_EQ(dhcp6snooping_add_avlnode(macBytes(CLIENT + "").data()), clientOf(macNumber(10))) << "02:..:0a is the tenth";
    EXPECT_EQ(dhcp6snooping_add_avlnode(macBytes("02:01:00:00:00:00").data()), nullptr);
    EXPECT_EQ(recordingTake(), said("\r\n lstGet failed, no enough node space."));
    EXPECT_EQ(tableMacs().size(), 2048u);
    dhcp6snooping_delete_avlnode(macBytes(macNumber(5)).data());
    EXPECT_NE(dhcp6snooping_add_avlnode(macBytes("02:01:00:00:00:00").data()), nullptr);
}

TEST_F(TableTest, AFailedInsertGivesTheRecordBack) {
    recordingFailFunction("avlInsert", 1);
    EXPECT_EQ(dhcp6snooping_add_avlnode(macBytes(CLIENT).data()), nullptr);
    EXPECT_EQ(recordingFailed, "avlInsert");
    EXPECT_EQ(listDhcp6SnoopingAvlNode.count, 2048u);
    EXPECT_EQ(listDhcp6SnoopingAvlNode.last, reinterpret_cast<LstNode *>(&gDhcp6SnoopingAvlNode[0]));
    EXPECT_TRUE(isCleared(&gDhcp6SnoopingAvlNode[0]));
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(TableTest, NullMacs) {
    EXPECT_EQ(dhcp6snooping_add_avlnode(nullptr), nullptr);
    EXPECT_EQ(dhcp6snooping_get_avlnode(nullptr), nullptr);
    EXPECT_EQ(dhcp6snooping_delete_avlnode(nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(listDhcp6SnoopingAvlNode.count, 2048u);
}

TEST_F(TableTest, DeleteClearsAndUncounts) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 3);
    addClient(OTHER_CLIENT, 10, 3);
    for (uint32_t i = 1; i <= 7; i++)
        addLease(client, "2001:db8::" + std::to_string(i), 128, 100);
    EXPECT_EQ(dhcp6snooping_delete_avlnode(macBytes(CLIENT).data()), 0u);
    EXPECT_EQ(clientOf(CLIENT), nullptr);
    EXPECT_TRUE(isCleared(client));
    EXPECT_EQ(dhcp6SnoopingPortIpNum[2], 1);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[10], 1);
    EXPECT_EQ(tableMacs(), Lines{OTHER_CLIENT});
    EXPECT_EQ(recordingTake(), Lines{}) << "no filter call, no trace";
}

TEST_F(TableTest, DeletingAStrangerIsNoError) {
    addClient(CLIENT, 10, 3);
    EXPECT_EQ(dhcp6snooping_delete_avlnode(macBytes(OTHER_CLIENT).data()), 0u);
    EXPECT_EQ(dhcp6SnoopingPortIpNum[2], 1);
}

TEST_F(TableTest, DeleteByTheRecordsOwnMac) {
    const Dhcp6SnoopingNode *client = addClient(CLIENT, 10, 3);
    addClient(OTHER_CLIENT, 10, 3);
    EXPECT_EQ(dhcp6snooping_delete_avlnode(client->mac), 0u);
    EXPECT_EQ(tableMacs(), Lines{OTHER_CLIENT});
    EXPECT_TRUE(isCleared(client));
}

TEST_F(TableTest, CountsStopAtZeroEachOnItsOwn) {
    addClient(CLIENT, 10, 3);
    dhcp6SnoopingPortIpNum[2] = 0;
    dhcp6SnoopingDhcpVlanIpNum[10] = 5;
    dhcp6snooping_delete_avlnode(macBytes(CLIENT).data());
    EXPECT_EQ(dhcp6SnoopingPortIpNum[2], 0);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[10], 4);
    addClient(CLIENT, 10, 3);
    dhcp6SnoopingPortIpNum[2] = 5;
    dhcp6SnoopingDhcpVlanIpNum[10] = 0;
    dhcp6snooping_delete_avlnode(macBytes(CLIENT).data());
    EXPECT_EQ(dhcp6SnoopingPortIpNum[2], 4);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[10], 0);
}

TEST_F(TableTest, AnUncountedClientIsNotUncounted) {
    for (const uint32_t counted : {0u, 2u}) {
        addClient(CLIENT, 10, 3)->counted = counted;
        dhcp6snooping_delete_avlnode(macBytes(CLIENT).data());
        EXPECT_EQ(dhcp6SnoopingPortIpNum[2], 1) << counted;
        EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[10], 1);
        dhcp6SnoopingPortIpNum[2] = dhcp6SnoopingDhcpVlanIpNum[10] = 0;
    }
}

TEST_F(TableTest, CountsOutsideTheTablesAreNotTouched) {
    for (const uint32_t port : {0u, 29u, 0xFFFFFFFFu}) {
        Dhcp6SnoopingNode *client = addClient(CLIENT, 10, 1);
        client->port = port;
        client->vlan = port == 29 ? 4096 : 0xFFFFFFFF;
        EXPECT_EQ(dhcp6snooping_delete_avlnode(client->mac), 0u);
    }
    EXPECT_EQ(dhcp6SnoopingPortIpNum[0], 3);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[10], 3);
}

TEST_F(TableTest, WhatTheTreeDoesNotYieldIsNotDeleted) {
    const Dhcp6SnoopingNode *client = addClient(CLIENT, 10, 3);
    recordingFailFunction("avlDelete", 1);
    EXPECT_EQ(dhcp6snooping_delete_avlnode(macBytes(CLIENT).data()), 0u);
    EXPECT_EQ(clientOf(CLIENT), client);
    EXPECT_EQ(client->counted, 1u);
    EXPECT_EQ(dhcp6SnoopingPortIpNum[2], 1);
}

TEST_F(TableTest, DeleteAllEmptiesTheTable) {
    for (uint32_t i = 1; i <= 100; i++)
        addLease(addAckedClient(macNumber(i * 37), 10, i % 28 + 1), "2001:db8::1", 128, 100);
    EXPECT_EQ(dhcp6snooping_delete_allavlnode(), 0u);
    EXPECT_EQ(tableMacs(), Lines{});
    EXPECT_EQ(listDhcp6SnoopingAvlNode.count, 2048u);
    for (const uint16_t count : dhcp6SnoopingPortIpNum)
        EXPECT_EQ(count, 0);
    EXPECT_EQ(dhcp6snooping_delete_allavlnode(), 0u);
}

TEST_F(TableTest, DeleteAllEndsWhenTheTreeKeepsItsRecord) {
    addClient(CLIENT, 10, 1);
    recordingFailAlways("avlDelete");
    EXPECT_EQ(dhcp6snooping_delete_allavlnode(), 0u);
    EXPECT_EQ(tableMacs(), Lines{CLIENT});
}

TEST_F(TableTest, WalksGoByUnsignedBytes) {
    const Lines ordered = {"00:00:00:00:00:01", "00:00:00:00:01:00", "00:00:00:00:ff:00", "01:00:00:00:00:00",
                           "0a:00:00:00:00:00", "7f:ff:ff:ff:ff:ff", "80:00:00:00:00:00", "a0:00:00:00:00:00",
                           "fe:ff:ff:ff:ff:ff", "ff:ff:ff:ff:ff:ff"};
    for (const size_t i : {7u, 2u, 9u, 0u, 5u, 3u, 8u, 1u, 6u, 4u})
        addClient(ordered[i], 10, 1);
    EXPECT_EQ(tableMacs(), ordered);
}

TEST_F(TableTest, CompareGivesMinusOneZeroOne) {
    Dhcp6SnoopingNode node = {};
    for (uint32_t i = 0; i < 6; i++) {
        uint8_t key[6] = {0x80, 0x80, 0x80, 0x80, 0x80, 0x80};
        memcpy(node.mac, key, 6);
        EXPECT_EQ(dhcp6snooping_mac_compare(key, &node), 0);
        key[i] = 0x7F;
        memset(key + i + 1, 0xFF, 5 - i); // the first difference decides
        EXPECT_EQ(dhcp6snooping_mac_compare(key, &node), -1);
        key[i] = 0xFF;
        memset(key + i + 1, 0, 5 - i);
        EXPECT_EQ(dhcp6snooping_mac_compare(key, &node), 1);
    }
}

TEST_F(TableTest, OnlySixZerosAreTheZeroMac) {
    uint8_t mac[7] = {0, 0, 0, 0, 0, 0, 9};
    EXPECT_TRUE(dhcp6snooping_mac_is_zero(mac));
    for (uint32_t i = 0; i < 6; i++) {
        mac[i] = 0x80;
        EXPECT_FALSE(dhcp6snooping_mac_is_zero(mac));
        mac[i] = 0;
    }
}

TEST_F(TableTest, TheNextClientNeedsNoPresentOne) {
    addClient(CLIENT, 10, 1);
    addClient("02:00:00:00:00:20", 10, 1);
    EXPECT_EQ(dhcp6snooping_first_avlnode(), clientOf(CLIENT));
    EXPECT_EQ(dhcp6snooping_next_avlnode(macBytes("02:00:00:00:00:09").data()), clientOf(CLIENT));
    EXPECT_EQ(dhcp6snooping_next_avlnode(macBytes(CLIENT).data()), clientOf("02:00:00:00:00:20"));
    EXPECT_EQ(dhcp6snooping_next_avlnode(macBytes("02:00:00:00:00:20").data()), nullptr);
}

} // namespace
