// The list of bindings: conflicts, order, deletion, lookup. No port is guarded, so no filter call may be made.

#include "tests/unit/guard.h"

#include <cstring>

namespace {

struct BindingsTest : GuardTest {
    void TearDown() override {
        EXPECT_EQ(recordingTake(), Lines{}) << "no port is guarded";
        GuardTest::TearDown();
    }
};

int32_t add(const std::string &address, const std::string &mac, uint32_t port, uint32_t vlan) {
    return ip6_source_guard_bind_node_add(ip6(address), macBytes(mac).data(), port, vlan);
}

int32_t check(const std::string &address, const std::string &mac, uint32_t port) {
    return ip6_source_guard_bind_node_check(ip6(address), macBytes(mac).data(), port);
}

int32_t drop(const std::string &address) { return ip6_source_guard_bind_node_delete(ip6(address)); }

TEST_F(BindingsTest, TheListStartsEmpty) {
    EXPECT_EQ(pIp6SourceGuardBindListHead, &Ip6SourceGuardBindListHead);
    EXPECT_EQ(bindings(), Lines{});
    const Ip6SourceGuardBindNode &head = Ip6SourceGuardBindListHead;
    EXPECT_EQ(head.next, &head);
    const auto *fields = reinterpret_cast<const uint8_t *>(&head) + 16;
    EXPECT_EQ(Bytes(fields, fields + 32), Bytes(32, 0));
}

TEST_F(BindingsTest, TheNewestIsFirst) {
    EXPECT_EQ(add(A1, M1, 2, 10), 0);
    EXPECT_EQ(add(A2, NO_MAC, 0, 0), 0);
    EXPECT_EQ(add(A3, M3, 28, 4094), 0);
    EXPECT_EQ(bindings(), (Lines{A3 + " " + M3 + " port 28 vlan 4094", A2 + " " + NO_MAC + " port 0 vlan 0",
                                 A1 + " " + M1 + " port 2 vlan 10"}));
}

TEST_F(BindingsTest, WhatMayStandBesideABinding) {
    const struct {
        std::string address, mac;
        uint32_t port, vlan;
        int32_t added;
    } cases[] = {
        {A1, M1, 3, 10, 2},      // the same
        {A1, M1, 3, 20, 2},      // whatever the VLAN
        {A1, M1, 3, 0, 2},       //
        {A1, M1, 4, 10, -1},     // the address on another port
        {A1, M1, 0, 10, -1},     // or on any
        {A1, M2, 3, 10, -1},     // of another MAC
        {A1, NO_MAC, 3, 10, -1}, // or of any
        {A2, M1, 3, 10, -1},     // the MAC with another address
        {A2, M1, 0, 0, -1},      // anywhere
        {A2, M2, 3, 10, 0},      // both others
        {A2, NO_MAC, 3, 10, 0},  // any MAC is no conflict
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.address + " " + one.mac + " " + std::to_string(one.port) + " " + std::to_string(one.vlan));
        addBinding(A1, M1, 3, 10);
        const Lines before = bindings();
        EXPECT_EQ(check(one.address, one.mac, one.port), one.added == 2 ? 0 : -1);
        EXPECT_EQ(add(one.address, one.mac, one.port, one.vlan), one.added);
        const Lines after = bindings();
        EXPECT_EQ(after.size(), one.added == 0 ? 2u : 1u);
        EXPECT_EQ(after.back(), before.front());
        ip6_source_guard_bind_node_delete_all();
    }
}

TEST_F(BindingsTest, AnyMacStandsBesideAnyMac) {
    EXPECT_EQ(add(A1, NO_MAC, 0, 0), 0);
    EXPECT_EQ(add(A1, NO_MAC, 0, 0), 2);
    EXPECT_EQ(check(A1, NO_MAC, 0), 0) << "six zeros are compared like any MAC";
    EXPECT_EQ(add(A2, NO_MAC, 0, 0), 0);
    EXPECT_EQ(add(A1, M1, 0, 0), -1);
    EXPECT_EQ(check(A1, M1, 0), -1);
    EXPECT_EQ(bindings().size(), 2u);
}

TEST_F(BindingsTest, AConflictIsFoundWhereverItStands) {
    addBinding(A1, M1, 1, 0);
    addBinding(A2, M2, 2, 0);
    addBinding(A3, M3, 3, 0);
    for (const std::string &mac : {M1, M2, M3})
        EXPECT_EQ(add("2001:db8::4", mac, 4, 0), -1);
    EXPECT_EQ(add(A1, M1, 1, 0), 2);
    EXPECT_EQ(add(A3, M3, 3, 0), 2);
    EXPECT_EQ(add(A3, M1, 3, 0), -1);
    EXPECT_EQ(check(A1, M1, 1), 0) << "entries in front do not conflict";
}

TEST_F(BindingsTest, EveryByteCounts) {
    addBinding(A1, M1, 1, 0);
    for (uint32_t i = 0; i < 16; i++) {
        Ip6Address other = ip6(A1);
        other.bytes[i] ^= 0x80;
        EXPECT_EQ(ip6_source_guard_bind_node_check(other, macBytes(M1).data(), 1), -1) << i;
        EXPECT_EQ(ip6_source_guard_bind_node_add(other, macBytes(NO_MAC).data(), 1, 0), 0) << i;
        EXPECT_EQ(ip6_source_guard_bind_node_delete(other), 0) << i;
    }
    for (uint32_t i = 0; i < 6; i++) {
        Bytes other = macBytes(M1);
        other[i] ^= 0x80;
        EXPECT_EQ(ip6_source_guard_bind_node_check(ip6(A1), other.data(), 1), -1) << i;
        EXPECT_EQ(ip6_source_guard_bind_node_add(ip6(A2), other.data(), 1, 0), 0) << i;
        EXPECT_EQ(drop(A2), 0);
    }
    for (uint32_t i = 0; i < 6; i++) {
        Bytes oneBit(6, 0);
        oneBit[i] = 1;
        EXPECT_EQ(ip6_source_guard_bind_node_add(ip6(A2), oneBit.data(), 1, 0), 0);
        EXPECT_EQ(ip6_source_guard_bind_node_add(ip6(A3), oneBit.data(), 1, 0), -1) << "byte " << i << " makes it a MAC";
        EXPECT_EQ(drop(A2), 0);
    }
    EXPECT_EQ(bindings().size(), 1u);
}

TEST_F(BindingsTest, ThePortIsComparedWhole) {
    addBinding(A1, M1, 0xFFFFFFFF, 0xFFFFFFFF);
    EXPECT_EQ(check(A1, M1, 0xFFFFFFFF), 0);
    EXPECT_EQ(check(A1, M1, 0xFFFF), -1);
    EXPECT_EQ(bindings(), Lines{A1 + " " + M1 + " port 4294967295 vlan 4294967295"});
}

TEST_F(BindingsTest, WithoutAMacNothingIsDone) {
    addBinding(A1, M1, 1, 0);
    EXPECT_EQ(ip6_source_guard_bind_node_add(ip6(A2), nullptr, 1, 0), -1);
    EXPECT_EQ(ip6_source_guard_bind_node_add(ip6(A1), nullptr, 1, 0), -1);
    EXPECT_EQ(ip6_source_guard_bind_node_check(ip6(A1), nullptr, 1), -1);
    EXPECT_EQ(bindings().size(), 1u);
}

TEST_F(BindingsTest, AMacMayLieInAnEntry) {
    addBinding(A1, NO_MAC);
    EXPECT_EQ(ip6_source_guard_bind_node_add(ip6(A2), Ip6SourceGuardBindListHead.next->mac, 3, 0), 0);
    addBinding(A3, M1);
    EXPECT_EQ(ip6_source_guard_bind_node_add(ip6("2001:db8::4"), Ip6SourceGuardBindListHead.next->mac, 3, 0), -1);
    EXPECT_EQ(bindings(), (Lines{A3 + " " + M1 + " port 0 vlan 0", A2 + " " + NO_MAC + " port 3 vlan 0",
                                 A1 + " " + NO_MAC + " port 0 vlan 0"}));
}

TEST_F(BindingsTest, TheUnspecifiedAddressIsBoundLikeAnyOther) {
    EXPECT_EQ(check(NO_ADDRESS, NO_MAC, 0), -1) << "the head of the list is no entry";
    EXPECT_EQ(drop(NO_ADDRESS), -1);
    EXPECT_EQ(add(NO_ADDRESS, NO_MAC, 0, 0), 0);
    EXPECT_EQ(check(NO_ADDRESS, NO_MAC, 0), 0);
    EXPECT_EQ(drop(NO_ADDRESS), 0);
}

TEST_F(BindingsTest, DeleteAsksOnlyForTheAddress) {
    for (const auto &[first, rest] : {std::pair{A1, Lines{A3, A2}}, {A2, {A3, A1}}, {A3, {A2, A1}}}) {
        addBinding(A1, M1, 1, 10);
        addBinding(A2, M2, 2, 20);
        addBinding(A3, NO_MAC, 0, 0);
        EXPECT_EQ(drop("2001:db8::4"), -1);
        EXPECT_EQ(bindings().size(), 3u);
        EXPECT_EQ(drop(first), 0);
        const Lines left = bindings();
        ASSERT_EQ(left.size(), 2u);
        for (size_t i = 0; i < 2; i++)
            EXPECT_TRUE(left[i].starts_with(rest[i] + " ")) << left[i];
        EXPECT_EQ(drop(first), -1);
        for (const std::string &address : rest)
            EXPECT_EQ(drop(address), 0);
        EXPECT_EQ(bindings(), Lines{});
    }
}

TEST_F(BindingsTest, DeleteByAnEntrysOwnAddress) {
    addBinding(A1, M1);
    EXPECT_EQ(ip6_source_guard_bind_node_delete(Ip6SourceGuardBindListHead.next->address), 0);
    EXPECT_EQ(bindings(), Lines{});
}

TEST_F(BindingsTest, DeleteAllTellsHowMany) {
    EXPECT_EQ(ip6_source_guard_bind_node_delete_all(), 0);
    EXPECT_EQ(bindings(), Lines{});
    addBinding(A1, M1, 1, 10);
    addBinding(A2, M2, 2, 20);
    addBinding(A3);
    EXPECT_EQ(ip6_source_guard_bind_node_delete_all(), 3);
    EXPECT_EQ(bindings(), Lines{});
    EXPECT_EQ(add(A1, M1, 1, 10), 0);
}

TEST_F(BindingsTest, AnAddressIsLookedUp) {
    addBinding(A1, M1, 1, 10);
    addBinding(A2, M2, 2, 20);
    Ip6SourceGuardBindNode record;
    memset(&record, 0xEE, sizeof record);
    const Ip6SourceGuardBindNode untouched = record;
    EXPECT_EQ(ip6_source_guard_bind_node_get_by_ip(ip6(A3), &record), -1);
    EXPECT_EQ(ip6_source_guard_bind_node_get_by_ip(ip6(NO_ADDRESS), &record), -1);
    EXPECT_EQ(memcmp(&record, &untouched, sizeof record), 0);
    EXPECT_EQ(ip6_source_guard_bind_node_get_by_ip(ip6(A1), nullptr), -1);
    EXPECT_EQ(ip6_source_guard_bind_node_get_by_ip(ip6(A1), &record), 0);
    EXPECT_EQ(memcmp(&record, &untouched, 16), 0) << "links are not the caller's business";
    EXPECT_EQ(memcmp(record.address.bytes, ip6(A1).bytes, 16), 0);
    EXPECT_EQ(memcmp(record.mac, macBytes(M1).data(), 6), 0);
    EXPECT_EQ(record.port, 1u);
    EXPECT_EQ(record.vlan, 10u);
    EXPECT_EQ(ip6_source_guard_bind_node_get_by_ip(ip6(A2), &record), 0);
    EXPECT_EQ(record.port, 2u);
}

TEST_F(BindingsTest, WithoutMemoryNothingIsAdded) {
    addBinding(A1, M1, 1, 0);
    recordingAllocationsBegin(1);
    const int32_t result = add(A2, M2, 2, 20);
    EXPECT_EQ(recordingAllocationsEnd(), 1u);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(recordingTake(), said("\r\nip6v6_source_guard_bind_node_add failed:malloc failed:no enough memory!"));
    EXPECT_EQ(bindings(), Lines{A1 + " " + M1 + " port 1 vlan 0"});
    recordingAllocationsBegin(1);
    EXPECT_EQ(add(A1, M1, 1, 0), 2);
    EXPECT_EQ(add(A1, M2, 1, 0), -1);
    EXPECT_EQ(recordingAllocationsEnd(), 0u) << "a refusal comes before the allocation";
}

} // namespace
