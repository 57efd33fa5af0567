// The filter wrappers with their counter, the tests for conflicts, and all filters of a port at once.

#include "tests/unit/guard.h"

#include <limits>

namespace {

struct FiltersTest : GuardTest {};

int32_t install(uint32_t kind, const std::string &address = A1, const std::string &mac = M1, uint32_t port = 7,
                uint32_t vlan = 300) {
    return ip6_source_guard_install_forward_ip6_frm(kind, ip6(address), macBytes(mac).data(), port, vlan);
}

int32_t remove(uint32_t kind, const std::string &address = A1, const std::string &mac = M1, uint32_t port = 7,
               uint32_t vlan = 300) {
    return ip6_source_guard_remove_forward_ip6_frm(kind, ip6(address), macBytes(mac).data(), port, vlan);
}

uint32_t shadowed(const std::string &mac, const std::string &address) {
    return static_cast<uint32_t>(ip6_source_guard_bind_forward_ip_rule_exist_or_conflict(macBytes(mac).data(), ip6(address)));
}

TEST_F(FiltersTest, EveryKindHasItsCallAndIsCounted) {
    for (const uint32_t kind : {1u, 2u, 3u, 4u}) {
        SCOPED_TRACE(kind);
        EXPECT_EQ(install(kind), 0);
        EXPECT_EQ(recordingTake(), installed(kind, A1, M1, 7, 300));
        EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 1);
        EXPECT_EQ(install(kind), 0);
        EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 2) << "a renewal counts";
        recordingTake();
        EXPECT_EQ(remove(kind), 0);
        EXPECT_EQ(recordingTake(), removed(kind, A1, M1, 7, 300));
        EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 1);
        gIp6SourceguardFilterInsatlledNum = 0;
    }
}

TEST_F(FiltersTest, PortAndVlanArePassedWhole) {
    EXPECT_EQ(install(4, A1, M1, 0xFFFFFFFF, 0x10001), 0);
    EXPECT_EQ(recordingTake(), installed(4, A1, M1, 4294967295, 65537));
}

TEST_F(FiltersTest, AnyOtherKindCallsNothingAndCounts) {
    for (const uint32_t kind : {0u, 5u, 0xFFFFFFFFu}) {
        EXPECT_EQ(install(kind), 0);
        EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 1);
        EXPECT_EQ(remove(kind), 0);
        EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 0);
    }
    EXPECT_EQ(remove(0), 0);
    EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, -1);
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(FiltersTest, AFailureIsReturnedAndSaidWithTheCount) {
    const char *const suffixes[] = {"GlobalForwardIp6AddrOnlyFilterResource", "GlobalForwardIp6AddrFilterResource",
                                    "ForwardIp6AddrFilterResource", "ForwardIp6AddrFilterResource_new"};
    recordingFilterStatus = -77;
    for (const uint32_t kind : {1u, 2u, 3u, 4u}) {
        SCOPED_TRACE(kind);
        EXPECT_EQ(install(kind, A2), 0);
        recordingTake();
        recordingFailFunction(std::string("FRM_Install") + suffixes[kind - 1], 1);
        EXPECT_EQ(install(kind), -77);
        EXPECT_EQ(recordingTake(), joined({failing(installed(kind, A1, M1, 7, 300)), saidInstallFailed(1)}));
        EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 1);
        recordingFailFunction(std::string("FRM_Remove") + suffixes[kind - 1], 1);
        EXPECT_EQ(remove(kind, A2), -77);
        EXPECT_EQ(recordingTake(), joined({failing(removed(kind, A2, M1, 7, 300)), saidRemoveFailed(1)}));
        EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 1);
        gIp6SourceguardFilterInsatlledNum = 0;
    }
}

TEST_F(FiltersTest, APositiveStatusIsAFailureToo) {
    recordingFilterStatus = 5;
    recordingFailNth(1);
    EXPECT_EQ(install(4), 5);
    EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 0);
}

TEST_F(FiltersTest, WhatIsNotThereCannotBeRemoved) {
    EXPECT_EQ(remove(4), -1);
    EXPECT_EQ(recordingTake(), joined({removed(4, A1, M1, 7, 300), saidRemoveFailed(0)}));
}

TEST_F(FiltersTest, TheCountIsSignedAndGoesRound) {
    gIp6SourceguardFilterInsatlledNum = -5;
    EXPECT_EQ(remove(2), -1);
    EXPECT_EQ(recordingTake().back(), saidRemoveFailed(-5).front());
    gIp6SourceguardFilterInsatlledNum = std::numeric_limits<int32_t>::max();
    EXPECT_EQ(install(2), 0);
    EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, std::numeric_limits<int32_t>::min());
    EXPECT_EQ(remove(2), 0);
    EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, std::numeric_limits<int32_t>::max());
}

TEST_F(FiltersTest, DenyAll) {
    EXPECT_EQ(ip6_source_guard_intstall_deny_all_ip_traffic_frm(9), 0);
    EXPECT_EQ(ip6_source_guard_remove_deny_all_ip6_traffic_frm(9), 0);
    EXPECT_EQ(recordingTake(), joined({denyInstalled(9), denyRemoved(9)}));
    recordingFilterStatus = -77;
    recordingFailAlways("FRM_OperatePortDenyAllIp6FilterResource");
    EXPECT_EQ(ip6_source_guard_intstall_deny_all_ip_traffic_frm(9), -77);
    EXPECT_EQ(ip6_source_guard_remove_deny_all_ip6_traffic_frm(9), 0) << "nobody could do anything about it";
    EXPECT_EQ(recordingTake(), joined({failing(denyInstalled(9)), failing(denyRemoved(9))}));
    EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 0) << "forward filters only";
}

TEST_F(FiltersTest, WholeVlans) {
    EXPECT_EQ(ip6_source_guard_intstall_forward_vlan_traffic_frm(4094), 0);
    EXPECT_EQ(ip6_source_guard_remove_forward_vlan_traffic_frm(4094), 0);
    EXPECT_EQ(recordingTake(), (Lines{"FRM_InstallGlobalForwardIp6VidOnlyFilterResource vlan=4094",
                                      "FRM_RemoveGlobalForwardIp6VidOnlyFilterResource vlan=4094"}));
    EXPECT_EQ(ip6_source_guard_intstall_forward_vlan_traffic_frm(0x10005), 0);
    EXPECT_EQ(recordingTake(), Lines{"FRM_InstallGlobalForwardIp6VidOnlyFilterResource vlan=5"});
    recordingFilterStatus = -77;
    recordingFailNth(1);
    EXPECT_EQ(ip6_source_guard_intstall_forward_vlan_traffic_frm(6), -77);
    recordingFailNth(1);
    EXPECT_EQ(ip6_source_guard_remove_forward_vlan_traffic_frm(5), -77);
    EXPECT_EQ(recordingTake().size(), 2u) << "and nothing is said";
    EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 0);
}

TEST_F(FiltersTest, ABindingShadowsItsAddressAndItsMac) {
    EXPECT_EQ(shadowed(M1, A1), 0u);
    addBinding(A1, M1, 3, 10);
    addBinding(A2);
    EXPECT_EQ(shadowed(M1, A1), 1u);
    EXPECT_EQ(shadowed(M2, A1), 1u) << "the address, whatever its MAC";
    EXPECT_EQ(shadowed(M1, A3), 1u) << "the MAC, whatever its address";
    EXPECT_EQ(shadowed(M2, A2), 1u);
    EXPECT_EQ(shadowed(M2, A3), 0u);
    EXPECT_EQ(shadowed(NO_MAC, A3), 0u) << "any MAC is no MAC";
    EXPECT_EQ(shadowed(M2, NO_ADDRESS), 0u) << "the head of the list is no binding";
}

TEST_F(FiltersTest, EveryByteCounts) {
    addBinding(A1, M1);
    for (uint32_t i = 0; i < 16; i++) {
        Ip6Address other = ip6(A1);
        other.bytes[i] ^= 1;
        EXPECT_EQ(ip6_source_guard_bind_forward_ip_rule_exist_or_conflict(macBytes(M2).data(), other), 0) << i;
    }
    for (uint32_t i = 0; i < 6; i++) {
        Bytes other = macBytes(M1);
        other[i] ^= 0x10;
        EXPECT_EQ(ip6_source_guard_bind_forward_ip_rule_exist_or_conflict(other.data(), ip6(A2)), 0) << i;
    }
}

TEST_F(FiltersTest, OneEntryCanBeLeftOut) {
    const auto without = [](const Ip6SourceGuardBindNode *ignore, const std::string &mac, const std::string &address) {
        return ip6_source_guard_bind_forward_ip_rule_exist_or_conflict_more(macBytes(mac).data(), ip6(address), ignore);
    };
    addBinding(A1);
    addBinding(A2, M1);
    const Ip6SourceGuardBindNode *newest = Ip6SourceGuardBindListHead.next, *oldest = newest->next;
    EXPECT_EQ(without(newest, M1, A2), 0);
    EXPECT_EQ(without(newest, M1, A1), 1);
    EXPECT_EQ(without(newest, M1, A3), 0);
    EXPECT_EQ(without(oldest, M2, A1), 0);
    EXPECT_EQ(without(oldest, M1, A1), 1);
    EXPECT_EQ(without(oldest, M2, A2), 1);
    EXPECT_EQ(without(nullptr, M2, A1), 1);
    EXPECT_EQ(without(nullptr, M1, A3), 1);
    EXPECT_EQ(without(nullptr, M2, A3), 0);
}

// Bindings of every kind around port 2, oldest first.
void bindAround() {
    addBinding(A1, M1, 2, 10);
    addBinding(A2);
    addBinding(A3, M3, 3, 10);
    addBinding("2001:db8::4", "02:00:00:00:00:04", 2, 0);
    addBinding("2001:db8::5", "02:00:00:00:00:05", 0, 10);
    addBinding("2001:db8::6", NO_MAC, 2, 20);
    addBinding("2001:db8::7", NO_MAC, 2, 0);
    addBinding("2001:db8::8", NO_MAC, 1, 0);
}

TEST_F(FiltersTest, AllBindingsFromTheOldestAndBack) {
    bindAround();
    EXPECT_EQ(ip6_source_guard_install_bind_forward_ip_rule(2), 0);
    EXPECT_EQ(recordingTake(),
              joined({installed(4, A1, M1, 2, 10), installed(1, A2, NO_MAC),
                      installed(3, "2001:db8::4", "02:00:00:00:00:04", 2), installed(2, "2001:db8::5", "02:00:00:00:00:05"),
                      installed(4, "2001:db8::6", NO_MAC, 2, 20), installed(3, "2001:db8::7", NO_MAC, 2)}));
    EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 6);
    EXPECT_EQ(ip6_source_guard_remove_bind_forward_ip_rule(2), 0);
    EXPECT_EQ(recordingTake(),
              joined({removed(3, "2001:db8::7", NO_MAC, 2), removed(4, "2001:db8::6", NO_MAC, 2, 20),
                      removed(2, "2001:db8::5", "02:00:00:00:00:05"), removed(3, "2001:db8::4", "02:00:00:00:00:04", 2),
                      removed(1, A2, NO_MAC), removed(4, A1, M1, 2, 10)}));
    EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 0);
}

TEST_F(FiltersTest, AndOnlyThoseOfThePort) {
    bindAround();
    EXPECT_EQ(ip6_source_guard_install_bind_forward_ip_rule_port_only(2), 0);
    EXPECT_EQ(recordingTake(), joined({installed(4, A1, M1, 2, 10), installed(3, "2001:db8::4", "02:00:00:00:00:04", 2),
                                       installed(4, "2001:db8::6", NO_MAC, 2, 20), installed(3, "2001:db8::7", NO_MAC, 2)}));
    EXPECT_EQ(ip6_source_guard_remove_bind_forward_ip_rule_port_only(2), 0);
    EXPECT_EQ(recordingTake(), joined({removed(3, "2001:db8::7", NO_MAC, 2), removed(4, "2001:db8::6", NO_MAC, 2, 20),
                                       removed(3, "2001:db8::4", "02:00:00:00:00:04", 2), removed(4, A1, M1, 2, 10)}));
    EXPECT_EQ(ip6_source_guard_install_bind_forward_ip_rule_port_only(4), 0);
    EXPECT_EQ(ip6_source_guard_remove_bind_forward_ip_rule_port_only(4), 0);
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(FiltersTest, AFailureDoesNotEndTheWalk) {
    addBinding(A1, M1, 2, 10);
    addBinding(A2, M2, 2, 10);
    recordingFailFunction("FRM_InstallForwardIp6AddrFilterResource_new", 1);
    EXPECT_EQ(ip6_source_guard_install_bind_forward_ip_rule_port_only(2), 0);
    EXPECT_EQ(recordingTake(),
              joined({failing(installed(4, A1, M1, 2, 10)), saidInstallFailed(0), installed(4, A2, M2, 2, 10)}));
    EXPECT_EQ(ip6_source_guard_remove_bind_forward_ip_rule_port_only(2), 0);
    EXPECT_EQ(recordingTake(), joined({removed(4, A2, M2, 2, 10), removed(4, A1, M1, 2, 10), saidRemoveFailed(0)}));
}

TEST_F(FiltersTest, AFilterOfALeaseNeedsAWholeAddressAPortAndNoBinding) {
    guard({1, 3});
    Dhcp6SnoopingNode *client = addAckedClient(M1, 20, 1);
    addLease(client, A1, 128, 100);
    addLease(client, "2001:db8:1::", 64, 100);
    const Dhcp6LeaseAttr *address = dhcp6snooping_lease_at(&client->leases, 0);
    const Dhcp6LeaseAttr *prefix = dhcp6snooping_lease_at(&client->leases, 1);
    const auto both = [client](const Dhcp6LeaseAttr *lease) {
        dhcp6snooping_lease_filter_install(client, lease);
        dhcp6snooping_lease_filter_remove(client, lease, 2); // asks for port 3, whatever the client's
        return recordingTake();
    };
    EXPECT_EQ(both(address), joined({installed(4, A1, M1, 1, 20), removed(4, A1, M1, 1, 20)}));
    EXPECT_EQ(both(prefix), Lines{});
    client->port = 0;
    EXPECT_EQ(both(address), Lines{}) << "a client without a port has no filter, whichever port is asked for";
    client->port = 1;
    unguard({1, 3});
    EXPECT_EQ(both(address), Lines{});
    guard({1, 3});
    for (const auto &[bound, mac] : {std::pair{A1, NO_MAC}, {A2, M1}}) {
        addBinding(bound, mac);
        EXPECT_EQ(both(address), Lines{});
        ip6_source_guard_bind_node_delete(ip6(bound));
        recordingTake();
    }
    EXPECT_EQ(both(address).size(), 2u);
}

TEST_F(FiltersTest, LearnedAddressesOfAPort) {
    addLease(addAckedClient(M3, 20, 2), A3, 128, 100);
    Dhcp6SnoopingNode *client = addClient(M1, 10, 2); // acknowledged or not
    addLease(client, A2, 128, 100);
    addLease(client, "2001:db8:1::", 64, 100);
    addLease(client, A1, 128, 100);
    addLease(addAckedClient(M2, 10, 3), "2001:db8::4", 128, 100);
    addLease(addAckedClient("02:00:00:00:00:04", 10, 2), "2001:db8::5", 128, 100);
    addLease(addAckedClient("02:00:00:00:00:05", 10, 2), "2001:db8::6", 128, 100);
    addBinding("2001:db8::5");
    addBinding("2001:db8::9", "02:00:00:00:00:05");
    EXPECT_EQ(dhcp6snooping_install_all_forward_ip_rule(2), 0);
    EXPECT_EQ(recordingTake(), joined({installed(4, A2, M1, 2, 10), installed(4, A1, M1, 2, 10), installed(4, A3, M3, 2, 20)}))
        << "whether the port is guarded is not asked";
    EXPECT_EQ(dhcp6snooping_remove_all_forward_ip_rule(2), 0);
    EXPECT_EQ(recordingTake(), joined({removed(4, A2, M1, 2, 10), removed(4, A1, M1, 2, 10), removed(4, A3, M3, 2, 20)}));
    for (const uint32_t port : {0u, 1u, 29u, 0xFFFFFFFFu}) {
        EXPECT_EQ(dhcp6snooping_install_all_forward_ip_rule(port), 0);
        EXPECT_EQ(dhcp6snooping_remove_all_forward_ip_rule(port), 0);
    }
    EXPECT_EQ(recordingTake(), Lines{});
}

} // namespace
