// What becomes of the filters when a binding comes or goes: its own, and those of the learned addresses that it shadows.

#include "tests/unit/guard.h"

#include <cstring>

namespace {

struct BindingsFilterTest : GuardTest {};

int32_t add(const std::string &address, const std::string &mac, uint32_t port = 0, uint32_t vlan = 0) {
    return ip6_source_guard_bind_node_add(ip6(address), macBytes(mac).data(), port, vlan);
}

int32_t drop(const std::string &address) { return ip6_source_guard_bind_node_delete(ip6(address)); }

// An acknowledged client with leases of whole addresses.
Dhcp6SnoopingNode *learn(const std::string &mac, uint32_t port, const Lines &addresses, uint32_t vlan = 10) {
    Dhcp6SnoopingNode *client = addAckedClient(mac, vlan, port);
    for (const std::string &address : addresses)
        addLease(client, address, 128, 100);
    return client;
}

// Filters of learned addresses come and go by kind 4; those that the tests remove were never there, which is only traced.
Lines removedAbsent(const Lines &call, int32_t total = 0) { return joined({call, saidRemoveFailed(total)}); }

TEST_F(BindingsFilterTest, ABindingHasOneFilterOfItsOwn) {
    const struct {
        const char *what;
        uint32_t guarded; // port; 0 = none
        std::string mac;
        uint32_t port, vlan, kind; // kind 0 = no filter
    } cases[] = {
        {"all given", 2, M1, 2, 10, 4},
        {"any MAC", 2, NO_MAC, 2, 10, 4},
        {"any VLAN", 2, M1, 2, 0, 3},
        {"any MAC and VLAN", 2, NO_MAC, 2, 0, 3},
        {"another port is guarded", 3, M1, 2, 10, 0},
        {"another port is guarded, any VLAN", 3, M1, 2, 0, 0},
        {"no port is guarded", 0, M1, 2, 10, 0},
        {"any port and MAC", 3, NO_MAC, 0, 0, 1},
        {"any port", 3, M1, 0, 0, 2},
        {"any port and MAC, the VLAN does not matter", 3, NO_MAC, 0, 10, 1},
        {"any port, the VLAN does not matter", 3, M1, 0, 10, 2},
        {"any port, none guarded", 0, M1, 0, 0, 0},
        {"any port and MAC, none guarded", 0, NO_MAC, 0, 0, 0},
        {"a port that no device has", 3, M1, 29, 10, 0},
        {"the highest number", 3, M1, 0xFFFFFFFF, 10, 0},
        {"the last port", 28, M1, 28, 10, 4},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        if (one.guarded != 0)
            guard({one.guarded});
        EXPECT_EQ(add(A1, one.mac, one.port, one.vlan), 0);
        EXPECT_EQ(recordingTake(), one.kind == 0 ? Lines{} : installed(one.kind, A1, one.mac, one.port, one.vlan));
        EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, one.kind == 0 ? 0 : 1);
        EXPECT_EQ(drop(A1), 0);
        EXPECT_EQ(recordingTake(), one.kind == 0 ? Lines{} : removed(one.kind, A1, one.mac, one.port, one.vlan));
        EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 0);
        if (one.guarded != 0)
            unguard({one.guarded});
    }
}

TEST_F(BindingsFilterTest, OnlyPortsOfTheDeviceCount) {
    gul_max_port_num = 24;
    guard({28});
    EXPECT_EQ(add(A1, M1, 28, 10), 0);
    EXPECT_EQ(add(A2, M2), 0);
    learn(M3, 28, {A3});
    EXPECT_EQ(add(A3, M3), 0);
    EXPECT_EQ(drop(A3), 0);
    EXPECT_EQ(ip6_source_guard_bind_node_delete_all(), 2);
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(BindingsFilterTest, AFailedFilterDoesNotUndoTheBinding) {
    guard({2});
    recordingFailAlways("FRM_InstallForwardIp6AddrFilterResource_new");
    EXPECT_EQ(add(A1, M1, 2, 10), 0);
    EXPECT_EQ(recordingTake(), joined({failing(installed(4, A1, M1, 2, 10)), saidInstallFailed(0)}));
    EXPECT_EQ(bindings(), Lines{A1 + " " + M1 + " port 2 vlan 10"});
    EXPECT_EQ(drop(A1), 0);
    EXPECT_EQ(recordingTake(), removedAbsent(removed(4, A1, M1, 2, 10)));
    EXPECT_EQ(bindings(), Lines{});
}

TEST_F(BindingsFilterTest, ARefusedBindingTouchesNoFilter) {
    guard({2});
    addBinding(A1, M1, 2, 10);
    learn(M1, 2, {A2, NO_ADDRESS});
    learn(M2, 2, {A1});
    EXPECT_EQ(add(A1, M1, 2, 10), 2);
    EXPECT_EQ(add(A1, M2, 2, 10), -1);
    EXPECT_EQ(add(A3, M1, 2, 10), -1);
    EXPECT_EQ(drop(A3), -1);
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(BindingsFilterTest, AddWithdrawsEveryAddressOfItsMac) {
    guard({2});
    Dhcp6SnoopingNode *client = learn(M1, 2, {A2, A1});
    addLease(client, "2001:db8:1::", 56, 100);
    learn(M2, 2, {A3});
    EXPECT_EQ(add(A3, M1), 0);
    EXPECT_EQ(recordingTake(), joined({removedAbsent(removed(4, A2, M1, 2, 10)), removedAbsent(removed(4, A1, M1, 2, 10)),
                                       installed(2, A3, M1)}));
}

TEST_F(BindingsFilterTest, AddWithdrawsAlsoFromTheUnacknowledged) {
    guard({2});
    addLease(addClient(M1, 20, 2), A2, 128, 100);
    EXPECT_EQ(add(A1, M1, 2, 5), 0);
    EXPECT_EQ(recordingTake(), joined({removedAbsent(removed(4, A2, M1, 2, 20)), installed(4, A1, M1, 2, 5)}));
}

TEST_F(BindingsFilterTest, AddWithdrawsOnlyOnGuardedPorts) {
    guard({3});
    learn(M1, 2, {A1, NO_ADDRESS});
    EXPECT_EQ(add(A2, M1), 0);
    EXPECT_EQ(recordingTake(), installed(2, A2, M1));
}

TEST_F(BindingsFilterTest, AddLeavesTheSameAddressOfAnotherMac) {
    guard({2});
    learn(M2, 2, {A1});
    EXPECT_EQ(add(A1, M1), 0);
    EXPECT_EQ(recordingTake(), installed(2, A1, M1));
    EXPECT_EQ(add(A2, NO_MAC), 0);
    EXPECT_EQ(recordingTake(), installed(1, A2, NO_MAC));
}

// The head of the list holds the unspecified address, and that is what addresses are compared with.
TEST_F(BindingsFilterTest, AddWithdrawsTheUnspecifiedAddressOfEveryone) {
    guard({1, 2});
    learn(M3, 2, {A3, NO_ADDRESS}, 20);
    learn(M2, 1, {NO_ADDRESS, A2});
    addLease(addAckedClient("02:00:00:00:00:04", 10, 2), NO_ADDRESS, 64, 100);
    EXPECT_EQ(add(A1, NO_MAC), 0);
    EXPECT_EQ(recordingTake(), joined({removedAbsent(removed(4, NO_ADDRESS, M2, 1, 10)),
                                       removedAbsent(removed(4, NO_ADDRESS, M3, 2, 20)), installed(1, A1, NO_MAC)}))
        << "in the order of MACs, not of arrival";
}

TEST_F(BindingsFilterTest, AddDoesNotAskWhetherALeaseWasShadowed) {
    guard({2});
    addBinding(A2);
    learn(M1, 2, {A2});
    EXPECT_EQ(add(A1, M1), 0);
    EXPECT_EQ(recordingTake(), joined({removedAbsent(removed(4, A2, M1, 2, 10), 1), installed(2, A1, M1)}));
}

TEST_F(BindingsFilterTest, WithoutMemoryWithdrawnFiltersStayWithdrawn) {
    guard({2});
    learn(M1, 2, {A2});
    dhcp6snooping_install_all_forward_ip_rule(2);
    recordingTake();
    recordingAllocationsBegin(1);
    EXPECT_EQ(add(A1, M1), -1);
    recordingAllocationsEnd();
    EXPECT_EQ(recordingTake(), joined({removed(4, A2, M1, 2, 10),
                                       said("\r\nip6v6_source_guard_bind_node_add failed:malloc failed:no enough memory!")}));
    EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 0);
    EXPECT_EQ(bindings(), Lines{});
}

TEST_F(BindingsFilterTest, DeleteReinstatesEveryAddressOfItsMac) {
    guard({2});
    Dhcp6SnoopingNode *client = learn(M1, 2, {A2, A1});
    addLease(client, "2001:db8:1::", 56, 100);
    learn(M2, 2, {A3});
    addBinding(A3, M1, 2, 0);
    EXPECT_EQ(drop(A3), 0);
    EXPECT_EQ(recordingTake(), joined({removed(3, A3, M1, 2), installed(4, A2, M1, 2, 10), installed(4, A1, M1, 2, 10),
                                       installed(4, A3, M2, 2, 10)}));
}

// In the order of the pool: the records lie there in the order of arrival.
TEST_F(BindingsFilterTest, DeleteReinstatesItsAddressByPoolSlot) {
    guard({1, 2});
    learn(M3, 2, {A2, A1});
    learn(M1, 1, {A1}, 20);
    learn(M2, 2, {A1});
    addBinding(A1);
    EXPECT_EQ(drop(A1), 0);
    EXPECT_EQ(recordingTake(), joined({removed(1, A1, NO_MAC), installed(4, A1, M3, 2, 10), installed(4, A1, M1, 1, 20),
                                       installed(4, A1, M2, 2, 10)}));
    EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 3);
}

TEST_F(BindingsFilterTest, TheLastSlotIsReinstatedToo) {
    guard({2});
    for (uint32_t i = 0; i < 2048; i++) {
        const uint8_t mac[6] = {2, 0, 0, 1, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
        ASSERT_EQ(dhcp6snooping_add_avlnode(mac), &gDhcp6SnoopingAvlNode[i]);
    }
    Dhcp6SnoopingNode *last = &gDhcp6SnoopingAvlNode[2047];
    last->acked = 1;
    last->port = 2;
    last->vlan = 10;
    addLease(last, A1, 128, 100);
    addBinding(A1);
    EXPECT_EQ(drop(A1), 0);
    EXPECT_EQ(recordingTake(), joined({removed(1, A1, NO_MAC), installed(4, A1, "02:00:00:01:07:ff", 2, 10)}));
}

TEST_F(BindingsFilterTest, DeleteReinstatesOnlyTheAcknowledgedOnGuardedPorts) {
    guard({2});
    addLease(addClient(M1, 10, 2), A1, 128, 100);
    learn(M2, 3, {A1});
    addLease(addAckedClient(M3, 10, 2), A1, 64, 100); // a prefix with the binding's address
    addBinding(A1, M1);
    EXPECT_EQ(drop(A1), 0);
    EXPECT_EQ(recordingTake(), removed(2, A1, M1));
}

TEST_F(BindingsFilterTest, ABindingOfAnyMacReinstatesNobodyByMac) {
    guard({2});
    learn(M1, 2, {A2});
    addBinding(A1);
    EXPECT_EQ(drop(A1), 0);
    EXPECT_EQ(recordingTake(), removed(1, A1, NO_MAC));
}

TEST_F(BindingsFilterTest, WhatAnotherBindingShadowsStaysWithdrawn) {
    guard({2});
    learn(M1, 2, {A1, A2, A3});
    learn(M2, 2, {A1});
    addBinding(A2);
    addBinding(A1, M1);
    addBinding("2001:db8::4", M2);
    EXPECT_EQ(drop(A1), 0);
    EXPECT_EQ(recordingTake(), joined({removed(2, A1, M1), installed(4, A1, M1, 2, 10), installed(4, A3, M1, 2, 10)}))
        << "the second address has its binding, the second client's MAC too";
    EXPECT_EQ(drop("2001:db8::4"), 0);
    EXPECT_EQ(recordingTake(), joined({removed(2, "2001:db8::4", M2), installed(4, A1, M2, 2, 10)}));
}

TEST_F(BindingsFilterTest, FilterFailuresDoNotStopADeletion) {
    guard({2});
    learn(M1, 2, {A1, A2});
    addBinding(A1, M1);
    recordingFailAlways("FRM_InstallForwardIp6AddrFilterResource_new");
    EXPECT_EQ(drop(A1), 0);
    EXPECT_EQ(recordingTake(), joined({removed(2, A1, M1), failing(installed(4, A1, M1, 2, 10)), saidInstallFailed(0),
                                       failing(installed(4, A2, M1, 2, 10)), saidInstallFailed(0)}));
    EXPECT_EQ(bindings(), Lines{});
}

// Newest first. An entry whose turn has not come yet shadows on.
TEST_F(BindingsFilterTest, DeleteAllLetsWaitingEntriesShadow) {
    guard({2});
    learn(M1, 2, {A1, A2});
    addBinding(A1);
    addBinding(A2, M1, 2, 10);
    EXPECT_EQ(ip6_source_guard_bind_node_delete_all(), 2);
    EXPECT_EQ(recordingTake(), joined({removed(4, A2, M1, 2, 10), installed(4, A2, M1, 2, 10), removed(1, A1, NO_MAC),
                                       installed(4, A1, M1, 2, 10)}));
    dhcp6snooping_remove_all_forward_ip_rule(2);
    addBinding(A2, M1, 2, 10);
    addBinding(A1);
    EXPECT_EQ(ip6_source_guard_bind_node_delete_all(), 2);
    EXPECT_EQ(recordingTake(), joined({removed(1, A1, NO_MAC), removed(4, A2, M1, 2, 10), installed(4, A1, M1, 2, 10),
                                       installed(4, A2, M1, 2, 10)}))
        << "the MAC was bound until the end";
    EXPECT_EQ(bindings(), Lines{});
}

TEST_F(BindingsFilterTest, DeleteAllGoesFromTheNewestToTheOldest) {
    guard({2, 3});
    addBinding(A1, M1, 2, 10);
    addBinding(A2, M2, 3, 0);
    addBinding(A3, M3, 1, 10); // not guarded
    addBinding("2001:db8::4");
    addBinding("2001:db8::5", "02:00:00:00:00:05");
    EXPECT_EQ(ip6_source_guard_bind_node_delete_all(), 5);
    EXPECT_EQ(recordingTake(), joined({removed(2, "2001:db8::5", "02:00:00:00:00:05"), removed(1, "2001:db8::4", NO_MAC),
                                       removed(3, A2, M2, 3), removed(4, A1, M1, 2, 10)}));
}

// The address that a caller hands over may be the entry's own, and the entry is gone before the call ends.
TEST_F(BindingsFilterTest, DeleteByAnEntrysOwnAddress) {
    guard({2});
    learn(M1, 2, {A2});
    addBinding(A1, M1);
    EXPECT_EQ(ip6_source_guard_bind_node_delete(Ip6SourceGuardBindListHead.next->address), 0);
    EXPECT_EQ(recordingTake(), joined({removed(2, A1, M1), installed(4, A2, M1, 2, 10)}));
}

} // namespace
