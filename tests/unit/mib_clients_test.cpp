// Client table of the MIB.

#include "tests/unit/mib.h"

#include <cstring>

namespace {

struct MibClientsTest : MibTest {};

constexpr uint32_t FIRST = MIB_CLIENT_MAC, LAST = MIB_CLIENT_LEASE_TIME;

std::string get(uint32_t object, const std::string &mac = M1) { return mibGet(object, macIndex(mac)); }

// A client with leases 2001:db8::1 to ::count, of 1 to count seconds.
void clientWith(uint32_t count, const std::string &mac = M1) {
    Dhcp6SnoopingNode *client = addAckedClient(mac, 10, 3);
    for (uint32_t lease = 1; lease <= count; lease++)
        addLease(client, "2001:db8::" + std::to_string(lease), 128, lease);
}

std::string arcsText(const std::string &mac) {
    std::string text;
    for (const uint32_t arc : macIndex(mac))
        text += (text.empty() ? "" : ".") + std::to_string(arc);
    return text;
}

TEST_F(MibClientsTest, ValuesOfAClient) {
    Dhcp6SnoopingNode *client = addAckedClient(M1, 20, 3);
    addLease(client, "2001:db8::1", 128, 90061);
    addLease(client, "2001:db8:1::", 56, 59);
    EXPECT_EQ(get(MIB_CLIENT_MAC), M1);
    EXPECT_EQ(get(MIB_CLIENT_VLAN), "20");
    EXPECT_EQ(get(MIB_CLIENT_PORT), "3");
    EXPECT_EQ(get(MIB_CLIENT_LEASE_NUM), "2");
    EXPECT_EQ(get(MIB_CLIENT_ADDRESSES), "2001:db8::1,2001:db8:1::/56");
    EXPECT_EQ(get(MIB_CLIENT_LEASE_TIME), "1d1h1m1s,59s");
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(MibClientsTest, WithoutLeasesTheTextsAreEmpty) {
    addAckedClient(M1, 10, 1);
    EXPECT_EQ(get(MIB_CLIENT_LEASE_NUM), "0");
    EXPECT_EQ(get(MIB_CLIENT_ADDRESSES), "");
    EXPECT_EQ(get(MIB_CLIENT_LEASE_TIME), "");
    EXPECT_EQ(get(MIB_CLIENT_ADDRESSES_2), "no such instance");
}

TEST_F(MibClientsTest, FiveLeasesInTheFirstTextTheRestInTheSecond) {
    clientWith(5, M1);
    clientWith(6, M2);
    clientWith(7, M3);
    const std::string five = "2001:db8::1,2001:db8::2,2001:db8::3,2001:db8::4,2001:db8::5";
    for (const std::string &mac : {M1, M2, M3})
        EXPECT_EQ(get(MIB_CLIENT_ADDRESSES, mac), five);
    EXPECT_EQ(get(MIB_CLIENT_ADDRESSES_2, M1), "no such instance") << "and not an empty text";
    EXPECT_EQ(get(MIB_CLIENT_ADDRESSES_2, M2), "2001:db8::6");
    EXPECT_EQ(get(MIB_CLIENT_ADDRESSES_2, M3), "2001:db8::6,2001:db8::7");
    EXPECT_EQ(get(MIB_CLIENT_LEASE_TIME, M3), "1s,2s,3s,4s,5s,6s,7s");
}

TEST_F(MibClientsTest, AClientWithoutASecondTextIsPassedInAWalk) {
    clientWith(5, M1);
    CcdVariable variable = variableAt(MIB_CLIENT_ADDRESSES_2, {});
    EXPECT_EQ(handle(CCD_GETNEXT, &variable), ccdErrorRequestMap(CCD_GETNEXT));
    EXPECT_EQ(Index(variable.index, variable.index + variable.indexLength), macIndex(M1)) << "the walk has moved on to it";
    clientWith(4, M2);
    variable = variableAt(MIB_CLIENT_ADDRESSES_2, macIndex(M2));
    EXPECT_EQ(handle(CCD_GETNEXT, &variable), ccdErrorNoNextInstance());
    EXPECT_EQ(Index(variable.index, variable.index + variable.indexLength), macIndex(M2)) << "and here there is no next one";
}

TEST_F(MibClientsTest, TenLeasesAtMost) {
    clientWith(12);
    EXPECT_EQ(get(MIB_CLIENT_LEASE_NUM), "10");
    EXPECT_EQ(get(MIB_CLIENT_ADDRESSES_2), "2001:db8::6,2001:db8::7,2001:db8::8,2001:db8::9,2001:db8::10");
    EXPECT_EQ(get(MIB_CLIENT_LEASE_TIME), "1s,2s,3s,4s,5s,6s,7s,8s,9s,10s");
}

TEST_F(MibClientsTest, TheLongestTexts) {
    Dhcp6SnoopingNode *client = addAckedClient(M1, 10, 1);
    const std::string longest = "2001:db80:1111:2222:3333:4444:5555:666";
    std::string expected[2], times;
    for (uint32_t lease = 0; lease < 10; lease++) {
        addLease(client, longest + std::to_string(lease), 0xFFFFFFFF - lease % 2, 0xFFFFFFFF);
        expected[lease / 5] +=
            (lease % 5 == 0 ? "" : ",") + longest + std::to_string(lease) + "/429496729" + (lease % 2 == 0 ? "5" : "4");
        times += lease == 0 ? "49710d6h28m15s" : ",49710d6h28m15s";
    }
    ASSERT_EQ(expected[0].size(), 254u);
    EXPECT_EQ(get(MIB_CLIENT_ADDRESSES), expected[0]);
    EXPECT_EQ(get(MIB_CLIENT_ADDRESSES_2), expected[1]);
    EXPECT_EQ(get(MIB_CLIENT_LEASE_TIME), times);
}

TEST_F(MibClientsTest, AGetFindsUnacknowledgedClientsToo) {
    addClient(M1, 10, 2);
    EXPECT_EQ(get(MIB_CLIENT_PORT), "2");
    for (uint32_t object = FIRST; object <= LAST; object++)
        EXPECT_EQ(mibWalk(object), Lines{}) << "a walk does not";
}

TEST_F(MibClientsTest, AClientThatIsNotThere) {
    for (uint32_t object = FIRST + 1; object <= LAST; object++) {
        EXPECT_EQ(get(object, M1), "result -1");
        EXPECT_EQ(get(object, NO_MAC), "result -1");
    }
    EXPECT_EQ(get(MIB_CLIENT_MAC, M1), M1) << "the address is the index itself";
    EXPECT_EQ(get(MIB_CLIENT_MAC, NO_MAC), NO_MAC);
}

TEST_F(MibClientsTest, AnIndexIsSixOctets) {
    clientWith(6, "01:02:03:04:05:06");
    clientWith(6, "fe:ff:ff:ff:ff:ff");
    for (uint32_t object = FIRST; object <= LAST; object++) {
        SCOPED_TRACE(object);
        EXPECT_NE(mibGet(object, {1, 2, 3, 4, 5, 6}), "no such instance");
        EXPECT_NE(mibGet(object, {254, 255, 255, 255, 255, 255}), "no such instance");
        for (const Index &index :
             {Index{}, Index{1}, Index{1, 2, 3, 4, 5}, Index{1, 2, 3, 4, 5, 6, 0}, Index(32, 1), Index{257, 2, 3, 4, 5, 6},
              Index{1, 2, 3, 4, 5, 256}, Index{1, 2, 3, 4, 5, 256 + 6}, Index{1, 2, 0xFFFFFF03, 4, 5, 6}})
            EXPECT_EQ(mibGet(object, index), "no such instance");
    }
}

// ---- Walks --------------------------------------------------------------------------------------------------------------

TEST_F(MibClientsTest, AWalkInTheOrderOfTheAddresses) {
    for (const char *mac : {"02:00:00:00:00:ff", "00:00:00:00:00:01", "ff:ff:ff:ff:ff:fe", "02:00:00:00:01:00"})
        addLease(addAckedClient(mac, 10, 1), "2001:db8::1", 128, 5);
    addClient("03:00:00:00:00:00", 10, 1);
    const Lines order = {"0.0.0.0.0.1", "2.0.0.0.0.255", "2.0.0.0.1.0", "255.255.255.255.255.254"};
    for (const uint32_t object : {MIB_CLIENT_VLAN, MIB_CLIENT_ADDRESSES}) {
        Lines expected;
        for (const std::string &index : order)
            expected.push_back(index + (object == MIB_CLIENT_VLAN ? " = 10" : " = 2001:db8::1"));
        EXPECT_EQ(mibWalk(object), expected);
    }
}

TEST_F(MibClientsTest, AWalkStartsAnywhere) {
    clientWith(1, "02:00:00:00:00:00");
    clientWith(1, M1);
    clientWith(1, "ff:ff:ff:ff:ff:ff");
    const std::string first = "2.0.0.0.0.0 = 10", second = "2.0.0.0.0.1 = 10", last = "255.255.255.255.255.255 = 10";
    const std::pair<Index, std::string> places[] = {
        {{}, first},
        {{0}, first},
        {{1, 255, 255, 255, 255, 255}, first},
        {{2, 0, 0, 0, 0, 0}, second},
        {{2, 0, 0, 0, 0, 0, 9}, second},
        {Index(32, 1), first},
        {{2, 0, 0, 0, 0, 1}, last},
        {{3}, last},
        {{255, 255, 255, 255, 255, 255}, "no next instance"},
    };
    for (const auto &[index, expected] : places)
        EXPECT_EQ(mibNext(MIB_CLIENT_VLAN, index), expected);
}

TEST_F(MibClientsTest, ArcsThatNoOctetHoldsLeadForward) {
    clientWith(1, "01:00:00:00:00:00");
    clientWith(1, "02:00:00:00:00:05");
    clientWith(1, "02:ff:ff:ff:ff:ff");
    clientWith(1, "03:00:00:00:00:00");
    const std::string end = "2.255.255.255.255.255 = 10", behind = "3.0.0.0.0.0 = 10";
    EXPECT_EQ(mibNext(MIB_CLIENT_VLAN, {2, 255, 0, 0, 0, 0}), end) << "255 is an octet, what follows it counts";
    EXPECT_EQ(mibNext(MIB_CLIENT_VLAN, {2, 0, 0, 0, 0, 256}), end) << "cut to 8 bits it would lead back to ...:05";
    EXPECT_EQ(mibNext(MIB_CLIENT_VLAN, {2, 0, 0, 0, 256, 1}), end);
    EXPECT_EQ(mibNext(MIB_CLIENT_VLAN, {2, 0xFFFFFFFF, 0, 0, 0, 0}), behind);
    EXPECT_EQ(mibNext(MIB_CLIENT_VLAN, {2, 256}), behind) << "what is not given behind it counts as all ones too";
    EXPECT_EQ(mibNext(MIB_CLIENT_VLAN, {256, 0, 0, 0, 0, 0}), "no next instance");
    EXPECT_EQ(mibNext(MIB_CLIENT_VLAN, {2, 0, 0, 0, 0, 4, 256}), "2.0.0.0.0.5 = 10") << "a seventh arc is none of them";
}

TEST_F(MibClientsTest, AFullTableIsWalkedOnceEach) {
    Lines expected;
    for (uint32_t number = 0; number < DHCP6SNOOPING_CLIENTS_MAX; number++) {
        char mac[18];
        snprintf(mac, sizeof mac, "02:00:00:00:%02x:%02x", (number >> 8) & 0xFF, number & 0xFF);
        addAckedClient(mac, 10, 1);
        expected.push_back(arcsText(mac) + " = 1");
    }
    EXPECT_EQ(mibWalk(MIB_CLIENT_PORT), expected);
}

TEST_F(MibClientsTest, ClientsThatComeAndGoDuringAWalk) {
    for (const std::string &mac : {M1, M2, M3})
        clientWith(1, mac);
    CcdVariable variable = variableAt(MIB_CLIENT_MAC, {});
    ASSERT_EQ(handle(CCD_GETNEXT, &variable), 0);
    dhcp6snooping_delete_avlnode(macBytes(M1).data());
    dhcp6snooping_delete_avlnode(macBytes(M2).data());
    clientWith(1, "01:00:00:00:00:00");
    ASSERT_EQ(handle(CCD_GETNEXT, &variable), 0);
    EXPECT_EQ(Bytes(variable.octets, variable.octets + 6), macBytes(M3));
    EXPECT_EQ(handle(CCD_GETNEXT, &variable), ccdErrorNoNextInstance());
}

// ---- Sets ---------------------------------------------------------------------------------------------------------------

TEST_F(MibClientsTest, NothingCanBeSet) {
    clientWith(6);
    for (uint32_t object = FIRST; object <= LAST; object++)
        for (const uint32_t value : {0u, 1u, 0xFFFFFFFFu}) {
            EXPECT_EQ(mibTest(object, macIndex(M1), value), "ok");
            EXPECT_EQ(mibCommit(object, macIndex(M1), value), "ok");
        }
    EXPECT_EQ(get(MIB_CLIENT_LEASE_NUM), "6");
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(MibClientsTest, ObjectsOfOtherGroups) {
    clientWith(1);
    for (const uint32_t object : {uint32_t{MIB_PORT_DOWN_ACTION}, uint32_t{MIB_BIND_INDEX}, uint32_t{MIB_OBJECTS}, 0xFFFFFFFFu})
        for (const uint32_t kind : {1u, 2u}) {
            CcdVariable variable = variableAt(object, kind == CCD_GETNEXT ? Index{} : macIndex(M1));
            EXPECT_EQ(dhcp6snoopingMibClientTableHandler(kind, &variable), ccdErrorNoSuchInstance());
        }
}

} // namespace
