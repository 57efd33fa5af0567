// The VLANs of the ports: what the bridge says of them, and what becomes of frames by them.

#include "platform/linux/vlans.h"

#include <gtest/gtest.h>
#include <linux/if_bridge.h>
#include <linux/rtnetlink.h>

#include "linux_delivery.h"
#include "platform/libvlan.h"
#include "platform/linux/ports.h"

class LinuxVlans : public LinuxDelivery {};

TEST_F(LinuxVlans, ATransparentBridgeHasEveryPortInEveryVlan) {
    EXPECT_EQ(members(1), 0xC0u);
    EXPECT_EQ(members(77), 0xC0u);
    EXPECT_EQ(vlan_exist(1), 1);
    EXPECT_EQ(vlan_exist(10), 1);
    EXPECT_EQ(vlan_exist(77), 0);
    EXPECT_EQ(vlan_exist(0), 0);
    EXPECT_EQ(vlan_exist(4095), 0);
    EXPECT_EQ(vlan_exist(0xFFFFFFFF), 0);
}

TEST_F(LinuxVlans, AFilteringBridgeHasItsDatabase) {
    filterVlans();
    tellState(P2, "p2", BR_STATE_FORWARDING, {{BRIDGE_VLAN_INFO_UNTAGGED, 25}});
    EXPECT_EQ(members(10), 0x80u);
    EXPECT_EQ(members(20), 0x80u);
    EXPECT_EQ(members(29), 0x80u);
    EXPECT_EQ(members(25), 0xC0u);
    EXPECT_EQ(members(30), 0u);
    EXPECT_EQ(members(19), 0u);
    EXPECT_EQ(vlan_exist(25), 1);
    EXPECT_EQ(vlan_exist(1), 0);
    EXPECT_EQ(linuxVlanNative(0), 10);
    EXPECT_EQ(linuxVlanNative(1), 0);
    EXPECT_FALSE(linuxVlanUntagged(0, 25));
    EXPECT_TRUE(linuxVlanUntagged(1, 25));
    tellState(P1, "p1", BR_STATE_FORWARDING, {{0, 30}}); // a new list replaces the old one
    EXPECT_EQ(members(10), 0u);
    EXPECT_EQ(members(30), 0x80u);
}

TEST_F(LinuxVlans, APortOfAnotherBridgeCountsForNothing) {
    filterVlans();
    tellInterface(P2, "p2", BRIDGE + 99);
    tellState(P2, "p2", BR_STATE_FORWARDING, {{0, 77}});
    EXPECT_EQ(vlan_exist(77), 0);
    EXPECT_EQ(members(77), 0u);
    tellState(BRIDGE, "br0", BR_STATE_FORWARDING, {{0, 78}});
    EXPECT_EQ(vlan_exist(78), 1);
}

TEST_F(LinuxVlans, AVlanThatIsBlockedOnAPortIsClosedThereOnly) {
    filterVlans();
    tellState(P2, "p2", BR_STATE_FORWARDING, {{0, 10}, {0, 20}});
    tellVlan(RTM_NEWVLAN, P1, 19, 21, BR_STATE_BLOCKING);
    EXPECT_EQ(members(20), 0x40u);
    EXPECT_EQ(members(21), 0u);
    EXPECT_EQ(members(22), 0x80u);
    EXPECT_TRUE(linuxVlanMember(0, 20));
    EXPECT_EQ(vlan_exist(21), 1);
    deliver(solicit(), TAGGED, 0x8100, 20);
    EXPECT_EQ(got.count, 0u);
    EXPECT_EQ(linuxCounters[0].dropState, 1u);
    deliver(solicit(), TAGGED, 0x8100, 22);
    EXPECT_EQ(got.count, 1u);
    tellVlan(RTM_NEWVLAN, P1, 20, 0, BR_STATE_FORWARDING);
    EXPECT_EQ(members(20), 0xC0u);
    EXPECT_EQ(members(21), 0u);
    tellVlan(RTM_DELVLAN, P1, 21, 0, BR_STATE_DISABLED);
    EXPECT_EQ(members(21), 0x80u);
    tellVlan(RTM_NEWVLAN, P1, 10, 0, BR_STATE_LEARNING);
    deliver(solicit()); // the native VLAN
    EXPECT_EQ(linuxCounters[0].dropState, 2u);
    tellBridge(0); // nobody's business on a transparent bridge
    deliver(solicit());
    EXPECT_EQ(got.count, 2u);
    tellBridge(1);
    tellGone(P1, "p1");
    tellInterface(P1 + 50, "p1", BRIDGE);
    tellState(P1 + 50, "p1", BR_STATE_FORWARDING, {{0, 10}});
    EXPECT_EQ(members(10), 0xC0u);
    for (uint32_t ifindex : {0u, P1, 0xFFFFFFFFu}) {
        tellVlan(RTM_NEWVLAN, ifindex, 10, 0xFFFF, BR_STATE_BLOCKING); // nobody's
    }
    EXPECT_EQ(members(10), 0xC0u);
    tellVlan(RTM_NEWVLAN, P2, 4094, 0xFFFF, BR_STATE_BLOCKING);
    EXPECT_EQ(members(10), 0xC0u);
}

TEST_F(LinuxVlans, FollowsTheVlansOfAFilteringBridge) {
    filterVlans();
    deliver(solicit());
    EXPECT_EQ(got.info.vlan, 10u);
    EXPECT_EQ(got.frame, tagged(solicit(), 0x8100, 10));
    deliver(solicit(), TAGGED, 0x8100, 0x6019);
    EXPECT_EQ(got.info.vlan, 25u);
    EXPECT_EQ(got.frame, tagged(solicit(), 0x8100, 0x6019));
    deliver(solicit(), TAGGED, 0x8100, 0xE000); // priority only: it is in the native VLAN, and leaves with that tag
    EXPECT_EQ(got.info.vlan, 10u);
    EXPECT_EQ(got.frame, tagged(solicit(), 0x8100, 0xE00A));
    EXPECT_EQ(got.count, 3u);
    deliver(solicit(), TAGGED, 0x8100, 30);
    EXPECT_EQ(got.count, 3u);
    EXPECT_EQ(linuxCounters[0].dropVlan, 1u);
}

TEST_F(LinuxVlans, TakesAForeignTagForPayloadOnAFilteringBridge) {
    filterVlans();
    deliver(solicit(), TAGGED, 0x88A8, 25);
    EXPECT_EQ(got.info.vlan, 10u);
    EXPECT_EQ(got.frame, tagged(tagged(solicit(), 0x88A8, 25), 0x8100, 10));
    EXPECT_EQ(got.ctl.flags, SMD_CTL_DOUBLE_TAGGED);
    EXPECT_EQ(got.address % 8, SMD_FRAME_ALIGN);
    EXPECT_TRUE(got.zeroTail);
}

TEST_F(LinuxVlans, RefusesFramesWithoutATagWhereThereIsNoNativeVlan) {
    tellBridge(1);
    tellState(P1, "p1", BR_STATE_FORWARDING, {{0, 20}});
    deliver(solicit());
    deliver(solicit(), TAGGED, 0x8100, 0);
    EXPECT_EQ(got.count, 0u);
    EXPECT_EQ(linuxCounters[0].dropVlan, 2u);
    deliver(solicit(), TAGGED, 0x8100, 20);
    EXPECT_EQ(got.count, 1u);
}
