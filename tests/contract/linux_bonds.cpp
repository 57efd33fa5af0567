// Bonds as trunks: their ids, their members, and which of these are heard.

#include <cstdio>
#include <gtest/gtest.h>
#include <linux/if_bonding.h>
#include <string>

#include "linux_interfaces.h"
#include "platform/liblacp.h"
#include "platform/linux/ports.h"

class LinuxBonds : public LinuxInterfaces {};

TEST_F(LinuxBonds, ABondIsATrunk) {
    snprintf(linuxSwitch.trunks[0].interface, sizeof linuxSwitch.trunks[0].interface, "uplink");
    linuxSwitch.trunks[0].id = 7;
    tellInterface(P2, "p2", BOND);
    tellInterface(P3, "p3", BOND, true); // members may be listed before their bond
    tellInterface(BOND, "uplink", BRIDGE);
    uint32_t port0 = 99;
    EXPECT_EQ(lac_get_channel_ag(7, &port0), 0);
    EXPECT_EQ(port0, 1u);
    EXPECT_EQ(lac_get_channel_ag(8, &port0), -1);
    EXPECT_EQ(port0, 0u);
    EXPECT_EQ(lac_channel_get_from_port(1), -1);
    EXPECT_EQ(lac_channel_get_from_port(2), 7);
    EXPECT_EQ(lac_channel_get_from_port(3), 7);
    EXPECT_EQ(lac_channel_get_from_port(0), -1);
    EXPECT_EQ(lac_channel_get_from_port(0xFFFFFFFF), -1);
    EXPECT_EQ(members(1), 0xE0u);
    EXPECT_TRUE(linuxPortReceives(1));
    EXPECT_FALSE(linuxPortReceives(2)); // the bond does not use it now

    SmdPortList all = {.bits = {0xE0}};
    SmdPortList folded;
    EXPECT_EQ(lac_ap_2_ag_hi_hi_excpt_cur(&all, &folded, 0), 0);
    EXPECT_EQ(folded.bits[0], 0xC0);
    EXPECT_EQ(lac_ap_2_ag_hi_hi_excpt_cur(&all, &folded, 2), 0); // came in on the trunk
    EXPECT_EQ(folded.bits[0], 0x80);

    tellGone(BOND, "uplink");
    EXPECT_EQ(lac_channel_get_from_port(2), -1);
    EXPECT_EQ(members(1), 0x80u);
}

TEST_F(LinuxBonds, ABondHasTheNumberOfItsName) {
    tellInterface(BOND, "bond12", BRIDGE);
    tellInterface(P2, "p2", BOND);
    EXPECT_EQ(lac_channel_get_from_port(2), 12);
    tellGone(BOND, "bond12");
    tellInterface(BOND, "bond65534", BRIDGE);
    EXPECT_EQ(lac_channel_get_from_port(2), 65534);
    tellGone(BOND, "bond65534");
    tellInterface(BOND, "bond65535", BRIDGE); // too large for an id
    EXPECT_EQ(lac_channel_get_from_port(2), 65534);
}

// Every bond has an id of its own, whatever its name: the switch file's, its number, or one from the top.
TEST_F(LinuxBonds, ABondWithoutANumberOfItsOwnGetsAFreeOne) {
    snprintf(linuxSwitch.trunks[0].interface, sizeof linuxSwitch.trunks[0].interface, "cellar");
    linuxSwitch.trunks[0].id = 65534;
    tellInterface(BOND, "uplink", BRIDGE);
    tellInterface(BOND_2, "attic", BRIDGE);
    tellInterface(P2, "p2", BOND);
    tellInterface(P3, "p3", BOND_2);
    EXPECT_EQ(lac_channel_get_from_port(2), 65533); // "cellar" may come yet
    EXPECT_EQ(lac_channel_get_from_port(3), 65532);
    tellGone(BOND, "uplink");
    tellInterface(BOND, "up65532", BRIDGE); // a number that another has
    EXPECT_EQ(lac_channel_get_from_port(2), 65533);
    tellGone(BOND, "up65532");
    tellInterface(BOND, "cellar", BRIDGE);
    EXPECT_EQ(lac_channel_get_from_port(2), 65534);
    EXPECT_EQ(lac_channel_get_from_port(3), 65532); // keeps what it got
}

// Which members a bond takes frames from is told by the members or by the bond, depending on its mode.
TEST_F(LinuxBonds, ABondHearsTheMembersThatItUses) {
    tellBond("bond0", BOND_MODE_ACTIVEBACKUP, P2, 0);
    tellInterface(P2, "p2", BOND, true);
    tellInterface(P3, "p3", BOND);
    EXPECT_FALSE(linuxPortReceives(1)); // the members know first
    EXPECT_TRUE(linuxPortReceives(2));
    tellBond("bond0", BOND_MODE_ACTIVEBACKUP, P3, 1); // listens to all
    EXPECT_TRUE(linuxPortReceives(1));
    EXPECT_TRUE(linuxPortReceives(2));
    tellInterface(P2, "p2", BOND);
    for (uint8_t mode : {uint8_t{BOND_MODE_TLB}, uint8_t{BOND_MODE_ALB}}) {
        tellBond("bond0", mode, P3, 0);
        EXPECT_FALSE(linuxPortReceives(1));
        EXPECT_TRUE(linuxPortReceives(2));
        tellBond("bond0", mode, 0, 0); // none yet
        EXPECT_TRUE(linuxPortReceives(1));
        EXPECT_TRUE(linuxPortReceives(2));
    }
    tellBond("bond0", BOND_MODE_TLB, P3, 0);
    tellBond("bond0", BOND_MODE_ROUNDROBIN, 0, 0);
    EXPECT_TRUE(linuxPortReceives(1));
    EXPECT_TRUE(linuxPortReceives(2));
}

// It is told of once more whenever something about it changes, and takes a place that has become free.
TEST_F(LinuxBonds, ABondBeyondTheRoomIsNoTrunk) {
    for (uint32_t b = 0; b <= LINUX_BONDS_MAX; b++) {
        tellInterface(BOND + b, ("bond" + std::to_string(b)).c_str(), BRIDGE);
    }
    tellInterface(P1, "p1", BOND + LINUX_BONDS_MAX - 1);
    tellInterface(P2, "p2", BOND + LINUX_BONDS_MAX);
    EXPECT_EQ(lac_channel_get_from_port(1), 27);
    EXPECT_EQ(lac_channel_get_from_port(2), -1);
    EXPECT_EQ(linuxBridgeLink(1), LINUX_NO_LINK);
    EXPECT_EQ(members(1), 0x80u);
    tellGone(BOND, "bond0");
    EXPECT_EQ(lac_channel_get_from_port(2), -1);
    tellInterface(BOND + LINUX_BONDS_MAX, "bond28", BRIDGE);
    EXPECT_EQ(lac_channel_get_from_port(2), 28);
    EXPECT_EQ(members(1), 0xC0u);
}
