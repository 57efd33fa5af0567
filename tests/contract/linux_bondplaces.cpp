// The places of bonds in the table of interfaces: who gets one, keeps it, and leaves it.

#include <cstdio>
#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <string>
#include <sys/socket.h>

#include "linux_interfaces.h"
#include "platform/liblacp.h"
#include "platform/linux/links.h"
#include "platform/linux/ports.h"

namespace {

constexpr uint32_t FIRST = 200; // interface index of the first bond of many

void tellKind(uint32_t ifindex, const std::string &name, const char *kind) {
    LinkMessage message{};
    startLink(&message, RTM_NEWLINK, AF_UNSPEC, ifindex, name.c_str());
    mnl_attr_put_u32(message.header, IFLA_MASTER, BRIDGE);
    nlattr *info = mnl_attr_nest_start(message.header, IFLA_LINKINFO);
    mnl_attr_put_strz(message.header, IFLA_INFO_KIND, kind);
    mnl_attr_nest_end(message.header, info);
    linuxLinksApply(message.header, nullptr);
}

void tellMany(uint32_t count) {
    for (uint32_t i = 0; i < count; i++) {
        tellKind(FIRST + i, "bond" + std::to_string(i), "bond");
    }
}

class LinuxBondPlaces : public LinuxInterfaces {
  protected:
    void TearDown() override {
        for (uint32_t i = 0; i <= LINUX_BONDS_MAX; i++) { // those that are left out are nobody's business any more
            tellGone(FIRST + i, "");
        }
    }
    static std::string said() { return testing::internal::GetCapturedStderr(); }
};

TEST_F(LinuxBondPlaces, ARenamedBondStaysWhereThereIsNoOtherPlace) {
    tellMany(LINUX_BONDS_MAX);
    tellInterface(P1, "p1", FIRST + 9);
    EXPECT_EQ(lac_channel_get_from_port(1), 9);
    testing::internal::CaptureStderr();
    tellKind(FIRST + 9, "uplink40", "bond");
    EXPECT_EQ(said(), "snoopd6: interface bond9 is called uplink40 now\n");
    EXPECT_EQ(lac_channel_get_from_port(1), 40);
}

// Its old name is not taken by another bond: it is its own.
TEST_F(LinuxBondPlaces, ARenamedBondKeepsTheNumberThatBothNamesHave) {
    tellKind(FIRST, "bond5", "bond");
    tellInterface(P1, "p1", FIRST);
    tellKind(FIRST, "uplink5", "bond");
    EXPECT_EQ(lac_channel_get_from_port(1), 5);
}

TEST_F(LinuxBondPlaces, ABondTooManyIsSaidOnce) {
    tellMany(LINUX_BONDS_MAX);
    testing::internal::CaptureStderr();
    for (uint32_t i = 0; i < 3; i++) {
        tellKind(FIRST + LINUX_BONDS_MAX, "uplink99", "bond");
    }
    EXPECT_EQ(said(),
              "snoopd6: bond uplink99 is one too many: at most 28 are followed\n"
              "snoopd6: interface uplink99 is in bridge br0 and is no port of the switch file: it is neither snooped nor "
              "guarded\n");
    tellInterface(P1, "p1", FIRST + LINUX_BONDS_MAX);
    EXPECT_EQ(lac_channel_get_from_port(1), -1);
    EXPECT_EQ(linuxBridgeLink(0), LINUX_NO_LINK);
}

TEST_F(LinuxBondPlaces, AnotherKindOfInterfaceUnderTheNameOfABondIsNone) {
    tellKind(FIRST, "bond5", "bond");
    tellInterface(P1, "p1", FIRST);
    EXPECT_EQ(linuxTrunkLowest(5), 0u);
    tellKind(FIRST + 1, "bond5", "team"); // that the bond was deleted was not heard
    tellInterface(P1, "p1", FIRST + 1);
    EXPECT_EQ(linuxTrunkLowest(5), LINUX_NO_LINK);
    EXPECT_EQ(linuxBridgeLink(0), LINUX_NO_LINK);
    EXPECT_EQ(linuxLinkByIfindex(FIRST), LINUX_NO_LINK);
}

} // namespace
