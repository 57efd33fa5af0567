// Port table and VLAN table of the MIB.

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "tests/unit/mib.h"

#include <cstring>

namespace {

struct MibPortsTest : MibTest {};
struct MibVlansTest : MibTest {};

const uint32_t PORT_OBJECTS[] = {MIB_PORT_INDEX, MIB_PORT_TRUST_MODE, MIB_PORT_MAX_NUM, MIB_PORT_SOURCE_GUARD_MODE};
const Index NO_PORT[] = {{}, {0}, {29}, {4095}, {0xFFFFFFFF}, {1, 0}, {1, 1}, Index(32, 1)};

// ---- Ports: get ---------------------------------------------------------------------------------------------------------

TEST_F(MibPortsTest, AWalkOverAllPorts) {
    Lines indexes;
    for (uint32_t port = 1; port <= 28; port++)
        indexes.push_back(std::to_string(port) + " = " + std::to_string(port));
    EXPECT_EQ(mibWalk(MIB_PORT_INDEX), indexes);
    for (const uint32_t object : PORT_OBJECTS) {
        SCOPED_TRACE(object);
        EXPECT_EQ(mibWalk(object).size(), 28u);
        for (uint32_t port = 1; port <= 28; port++)
            EXPECT_EQ(mibNext(object, {port - 1}), std::to_string(port) + " = " + mibGet(object, {port}));
    }
}

TEST_F(MibPortsTest, AWalkEndsWithTheLastPortOfTheDevice) {
    for (const uint32_t last : {24u, 1u, 0u}) {
        gul_max_port_num = last;
        EXPECT_EQ(mibWalk(MIB_PORT_INDEX).size(), last);
        EXPECT_EQ(mibNext(MIB_PORT_INDEX, {last}), "no next instance");
        EXPECT_EQ(mibGet(MIB_PORT_INDEX, {last + 1}), "no such instance");
    }
    gul_max_port_num = 64; // there is room for 28
    EXPECT_EQ(mibWalk(MIB_PORT_TRUST_MODE).size(), 28u);
    EXPECT_EQ(mibGet(MIB_PORT_MAX_NUM, {29}), "no such instance");
    EXPECT_EQ(mibCommit(MIB_PORT_MAX_NUM, {29}, 1), "no such instance");
    gul_max_port_num = 28;
}

TEST_F(MibPortsTest, NextOfOddIndexes) {
    for (const uint32_t object : PORT_OBJECTS) {
        EXPECT_EQ(mibNext(object), "1 = " + mibGet(object, {1}));
        EXPECT_EQ(mibNext(object, {0}), "1 = " + mibGet(object, {1}));
        EXPECT_EQ(mibNext(object, {3, 9, 9}), "4 = " + mibGet(object, {4}));
        EXPECT_EQ(mibNext(object, Index(32, 3)), "4 = " + mibGet(object, {4}));
        for (const Index &index : {Index{28}, Index{28, 0}, Index{29}, Index{0x80000000}, Index{0xFFFFFFFE}, Index{0xFFFFFFFF}})
            EXPECT_EQ(mibNext(object, index), "no next instance");
    }
}

TEST_F(MibPortsTest, ANextPortIsTheLibrarysToFind) {
    recordingShowQuiet(true);
    EXPECT_EQ(mibNext(MIB_PORT_INDEX, {4}), "5 = 5");
    EXPECT_EQ(recordingTake(), Lines{"ccdNextSimpleIndex"});
    recordingFailFunction("ccdNextSimpleIndex", 1);
    EXPECT_EQ(mibNext(MIB_PORT_INDEX, {4}), "no next instance");
}

// Where the library leads is looked at again: here the device loses a port at that very moment.
TEST_F(MibPortsTest, AWalkEndsWhereverTheLibraryLeads) {
    recordingWhenCalled("ccdNextSimpleIndex", []() { gul_max_port_num = 4; });
    for (const uint32_t object : PORT_OBJECTS) {
        gul_max_port_num = 28;
        EXPECT_EQ(mibNext(object, {3}), "4 = " + mibGet(object, {4}));
        gul_max_port_num = 28;
        EXPECT_EQ(mibNext(object, {4}), "no next instance");
    }
    recordingWhenCalled("", nullptr);
    gul_max_port_num = 28;
}

TEST_F(MibPortsTest, PortsThatAreNotThere) {
    for (const uint32_t object : PORT_OBJECTS)
        for (const Index &index : NO_PORT) {
            EXPECT_EQ(mibGet(object, index), "no such instance");
            EXPECT_EQ(mibTest(object, index, 1), "no such instance");
            EXPECT_EQ(mibCommit(object, index, 1), "no such instance");
        }
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(MibPortsTest, ValuesOfAPort) {
    EXPECT_EQ(mibGet(MIB_PORT_TRUST_MODE, {4}), "1");
    EXPECT_EQ(mibGet(MIB_PORT_TRUST_MODE, {5}), "2");
    dhcp6SnoopingTrustPort[4] = 2; // only exactly 1 is trusted
    EXPECT_EQ(mibGet(MIB_PORT_TRUST_MODE, {5}), "2");
    dhcp6SnoopingPortMaxIP[27] = 77;
    EXPECT_EQ(mibGet(MIB_PORT_MAX_NUM, {28}), "77");
    EXPECT_EQ(mibGet(MIB_PORT_MAX_NUM, {27}), "2048");
    guard({28});
    EXPECT_EQ(mibGet(MIB_PORT_SOURCE_GUARD_MODE, {28}), "1");
    EXPECT_EQ(mibGet(MIB_PORT_SOURCE_GUARD_MODE, {27}), "2");
}

// ---- Ports: test and commit -------------------------------------------------------------------------------------------------

TEST_F(MibPortsTest, ModesAreOneOrTwo) {
    for (const uint32_t object : {MIB_PORT_TRUST_MODE, MIB_PORT_SOURCE_GUARD_MODE}) {
        for (const uint32_t value : {1u, 2u})
            EXPECT_EQ(mibTest(object, {1}, value), "ok");
        for (const uint32_t value : {0u, 3u, 257u, 0xFFFFFFFFu})
            EXPECT_EQ(mibTest(object, {1}, value), "wrong value");
        EXPECT_EQ(mibTestLength(object, {1}, 1, 9), "ok") << "only the value counts";
    }
}

TEST_F(MibPortsTest, LimitsEndAt2048) {
    for (const uint32_t value : {0u, 1u, 2048u})
        EXPECT_EQ(mibTest(MIB_PORT_MAX_NUM, {28}, value), "ok");
    for (const uint32_t value : {2049u, 65536u, 0xFFFFFFFFu})
        EXPECT_EQ(mibTest(MIB_PORT_MAX_NUM, {28}, value), "wrong value");
    EXPECT_EQ(dhcp6SnoopingPortMaxIP[27], 2048);
}

TEST_F(MibPortsTest, AWrongValueCountsForMoreThanAWrongPort) {
    for (const Index &index : NO_PORT) {
        EXPECT_EQ(mibTest(MIB_PORT_TRUST_MODE, index, 3), "wrong value");
        EXPECT_EQ(mibTest(MIB_PORT_MAX_NUM, index, 2049), "wrong value");
        EXPECT_EQ(mibTest(MIB_PORT_SOURCE_GUARD_MODE, index, 0), "wrong value");
    }
}

TEST_F(MibPortsTest, TheIndexCannotBeSet) {
    for (const uint32_t value : {0u, 1u, 5000u}) {
        EXPECT_EQ(mibTest(MIB_PORT_INDEX, {1}, value), "ok");
        EXPECT_EQ(mibCommit(MIB_PORT_INDEX, {1}, value), "ok");
    }
    EXPECT_EQ(mibWalk(MIB_PORT_INDEX).size(), 28u);
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(MibPortsTest, TrustIsSet) {
    EXPECT_EQ(mibCommit(MIB_PORT_TRUST_MODE, {2}, 1), "ok");
    EXPECT_EQ(dhcp6SnoopingTrustPort[1], 1u);
    EXPECT_EQ(mibCommit(MIB_PORT_TRUST_MODE, {2}, 2), "ok");
    EXPECT_EQ(dhcp6SnoopingTrustPort[1], 0u);
    for (const uint32_t value : {0u, 3u, 0xFFFFFFFFu}) {
        dhcp6SnoopingTrustPort[1] = 1;
        EXPECT_EQ(mibCommit(MIB_PORT_TRUST_MODE, {2}, value), "ok") << "all but 1 is untrusted";
        EXPECT_EQ(dhcp6SnoopingTrustPort[1], 0u);
    }
    guard({2});
    EXPECT_EQ(mibCommit(MIB_PORT_TRUST_MODE, {2}, 1), "result -1") << "a guarded port cannot be trusted";
    EXPECT_EQ(dhcp6SnoopingTrustPort[1], 0u);
}

TEST_F(MibPortsTest, TheLimitIsSet) {
    EXPECT_EQ(mibCommit(MIB_PORT_MAX_NUM, {28}, 5), "ok");
    EXPECT_EQ(dhcp6SnoopingPortMaxIP[27], 5);
    EXPECT_EQ(mibCommit(MIB_PORT_MAX_NUM, {28}, 2049), "result -1");
    EXPECT_EQ(dhcp6SnoopingPortMaxIP[27], 5);
}

TEST_F(MibPortsTest, TheGuardIsTurnedOnAndOff) {
    EXPECT_EQ(mibCommit(MIB_PORT_SOURCE_GUARD_MODE, {2}, 1), "ok");
    EXPECT_EQ(Ip6SourceGuardPort[1], 0u);
    EXPECT_EQ(recordingCount("FRM_OperatePortDenyAllIp6FilterResource"), 1u);
    EXPECT_EQ(mibCommit(MIB_PORT_SOURCE_GUARD_MODE, {2}, 1), "ok");
    EXPECT_EQ(recordingCount("FRM_OperatePortDenyAllIp6FilterResource"), 1u);
    EXPECT_EQ(mibCommit(MIB_PORT_SOURCE_GUARD_MODE, {2}, 2), "ok");
    EXPECT_EQ(Ip6SourceGuardPort[1], 1u);
    EXPECT_EQ(recordingCount("FRM_OperatePortDenyAllIp6FilterResource"), 2u);
    for (const uint32_t value : {0u, 3u, 0xFFFFFFFFu}) {
        mibCommit(MIB_PORT_SOURCE_GUARD_MODE, {2}, 1);
        EXPECT_EQ(mibCommit(MIB_PORT_SOURCE_GUARD_MODE, {2}, value), "ok") << "all but 1 is off";
        EXPECT_EQ(Ip6SourceGuardPort[1], 1u);
    }
}

TEST_F(MibPortsTest, WhatTheGuardAnswersIsTheResult) {
    EXPECT_EQ(mibCommit(MIB_PORT_SOURCE_GUARD_MODE, {4}, 1), "result -1") << "port 4 is trusted";
    EXPECT_EQ(Ip6SourceGuardPort[3], 1u);
    recordingFilterStatus = -77;
    recordingFailFunction("FRM_OperatePortDenyAllIp6FilterResource", 1);
    EXPECT_EQ(mibCommit(MIB_PORT_SOURCE_GUARD_MODE, {2}, 1), "result -77");
    EXPECT_EQ(Ip6SourceGuardPort[1], 1u);
}

TEST_F(MibPortsTest, ObjectsOfOtherGroups) {
    for (const uint32_t object : {uint32_t{MIB_SNOOPING_ON_OFF}, uint32_t{MIB_VLAN_INDEX}, uint32_t{MIB_OBJECTS}, 0xFFFFFFFFu})
        for (const uint32_t kind : {1u, 2u, 5u, 6u}) {
            CcdVariable variable = variableOf(object, {1}, 1);
            EXPECT_EQ(dhcp6snoopingMibPortTableHandler(kind, &variable), ccdErrorNoSuchInstance());
        }
}

// ---- VLANs --------------------------------------------------------------------------------------------------------------

TEST_F(MibVlansTest, AWalkOverTheVlansThatExist) {
    recordingVlan(4094, {1});
    dhcp6SnoopingDhcpVlanMaxIP[20] = 7;
    EXPECT_EQ(mibWalk(MIB_VLAN_INDEX), (Lines{"1 = 1", "10 = 10", "20 = 20", "4094 = 4094"}));
    EXPECT_EQ(mibWalk(MIB_VLAN_MAX_NUM), (Lines{"1 = 2048", "10 = 2048", "20 = 7", "4094 = 2048"}));
}

TEST_F(MibVlansTest, EveryVlanIsAskedForUntilOneExists) {
    recordingShowQuiet(true);
    EXPECT_EQ(mibNext(MIB_VLAN_INDEX, {7}), "10 = 10");
    EXPECT_EQ(recordingTake(), (Lines{"vlan_exist vlan=8", "vlan_exist vlan=9", "vlan_exist vlan=10"}));
    EXPECT_EQ(mibNext(MIB_VLAN_INDEX, {4092}), "no next instance");
    EXPECT_EQ(recordingTake(), (Lines{"vlan_exist vlan=4093", "vlan_exist vlan=4094"}));
    EXPECT_EQ(mibGet(MIB_VLAN_INDEX, {999}), "999");
    EXPECT_EQ(recordingTake(), Lines{}) << "a get does not ask";
}

TEST_F(MibVlansTest, NextOfOddIndexes) {
    recordingShowQuiet(true);
    EXPECT_EQ(mibNext(MIB_VLAN_INDEX), "1 = 1");
    EXPECT_EQ(recordingTake(), Lines{"vlan_exist vlan=1"}) << "an index without arcs counts as 0";
    for (const Index &index :
         {Index{4094}, Index{4094, 0}, Index{4095}, Index{0x80000000}, Index{0xFFFFFFFE}, Index{0xFFFFFFFF}})
        EXPECT_EQ(mibNext(MIB_VLAN_INDEX, index), "no next instance");
    EXPECT_EQ(recordingTake(), Lines{});
    EXPECT_EQ(mibNext(MIB_VLAN_MAX_NUM, {1, 7, 7}), "10 = 2048");
}

TEST_F(MibVlansTest, GetDoesNotAskWhetherTheVlanExists) {
    dhcp6SnoopingDhcpVlanMaxIP[4094] = 9;
    EXPECT_EQ(mibGet(MIB_VLAN_MAX_NUM, {4094}), "9");
    EXPECT_EQ(mibGet(MIB_VLAN_INDEX, {999}), "999");
    for (const uint32_t object : {MIB_VLAN_INDEX, MIB_VLAN_MAX_NUM})
        for (const Index &index : {Index{}, Index{0}, Index{4095}, Index{4096}, Index{0xFFFFFFFF}, Index{10, 0}, Index(32, 10)})
            EXPECT_EQ(mibGet(object, index), "no such instance");
}

TEST_F(MibVlansTest, TheLimitIsTested) {
    for (const uint32_t value : {0u, 2048u})
        EXPECT_EQ(mibTest(MIB_VLAN_MAX_NUM, {10}, value), "ok");
    for (const uint32_t value : {2049u, 0xFFFFFFFFu})
        EXPECT_EQ(mibTest(MIB_VLAN_MAX_NUM, {10}, value), "wrong value");
    for (const Index &index : {Index{}, Index{0}, Index{999}, Index{4095}, Index{0xFFFFFFFF}, Index{10, 0}})
        for (const uint32_t value : {1u, 2049u})
            EXPECT_EQ(mibTest(MIB_VLAN_MAX_NUM, index, value), "no such instance") << "the VLAN comes first";
    EXPECT_EQ(dhcp6SnoopingDhcpVlanMaxIP[10], 2048);
}

TEST_F(MibVlansTest, TheLimitIsSet) {
    EXPECT_EQ(mibCommit(MIB_VLAN_MAX_NUM, {10}, 5), "ok");
    EXPECT_EQ(dhcp6SnoopingDhcpVlanMaxIP[10], 5);
    EXPECT_EQ(mibCommit(MIB_VLAN_MAX_NUM, {10}, 2049), "result -1");
    EXPECT_EQ(mibCommit(MIB_VLAN_MAX_NUM, {999}, 6), "ok") << "whether the VLAN exists is for the test to say";
    EXPECT_EQ(dhcp6SnoopingDhcpVlanMaxIP[999], 6);
    for (const Index &index : {Index{}, Index{0}, Index{4095}, Index{0xFFFFFFFF}, Index{10, 0}})
        EXPECT_EQ(mibCommit(MIB_VLAN_MAX_NUM, index, 1), "no such instance");
    EXPECT_EQ(dhcp6SnoopingDhcpVlanMaxIP[10], 5);
}

TEST_F(MibVlansTest, TheIndexCannotBeSet) {
    EXPECT_EQ(mibTest(MIB_VLAN_INDEX, {10}, 5000), "ok");
    EXPECT_EQ(mibCommit(MIB_VLAN_INDEX, {10}, 20), "ok");
    for (const Index &index : {Index{}, Index{10, 0}}) {
        EXPECT_EQ(mibTest(MIB_VLAN_INDEX, index, 10), "no such instance");
        EXPECT_EQ(mibCommit(MIB_VLAN_INDEX, index, 10), "no such instance");
    }
}

TEST_F(MibVlansTest, ObjectsOfOtherGroups) {
    for (const uint32_t object : {uint32_t{MIB_SNOOPING_ON_OFF}, uint32_t{MIB_PORT_INDEX}, uint32_t{MIB_OBJECTS}, 0xFFFFFFFFu})
        for (const uint32_t kind : {1u, 2u, 5u, 6u}) {
            CcdVariable variable = variableOf(object, {1}, 1);
            EXPECT_EQ(dhcp6snoopingMibVlanTableHandler(kind, &variable), ccdErrorNoSuchInstance());
        }
}

} // namespace
