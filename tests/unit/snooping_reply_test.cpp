// REPLY, and the other messages of servers.

#include "l2/dhcp6snooping/clients/limits.h"
#include "tests/unit/fixture.h"

namespace {

struct SnoopingReplyTest : SnoopingTest {};

const std::string UNTRUSTED = " msg comes from untrust port, drop msg.";

Options lease(const std::string &address, uint32_t preferred = 1000, uint32_t valid = 2000) {
    return options().serverId().clientId().iaNa(500, 800, options().address(address, preferred, valid));
}

Lines saidTo() { return said("\r\n dhcpv6 REPLY msg to user: mac " + CLIENT); }

TEST_F(SnoopingReplyTest, LeasesAreLearnedAndTheReplyGoesOn) {
    const Dhcp6SnoopingNode *client = addClient(CLIENT, 10, 2);
    recordingClock = 4321;
    recordingMacOnPort(10, macBytes(CLIENT).data(), 2);
    const Frame f = fromServer(DHCP6_REPLY, lease("2001:db8::1"));
    const Outcome outcome = process(f, 4);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.bytes, bytesOf(f));
    EXPECT_EQ(recordingTake(), joined({saidTo(), askedFor(f), sentTo(2, f)}));
    EXPECT_EQ(clientOf(CLIENT), client);
    EXPECT_EQ(client->acked, 1u);
    EXPECT_EQ(client->last_update, 4321u);
    EXPECT_EQ(client->vlan, 10u);
    EXPECT_EQ(client->port, 2u);
    ASSERT_EQ(leasesOf(client->leases), Lines{"2001:db8::1/128=2000"});
    const auto *learned = static_cast<const Dhcp6LeaseAttr *>(client->leases.items[0]);
    EXPECT_EQ(learned->preferred_lifetime, 1000u);
    EXPECT_EQ(learned->learned_at, 4321u);
    EXPECT_EQ(dhcp6SnoopingPortIpNum[1], 1);
}

TEST_F(SnoopingReplyTest, AnUnknownDestinationFloodsTheVlan) {
    addClient(CLIENT, 10, 2);
    const Frame f = fromServer(DHCP6_REPLY, lease("2001:db8::1"));
    process(f, 4);
    EXPECT_EQ(recordingTake(), joined({saidTo(), floodedToClients(f, 4, "1,2,3")}));
}

TEST_F(SnoopingReplyTest, ARepeatedLeaseIsOverwrittenWhole) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 2);
    addLease(client, "2001:db8::9", 128, 50);
    addLease(client, "2001:db8::1", 128, 60);
    static_cast<Dhcp6LeaseAttr *>(client->leases.items[1])->status = 9;
    recordingClock += 300;
    process(fromServer(DHCP6_REPLY, lease("2001:db8::1", 7, 8)), 4);
    EXPECT_EQ(leasesOf(client->leases), (Lines{"2001:db8::9/128=50", "2001:db8::1/128=8"}));
    const auto *learned = static_cast<const Dhcp6LeaseAttr *>(client->leases.items[1]);
    EXPECT_EQ(learned->preferred_lifetime, 7u);
    EXPECT_EQ(learned->learned_at, recordingClock);
    EXPECT_EQ(learned->status, 0u);
    EXPECT_EQ(client->last_update, recordingClock);
}

TEST_F(SnoopingReplyTest, NewLeasesAreAppendedInOrder) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 2);
    addLease(client, "2001:db8::9", 128, 50);
    Options content = lease("2001:db8::1");
    content.iaPd(1, 2, options().prefix("2001:db8:1::", 56, 3, 4));
    process(fromServer(DHCP6_REPLY, content), 4);
    EXPECT_EQ(leasesOf(client->leases), (Lines{"2001:db8::9/128=50", "2001:db8::1/128=2000", "2001:db8:1::/56=4"}));
}

TEST_F(SnoopingReplyTest, TheLearnedLeaseIsACopy) {
    addClient(CLIENT, 10, 2);
    process(fromServer(DHCP6_REPLY, lease("2001:db8::1")), 4);
    process(fromServer(DHCP6_REPLY, lease("2001:db8::2")), 4);
    EXPECT_EQ(leasesOf(clientOf(CLIENT)->leases), (Lines{"2001:db8::1/128=2000", "2001:db8::2/128=2000"}));
}

TEST_F(SnoopingReplyTest, WithoutUsableLeasesTheRecordStaysAsItIs) {
    const Dhcp6SnoopingNode *client = addClient(CLIENT, 10, 2);
    const uint32_t before = client->last_update;
    recordingClock += 50;
    const Frame f = fromServer(DHCP6_REPLY, options().iaNa(0, 0, options().status(2)));
    process(f, 4);
    EXPECT_EQ(recordingTake(), joined({said("\r\n Discarding settings na, since status no addresses available"),
                                       floodedToClients(f, 4, "1,2,3")}));
    EXPECT_EQ(client->acked, 0u);
    EXPECT_EQ(client->last_update, before);
    const Frame zero = fromServer(DHCP6_REPLY, lease("2001:db8::1", 0, 0));
    process(zero, 4);
    EXPECT_EQ(client->acked, 0u) << "leases of lifetime 0 are not usable";
}

// The extraction may call leases usable and leave none: the client is acknowledged all the same, and the next aging pass
// takes it away.
TEST_F(SnoopingReplyTest, AWipedListStillAcknowledges) {
    const Dhcp6SnoopingNode *client = addClient(CLIENT, 10, 2);
    Options content = lease("2001:db8::1");
    content.iaPd(0, 0, options().status(2));
    const Frame f = fromServer(DHCP6_REPLY, content);
    process(f, 4);
    EXPECT_EQ(recordingTake(), joined({said("\r\n Discarding settings pd, since status no addresses available"), saidTo(),
                                       floodedToClients(f, 4, "1,2,3")}));
    EXPECT_EQ(client->acked, 1u);
    EXPECT_EQ(client->leases.count, 0u);
}

TEST_F(SnoopingReplyTest, WithoutARecordItOnlyGoesOn) {
    const Frame f = fromServer(DHCP6_REPLY, lease("2001:db8::1"));
    process(f, 4);
    EXPECT_EQ(recordingTake(), joined({said("\r\n receive dhcpv6 REPLY msg but found no record of user: mac " + CLIENT),
                                       floodedToClients(f, 4, "1,2,3")}));
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(SnoopingReplyTest, WithoutAMacItIsDropped) {
    for (const uint32_t port : {1u, 4u}) {
        EXPECT_EQ(process(fromServer(DHCP6_REPLY).to(NO_MAC), port).result, 0);
        EXPECT_EQ(recordingTake(), said("\r\n client mac = 0, drop dhcpv6 REPLY msg"));
    }
}

TEST_F(SnoopingReplyTest, OnItsClientsOwnPortItDeletesTheClient) {
    addLease(addAckedClient(CLIENT, 20, 4), "2001:db8::9", 128, 100);
    process(fromServer(DHCP6_REPLY, lease("2001:db8::1")), 4);
    EXPECT_EQ(recordingTake(), said("\r\n dhcpv6 REPLY msg port same as request msg port, delete user: mac " + CLIENT));
    EXPECT_EQ(clientOf(CLIENT), nullptr);
    EXPECT_EQ(dhcp6SnoopingPortIpNum[3], 0);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[20], 0);
}

TEST_F(SnoopingReplyTest, AClientOfATrustedPortIsForgottenAfterwards) {
    addClient(CLIENT, 10, 2);
    dhcp6SnoopingTrustPort[1] = 1;
    const Frame f = fromServer(DHCP6_REPLY, lease("2001:db8::1"));
    process(f, 4);
    EXPECT_EQ(recordingTake(), joined({saidTo(), said("\r\n user in trust port, do not record user: mac " + CLIENT),
                                       floodedToClients(f, 4, "1,2,3")}));
    EXPECT_EQ(clientOf(CLIENT), nullptr);
    EXPECT_EQ(dhcp6SnoopingPortIpNum[1], 0);
}

TEST_F(SnoopingReplyTest, ThatDoesNotDependOnLeases) {
    addClient(CLIENT, 10, 2);
    dhcp6SnoopingTrustPort[1] = 1;
    const Frame f = fromServer(DHCP6_REPLY);
    process(f, 4);
    EXPECT_EQ(recordingTake(),
              joined({said("\r\n user in trust port, do not record user: mac " + CLIENT), floodedToClients(f, 4, "1,2,3")}));
    EXPECT_EQ(clientOf(CLIENT), nullptr);
}

TEST_F(SnoopingReplyTest, ARecordWithAnOddPortIsSafe) {
    for (const uint32_t port : {0u, 29u, 0xFFFFFFFFu}) {
        Dhcp6SnoopingNode *client = addClient(CLIENT, 10, 2);
        client->port = port;
        process(fromServer(DHCP6_REPLY, lease("2001:db8::1")), 4);
        EXPECT_EQ(clientOf(CLIENT), client);
        EXPECT_EQ(client->acked, 1u);
        client->port = 2;
        dhcp6snooping_delete_allavlnode();
    }
}

TEST_F(SnoopingReplyTest, ServersOnUntrustedPortsAreNotHeard) {
    addClient(CLIENT, 10, 2);
    const struct {
        uint8_t type;
        std::string name;
    } types[] = {{DHCP6_ADVERTISE, "ADVERTISE"},
                 {DHCP6_REPLY, "REPLY"},
                 {DHCP6_RECONFIGURE, "RECONFIGURE"},
                 {DHCP6_RELAY_REPL, "RELAY_REPLY"}};
    for (const auto &type : types) {
        for (const uint32_t trust : {0u, 2u}) {
            dhcp6SnoopingTrustPort[0] = trust;
            EXPECT_EQ(process(fromServer(type.type, lease("2001:db8::1")), 1).result, 0);
            EXPECT_EQ(recordingTake(), said("\r\n dhcpv6 " + type.name + UNTRUSTED));
        }
        processRaw(bytesOf(fromServer(type.type)), 66, 0, 10, 28);
        EXPECT_EQ(recordingTake(), said("\r\n dhcpv6 " + type.name + UNTRUSTED));
    }
    EXPECT_EQ(clientOf(CLIENT)->acked, 0u);
}

TEST_F(SnoopingReplyTest, TheOthersPassFromATrustedPort) {
    const Dhcp6SnoopingNode *client = addClient(CLIENT, 10, 2);
    for (const uint8_t type : {DHCP6_ADVERTISE, DHCP6_RECONFIGURE, DHCP6_RELAY_REPL}) {
        const Frame f = fromServer(type, lease("2001:db8::1"));
        const Outcome outcome = process(f, 4);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.bytes, bytesOf(f));
        EXPECT_EQ(recordingTake(), floodedToClients(f, 4, "1,2,3"));
    }
    EXPECT_EQ(client->acked, 0u);
    EXPECT_EQ(client->leases.count, 0u);
    const Frame noMac = fromServer(DHCP6_ADVERTISE).to(NO_MAC);
    process(noMac, 4);
    EXPECT_EQ(recordingTake(), floodedToClients(noMac, 4, "1,2,3"));
}

TEST_F(SnoopingReplyTest, DoubleTaggedFramesAreReadToo) {
    const Dhcp6SnoopingNode *client = addClient(CLIENT, 10, 2);
    const Frame f = fromServer(DHCP6_REPLY, lease("2001:db8::1")).inner(30);
    process(f, 4);
    EXPECT_EQ(recordingTake(), joined({saidTo(), floodedToClients(f, 4, "1,2,3")}));
    EXPECT_EQ(leasesOf(client->leases), Lines{"2001:db8::1/128=2000"});
}

} // namespace
