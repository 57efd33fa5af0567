// What becomes of one received frame: its tag, its VLAN, its checksum, its counters; and what the bridge's own description of
// its ports makes of it. Netlink messages are built here as the kernel builds them.

#include "platform/linux/deliver.h"

#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_bonding.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/if_packet.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <vector>

#include "platform/liblacp.h"
#include "platform/libvlan.h"
#include "platform/linux/links.h"
#include "platform/linux/ports.h"
#include "platform/linux/send.h"
#include "platform/linux/vlans.h"

using Bytes = std::vector<uint8_t>;

static constexpr std::array<uint16_t, 2> PORTS = {546, 547};
static constexpr uint32_t BRIDGE = 100; // interface indexes
static constexpr uint32_t P1 = 101;
static constexpr uint32_t P2 = 102;
static constexpr uint32_t P3 = 103;
static constexpr uint32_t BOND = 110;
static constexpr uint32_t BOND_2 = 111;

struct Vlan {
    uint16_t flags;
    uint16_t vid;
};

// ---- The kernel's side: messages about interfaces ------------------------------------------------------------------

struct Message {
    alignas(8) std::array<uint8_t, 4096> bytes;
    nlmsghdr *header;
};

static void start(Message *message, uint16_t type, uint8_t family, uint32_t ifindex, const char *name) {
    message->header = mnl_nlmsg_put_header(message->bytes.data());
    message->header->nlmsg_type = type;
    ifinfomsg *info = static_cast<ifinfomsg *>(mnl_nlmsg_put_extra_header(message->header, sizeof(ifinfomsg)));
    info->ifi_family = family;
    info->ifi_index = static_cast<int>(ifindex);
    info->ifi_flags = IFF_UP | IFF_RUNNING;
    mnl_attr_put_strz(message->header, IFLA_IFNAME, name);
}

static void tellInterface(uint32_t ifindex, const char *name, uint32_t master, bool backup = false) {
    Message message{};
    start(&message, RTM_NEWLINK, AF_UNSPEC, ifindex, name);
    if (master != 0) {
        mnl_attr_put_u32(message.header, IFLA_MASTER, master);
    }
    nlattr *info = mnl_attr_nest_start(message.header, IFLA_LINKINFO);
    if (ifindex == BOND || ifindex == BOND_2) {
        mnl_attr_put_strz(message.header, IFLA_INFO_KIND, "bond");
    }
    if (master == BRIDGE) {
        mnl_attr_put_strz(message.header, IFLA_INFO_SLAVE_KIND, "bridge");
        nlattr *data = mnl_attr_nest_start(message.header, IFLA_INFO_SLAVE_DATA);
        mnl_attr_put_u8(message.header, IFLA_BRPORT_STATE, BR_STATE_FORWARDING);
        mnl_attr_nest_end(message.header, data);
    }
    if (master == BOND || master == BOND_2) {
        mnl_attr_put_strz(message.header, IFLA_INFO_SLAVE_KIND, "bond");
        nlattr *data = mnl_attr_nest_start(message.header, IFLA_INFO_SLAVE_DATA);
        mnl_attr_put_u8(message.header, IFLA_BOND_SLAVE_STATE, backup ? 1 : 0);
        mnl_attr_nest_end(message.header, data);
    }
    mnl_attr_nest_end(message.header, info);
    linuxLinksApply(message.header, nullptr);
}

// A bond in the bridge, in its mode, with its active member.
static void tellBond(const char *name, uint8_t mode, uint32_t active, uint8_t hearsAll) {
    Message message{};
    start(&message, RTM_NEWLINK, AF_UNSPEC, BOND, name);
    mnl_attr_put_u32(message.header, IFLA_MASTER, BRIDGE);
    nlattr *info = mnl_attr_nest_start(message.header, IFLA_LINKINFO);
    mnl_attr_put_strz(message.header, IFLA_INFO_KIND, "bond");
    nlattr *data = mnl_attr_nest_start(message.header, IFLA_INFO_DATA);
    mnl_attr_put_u8(message.header, IFLA_BOND_MODE, mode);
    if (active != 0) {
        mnl_attr_put_u32(message.header, IFLA_BOND_ACTIVE_SLAVE, active);
    }
    mnl_attr_put_u8(message.header, IFLA_BOND_ALL_SLAVES_ACTIVE, hearsAll);
    mnl_attr_nest_end(message.header, data);
    mnl_attr_put_strz(message.header, IFLA_INFO_SLAVE_KIND, "bridge");
    nlattr *slave = mnl_attr_nest_start(message.header, IFLA_INFO_SLAVE_DATA);
    mnl_attr_put_u8(message.header, IFLA_BRPORT_STATE, BR_STATE_FORWARDING);
    mnl_attr_nest_end(message.header, slave);
    mnl_attr_nest_end(message.header, info);
    linuxLinksApply(message.header, nullptr);
}

static void tellBridge(uint8_t filtering) {
    Message message{};
    start(&message, RTM_NEWLINK, AF_UNSPEC, BRIDGE, "br0");
    nlattr *info = mnl_attr_nest_start(message.header, IFLA_LINKINFO);
    mnl_attr_put_strz(message.header, IFLA_INFO_KIND, "bridge");
    nlattr *data = mnl_attr_nest_start(message.header, IFLA_INFO_DATA);
    mnl_attr_put_u8(message.header, IFLA_BR_VLAN_FILTERING, filtering);
    mnl_attr_put_u16(message.header, IFLA_BR_VLAN_PROTOCOL, htobe16(0x8100));
    mnl_attr_nest_end(message.header, data);
    mnl_attr_nest_end(message.header, info);
    linuxLinksApply(message.header, nullptr);
}

static void tellState(uint32_t ifindex, const char *name, uint8_t state, const std::vector<Vlan> &vlans) {
    Message message{};
    start(&message, RTM_NEWLINK, AF_BRIDGE, ifindex, name);
    nlattr *proto = mnl_attr_nest_start(message.header, IFLA_PROTINFO);
    mnl_attr_put_u8(message.header, IFLA_BRPORT_STATE, state);
    mnl_attr_nest_end(message.header, proto);
    nlattr *nest = mnl_attr_nest_start(message.header, IFLA_AF_SPEC);
    for (const Vlan &vlan : vlans) {
        bridge_vlan_info entry = {.flags = vlan.flags, .vid = vlan.vid};
        mnl_attr_put(message.header, IFLA_BRIDGE_VLAN_INFO, sizeof entry, &entry);
    }
    mnl_attr_nest_end(message.header, nest);
    linuxLinksApply(message.header, nullptr);
}

static void tellGone(uint32_t ifindex, const char *name) {
    Message message{};
    start(&message, RTM_DELLINK, AF_UNSPEC, ifindex, name);
    linuxLinksApply(message.header, nullptr);
}

// ---- The daemon's side ---------------------------------------------------------------------------------------------

static struct {
    uint32_t count;
    Bytes frame;
    SmdPktRecvInfo info;
    SmdPktCtl ctl;
    uintptr_t address;
    bool zeroTail;
} got;

static int32_t receive(uint8_t *frame, uint32_t length, SmdPktRecvInfo *info, SmdPktCtl *ctl) {
    got.count++;
    got.frame.assign(frame, frame + length);
    got.info = *info;
    got.ctl = *ctl;
    got.address = reinterpret_cast<uintptr_t>(frame);
    got.zeroTail = true;
    for (uint32_t i = 0; i < SMD_FRAME_TAIL; i++) {
        got.zeroTail = got.zeroTail && frame[length + i] == 0;
    }
    return 0;
}

class LinuxDeliver : public testing::Test {
  protected:
    void SetUp() override {
        memset(&linuxSwitch, 0, sizeof linuxSwitch);
        memset(linuxLinks, 0, sizeof linuxLinks);
        memset(linuxCounters, 0, sizeof linuxCounters);
        got = {};
        snprintf(linuxSwitch.bridge, sizeof linuxSwitch.bridge, "br0");
        for (uint32_t p = 0; p < 4; p++) {
            linuxSwitch.ports[p].exists = 1;
            snprintf(linuxSwitch.ports[p].interface, sizeof linuxSwitch.ports[p].interface, "p%u", p + 1);
        }
        linuxSwitch.portMax = 4;
        linuxSwitch.vlans[0] = 0x40; // VLAN 1
        linuxSwitch.vlans[1] = 0x20; // VLAN 10
        linuxPortsInit();
        tellBridge(0);
        tellInterface(P1, "p1", BRIDGE);
        tellInterface(P2, "p2", BRIDGE);
    }

    void filterVlans() {
        tellBridge(1);
        tellState(P1, "p1", BR_STATE_FORWARDING,
                  {{BRIDGE_VLAN_INFO_PVID | BRIDGE_VLAN_INFO_UNTAGGED, 10},
                   {BRIDGE_VLAN_INFO_RANGE_BEGIN, 20},
                   {BRIDGE_VLAN_INFO_RANGE_END, 29}});
    }
};

// SOLICIT from a local sender: the checksum field holds what the kernel leaves in it, the sum of the pseudo header.
static Bytes solicit() {
    Bytes frame = {0x33, 0x33, 0, 1, 0, 2, 2, 0, 0, 0, 0, 1, 0x86, 0xDD, 0x60, 0, 0, 0, 0, 12, 17, 1};
    frame.resize(14 + 40, 0);
    frame[14 + 8] = 0xFE;
    frame[14 + 9] = 0x80;
    frame[14 + 24] = 0xFF;
    frame[14 + 25] = 0x02;
    for (int byte : {0x02, 0x22, 0x02, 0x23, 0x00, 0x0C, 0x00, 0x00, 0x01, 0x12, 0x34, 0x56}) {
        frame.push_back(static_cast<uint8_t>(byte));
    }
    return frame;
}

static uint32_t sum16(const uint8_t *bytes, uint32_t length) {
    uint32_t sum = 0;
    for (uint32_t i = 0; i < length; i++) {
        sum += i % 2 == 0 ? static_cast<uint32_t>(bytes[i]) << 8 : bytes[i];
    }
    return sum;
}

static uint32_t fold(uint32_t sum) {
    while (sum >> 16 != 0) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return sum;
}

static void deliver(const Bytes &frame, uint32_t status = 0, uint16_t tpid = 0, uint16_t tci = 0, uint32_t port0 = 0) {
    alignas(64) static std::array<uint8_t, 16384> slot;
    slot.fill(0xAA);
    uint8_t *bytes = slot.data() + 64 + SMD_FRAME_ALIGN + LINUX_RAW_HEADROOM;
    memcpy(bytes, frame.data(), frame.size());
    static const std::array<LinuxCapture, 2> captures = {{
        {.udpPort = 546, .mode = 1, .rule = {}, .deliver = receive},
        {.udpPort = 547, .mode = 1, .rule = {}, .deliver = receive},
    }};
    LinuxRawFrame raw = {
        .bytes = bytes, .length = static_cast<uint32_t>(frame.size()), .status = status, .tpid = tpid, .tci = tci};
    LinuxIngress ingress = {.port0 = port0,
                            .link = linuxBridgeLink(port0),
                            .receives = linuxPortReceives(port0),
                            .trapHolds = true,
                            .captures = captures,
                            .ports = PORTS};
    linuxDeliver(ingress, &raw);
}

static Bytes tagged(const Bytes &frame, uint16_t tpid, uint16_t tci) {
    Bytes with(frame.begin(), frame.begin() + 12);
    for (int byte : {tpid >> 8, tpid & 0xFF, tci >> 8, tci & 0xFF}) {
        with.push_back(static_cast<uint8_t>(byte));
    }
    with.insert(with.end(), frame.begin() + 12, frame.end());
    return with;
}

static constexpr uint32_t TAGGED = TP_STATUS_VLAN_VALID | TP_STATUS_VLAN_TPID_VALID;

TEST_F(LinuxDeliver, GivesAFrameWithoutATagTheNativeVlan) {
    deliver(solicit());
    ASSERT_EQ(got.count, 1u);
    EXPECT_EQ(got.frame, tagged(solicit(), 0x8100, 1));
    EXPECT_EQ(got.info.vlan, 1u);
    EXPECT_EQ(got.info.port, 1u);
    EXPECT_EQ(got.ctl.flags, 0u);
    EXPECT_EQ(got.ctl.payloadOffset, 66u);
    EXPECT_EQ(got.ctl.platform[LINUX_CTL_TAG], 1u);
    EXPECT_EQ(got.address % 8, SMD_FRAME_ALIGN);
    EXPECT_TRUE(got.zeroTail);
    EXPECT_EQ(linuxCounters[0].delivered, 1u);
}

TEST_F(LinuxDeliver, KeepsTheTagsOfATransparentBridge) {
    deliver(solicit(), TAGGED, 0x88A8, 0xA014);
    EXPECT_EQ(got.frame, tagged(solicit(), 0x88A8, 0xA014));
    EXPECT_EQ(got.info.vlan, 20u);
    EXPECT_EQ(got.ctl.platform[LINUX_CTL_TAG], 0u);
    deliver(solicit(), TAGGED, 0x8100, 0xE000); // priority only
    EXPECT_EQ(got.frame, tagged(solicit(), 0x8100, 0xE000));
    EXPECT_EQ(got.info.vlan, 1u);
    deliver(tagged(solicit(), 0x8100, 30), TAGGED, 0x88A8, 20);
    EXPECT_EQ(got.frame, tagged(tagged(solicit(), 0x8100, 30), 0x88A8, 20));
    EXPECT_EQ(got.ctl.flags, SMD_CTL_DOUBLE_TAGGED);
    EXPECT_EQ(got.ctl.payloadOffset, 70u);
    EXPECT_EQ(got.count, 3u);
    EXPECT_EQ(got.address % 8, SMD_FRAME_ALIGN);
}

TEST_F(LinuxDeliver, LeavesPaddingOut) {
    Bytes padded = solicit();
    padded.resize(padded.size() + 9, 0x55);
    deliver(padded);
    EXPECT_EQ(got.frame, tagged(solicit(), 0x8100, 1));
    EXPECT_TRUE(got.zeroTail);
}

TEST_F(LinuxDeliver, CompletesTheChecksumOfLocalSenders) {
    for (uint32_t extra : {0u, 1u}) { // an even and an odd length
        Bytes frame = solicit();
        frame.resize(frame.size() + extra, 0x77);
        frame[19] = static_cast<uint8_t>(12 + extra);
        frame[14 + 40 + 5] = static_cast<uint8_t>(12 + extra);
        uint32_t pseudo = sum16(frame.data() + 14 + 8, 32) + 12 + extra + 17;
        uint32_t partial = fold(pseudo);
        frame[14 + 40 + 6] = static_cast<uint8_t>(partial >> 8);
        frame[14 + 40 + 7] = static_cast<uint8_t>(partial);
        deliver(frame, TP_STATUS_CSUMNOTREADY);
        EXPECT_EQ(fold(pseudo + sum16(got.frame.data() + 58, 12 + extra)), 0xFFFFu);
        deliver(frame); // without the mark nothing is touched
        EXPECT_EQ(got.frame, tagged(frame, 0x8100, 1));
    }
}

TEST_F(LinuxDeliver, FollowsTheVlansOfAFilteringBridge) {
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

TEST_F(LinuxDeliver, TakesAForeignTagForPayloadOnAFilteringBridge) {
    filterVlans();
    deliver(solicit(), TAGGED, 0x88A8, 25);
    EXPECT_EQ(got.info.vlan, 10u);
    EXPECT_EQ(got.frame, tagged(tagged(solicit(), 0x88A8, 25), 0x8100, 10));
    EXPECT_EQ(got.ctl.flags, SMD_CTL_DOUBLE_TAGGED);
    EXPECT_EQ(got.address % 8, SMD_FRAME_ALIGN);
    EXPECT_TRUE(got.zeroTail);
}

TEST_F(LinuxDeliver, RefusesFramesWithoutATagWhereThereIsNoNativeVlan) {
    tellBridge(1);
    tellState(P1, "p1", BR_STATE_FORWARDING, {{0, 20}});
    deliver(solicit());
    deliver(solicit(), TAGGED, 0x8100, 0);
    EXPECT_EQ(got.count, 0u);
    EXPECT_EQ(linuxCounters[0].dropVlan, 2u);
    deliver(solicit(), TAGGED, 0x8100, 20);
    EXPECT_EQ(got.count, 1u);
}

TEST_F(LinuxDeliver, CountsWhatItDrops) {
    Bytes frame = solicit();
    frame[14 + 40 + 5] = 200; // UDP length
    deliver(frame);
    EXPECT_EQ(linuxCounters[0].dropMalformed, 1u);
    frame = solicit();
    frame[14 + 40 + 2] = 9; // another port
    deliver(frame);
    EXPECT_EQ(linuxCounters[0].notDhcpv6, 1u);
    tellState(P1, "p1", BR_STATE_BLOCKING, {});
    deliver(solicit());
    EXPECT_EQ(linuxCounters[0].dropState, 1u);
    deliver(solicit(), 0, 0, 0, 2); // its interface is missing
    EXPECT_EQ(linuxCounters[2].dropState, 1u);
    frame.resize(SMD_FRAME_MAX - 3);
    tellState(P1, "p1", BR_STATE_FORWARDING, {});
    deliver(frame);
    EXPECT_EQ(linuxCounters[0].dropOversize, 1u);
    EXPECT_EQ(got.count, 0u);
}

TEST_F(LinuxDeliver, NamesTheXponUnit) {
    linuxSwitch.ports[0].xpon = 1;
    linuxSwitch.ports[0].pon = 3;
    linuxSwitch.ports[0].onu = 8191;
    memcpy(linuxSwitch.ports[0].serial, "ABCD\x01\x02\x03\x04", 8);
    deliver(solicit());
    EXPECT_EQ(got.info.access, 1u);
    EXPECT_EQ(got.info.ponValue, 3u);
    EXPECT_EQ(got.info.ponId, 8191u);
    EXPECT_EQ(memcmp(got.info.serial, "ABCD\x01\x02\x03\x04", 8), 0);
}

// ---- What the bridge says of its ports -----------------------------------------------------------------------------

static uint64_t members(uint32_t vlan) {
    SmdPortList list;
    EXPECT_EQ(VLAN_Api_PortList_Get(vlan, &list, 0), 0);
    return list.bits[0];
}

TEST_F(LinuxDeliver, ATransparentBridgeHasEveryPortInEveryVlan) {
    EXPECT_EQ(members(1), 0xC0u);
    EXPECT_EQ(members(77), 0xC0u);
    EXPECT_EQ(vlan_exist(1), 1);
    EXPECT_EQ(vlan_exist(10), 1);
    EXPECT_EQ(vlan_exist(77), 0);
    EXPECT_EQ(vlan_exist(0), 0);
    EXPECT_EQ(vlan_exist(4095), 0);
    EXPECT_EQ(vlan_exist(0xFFFFFFFF), 0);
}

TEST_F(LinuxDeliver, AFilteringBridgeHasItsDatabase) {
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

TEST_F(LinuxDeliver, APortOfAnotherBridgeCountsForNothing) {
    filterVlans();
    tellInterface(P2, "p2", BRIDGE + 99);
    tellState(P2, "p2", BR_STATE_FORWARDING, {{0, 77}});
    EXPECT_EQ(vlan_exist(77), 0);
    EXPECT_EQ(members(77), 0u);
    tellState(BRIDGE, "br0", BR_STATE_FORWARDING, {{0, 78}});
    EXPECT_EQ(vlan_exist(78), 1);
}

// `last` 0: one VLAN.
static void startVlan(Message *message, uint16_t type, uint32_t ifindex, uint16_t vlan, uint16_t last, uint8_t state) {
    message->header = mnl_nlmsg_put_header(message->bytes.data());
    message->header->nlmsg_type = type;
    br_vlan_msg *head = static_cast<br_vlan_msg *>(mnl_nlmsg_put_extra_header(message->header, sizeof(br_vlan_msg)));
    head->family = AF_BRIDGE;
    head->ifindex = ifindex;
    nlattr *entry = mnl_attr_nest_start(message->header, BRIDGE_VLANDB_ENTRY);
    bridge_vlan_info info = {.flags = 0, .vid = vlan};
    mnl_attr_put(message->header, BRIDGE_VLANDB_ENTRY_INFO, sizeof info, &info);
    if (last != 0) {
        mnl_attr_put_u16(message->header, BRIDGE_VLANDB_ENTRY_RANGE, last);
    }
    mnl_attr_put_u8(message->header, BRIDGE_VLANDB_ENTRY_STATE, state);
    mnl_attr_nest_end(message->header, entry);
}

static void tellVlan(uint16_t type, uint32_t ifindex, uint16_t vlan, uint16_t last, uint8_t state) {
    Message message{};
    startVlan(&message, type, ifindex, vlan, last, state);
    linuxLinksApply(message.header, nullptr);
}

TEST_F(LinuxDeliver, AVlanThatIsBlockedOnAPortIsClosedThereOnly) {
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

TEST_F(LinuxDeliver, LeavesOutPortsThatDoNotForward) {
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
    tellInterface(P1 + 50, "other", BRIDGE); // renamed
    EXPECT_EQ(members(1), 0u);
}

TEST_F(LinuxDeliver, ABondIsATrunk) {
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

TEST_F(LinuxDeliver, ABondHasTheNumberOfItsName) {
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
TEST_F(LinuxDeliver, ABondWithoutANumberOfItsOwnGetsAFreeOne) {
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
TEST_F(LinuxDeliver, ABondHearsTheMembersThatItUses) {
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

static void tellCut(Message *message) {
    const uint32_t whole = message->header->nlmsg_len;
    for (uint32_t length = NLMSG_HDRLEN; length <= whole; length++) {
        std::unique_ptr<uint8_t[]> exact(new uint8_t[length]);
        message->header->nlmsg_len = length;
        memcpy(exact.get(), message->bytes.data(), length);
        linuxLinksApply(reinterpret_cast<const nlmsghdr *>(exact.get()), nullptr);
    }
}

// Messages that are cut, or whose attributes lie about their length, change nothing outside the table and end.
TEST_F(LinuxDeliver, ReadsNoMessageBehindItsEnd) {
    Message message{};
    start(&message, RTM_NEWLINK, AF_BRIDGE, P1, "p1");
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
