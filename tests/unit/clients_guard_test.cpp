// Filters of learned addresses that go when clients are deleted, one or many, and when leases run out.

#include "l2/dhcp6snooping/clients/aging.h"
#include "l2/dhcp6snooping/clients/bulk.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/main/Dhcp6Snooping.h"
#include "l2/dhcp6snooping/packet/onoff.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "tests/unit/guard.h"

namespace {

struct ClientsGuardTest : GuardTest {};

Dhcp6SnoopingNode *learned(const std::string &mac, uint32_t port, const Lines &addresses, uint32_t valid = 100) {
    Dhcp6SnoopingNode *client = addAckedClient(mac, 10, port);
    for (const std::string &address : addresses)
        addLease(client, address, 128, valid);
    return client;
}

// Installs what was learned on the ports, so that the removals that follow find it.
void installLearned(std::initializer_list<uint32_t> ports) {
    guard(ports);
    for (const uint32_t port : ports)
        dhcp6snooping_install_all_forward_ip_rule(port);
    recordingTake();
}

Lines saidExpired(const std::string &lease, const std::string &mac = M1) {
    return said("\r\n dhcpv6 snooping timer delete user:mac " + mac + ", ipv6 address/prefix : " + lease);
}
const Lines SAID_GONE = joined({said("\r\n dhcpv6 snooping timer delete ack user:mac " + M1 + "."),
                                said("\r\n dhcpv6 snooping timer delete unack user:mac " + NO_MAC + ".")});

void pass(uint32_t seconds) {
    recordingClock += seconds;
    EXPECT_EQ(dhcp6snooping_timer(), 0u);
}

TEST_F(ClientsGuardTest, ADeletedClientLosesItsFiltersInOrder) {
    Dhcp6SnoopingNode *client = learned(M1, 2, {A2, A1});
    addLease(client, "2001:db8:1::", 56, 100);
    learned(M2, 2, {A3});
    installLearned({2});
    EXPECT_EQ(dhcp6snooping_delete_avlnode(client->mac), 0u) << "a MAC that lies in the record";
    EXPECT_EQ(recordingTake(), joined({removed(4, A2, M1, 2, 10), removed(4, A1, M1, 2, 10)}));
    EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 1);
}

TEST_F(ClientsGuardTest, ItIsOutOfTableAndCountsBeforeItsFiltersGo) {
    learned(M1, 2, {A1});
    installLearned({2});
    uint32_t asked = 0;
    recordingWhenCalled("FRM_RemoveForwardIp6AddrFilterResource_new", [&asked]() {
        asked++;
        EXPECT_EQ(tableMacs(), Lines{});
        EXPECT_EQ(dhcp6SnoopingPortIpNum[1], 0);
        EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[10], 0);
    });
    dhcp6snooping_delete_avlnode(macBytes(M1).data());
    recordingWhenCalled("", nullptr);
    EXPECT_EQ(asked, 1u);
}

TEST_F(ClientsGuardTest, OnlyAnAcknowledgedOne) {
    guard({2});
    for (const uint32_t acked : {0u, 2u}) {
        learned(M1, 2, {A1})->acked = acked;
        EXPECT_EQ(dhcp6snooping_delete_avlnode(macBytes(M1).data()), 0u);
        EXPECT_EQ(recordingTake(), Lines{}) << acked;
    }
}

TEST_F(ClientsGuardTest, OnlyOnAGuardedPort) {
    guard({1, 3});
    learned(M1, 2, {A1});
    dhcp6snooping_delete_avlnode(macBytes(M1).data());
    for (uint32_t &port : Ip6SourceGuardPort)
        port = 0;
    for (const uint32_t port : {0u, 29u, 0xFFFFFFFFu}) {
        learned(M1, 2, {A1})->port = port;
        dhcp6snooping_delete_avlnode(macBytes(M1).data());
    }
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(ClientsGuardTest, OnlyTheTableOfPortsIsAsked) {
    gul_max_port_num = 1;
    learned(M1, 2, {A1, A2});
    learned(M2, 2, {A3}, 5);
    installLearned({2});
    dhcp6snooping_delete_by_ip(addressBytes(A1).data());
    dhcp6snooping_delete_avlnode(macBytes(M1).data());
    pass(10);
    EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 0);
}

TEST_F(ClientsGuardTest, WhatABindingShadowsIsLeftAlone) {
    guard({2});
    learned(M1, 2, {A1, A2});
    addBinding(A1);
    dhcp6snooping_delete_avlnode(macBytes(M1).data());
    EXPECT_EQ(recordingTake(), joined({removed(4, A2, M1, 2, 10), saidRemoveFailed(1)}));
    learned(M1, 2, {A2, A3});
    addBinding("2001:db8::9", M1);
    dhcp6snooping_delete_by_ip(addressBytes(A2).data());
    dhcp6snooping_delete_avlnode(macBytes(M1).data());
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(ClientsGuardTest, AFailedRemovalDoesNotKeepTheClient) {
    guard({2});
    learned(M1, 2, {A1, A2});
    EXPECT_EQ(dhcp6snooping_delete_avlnode(macBytes(M1).data()), 0u);
    EXPECT_EQ(recordingTake(),
              joined({removed(4, A1, M1, 2, 10), saidRemoveFailed(0), removed(4, A2, M1, 2, 10), saidRemoveFailed(0)}));
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(ClientsGuardTest, ManyAreClosedInTheOrderOfTheirMacs) {
    const auto fill = []() {
        learned(M3, 2, {A3});
        learned(M1, 3, {A1});
        learned(M2, 2, {A2});
        installLearned({2, 3});
    };
    const Lines all = joined({removed(4, A1, M1, 3, 10), removed(4, A2, M2, 2, 10), removed(4, A3, M3, 2, 10)});
    fill();
    dhcp6snooping_delete_allavlnode();
    EXPECT_EQ(recordingTake(), all);
    fill();
    dhcp6snooping_delete_all();
    EXPECT_EQ(recordingTake(), all);
    fill();
    dhcp6snooping_delete_by_vlan(10);
    EXPECT_EQ(recordingTake(), all);
    fill();
    dhcp6snooping_delete_by_port(2);
    EXPECT_EQ(recordingTake(), joined({removed(4, A2, M2, 2, 10), removed(4, A3, M3, 2, 10)}));
    dhcp6snooping_delete_by_mac(macBytes(M1).data());
    EXPECT_EQ(recordingTake(), removed(4, A1, M1, 3, 10));
}

TEST_F(ClientsGuardTest, ALinkThatGoesDownClosesItsPort) {
    learned(M1, 2, {A1});
    learned(M2, 3, {A2});
    installLearned({2, 3});
    dhcp6snoopingPortLinkProcess(2, 0);
    EXPECT_EQ(recordingTake(), removed(4, A1, M1, 2, 10));
}

TEST_F(ClientsGuardTest, StopClosesAfterTheFramesAreGivenBack) {
    dhcp6snooping_start();
    learned(M1, 2, {A1});
    installLearned({2});
    dhcp6snooping_stop();
    const Lines lines = recordingTake();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines.front(), "smdVDDhcp6snoopingOnOff mode=2");
    EXPECT_EQ(Lines{lines.back()}, removed(4, A1, M1, 2, 10));
}

TEST_F(ClientsGuardTest, ByAddressAcknowledgedOrNot) {
    for (const uint32_t acked : {0u, 1u}) {
        learned(M1, 2, {A1, A2})->acked = acked;
        installLearned({2});
        EXPECT_EQ(dhcp6snooping_delete_by_ip(addressBytes(A1).data()), 0u);
        EXPECT_EQ(recordingTake(), removed(4, A1, M1, 2, 10));
        EXPECT_EQ(leasesOf(clientOf(M1)->leases), Lines{A2 + "/128=100"});
        EXPECT_EQ(dhcp6snooping_delete_by_ip(addressBytes(A2).data()), 0u);
        EXPECT_EQ(recordingTake(), removed(4, A2, M1, 2, 10)) << "once, though the client goes too";
        EXPECT_EQ(tableMacs(), Lines{});
    }
}

TEST_F(ClientsGuardTest, ByAddressAPrefixOrAnUnguardedPortHasNone) {
    guard({3});
    addLease(learned(M1, 3, {A3}), A1, 64, 100);
    learned(M2, 2, {A2});
    dhcp6snooping_delete_by_ip(addressBytes(A1).data());
    dhcp6snooping_delete_by_ip(addressBytes(A2).data());
    EXPECT_EQ(recordingTake(), Lines{});
    EXPECT_EQ(tableMacs(), Lines{M1});
}

TEST_F(ClientsGuardTest, AnExpiredLeaseIsClosedThenSaid) {
    learned(M1, 2, {A1, A2}, 10);
    addLease(clientOf(M1), A3, 128, 1000);
    addLease(clientOf(M1), "2001:db8:1::", 56, 10);
    installLearned({2});
    pass(10);
    EXPECT_EQ(recordingTake(), joined({removed(4, A1, M1, 2, 10), saidExpired(A1), removed(4, A2, M1, 2, 10), saidExpired(A2),
                                       saidExpired("2001:db8:1::/56")}));
    EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 1);
    pass(1000);
    EXPECT_EQ(recordingTake(), joined({removed(4, A3, M1, 2, 10), saidExpired(A3), SAID_GONE}));
}

TEST_F(ClientsGuardTest, AcknowledgedOrNotItIsClosed) {
    learned(M1, 2, {A1}, 10)->acked = 0;
    installLearned({2});
    pass(10);
    EXPECT_EQ(recordingTake(), joined({removed(4, A1, M1, 2, 10), saidExpired(A1)}));
}

TEST_F(ClientsGuardTest, AnExpiredLeaseOfAnUnguardedPortHasNone) {
    guard({1, 3});
    learned(M1, 2, {A1}, 10);
    pass(10);
    EXPECT_EQ(recordingTake(), joined({saidExpired(A1), SAID_GONE}));
}

TEST_F(ClientsGuardTest, AnExpiredLeaseThatABindingShadowsHasNone) {
    guard({2});
    learned(M1, 2, {A1, A2}, 10);
    addBinding(A1);
    pass(10);
    EXPECT_EQ(recordingTake(),
              joined({saidExpired(A1), removed(4, A2, M1, 2, 10), saidRemoveFailed(1), saidExpired(A2), SAID_GONE}));
    learned(M1, 2, {A2}, 10);
    addBinding("2001:db8::9", M1);
    pass(10);
    EXPECT_EQ(recordingTake(), joined({saidExpired(A2), SAID_GONE}));
}

TEST_F(ClientsGuardTest, AnUnacknowledgedClientThatTimesOutLosesNone) {
    guard({2});
    learned(M1, 2, {A1}, 1000)->acked = 0;
    pass(179);
    EXPECT_EQ(recordingTake(), said("\r\n dhcpv6 snooping timer delete unack user:mac " + M1 + "."));
}

} // namespace
