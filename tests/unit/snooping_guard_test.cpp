// How learned addresses get their filters from REPLYs and lose them by RELEASE, DECLINE and a client that moves.

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "tests/unit/guard.h"

namespace {

struct SnoopingGuardTest : GuardTest {};

Options addresses(const Lines &texts, uint32_t valid = 2000) {
    Options inner;
    for (const std::string &text : texts)
        inner.address(text, valid, valid);
    return options().clientId().iaNa(500, 800, inner);
}

Frame reply(const Lines &texts) { return fromServer(DHCP6_REPLY, addresses(texts)); }
Frame release(const Lines &texts) { return fromClient(DHCP6_RELEASE, addresses(texts, 0)); }

const Lines SAID_REPLY = said("\r\n dhcpv6 REPLY msg to user: mac " + CLIENT);
Lines saidReleased(const std::string &type = "RELEASE") {
    return said("\r\n receive dhcpv6 " + type + " msg, delete user: mac " + CLIENT);
}

Dhcp6SnoopingNode *learned(uint32_t port, const Lines &texts) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, port);
    for (const std::string &text : texts)
        addLease(client, text, 128, 100);
    return client;
}

TEST_F(SnoopingGuardTest, AReplyOpensTheAddress) {
    guard({2});
    addClient(CLIENT, 10, 2);
    const Frame f = reply({A1});
    process(f, 4);
    EXPECT_EQ(recordingTake(), joined({SAID_REPLY, installed(4, A1, CLIENT, 2, 10), floodedToClients(f, 4, "1,2,3")}));
    EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 1);
}

TEST_F(SnoopingGuardTest, EveryAddressOldAndNewIsOpenedAgain) {
    guard({2});
    Dhcp6SnoopingNode *client = learned(2, {A3});
    addLease(client, "2001:db8:1::", 64, 100);
    addLease(client, A1, 128, 100);
    recordingClock += 50;
    Options content = addresses({A2, A1});
    content.iaPd(500, 800, options().prefix("2001:db8:2::", 56, 1000, 2000));
    const Frame f = fromServer(DHCP6_REPLY, content);
    process(f, 4);
    EXPECT_EQ(recordingTake(), joined({SAID_REPLY, installed(4, A3, CLIENT, 2, 10), installed(4, A1, CLIENT, 2, 10),
                                       installed(4, A2, CLIENT, 2, 10), floodedToClients(f, 4, "1,2,3")}));
    process(f, 4);
    EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 6) << "renewals count";
}

TEST_F(SnoopingGuardTest, TheRecordsPortIsAskedNotTheReceivingOne) {
    guard({1, 3, 4});
    addClient(CLIENT, 10, 2);
    const Frame f = reply({A1});
    process(f, 4);
    EXPECT_EQ(recordingTake(), joined({SAID_REPLY, floodedToClients(f, 4, "1,2,3")}));
}

TEST_F(SnoopingGuardTest, TheRecordsVlanIsUsed) {
    guard({2});
    addClient(CLIENT, 10, 2);
    Frame f = reply({A1}).vlan(20);
    process(f, 4);
    EXPECT_EQ(recordingTake(), joined({SAID_REPLY, installed(4, A1, CLIENT, 2, 10), floodedToClients(f, 4, "1,2,3,5")}));
}

TEST_F(SnoopingGuardTest, OnlyTheTableOfPortsIsAsked) {
    gul_max_port_num = 1;
    guard({2});
    addClient(CLIENT, 10, 2);
    process(reply({A1}), 4);
    EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 1);
}

TEST_F(SnoopingGuardTest, BoundAddressesAndMacsGetNoLearnedFilter) {
    guard({2});
    addBinding(A1);
    addClient(CLIENT, 10, 2);
    const Frame f = reply({A1, A2});
    process(f, 4);
    EXPECT_EQ(recordingTake(), joined({SAID_REPLY, installed(4, A2, CLIENT, 2, 10), floodedToClients(f, 4, "1,2,3")}));
    addBinding("2001:db8::9", CLIENT, 3, 0);
    process(f, 4);
    EXPECT_EQ(recordingTake(), joined({SAID_REPLY, floodedToClients(f, 4, "1,2,3")}));
}

TEST_F(SnoopingGuardTest, PrefixesGetNoFilter) {
    guard({2});
    addClient(CLIENT, 10, 2);
    process(fromServer(DHCP6_REPLY, options().iaPd(1, 2, options().prefix("2001:db8:2::", 56, 1000, 2000))), 4);
    EXPECT_EQ(clientOf(CLIENT)->leases.count, 1u);
    EXPECT_EQ(recordingCount("FRM_InstallForwardIp6AddrFilterResource_new"), 0u);
}

TEST_F(SnoopingGuardTest, AReplyWithoutLeasesOpensNothingAgain) {
    guard({2});
    learned(2, {A1});
    const Frame f = fromServer(DHCP6_REPLY);
    process(f, 4);
    EXPECT_EQ(recordingTake(), floodedToClients(f, 4, "1,2,3"));
}

TEST_F(SnoopingGuardTest, AFailedFilterDoesNotHoldTheReply) {
    guard({2});
    addClient(CLIENT, 10, 2);
    recordingFailAlways("FRM_InstallForwardIp6AddrFilterResource_new");
    const Frame f = reply({A1, A2});
    process(f, 4);
    EXPECT_EQ(recordingTake(),
              joined({SAID_REPLY, failing(installed(4, A1, CLIENT, 2, 10)), saidInstallFailed(0),
                      failing(installed(4, A2, CLIENT, 2, 10)), saidInstallFailed(0), floodedToClients(f, 4, "1,2,3")}));
    EXPECT_EQ(clientOf(CLIENT)->leases.count, 2u);
}

TEST_F(SnoopingGuardTest, ARecordWithAnOddPortGetsNone) {
    for (uint32_t &port : Ip6SourceGuardPort)
        port = 0;
    for (const uint32_t port : {0u, 29u, 0xFFFFFFFFu}) {
        addClient(CLIENT, 10, 2)->port = port;
        process(reply({A1}), 4);
        EXPECT_EQ(clientOf(CLIENT)->acked, 1u);
        clientOf(CLIENT)->counted = 0;
        dhcp6snooping_delete_allavlnode();
        EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 0);
        EXPECT_EQ(recordingCount("FRM_InstallForwardIp6AddrFilterResource_new"), 0u);
    }
}

// Trust and guard exclude each other, but a port may have changed since; then the record goes, and its filters with it.
TEST_F(SnoopingGuardTest, AClientOfATrustedPortIsOpenedAndForgotten) {
    guard({2});
    addClient(CLIENT, 10, 2);
    dhcp6SnoopingTrustPort[1] = 1;
    const Frame f = reply({A1});
    process(f, 4);
    EXPECT_EQ(recordingTake(), joined({SAID_REPLY, installed(4, A1, CLIENT, 2, 10),
                                       said("\r\n user in trust port, do not record user: mac " + CLIENT),
                                       removed(4, A1, CLIENT, 2, 10), floodedToClients(f, 4, "1,2,3")}));
}

TEST_F(SnoopingGuardTest, AReplyOnTheClientsOwnPortClosesIt) {
    guard({4});
    learned(4, {A1});
    dhcp6snooping_install_all_forward_ip_rule(4);
    recordingTake();
    process(reply({A2}), 4);
    EXPECT_EQ(recordingTake(), joined({said("\r\n dhcpv6 REPLY msg port same as request msg port, delete user: mac " + CLIENT),
                                       removed(4, A1, CLIENT, 4, 10)}));
}

TEST_F(SnoopingGuardTest, ReleaseAndDeclineCloseTheAddress) {
    guard({2});
    for (const uint8_t type : {DHCP6_RELEASE, DHCP6_DECLINE}) {
        learned(2, {A1, A2});
        dhcp6snooping_install_all_forward_ip_rule(2);
        recordingTake();
        const Frame f = fromClient(type, addresses({A2}, 0));
        process(f, 2);
        EXPECT_EQ(recordingTake(),
                  joined({removed(4, A2, CLIENT, 2, 10), saidReleased(type == DHCP6_RELEASE ? "RELEASE" : "DECLINE"),
                          floodedToServers(f, 2)}));
        dhcp6snooping_delete_allavlnode();
        EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 0);
        recordingTake();
    }
}

// Here the port on which the message came is asked, while the filter is the one of the record's port and VLAN.
TEST_F(SnoopingGuardTest, AReleaseAsksTheReceivingPort) {
    guard({3});
    learned(2, {A1, A2});
    const Frame f = release({A1}).vlan(20);
    process(f, 3);
    EXPECT_EQ(recordingTake(),
              joined({removed(4, A1, CLIENT, 2, 10), saidRemoveFailed(0), saidReleased(), floodedToServers(f, 3)}));
    guard({2});
    const Frame g = release({A2});
    process(g, 1);
    EXPECT_EQ(recordingTake(), joined({saidReleased(), floodedToServers(g, 1)})) << "on a port that is not guarded";
    EXPECT_EQ(clientOf(CLIENT), nullptr);
}

TEST_F(SnoopingGuardTest, AReleaseFromOutsideTheTableClosesNothing) {
    for (uint32_t &port : Ip6SourceGuardPort)
        port = 0;
    learned(2, {A1, A2});
    const Frame f = release({A1});
    processRaw(bytesOf(f), messageOffset(f), 0, 10, 28);
    EXPECT_EQ(leasesOf(clientOf(CLIENT)->leases), Lines{A2 + "/128=100"});
    EXPECT_EQ(recordingCount("FRM_RemoveForwardIp6AddrFilterResource_new"), 0u);
}

TEST_F(SnoopingGuardTest, AcknowledgedOrNotAReleaseCloses) {
    guard({2});
    addLease(addClient(CLIENT, 10, 2), A1, 128, 100);
    const Frame f = release({A1});
    process(f, 2);
    EXPECT_EQ(recordingTake(),
              joined({removed(4, A1, CLIENT, 2, 10), saidRemoveFailed(0), saidReleased(), floodedToServers(f, 2)}));
}

TEST_F(SnoopingGuardTest, WhatABindingShadowsIsNotClosed) {
    guard({2});
    learned(2, {A1, A2, A3});
    addBinding(A1);
    const Frame f = release({A1});
    process(f, 2);
    EXPECT_EQ(recordingTake(), joined({saidReleased(), floodedToServers(f, 2)}));
    addBinding("2001:db8::9", CLIENT);
    const Frame g = release({A2});
    process(g, 2);
    EXPECT_EQ(recordingTake(), joined({saidReleased(), floodedToServers(g, 2)}));
}

TEST_F(SnoopingGuardTest, AReleasedPrefixClosesNothing) {
    guard({2});
    addLease(learned(2, {A1}), "2001:db8:1::", 56, 100);
    const Frame f = fromClient(DHCP6_RELEASE, options().iaPd(0, 0, options().prefix("2001:db8:1::", 56, 1, 2)));
    process(f, 2);
    EXPECT_EQ(recordingTake(), joined({saidReleased(), floodedToServers(f, 2)}));
}

TEST_F(SnoopingGuardTest, AClientThatMovesTakesNoFilterAlong) {
    guard({2, 3});
    learned(2, {A1});
    dhcp6snooping_install_all_forward_ip_rule(2);
    recordingTake();
    const Frame f = fromClient(DHCP6_SOLICIT);
    process(f, 3);
    EXPECT_EQ(recordingTake(),
              joined({removed(4, A1, CLIENT, 2, 10), saidRecorded("SOLICIT", CLIENT, 3), floodedToServers(f, 3)}));
}

} // namespace
