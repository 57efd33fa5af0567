// Interfaces that come, go, and are spoken of in messages that are cut.

#include "platform/linux/links.h"

#include <cstring>
#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <memory>
#include <sys/socket.h>

#include "linux_interfaces.h"
#include "platform/libvlan.h"
#include "platform/linux/ports.h"
#include "platform/linux/strangers.h"
#include "platform/linux/vlans.h"

class LinuxLinks : public LinuxInterfaces {};

TEST_F(LinuxLinks, LeavesOutPortsThatDoNotForward) {
    tellState(P2, "p2", BR_STATE_LEARNING, {});
    EXPECT_EQ(members(1), 0x80u);
    EXPECT_FALSE(linuxPortReceives(1));
    tellState(P2, "p2", BR_STATE_FORWARDING, {});
    EXPECT_EQ(members(1), 0xC0u);
    tellInterface(P2, "p2", 0); // left the bridge
    EXPECT_EQ(members(1), 0x80u);
    tellGone(P1, "p1");
    EXPECT_EQ(members(1), 0u);
    EXPECT_EQ(linuxLinks[0].ifindex, 0u);
    tellInterface(P1 + 50, "p1", BRIDGE); // came back under another number
    EXPECT_EQ(members(1), 0x80u);
}

// What a port is follows from the interface, not from its name, for as long as the interface is in the bridge.
TEST_F(LinuxLinks, ARenamedInterfaceStaysThePort) {
    tellInterface(P1, "other", BRIDGE);
    EXPECT_EQ(linuxLinks[0].ifindex, P1);
    EXPECT_STREQ(linuxLinks[0].name, "other");
    EXPECT_EQ(members(1), 0xC0u);
    tellInterface(P1, "p1", BRIDGE);
    EXPECT_STREQ(linuxLinks[0].name, "p1");
    tellInterface(P1, "other", BRIDGE);
    tellInterface(P3, "p1", BRIDGE); // has the port's name, and is not the port
    EXPECT_EQ(linuxLinks[0].ifindex, P1);
    EXPECT_EQ(linuxLinkByIfindex(P3), LINUX_NO_LINK);
    tellInterface(P1, "other", 0); // left the bridge
    EXPECT_EQ(linuxLinks[0].ifindex, 0u);
    EXPECT_STREQ(linuxLinks[0].name, "p1");
    tellInterface(P1, "other", BRIDGE); // came back, and is nobody
    EXPECT_EQ(linuxLinkByIfindex(P1), LINUX_NO_LINK);
    tellInterface(P3, "p1", BRIDGE);
    EXPECT_EQ(linuxLinks[0].ifindex, P3);
}

TEST_F(LinuxLinks, TwoPortsThatSwapTheirNamesStayWhatTheyAre) {
    tellInterface(P1, "p2", BRIDGE); // as a full reading lists them
    tellInterface(P2, "p1", BRIDGE);
    EXPECT_EQ(linuxLinks[0].ifindex, P1);
    EXPECT_EQ(linuxLinks[1].ifindex, P2);
    tellGone(P2, "p1");
    EXPECT_EQ(linuxLinks[1].ifindex, 0u);
    EXPECT_STREQ(linuxLinks[1].name, "p2");
    EXPECT_EQ(linuxLinks[0].ifindex, P1); // has the name that port 2 waits for
    tellInterface(P1, "p2", 0);
    EXPECT_EQ(linuxLinks[0].ifindex, 0u);
}

// The old one was deleted, and nobody said so.
TEST_F(LinuxLinks, AnotherInterfaceUnderTheNewNameIsNotThePort) {
    tellInterface(P1, "other", BRIDGE);
    tellInterface(P3, "other", BRIDGE);
    EXPECT_EQ(linuxLinks[0].ifindex, 0u);
    EXPECT_STREQ(linuxLinks[0].name, "p1");
    EXPECT_EQ(linuxLinkByIfindex(P3), LINUX_NO_LINK);
}

TEST_F(LinuxLinks, AMemberOfABondIsFollowedWhileTheBondIsInTheBridge) {
    tellInterface(BOND, "bond5", BRIDGE);
    tellInterface(P1, "p1", BOND);
    tellInterface(P1, "other", BOND);
    EXPECT_EQ(linuxBridgeLink(0), LINUX_LINK_BOND0);
    tellInterface(BOND, "bond5", 0);
    EXPECT_EQ(linuxLinks[0].ifindex, 0u);
    tellGone(BOND, "bond5");
}

TEST_F(LinuxLinks, TheBridgeIsFollowedToo) {
    LinkMessage message{};
    startLink(&message, RTM_NEWLINK, AF_UNSPEC, BRIDGE, "cellar");
    linuxLinksApply(message.header, nullptr);
    EXPECT_EQ(linuxLinks[LINUX_LINK_BRIDGE].ifindex, BRIDGE);
    EXPECT_EQ(members(1), 0xC0u);
    tellGone(BRIDGE, "cellar");
    EXPECT_STREQ(linuxLinks[LINUX_LINK_BRIDGE].name, "br0");
}

// The names of the strangers that the status lists.
static std::string strangers() {
    std::string names;
    for (uint32_t place = 0; place < LINUX_STRANGERS_MAX; place++) {
        const LinuxStranger *stranger = linuxStrangerAt(place);
        names += stranger != nullptr ? std::string(stranger->name) + " " : "";
    }
    return names;
}

TEST_F(LinuxLinks, StrangersAreListedByTheNameThatTheyHave) {
    linuxStrangersKeep(UINT32_MAX); // those of other tests are forgotten
    testing::internal::CaptureStderr();
    EXPECT_EQ(strangers(), "");
    tellInterface(P3 + 20, "uplink", BRIDGE);
    tellInterface(P3 + 21, "spare", BRIDGE);
    EXPECT_EQ(strangers(), "uplink spare ");
    tellInterface(P3 + 20, "cellar", BRIDGE);
    EXPECT_EQ(strangers(), "cellar spare ");
    tellInterface(P3 + 20, "cellar", 0);
    EXPECT_EQ(strangers(), "spare ");
    tellGone(P3 + 20, "cellar");
    tellGone(P3 + 21, "spare");
    EXPECT_EQ(strangers(), "");
    testing::internal::GetCapturedStderr();
}

TEST_F(LinuxLinks, AStrangerInTheBridgeIsNamedOnce) {
    testing::internal::CaptureStderr();
    tellInterface(P3 + 20, "uplink", BRIDGE);
    tellInterface(P3 + 20, "uplink", BRIDGE);
    tellInterface(P3 + 20, "uplink", 0);
    tellInterface(P3 + 20, "uplink", BRIDGE);
    const std::string line = "snoopd6: interface uplink is in bridge br0 and is no port of the switch file: it is neither "
                             "snooped nor guarded\n";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), line + line);
    tellGone(P3 + 20, "uplink");
}

// Wireless drivers say that something happened; what such a message does not describe has not gone.
TEST_F(LinuxLinks, AMessageThatIsOnlyAnEventChangesNothing) {
    LinkMessage message{};
    startLink(&message, RTM_NEWLINK, AF_UNSPEC, P1, "p1");
    mnl_attr_put_u32(message.header, IFLA_WIRELESS, 0);
    linuxLinksApply(message.header, nullptr);
    EXPECT_EQ(linuxLinks[0].master, BRIDGE);
    EXPECT_EQ(members(1), 0xC0u);
}

// A network card with a switch inside is asked for its VLANs in the same way as a bridge, and answers with its mode.
TEST_F(LinuxLinks, TheSwitchInsideANetworkCardIsNotTheBridge) {
    filterVlans();
    LinkMessage message{};
    startLink(&message, RTM_NEWLINK, AF_BRIDGE, P1, "p1");
    nlattr *nest = mnl_attr_nest_start(message.header, IFLA_AF_SPEC);
    mnl_attr_put_u16(message.header, IFLA_BRIDGE_FLAGS, BRIDGE_FLAGS_SELF);
    mnl_attr_put_u16(message.header, IFLA_BRIDGE_MODE, BRIDGE_MODE_VEB);
    mnl_attr_nest_end(message.header, nest);
    linuxLinksApply(message.header, nullptr);
    EXPECT_EQ(members(10), 0x80u);
    EXPECT_EQ(linuxVlanNative(0), 10);
}

TEST_F(LinuxLinks, APortThatTheBridgeLetsGoOfIsInNoVlan) {
    filterVlans();
    LinkMessage message{};
    startLink(&message, RTM_DELLINK, AF_BRIDGE, P1, "p1");
    linuxLinksApply(message.header, nullptr);
    EXPECT_EQ(linuxVlanNative(0), 0);
    EXPECT_EQ(vlan_exist(10), 0);
    EXPECT_FALSE(linuxPortReceives(0));
    EXPECT_EQ(linuxLinks[0].ifindex, P1); // the interface itself is still there
}

static void tellCut(LinkMessage *message) {
    const uint32_t whole = message->header->nlmsg_len;
    for (uint32_t length = NLMSG_HDRLEN; length <= whole; length++) {
        std::unique_ptr<uint8_t[]> exact(new uint8_t[length]);
        message->header->nlmsg_len = length;
        memcpy(exact.get(), message->bytes.data(), length);
        linuxLinksApply(reinterpret_cast<const nlmsghdr *>(exact.get()), nullptr);
    }
}

// Messages that are cut, or whose attributes lie about their length, change nothing outside the table and end.
TEST_F(LinuxLinks, ReadsNoMessageBehindItsEnd) {
    LinkMessage message{};
    startLink(&message, RTM_NEWLINK, AF_BRIDGE, P1, "p1");
    nlattr *nest = mnl_attr_nest_start(message.header, IFLA_AF_SPEC);
    bridge_vlan_info entry = {.flags = 0, .vid = 0xFFFF};
    mnl_attr_put(message.header, IFLA_BRIDGE_VLAN_INFO, sizeof entry, &entry);
    mnl_attr_nest_end(message.header, nest);
    tellCut(&message);
    startVlan(&message, RTM_NEWVLAN, P1, 10, 0xFFFF, BR_STATE_BLOCKING);
    tellCut(&message);
    EXPECT_EQ(linuxLinks[0].ifindex, P1);
    EXPECT_FALSE(linuxVlanExists(0xFFFF));
}
