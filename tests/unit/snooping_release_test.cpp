// RELEASE and DECLINE.

#include "l2/dhcp6snooping/clients/limits.h"
#include "tests/unit/fixture.h"

namespace {

struct SnoopingReleaseTest : SnoopingTest {};

const uint8_t TYPES[] = {DHCP6_RELEASE, DHCP6_DECLINE};

std::string nameOf(uint8_t type) { return type == DHCP6_RELEASE ? "RELEASE" : "DECLINE"; }

Lines saidDeleted(uint8_t type) { return said("\r\n receive dhcpv6 " + nameOf(type) + " msg, delete user: mac " + CLIENT); }

Options addresses(const std::vector<std::string> &texts) {
    Options inner;
    for (const std::string &text : texts)
        inner.address(text, 0, 0);
    return options().clientId().iaNa(0, 0, inner);
}

TEST_F(SnoopingReleaseTest, TheLastLeaseTakesTheClientAlong) {
    for (const uint8_t type : TYPES) {
        addLease(addAckedClient(CLIENT, 10, 2), "2001:db8::1", 128, 100);
        const Frame f = fromClient(type, addresses({"2001:db8::1"}));
        const Outcome outcome = process(f, 2);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.bytes, bytesOf(f));
        EXPECT_EQ(recordingTake(), joined({saidDeleted(type), floodedToServers(f, 2)}));
        EXPECT_EQ(clientOf(CLIENT), nullptr);
        EXPECT_EQ(dhcp6SnoopingPortIpNum[1], 0);
        EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[10], 0);
    }
}

TEST_F(SnoopingReleaseTest, TheClientIsGoneBeforeTheMessageGoes) {
    addLease(addAckedClient(CLIENT, 10, 2), "2001:db8::1", 128, 100);
    Lines left = {"not sent"};
    recordingWhenCalled("smdVDPktSendPortlist", [&left]() { left = tableMacs(); });
    process(fromClient(DHCP6_RELEASE, addresses({"2001:db8::1"})), 2);
    recordingWhenCalled("", nullptr);
    EXPECT_EQ(left, Lines{});
}

TEST_F(SnoopingReleaseTest, OtherLeasesStay) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 2);
    addLease(client, "2001:db8::1", 128, 100);
    addLease(client, "2001:db8::2", 128, 100);
    addLease(client, "2001:db8::3", 128, 100);
    addLease(client, "2001:db8:1::", 48, 100);
    const Frame f = fromClient(DHCP6_RELEASE, addresses({"2001:db8::3", "2001:db8::1"}));
    process(f, 2);
    EXPECT_EQ(recordingTake(), joined({saidDeleted(DHCP6_RELEASE), saidDeleted(DHCP6_RELEASE), floodedToServers(f, 2)}));
    EXPECT_EQ(leasesOf(client->leases), (Lines{"2001:db8::2/128=100", "2001:db8:1::/48=100"}));
    EXPECT_EQ(client->acked, 1u);
}

TEST_F(SnoopingReleaseTest, PrefixesAreReleasedByAddressAndLength) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 2);
    addLease(client, "2001:db8::", 48, 100);
    addLease(client, "2001:db8::", 56, 100);
    process(fromClient(DHCP6_RELEASE, options().iaPd(0, 0, options().prefix("2001:db8::", 56, 1, 2))), 2);
    EXPECT_EQ(leasesOf(client->leases), Lines{"2001:db8::/48=100"});
    EXPECT_EQ(recordingTraces.size(), 1u);
}

TEST_F(SnoopingReleaseTest, ZeroLifetimesBesideAnIaPdAreNotSeen) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 2);
    addLease(client, "2001:db8::1", 128, 100);
    Options content = addresses({"2001:db8::1"});
    content.iaPd(0, 0, options().prefix("2001:db8::", 56, 1, 2));
    process(fromClient(DHCP6_RELEASE, content), 2);
    EXPECT_EQ(leasesOf(client->leases), Lines{"2001:db8::1/128=100"});
}

TEST_F(SnoopingReleaseTest, AnUnknownLeaseChangesNothing) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 2);
    addLease(client, "2001:db8::1", 128, 100);
    const Frame f = fromClient(DHCP6_RELEASE, addresses({"2001:db8::2"}));
    process(f, 2);
    EXPECT_EQ(recordingTake(), floodedToServers(f, 2));
    EXPECT_EQ(leasesOf(client->leases), Lines{"2001:db8::1/128=100"});
}

TEST_F(SnoopingReleaseTest, AnAcknowledgedClientWithoutLeasesGoes) {
    addAckedClient(CLIENT, 10, 2);
    const Frame f = fromClient(DHCP6_RELEASE);
    process(f, 2);
    EXPECT_EQ(recordingTake(), floodedToServers(f, 2));
    EXPECT_EQ(clientOf(CLIENT), nullptr);
}

TEST_F(SnoopingReleaseTest, AnUnacknowledgedClientStays) {
    addLease(addClient(CLIENT, 10, 2), "2001:db8::1", 128, 100);
    process(fromClient(DHCP6_RELEASE, addresses({"2001:db8::1"})), 2);
    ASSERT_NE(clientOf(CLIENT), nullptr);
    EXPECT_EQ(clientOf(CLIENT)->leases.count, 0u);
}

TEST_F(SnoopingReleaseTest, AStrangersMessageGoesOn) {
    for (const uint8_t type : TYPES) {
        const Frame f = fromClient(type, addresses({"2001:db8::1"}));
        process(f, 2);
        EXPECT_EQ(recordingTake(), floodedToServers(f, 2));
    }
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(SnoopingReleaseTest, WithoutAMacItIsDropped) {
    for (const uint8_t type : TYPES) {
        EXPECT_EQ(process(fromClient(type).from(NO_MAC), 2).result, 0);
        EXPECT_EQ(recordingTake(), said("\r\n client mac = 0, drop dhcpv6 " + nameOf(type) + " msg"));
    }
}

TEST_F(SnoopingReleaseTest, NeitherTrustNorLimitsNorPlaceMatter) {
    addLease(addAckedClient(CLIENT, 10, 2), "2001:db8::1", 128, 100);
    dhcp6SnoopingPortMaxIP[3] = 0;
    dhcp6SnoopingTrustPort[0] = 1;
    const Frame f = fromClient(DHCP6_RELEASE, addresses({"2001:db8::1"})).vlan(20);
    process(f, 4);
    EXPECT_EQ(recordingTake(), joined({saidDeleted(DHCP6_RELEASE), floodedToClients(f, 4, "1")}));
    EXPECT_EQ(clientOf(CLIENT), nullptr);
    processRaw(bytesOf(f), 66, 0, 65535, 0xFFFFFFFF);
    EXPECT_EQ(recordingTraces.back(), "\r\n Send packet failed, can't find any send port");
}

TEST_F(SnoopingReleaseTest, ALeaseHeldTwiceIsReleasedOnce) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 2);
    addLease(client, "2001:db8::1", 128, 100);
    addLease(client, "2001:db8::1", 128, 200);
    process(fromClient(DHCP6_RELEASE, addresses({"2001:db8::1"})), 2);
    EXPECT_EQ(leasesOf(client->leases), Lines{"2001:db8::1/128=200"});
}

TEST_F(SnoopingReleaseTest, ARefusedParseReleasesNothing) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 2);
    addLease(client, "2001:db8::1", 128, 100);
    const Frame f = fromClient(DHCP6_DECLINE, options().iaNa(2, 1, options().address("2001:db8::1", 0, 0)));
    process(f, 2);
    EXPECT_EQ(recordingTake(), joined({said("\r\n Discarding message, since T1 (2) > T2 (1)"), floodedToServers(f, 2)}));
    EXPECT_EQ(client->leases.count, 1u);
}

} // namespace
