// Deletion of many clients at once, and its cut-off by the clock.

#include "l2/dhcp6snooping/clients/bulk.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "tests/unit/fixture.h"

namespace {

struct BulkTest : SnoopingTest {};

const std::string A = "02:00:00:00:00:01", B = "02:00:00:00:00:02", C = "02:00:00:00:00:03", D = "02:00:00:00:00:04";
const Lines LONG = said("\r\ntoo many ipv6-source-guard filters to release, it's taking long!!");
const Lines STOPPED = said("\r\nhas been releasing ipv6-source-guard filters for 30 seconds, stop process");

// One second per step of a walk: the next record is asked for before each one is handled.
void secondsPerClient(uint32_t seconds) { recordingClockMovesOn("avlSuccessorGet", seconds); }

TEST_F(BulkTest, ByPort) {
    addClient(A, 10, 1);
    addClient(B, 10, 2);
    addClient(C, 20, 1);
    EXPECT_EQ(dhcp6snooping_delete_by_port(1), 0u);
    EXPECT_EQ(tableMacs(), Lines{B});
    EXPECT_EQ(dhcp6snooping_delete_by(DHCP6SNOOPING_DELETE_BY_PORT, 2), 0u);
    EXPECT_EQ(tableMacs(), Lines{});
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(BulkTest, ByVlan) {
    addClient(A, 10, 1);
    addClient(B, 20, 1);
    addClient(C, 10, 2);
    EXPECT_EQ(dhcp6snooping_delete_by_vlan(10), 0u);
    EXPECT_EQ(tableMacs(), Lines{B});
    EXPECT_EQ(dhcp6snooping_delete_by(DHCP6SNOOPING_DELETE_BY_VLAN, 20), 0u);
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(BulkTest, ByMac) {
    addClient(A, 10, 1);
    addClient(B, 10, 1);
    EXPECT_EQ(dhcp6snooping_delete_by_mac(macBytes(B).data()), 0u);
    EXPECT_EQ(tableMacs(), Lines{A});
    EXPECT_EQ(dhcp6snooping_delete_by_mac(macBytes(C).data()), 0u);
    EXPECT_EQ(tableMacs(), Lines{A});
    EXPECT_EQ(dhcp6snooping_delete_by_mac(clientOf(A)->mac), 0u) << "a MAC that lies in the record";
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(BulkTest, All) {
    addClient(A, 10, 1);
    addClient(B, 20, 2);
    EXPECT_EQ(dhcp6snooping_delete_all(), 0u);
    EXPECT_EQ(tableMacs(), Lines{});
    addClient(A, 10, 1);
    EXPECT_EQ(dhcp6snooping_delete_by(DHCP6SNOOPING_DELETE_ALL, 12345), 0u);
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(BulkTest, NumbersAreComparedByTheirLow32Bits) {
    addClient(A, 10, 1);
    dhcp6snooping_delete_by(DHCP6SNOOPING_DELETE_BY_PORT, 0x100000001u);
    EXPECT_EQ(tableMacs(), Lines{});
    addClient(A, 10, 1);
    dhcp6snooping_delete_by(DHCP6SNOOPING_DELETE_BY_VLAN, 0x10000000Au);
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(BulkTest, ByAddressOnlyTheFirstClientIsTouched) {
    for (const std::string &mac : {B, A}) {
        addLease(addAckedClient(mac, 10, 1), "2001:db8::1", 128, 100);
        addLease(clientOf(mac), "2001:db8::2", 128, 100);
    }
    EXPECT_EQ(dhcp6snooping_delete_by_ip(addressBytes("2001:db8::1").data()), 0u);
    EXPECT_EQ(leasesOf(clientOf(A)->leases), Lines{"2001:db8::2/128=100"});
    EXPECT_EQ(clientOf(B)->leases.count, 2u);
    dhcp6snooping_delete_by_ip(addressBytes("2001:db8::2").data());
    EXPECT_EQ(tableMacs(), Lines{B}) << "the last lease takes the client along";
    EXPECT_EQ(dhcp6SnoopingPortIpNum[0], 1);
}

TEST_F(BulkTest, ByAddressThePrefixLengthDoesNotMatter) {
    Dhcp6SnoopingNode *client = addAckedClient(A, 10, 1);
    addLease(client, "2001:db8::", 48, 100);
    addLease(client, "2001:db8::", 56, 200);
    dhcp6snooping_delete_by_ip(addressBytes("2001:db8::").data());
    EXPECT_EQ(leasesOf(client->leases), Lines{"2001:db8::/56=200"}) << "the first in order, and only it";
}

TEST_F(BulkTest, ByAddressAcknowledgedOrNot) {
    addLease(addClient(A, 10, 1), "2001:db8::1", 128, 100);
    dhcp6snooping_delete_by_ip(addressBytes("2001:db8::1").data());
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(BulkTest, ByAddressAllSixteenBytesCount) {
    addLease(addClient(A, 10, 1), "2001:db8::1", 128, 100);
    for (const char *other : {"2001:db8::2", "3001:db8::1", "::"})
        EXPECT_EQ(dhcp6snooping_delete_by_ip(addressBytes(other).data()), 0u);
    EXPECT_EQ(leasesOf(clientOf(A)->leases).size(), 1u);
}

TEST_F(BulkTest, ByAnAddressThatLiesInTheLease) {
    addLease(addClient(A, 10, 1), "2001:db8::1", 128, 100);
    const auto *lease = static_cast<const Dhcp6LeaseAttr *>(clientOf(A)->leases.items[0]);
    EXPECT_EQ(dhcp6snooping_delete_by_ip(lease->address), 0u);
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(BulkTest, UnknownKindsAndNullPointersAreRefusedAtTheFirstClient) {
    for (const uint32_t kind : {5u, 7u, 0xFFFFFFFFu})
        EXPECT_EQ(dhcp6snooping_delete_by(kind, 1), 0u) << "an empty table";
    EXPECT_EQ(dhcp6snooping_delete_by_ip(nullptr), 0u);
    EXPECT_EQ(dhcp6snooping_delete_by_mac(nullptr), 0u);
    addClient(A, 10, 1);
    for (const uint32_t kind : {5u, 7u, 0xFFFFFFFFu})
        EXPECT_EQ(dhcp6snooping_delete_by(kind, 1), 0xFFFFFFFFu);
    EXPECT_EQ(dhcp6snooping_delete_by_ip(nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(dhcp6snooping_delete_by_mac(nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(tableMacs(), Lines{A});
}

TEST_F(BulkTest, NineSecondsAreNotLong) {
    addClient(A, 10, 1);
    secondsPerClient(9);
    dhcp6snooping_delete_all();
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(BulkTest, TheTimeBeginsBeforeTheFirstClientIsLookedFor) {
    addClient(A, 10, 1);
    recordingClockMovesOn("avlMinimumGet", 10);
    dhcp6snooping_delete_all();
    EXPECT_EQ(recordingTake(), LONG);
}

TEST_F(BulkTest, MoreThanNineSecondsAreSaidAfterEveryClient) {
    for (const std::string &mac : {A, B, C})
        addClient(mac, 10, 1);
    secondsPerClient(9); // 9, 18, 27
    dhcp6snooping_delete_all();
    EXPECT_EQ(recordingTake(), joined({LONG, LONG}));
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(BulkTest, MoreThan29SecondsEndIt) {
    for (const std::string &mac : {A, B, C, D})
        addClient(mac, 10, 1);
    secondsPerClient(10); // 10, 20, 30
    EXPECT_EQ(dhcp6snooping_delete_all(), 0u);
    EXPECT_EQ(recordingTake(), joined({LONG, LONG, LONG, STOPPED}));
    EXPECT_EQ(tableMacs(), Lines{D}) << "what is left stays";
}

TEST_F(BulkTest, TwentyNineSecondsDoNotEndIt) {
    addClient(A, 10, 1);
    addClient(B, 10, 1);
    secondsPerClient(29);
    dhcp6snooping_delete_by_vlan(10);
    EXPECT_EQ(recordingTake(), joined({LONG, LONG, STOPPED}));
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(BulkTest, SkippedClientsAreNotTimed) {
    addClient(A, 10, 2);
    addClient(B, 10, 2);
    addClient(C, 10, 1);
    addClient(D, 10, 1);
    secondsPerClient(40);
    for (const uint32_t kind : {DHCP6SNOOPING_DELETE_BY_PORT, DHCP6SNOOPING_DELETE_BY_VLAN})
        dhcp6snooping_delete_by(kind, 99);
    dhcp6snooping_delete_by_mac(macBytes(CLIENT).data());
    EXPECT_EQ(recordingTake(), Lines{});
    dhcp6snooping_delete_by_port(1);
    EXPECT_EQ(recordingTake(), joined({LONG, STOPPED}));
    EXPECT_EQ(tableMacs(), (Lines{A, B, D}));
}

TEST_F(BulkTest, SearchedClientsAreTimed) {
    for (const std::string &mac : {A, B, C})
        addLease(addClient(mac, 10, 1), mac == C ? "2001:db8::1" : "2001:db8::2", 128, 100);
    secondsPerClient(20);
    EXPECT_EQ(dhcp6snooping_delete_by_ip(addressBytes("2001:db8::1").data()), 0u);
    EXPECT_EQ(recordingTake(), joined({LONG, LONG, STOPPED}));
    EXPECT_EQ(clientOf(C)->leases.count, 1u) << "cut off before it was reached";
    secondsPerClient(40);
    dhcp6snooping_delete_by_ip(addressBytes("2001:db8::2").data());
    EXPECT_EQ(recordingTake(), Lines{}) << "a hit returns at once";
    EXPECT_EQ(tableMacs(), (Lines{B, C}));
}

// When the clock reads less than at the start, both taken as signed, one second is taken off.
TEST_F(BulkTest, AClockThatPassesTheSignedLimitLosesASecond) {
    const struct {
        uint32_t start, seconds;
        Lines lines;
    } cases[] = {{0x7FFFFFFF, 10, {}},
                 {0x7FFFFFFF, 11, LONG},
                 {0x7FFFFFFF, 30, LONG},
                 {0x7FFFFFFF, 31, joined({LONG, STOPPED})},
                 {0xFFFFFFFF, 9, {}},
                 {0xFFFFFFFF, 10, LONG}, // -1 to 9: not less
                 {0x80000000, 30, joined({LONG, STOPPED})},
                 {1000, static_cast<uint32_t>(-20), {}}};
    for (const auto &one : cases) {
        addClient(A, 10, 1);
        recordingClock = one.start;
        secondsPerClient(one.seconds);
        dhcp6snooping_delete_all();
        EXPECT_EQ(recordingTake(), one.lines) << one.start << " " << one.seconds;
    }
}

TEST_F(BulkTest, ARecordThatTheTreeKeepsDoesNotStopTheWalk) {
    addClient(A, 10, 1);
    addClient(B, 10, 1);
    recordingFailFunction("avlDelete", 1);
    EXPECT_EQ(dhcp6snooping_delete_all(), 0u);
    EXPECT_EQ(tableMacs(), Lines{A});
}

} // namespace
