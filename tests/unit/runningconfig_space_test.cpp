// The running configuration and the space it is given: to the byte, whatever the space. And who asks for it.

#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/main/Dhcp6Snooping.h"
#include "l2/dhcp6snooping/sourceguard/exemption.h"
#include "tests/unit/runningconfig.h"

namespace {

struct RunningConfigSpaceTest : RunningConfigTest {};

TEST_F(RunningConfigSpaceTest, EverySpace) {
    const Lines pieces = configureEverything();
    const auto whole = static_cast<uint32_t>(expectedOf(pieces, ROOM).text.size());
    for (uint32_t space = 0; space <= whole + 2; space++) {
        ASSERT_EQ(built(space), expectedOf(pieces, space)) << space;
        ASSERT_EQ(built(space, "!!!system\r\n"), expectedOf(pieces, space)) << space;
    }
    EXPECT_EQ(built(whole).result, -1);
    EXPECT_EQ(built(whole + 1), (Built{0, 1, expectedOf(pieces, ROOM).text}));
}

TEST_F(RunningConfigSpaceTest, APieceWantsOneByteMoreThanItHas) {
    dhcp6SnoopingOn = 1; // 17 characters behind 20 of the comment
    EXPECT_EQ(built(38), (Built{0, 1, COMMENT + "dhcpv6-snooping\r\n"}));
    EXPECT_EQ(built(37), (Built{-1, 0, COMMENT}));
    EXPECT_EQ(built(21), (Built{-1, 0xFFFFFFF0, COMMENT})) << "counted down below 0";
    EXPECT_EQ(built(20), (Built{-1, 0, ""})) << "without the comment the line is not tried";
    EXPECT_EQ(built(1), (Built{-1, 0xFFFFFFED, ""}));
}

TEST_F(RunningConfigSpaceTest, TheCommentComesWithEveryAnswer) {
    dhcp6SnoopingOn = 1;
    const std::string once = built(ROOM).text;
    EXPECT_EQ(built(ROOM, once), (Built{0, ROOM - 37, once}));
    recordingIdentity.title = "%s%n%d";
    EXPECT_EQ(built(ROOM).text, "!!!%s%n%d\r\ndhcpv6-snooping\r\n");
    recordingIdentity.title = "";
    EXPECT_EQ(built(ROOM).text, "!!!\r\ndhcpv6-snooping\r\n");
}

TEST_F(RunningConfigSpaceTest, ArgumentsThatAreRefused) {
    dhcp6SnoopingOn = 1;
    char text[64] = "before";
    uint32_t space = 1000;
    EXPECT_EQ(BldRun_dhcp6snooping_cmd(nullptr, &space, 0, 0), -1);
    EXPECT_EQ(BldRun_dhcp6snooping_cmd(text, nullptr, 0, 0), -1);
    EXPECT_EQ(BldRun_dhcp6snooping_cmd(nullptr, nullptr, 0, 0), -1);
    EXPECT_EQ(space, 1000u);
    for (const uint32_t unusable : {0u, 0x80000000u, 0xFFFFFFFFu}) { // a signed number below 1
        space = unusable;
        EXPECT_EQ(BldRun_dhcp6snooping_cmd(text, &space, 0, 0), -1);
        EXPECT_EQ(space, unusable);
    }
    EXPECT_STREQ(text, "before");
    space = INT32_MAX;
    EXPECT_EQ(BldRun_dhcp6snooping_cmd(text, &space, 0, 0), 0);
    EXPECT_EQ(space, static_cast<uint32_t>(INT32_MAX) - 37);
}

TEST_F(RunningConfigSpaceTest, WithoutATitleThereIsNoAnswer) {
    recordingFailAlways("get_str_by_mid");
    EXPECT_EQ(built(100), (Built{-1, 100, ""})) << "though there is nothing to tell";
    dhcp6SnoopingOn = 1;
    EXPECT_EQ(built(100), (Built{-1, 100, ""}));
}

TEST_F(RunningConfigSpaceTest, TheLastTwoArgumentsMeanNothing) {
    dhcp6SnoopingOn = 1;
    char text[64] = "";
    uint32_t space = sizeof text;
    EXPECT_EQ(BldRun_dhcp6snooping_cmd(text, &space, 0xFFFFFFFF, 0xFFFFFFFF), 0);
    EXPECT_EQ(text, COMMENT + "dhcpv6-snooping\r\n");
}

// ---- The largest configuration ------------------------------------------------------------------------------------------

constexpr uint32_t MANY_BINDINGS = 2000;

void configureTheMost() {
    for (uint32_t port0 = 0; port0 < 28; port0++)
        dhcp6SnoopingPortMaxIP[port0] = 1;
    for (uint32_t vlan = 1; vlan <= 4094; vlan++) {
        recordingVlan(vlan, {1});
        dhcp6SnoopingDhcpVlanMaxIP[vlan] = 1;
        no_ip6_source_guard_vlan[vlan] = vlan % 2;
    }
    for (uint32_t i = 0; i < MANY_BINDINGS; i++) {
        Ip6Address address = ip6(A1);
        address.bytes[14] = static_cast<uint8_t>(i >> 8);
        address.bytes[15] = static_cast<uint8_t>(i);
        Bytes mac = macBytes(M1);
        mac[4] = address.bytes[14];
        mac[5] = address.bytes[15];
        ASSERT_EQ(ip6_source_guard_bind_node_add(address, mac.data(), 1 + i % 28, 1), 0);
    }
}

// What is written is not looked at again, and each thing is asked for once: the length of the text is what it costs.
TEST_F(RunningConfigSpaceTest, WhatIsWrittenIsNotReadAgain) {
    configureTheMost();
    const Built expected = built(ROOM);
    ASSERT_EQ(expected.result, 0);
    ASSERT_GT(expected.text.size(), 300000u);
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void *area = mmap(nullptr, ROOM, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(area, MAP_FAILED);
    char *text = static_cast<char *>(area);
    uint32_t space = ROOM;
    size_t closed = 0; // pages that nobody may touch any more; the last one with text stays open
    const auto closeWritten = [&]() {
        for (; closed + page < ROOM - space; closed += page)
            mprotect(text + closed, page, PROT_NONE);
    };
    const uint32_t vlans = recordingCount("vlan_exist");
    const uint32_t ports = recordingCount("transPort2InterfaceDesc");
    const uint32_t addresses = recordingCount("vosInetNtop");
    recordingWhenCalled("transPort2String", closeWritten); // of each binding
    EXPECT_EQ(BldRun_dhcp6snooping_cmd(text, &space, 0, 0), 0);
    recordingWhenCalled("", nullptr);
    EXPECT_EQ(recordingCount("vlan_exist") - vlans, 4094u);
    EXPECT_EQ(recordingCount("transPort2InterfaceDesc") - ports, 28u);
    EXPECT_EQ(recordingCount("vosInetNtop") - addresses, MANY_BINDINGS);
    EXPECT_GT(closed, expected.text.size() - 2 * page);
    mprotect(text, ROOM, PROT_READ | PROT_WRITE);
    EXPECT_EQ(text, expected.text);
    munmap(area, ROOM);
}

// ---- The callback -------------------------------------------------------------------------------------------------------

TEST_F(RunningConfigSpaceTest, TheCallbackWantsItsFlag) {
    dhcp6SnoopingOn = 1;
    char text[64] = "";
    uint32_t space = sizeof text;
    for (const uint32_t flags : {0u, 1u, 0x8000u, 0x20000u, 0xFFFEFFFFu}) {
        EXPECT_EQ(snoopd6BldRun(text, &space, flags, 0), 0);
        EXPECT_EQ(snoopd6BldRun(nullptr, nullptr, flags, 0), 0);
    }
    EXPECT_STREQ(text, "");
    EXPECT_EQ(space, sizeof text);
    for (const uint32_t flags : {0x10000u, 0xFFFFFFFFu}) {
        text[0] = '\0';
        space = sizeof text;
        EXPECT_EQ(snoopd6BldRun(text, &space, flags, 9), 0);
        EXPECT_EQ(text, COMMENT + "dhcpv6-snooping\r\n");
        EXPECT_EQ(space, sizeof text - 37);
    }
    EXPECT_EQ(snoopd6BldRun(nullptr, &space, 0x10000, 0), -1);
    EXPECT_EQ(snoopd6BldRun(text, nullptr, 0x10000, 0), -1);
    space = 1;
    EXPECT_EQ(snoopd6BldRun(text, &space, 0x10000, 0), -1);
    EXPECT_EQ(space, 1u - 20u);
}

} // namespace
