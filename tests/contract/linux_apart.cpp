// Ports that the bridge keeps apart: isolated ones from each other, a locked one from stations that the bridge does not know
// behind it.

#include <array>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sched.h>
#include <sys/socket.h>

#include "linux_delivery.h"
#include "platform/linux/links.h"
#include "platform/linux/maccache.h"
#include "platform/linux/mactable.h"
#include "platform/linux/netlink.h"
#include "platform/linux/ports.h"
#include "platform/linux/send.h"

namespace {

constexpr std::array<uint8_t, 6> STATION = {2, 0, 0, 0, 0, 1}; // that solicit() is from

// A port's flag, told by the bridge or as part of the whole interface.
void tellFlag(uint32_t ifindex, const char *name, uint8_t family, uint16_t flag, uint8_t value) {
    LinkMessage message{};
    startLink(&message, RTM_NEWLINK, family, ifindex, name);
    mnl_attr_put_u32(message.header, IFLA_MASTER, BRIDGE);
    nlattr *outer = nullptr;
    if (family != AF_BRIDGE) {
        outer = mnl_attr_nest_start(message.header, IFLA_LINKINFO);
        mnl_attr_put_strz(message.header, IFLA_INFO_SLAVE_KIND, "bridge");
    }
    nlattr *port =
        mnl_attr_nest_start(message.header, family == AF_BRIDGE ? uint16_t{IFLA_PROTINFO} : uint16_t{IFLA_INFO_SLAVE_DATA});
    mnl_attr_put_u8(message.header, IFLA_BRPORT_STATE, BR_STATE_FORWARDING);
    mnl_attr_put_u8(message.header, flag, value);
    mnl_attr_nest_end(message.header, port);
    if (outer != nullptr) {
        mnl_attr_nest_end(message.header, outer);
    }
    linuxLinksApply(message.header, nullptr);
}

class LinuxApart : public LinuxDelivery {
  protected:
    // The kernel that is asked knows no station.
    static void SetUpTestSuite() {
        ASSERT_EQ(unshare(CLONE_NEWNET), 0);
        ASSERT_EQ(linuxNetlinkOpen(), 0);
        linuxMacCacheOpen();
    }
    void SetUp() override {
        LinuxDelivery::SetUp();
        linuxMacCacheForget();
    }
    // How many frames were delivered, and how many dropped for the port's state.
    static std::array<uint64_t, 2> counts(uint32_t port0 = 0) { return {got.count, linuxCounters[port0].dropState}; }
};

using Counts = std::array<uint64_t, 2>;

TEST_F(LinuxApart, FramesFromAnIsolatedPortAreMarked) {
    deliver(solicit());
    EXPECT_EQ(got.ctl.platform[LINUX_CTL_ISOLATED], 0u);
    for (const uint8_t family : {uint8_t{AF_BRIDGE}, uint8_t{AF_UNSPEC}}) {
        tellFlag(P1, "p1", family, IFLA_BRPORT_ISOLATED, 1);
        deliver(solicit());
        EXPECT_EQ(got.ctl.platform[LINUX_CTL_ISOLATED], 1u);
        EXPECT_EQ(got.ctl.platform[LINUX_CTL_TAG], 1u);
        deliver(solicit(), 0, 0, 0, 1); // port 2 is not
        EXPECT_EQ(got.ctl.platform[LINUX_CTL_ISOLATED], 0u);
        tellFlag(P1, "p1", family, IFLA_BRPORT_ISOLATED, 0);
        deliver(solicit());
        EXPECT_EQ(got.ctl.platform[LINUX_CTL_ISOLATED], 0u);
    }
}

TEST_F(LinuxApart, ALockedPortTakesFramesOfKnownStationsOnly) {
    tellFlag(P1, "p1", AF_BRIDGE, IFLA_BRPORT_LOCKED, 1);
    deliver(solicit());
    EXPECT_EQ(counts(), (Counts{0, 1})); // nobody knows it
    linuxMacCacheKeep(STATION.data(), 0, {.port = 2, .trunk = LINUX_NO_TRUNK});
    deliver(solicit());
    EXPECT_EQ(counts(), (Counts{0, 2})); // known, behind another port
    linuxMacCacheKeep(STATION.data(), 0, {.port = 1, .trunk = 5});
    deliver(solicit());
    EXPECT_EQ(counts(), (Counts{0, 3})); // known behind a trunk that this port is no member of
    linuxMacCacheKeep(STATION.data(), 0, {.port = 1, .trunk = LINUX_NO_TRUNK});
    deliver(solicit());
    EXPECT_EQ(counts(), (Counts{1, 3}));
    tellFlag(P1, "p1", AF_UNSPEC, IFLA_BRPORT_LOCKED, 0);
    linuxMacCacheForget();
    deliver(solicit());
    EXPECT_EQ(counts(), (Counts{2, 3}));
}

TEST_F(LinuxApart, ALockedPortOfABridgeThatFiltersVlansAsksForTheVlan) {
    filterVlans();
    tellFlag(P1, "p1", AF_UNSPEC, IFLA_BRPORT_LOCKED, 1);
    linuxMacCacheKeep(STATION.data(), 20, {.port = 1, .trunk = LINUX_NO_TRUNK});
    deliver(solicit());
    EXPECT_EQ(counts(), (Counts{0, 1})); // in VLAN 10 it is not known
    deliver(solicit(), TAGGED, 0x8100, 20);
    EXPECT_EQ(counts(), (Counts{1, 1}));
    linuxMacCacheKeep(STATION.data(), 10, {.port = 1, .trunk = LINUX_NO_TRUNK});
    deliver(solicit());
    EXPECT_EQ(counts(), (Counts{2, 1}));
}

TEST_F(LinuxApart, AMemberOfALockedBondIsLocked) {
    tellInterface(BOND, "bond7", BRIDGE);
    tellInterface(P1, "p1", BOND);
    tellInterface(P2, "p2", BOND);
    tellFlag(BOND, "bond7", AF_BRIDGE, IFLA_BRPORT_LOCKED, 1);
    deliver(solicit(), 0, 0, 0, 1);
    EXPECT_EQ(counts(1), (Counts{0, 1}));
    linuxMacCacheKeep(STATION.data(), 0, {.port = 1, .trunk = 7});
    deliver(solicit(), 0, 0, 0, 1); // by either member
    EXPECT_EQ(counts(1), (Counts{1, 1}));
}

TEST_F(LinuxApart, APortThatLeavesTheBridgeIsNeither) {
    tellFlag(P1, "p1", AF_BRIDGE, IFLA_BRPORT_ISOLATED, 1);
    tellFlag(P1, "p1", AF_BRIDGE, IFLA_BRPORT_LOCKED, 1);
    LinkMessage left{};
    startLink(&left, RTM_DELLINK, AF_BRIDGE, P1, "p1");
    linuxLinksApply(left.header, nullptr);
    tellInterface(P1, "p1", BRIDGE);
    deliver(solicit());
    EXPECT_EQ(counts(), (Counts{1, 0}));
    EXPECT_EQ(got.ctl.platform[LINUX_CTL_ISOLATED], 0u);
}

// The kernel marks what a locked port has seen but does not let in.
TEST_F(LinuxApart, AnEntryOfARefusedStationIsTold) {
    LinkMessage message{};
    for (uint32_t flags : {0u, 2u}) {
        message.header = mnl_nlmsg_put_header(message.bytes.data());
        message.header->nlmsg_type = RTM_NEWNEIGH;
        static_cast<ndmsg *>(mnl_nlmsg_put_extra_header(message.header, sizeof(ndmsg)))->ndm_family = AF_BRIDGE;
        mnl_attr_put(message.header, NDA_LLADDR, STATION.size(), STATION.data());
        mnl_attr_put_u32(message.header, NDA_FLAGS_EXT, flags);
        EXPECT_TRUE(linuxMacEntryRead(message.header).found);
        EXPECT_EQ(linuxMacEntryRead(message.header).refused, flags == 2u);
    }
}

} // namespace
