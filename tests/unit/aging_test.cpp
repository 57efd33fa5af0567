// The aging of leases and clients.

#include "l2/dhcp6snooping/clients/aging.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "tests/unit/fixture.h"

#include <cstring>

namespace {

struct AgingTest : SnoopingTest {};

Lines saidExpired(const std::string &lease, const std::string &mac = CLIENT) {
    return said("\r\n dhcpv6 snooping timer delete user:mac " + mac + ", ipv6 address/prefix : " + lease);
}
Lines saidAck(const std::string &mac = CLIENT) { return said("\r\n dhcpv6 snooping timer delete ack user:mac " + mac + "."); }
Lines saidUnack(const std::string &mac = CLIENT) {
    return said("\r\n dhcpv6 snooping timer delete unack user:mac " + mac + ".");
}

void pass(uint32_t seconds) {
    recordingClock += seconds;
    EXPECT_EQ(dhcp6snooping_timer(), 0u);
}

TEST_F(AgingTest, EveryPassTakesItsSecondsOff) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 1);
    addLease(client, "2001:db8::1", 128, 25);
    addLease(client, "2001:db8::2", 128, 1000);
    pass(10);
    EXPECT_EQ(leasesOf(client->leases), (Lines{"2001:db8::1/128=15", "2001:db8::2/128=990"}));
    EXPECT_EQ(client->last_update, recordingClock);
    pass(10);
    EXPECT_EQ(leasesOf(client->leases), (Lines{"2001:db8::1/128=5", "2001:db8::2/128=980"}));
    EXPECT_EQ(recordingTake(), Lines{});
    pass(10);
    EXPECT_EQ(leasesOf(client->leases), Lines{"2001:db8::2/128=970"});
    EXPECT_EQ(recordingTake(), saidExpired("2001:db8::1"));
}

TEST_F(AgingTest, ThePreferredLifetimeDoesNotAge) {
    addLease(addAckedClient(CLIENT, 10, 1), "2001:db8::1", 128, 1000);
    pass(10);
    EXPECT_EQ(static_cast<Dhcp6LeaseAttr *>(clientOf(CLIENT)->leases.items[0])->preferred_lifetime, 1000u);
}

TEST_F(AgingTest, OneSecondLeftIsExpiredTwoAreNot) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 1);
    addLease(client, "2001:db8::1", 128, 11);
    addLease(client, "2001:db8::2", 128, 12);
    pass(10);
    EXPECT_EQ(leasesOf(client->leases), Lines{"2001:db8::2/128=2"});
    pass(1);
    EXPECT_EQ(clientOf(CLIENT), nullptr);
}

TEST_F(AgingTest, NoTimeIsNoAging) {
    addLease(addAckedClient(CLIENT, 10, 1), "2001:db8::1", 128, 2);
    pass(0);
    EXPECT_EQ(leasesOf(clientOf(CLIENT)->leases), Lines{"2001:db8::1/128=2"});
    static_cast<Dhcp6LeaseAttr *>(clientOf(CLIENT)->leases.items[0])->valid_lifetime = 1;
    pass(0);
    EXPECT_EQ(clientOf(CLIENT), nullptr) << "one second is expired whatever has elapsed";
}

TEST_F(AgingTest, TheLongestLifetimeCountsDownToo) {
    addLease(addAckedClient(CLIENT, 10, 1), "2001:db8::1", 128, 0xFFFFFFFF);
    pass(10);
    EXPECT_EQ(leasesOf(clientOf(CLIENT)->leases), Lines{"2001:db8::1/128=4294967285"});
    pass(0x7FFFFFFF);
    EXPECT_EQ(leasesOf(clientOf(CLIENT)->leases), Lines{"2001:db8::1/128=2147483638"});
}

TEST_F(AgingTest, TheLastLeaseTakesTheClientAlong) {
    addLease(addAckedClient(CLIENT, 10, 1), "2001:db8::1", 128, 5);
    addAckedClient(OTHER_CLIENT, 10, 1);
    addLease(clientOf(OTHER_CLIENT), "2001:db8::2", 128, 500);
    pass(10);
    EXPECT_EQ(recordingTake(), joined({saidExpired("2001:db8::1"), saidAck(), saidUnack(NO_MAC)}));
    EXPECT_EQ(tableMacs(), Lines{OTHER_CLIENT});
    EXPECT_EQ(dhcp6SnoopingPortIpNum[0], 1);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[10], 1);
}

TEST_F(AgingTest, AnAcknowledgedClientWithoutLeasesGoes) {
    addAckedClient(CLIENT, 10, 1);
    pass(0);
    EXPECT_EQ(recordingTake(), joined({saidAck(), saidUnack(NO_MAC)}));
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(AgingTest, TheTimeoutOfAnAcknowledgedClientIsNotLookedAt) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 1);
    addLease(client, "2001:db8::1", 128, 1000);
    client->unack_timeout = 5;
    pass(100);
    EXPECT_EQ(client->unack_timeout, 5u);
    EXPECT_EQ(tableMacs(), Lines{CLIENT});
}

TEST_F(AgingTest, SeveralLeasesExpireInOneGo) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 1);
    addLease(client, "2001:db8::1", 128, 3);
    addLease(client, "2001:db8::2", 128, 4);
    addLease(client, "2001:db8::3", 128, 400);
    addLease(client, "2001:db8:4::", 56, 5);
    pass(10);
    EXPECT_EQ(recordingTake(),
              joined({saidExpired("2001:db8::1"), saidExpired("2001:db8::2"), saidExpired("2001:db8:4::/56")}));
    EXPECT_EQ(leasesOf(client->leases), Lines{"2001:db8::3/128=390"});
}

TEST_F(AgingTest, AnUnacknowledgedClientLives179Seconds) {
    addClient(CLIENT, 10, 1);
    pass(178);
    EXPECT_EQ(clientOf(CLIENT)->unack_timeout, 2u);
    EXPECT_EQ(recordingTake(), Lines{});
    pass(1);
    EXPECT_EQ(recordingTake(), saidUnack());
    EXPECT_EQ(tableMacs(), Lines{});
    EXPECT_EQ(dhcp6SnoopingPortIpNum[0], 0);
}

TEST_F(AgingTest, ItsTimeoutStopsAtZero) {
    addClient(CLIENT, 10, 1);
    pass(100000);
    EXPECT_EQ(recordingTake(), saidUnack());
}

TEST_F(AgingTest, ItsLeasesAgeToo) {
    Dhcp6SnoopingNode *client = addClient(CLIENT, 10, 1);
    addLease(client, "2001:db8::1", 128, 15);
    pass(10);
    EXPECT_EQ(leasesOf(client->leases), Lines{"2001:db8::1/128=5"});
    EXPECT_EQ(client->unack_timeout, 170u);
    pass(10);
    EXPECT_EQ(recordingTake(), saidExpired("2001:db8::1")) << "and it stays without leases";
    EXPECT_EQ(tableMacs(), Lines{CLIENT});
}

TEST_F(AgingTest, AcknowledgedMeansOne) {
    Dhcp6SnoopingNode *client = addClient(CLIENT, 10, 1);
    client->acked = 2;
    pass(1000);
    EXPECT_EQ(tableMacs(), Lines{CLIENT}) << "neither rule applies";
    client->acked = 0;
    pass(1000);
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(AgingTest, AClockThatWentBackExpiresEverything) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 1);
    addLease(client, "2001:db8::1", 128, 100000);
    client->last_update = recordingClock + 1;
    pass(0); // elapsed is -2, unsigned
    EXPECT_EQ(recordingTake(), joined({saidExpired("2001:db8::1"), saidAck(), saidUnack(NO_MAC)}));
}

TEST_F(AgingTest, AfterAWrapOneSecondIsTakenOff) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 1);
    addLease(client, "2001:db8::1", 128, 100);
    recordingClock = 10;
    client->last_update = 0xFFFFFFFB; // 5 seconds before 0
    pass(0);
    EXPECT_EQ(leasesOf(client->leases), Lines{"2001:db8::1/128=86"}) << "15 seconds less one";
    EXPECT_EQ(client->last_update, 10u);
}

TEST_F(AgingTest, TimeIsMeasuredPerClient) {
    addLease(addAckedClient(CLIENT, 10, 1), "2001:db8::1", 128, 100);
    recordingClock += 40;
    addLease(addAckedClient(OTHER_CLIENT, 10, 1), "2001:db8::2", 128, 100);
    pass(10);
    EXPECT_EQ(leasesOf(clientOf(CLIENT)->leases), Lines{"2001:db8::1/128=50"});
    EXPECT_EQ(leasesOf(clientOf(OTHER_CLIENT)->leases), Lines{"2001:db8::2/128=90"});
}

TEST_F(AgingTest, DeletionsDoNotBreakTheWalk) {
    Lines expected;
    for (uint32_t i = 0; i < 9; i++) {
        const std::string mac = "02:00:00:00:00:0" + std::to_string(i + 1);
        addClient(mac, 10, 1)->unack_timeout = i % 3 == 0 ? 500 : 5;
        if (i % 3 == 0)
            expected.push_back(mac);
    }
    const uint32_t before = recordingCount("vosUpSeconds");
    pass(10);
    EXPECT_EQ(recordingCount("vosUpSeconds") - before, 9u) << "every client is visited once";
    EXPECT_EQ(tableMacs(), expected);
    EXPECT_EQ(recordingTraces.size(), 6u);
    EXPECT_EQ(recordingTraces[1], "\r\n dhcpv6 snooping timer delete unack user:mac 02:00:00:00:00:03.");
}

TEST_F(AgingTest, ARecordWithAnOddPortIsSafe) {
    for (const uint32_t port : {0u, 29u, 0xFFFFFFFFu}) {
        Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 1);
        addLease(client, "2001:db8::1", 128, 1);
        client->port = port;
        client->vlan = 0xFFFFFFFF;
        pass(0);
        EXPECT_EQ(tableMacs(), Lines{});
    }
}

TEST_F(AgingTest, ARecordThatTheTreeKeepsIsAgedOn) {
    addAckedClient(CLIENT, 10, 1);
    recordingFailAlways("avlDelete");
    pass(0);
    recordingFailNone();
    EXPECT_EQ(recordingTake(), saidAck()) << "its flag still reads 1";
    EXPECT_EQ(tableMacs(), Lines{CLIENT});
}

TEST_F(AgingTest, AnEmptyTableIsDone) {
    pass(10);
    EXPECT_EQ(recordingTake(), Lines{});
}

std::string textOf(const std::string &address, uint32_t prefixLength) {
    Dhcp6LeaseAttr lease = {};
    const Bytes bytes = addressBytes(address);
    std::copy(bytes.begin(), bytes.end(), lease.address);
    lease.prefix_len = prefixLength;
    char text[LEASE_TEXT_SIZE];
    memset(text, 'x', sizeof text);
    EXPECT_EQ(dhcp6snooping_lease_to_str(&lease, text), text);
    return text;
}

TEST_F(AgingTest, LeaseTexts) {
    EXPECT_EQ(textOf("2001:db8::1", 128), "2001:db8::1");
    EXPECT_EQ(textOf("2001:db8:1::", 48), "2001:db8:1::/48");
    EXPECT_EQ(textOf("2001:db8:1::", 0), "2001:db8:1::/0");
    const std::string longest = "ffff:eeee:dddd:cccc:bbbb:aaaa:9999:8888";
    EXPECT_EQ(textOf(longest, 4294967295), longest + "/4294967295");
    EXPECT_EQ(textOf(longest, 255), longest + "/255");
}

TEST_F(AgingTest, ThePlatformWritesTheAddress) {
    recordingShowQuiet(true);
    textOf("2001:db8::1", 128);
    EXPECT_EQ(recordingTake(), Lines{"vosInetNtop family=10 limit=47"});
}

TEST_F(AgingTest, WithoutAnAddressTextTheSuffixStands) {
    recordingFailAlways("vosInetNtop");
    EXPECT_EQ(textOf("2001:db8::1", 128), "");
    EXPECT_EQ(textOf("2001:db8::1", 48), "/48");
}

} // namespace
