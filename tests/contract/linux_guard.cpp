// The source guard's elements in a real kernel table, as ports share a bond, move, and change their VLANs. The table of links
// is written by the test; the kernel does not ask whether an interface index is anybody's.

#include "platform/linux/guard.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "platform/linux/guardkeys.h"
#include "platform/linux/ipv6walk.h"
#include "platform/linux/nftset.h"
#include "platform/linux/nfttable.h"
#include "platform/linux/ports.h"

namespace {

constexpr uint32_t BRIDGE = 500, BOND = 600; // interface indexes; port 1 has 101, port 2 has 102, ...
constexpr uint32_t CLOSED = 5;               // elements of a closed interface: denial, rate, three counters

LinuxGuardKey filter(uint32_t kind, uint32_t port, uint32_t vlan, uint32_t number = 1) {
    LinuxGuardKey key{};
    key.kind = kind;
    key.port = port;
    key.vlan = vlan;
    key.mac[5] = 1;
    memcpy(key.address, &number, sizeof number);
    return key;
}

bool has(const char *set, std::span<const uint8_t> key) { return linuxNftGet(set, key, nullptr) == 0; }

bool has(const char *set, uint32_t ifindex) { return has(set, {reinterpret_cast<const uint8_t *>(&ifindex), sizeof ifindex}); }

bool hasName(const char *name) {
    uint8_t key[16] = {};
    memcpy(key, name, strlen(name));
    return has("guard_name", key);
}

// Elements in the kernel, of all sets together.
uint32_t elements() {
    FILE *list = popen("nft -nn list table bridge snoopd6", "r");
    std::string text;
    for (int c = 0; list != nullptr && (c = fgetc(list)) != EOF;)
        text += static_cast<char>(c);
    EXPECT_EQ(pclose(list), 0);
    uint32_t count = 0;
    for (size_t at = text.find("elements = {"); at != std::string::npos; at = text.find("elements = {", at)) {
        const size_t end = text.find('}', at);
        count += 1 + static_cast<uint32_t>(
                         std::count(text.begin() + static_cast<long>(at), text.begin() + static_cast<long>(end), ','));
        at = end;
    }
    return count;
}

class LinuxGuard : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        home = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(unshare(CLONE_NEWNET), 0);
        load();
    }

    static void TearDownTestSuite() {
        linuxNftTableUnload();
        EXPECT_EQ(setns(home, CLONE_NEWNET), 0);
        close(home);
    }

    static void load() {
        char error[256];
        ASSERT_EQ(linuxNftTableLoad(error, sizeof error), 0) << error;
    }

    // Four ports in a bridge that filters VLANs, native VLAN 1; port 4 is closed to router advertisements when guarded.
    void SetUp() override {
        memset(&linuxSwitch, 0, sizeof linuxSwitch);
        memset(linuxLinks, 0, sizeof linuxLinks);
        linuxSwitch.portMax = 4;
        linuxLinks[LINUX_LINK_BRIDGE].ifindex = BRIDGE;
        linuxBridge.vlanFiltering = 1;
        linuxBridge.vlanTpid = LINUX_TPID_8021Q;
        for (uint32_t port = 1; port <= 4; ++port) {
            linuxSwitch.ports[port - 1].exists = 1;
            snprintf(linuxSwitch.ports[port - 1].interface, sizeof linuxSwitch.ports[port - 1].interface, "p%u", port);
            place(port, 100 + port, BRIDGE, 1);
        }
        linuxSwitch.ports[3].raGuard = 1;
        linuxGuardSettle();
        ASSERT_EQ(elements(), 1u); // the foreign tag type
    }

    void TearDown() override {
        while (const LinuxGuardFilter *left = linuxGuardNext(nullptr)) {
            const LinuxGuardKey key = left->key;
            EXPECT_EQ(linuxGuardFilterRemove(&key), 0);
        }
        for (uint32_t port = 1; port <= 4; ++port) {
            LinuxGuardPortStatus status;
            linuxGuardPortStatus(port, &status);
            if (status.guarded != 0) {
                EXPECT_EQ(linuxGuardPortOpen(port), 0);
            }
        }
        EXPECT_EQ(elements(), 1u); // nothing is left in any set
        memset(linuxLinks, 0, sizeof linuxLinks);
        linuxBridge.vlanFiltering = 0;
        linuxGuardSettle();
        EXPECT_EQ(elements(), 0u);
    }

    static void place(uint32_t port, uint32_t ifindex, uint32_t master, uint32_t native) {
        linuxLinks[port - 1].ifindex = ifindex;
        linuxLinks[port - 1].master = master;
        linuxLinks[port - 1].nativeVlan = native;
    }

    static void bond(uint32_t ifindex, uint32_t native, std::initializer_list<uint32_t> ports) {
        snprintf(linuxLinks[LINUX_LINK_BOND0].name, sizeof linuxLinks[LINUX_LINK_BOND0].name, "bond0");
        linuxLinks[LINUX_LINK_BOND0].ifindex = ifindex;
        linuxLinks[LINUX_LINK_BOND0].master = BRIDGE;
        linuxLinks[LINUX_LINK_BOND0].nativeVlan = native;
        for (const uint32_t port : ports)
            linuxLinks[port - 1].master = ifindex;
        linuxGuardSettle();
    }

    static bool written(const LinuxGuardKey &key, LinuxGuardPlace where) {
        LinuxGuardElements wanted;
        linuxGuardElements(&key, where, &wanted);
        for (uint32_t i = 0; i < wanted.count; ++i)
            if (!has(wanted.element[i].set, {wanted.element[i].key, wanted.element[i].length}))
                return false;
        return wanted.count != 0;
    }

    static int home; // the namespace that the tests were started in
};

int LinuxGuard::home;

TEST_F(LinuxGuard, FollowsAnInterface) {
    const LinuxGuardKey keys[] = {filter(LINUX_FILTER_PORT, 1, 0), filter(LINUX_FILTER_PORT_VLAN, 1, 1),
                                  filter(LINUX_FILTER_PORT_VLAN, 1, 10)};
    for (const LinuxGuardKey &key : keys)
        ASSERT_EQ(linuxGuardFilterAdd(&key), 0);
    ASSERT_EQ(linuxGuardPortClose(1), 0);
    EXPECT_EQ(elements(), 1u + 4 + CLOSED + 1);
    EXPECT_TRUE(hasName("p1"));
    place(1, 0, 0, 0);
    linuxGuardSettle();
    EXPECT_EQ(elements(), 1u + 1) << "an interface of that name is closed before its index is known";
    EXPECT_FALSE(linuxGuardInKernel(&keys[0]));
    place(1, 111, BRIDGE, 10);
    linuxGuardSettle();
    EXPECT_EQ(elements(), 1u + 4 + CLOSED + 1);
    EXPECT_TRUE(has("guard_if", 111));
    for (const LinuxGuardKey &key : keys) {
        EXPECT_TRUE(written(key, {.ifindex = 111, .native = 10}));
        EXPECT_TRUE(linuxGuardInKernel(&key));
    }
}

TEST_F(LinuxGuard, MembersOfABondShareItsElements) {
    const LinuxGuardKey one = filter(LINUX_FILTER_PORT_VLAN, 1, 1);
    const LinuxGuardKey two = filter(LINUX_FILTER_PORT_VLAN, 2, 1);
    bond(BOND, 1, {1, 2});
    ASSERT_EQ(linuxGuardFilterAdd(&one), 0);
    ASSERT_EQ(linuxGuardFilterAdd(&two), 0);
    EXPECT_EQ(elements(), 1u + 2);
    EXPECT_EQ(linuxGuardFilterRemove(&one), 0);
    EXPECT_TRUE(written(two, {.ifindex = BOND, .native = 1}));
    EXPECT_EQ(linuxGuardFilterRemove(&two), 0);
    EXPECT_EQ(elements(), 1u);
}

TEST_F(LinuxGuard, OneClosedMemberClosesTheBond) {
    bond(BOND, 1, {3, 4});
    ASSERT_EQ(linuxGuardPortClose(3), 0);
    EXPECT_TRUE(has("guard_if", BOND));
    EXPECT_FALSE(has("ra_closed_if", BOND));
    ASSERT_EQ(linuxGuardPortClose(4), 0);
    EXPECT_TRUE(has("ra_closed_if", BOND));
    ASSERT_EQ(linuxGuardPortOpen(4), 0);
    EXPECT_FALSE(has("ra_closed_if", BOND));
    EXPECT_TRUE(has("guard_if", BOND));
    LinuxGuardPortStatus status;
    linuxGuardPortStatus(4, &status);
    EXPECT_EQ(status.guarded, 0u);
    EXPECT_EQ(status.installed, 1u); // its frames are refused all the same
    ASSERT_EQ(linuxGuardPortOpen(3), 0);
    EXPECT_EQ(elements(), 1u);
}

TEST_F(LinuxGuard, MembersJoinAndLeave) {
    const LinuxGuardKey keys[] = {filter(LINUX_FILTER_PORT, 1, 0), filter(LINUX_FILTER_PORT, 2, 0)};
    for (const LinuxGuardKey &key : keys) {
        ASSERT_EQ(linuxGuardFilterAdd(&key), 0);
        ASSERT_EQ(linuxGuardPortClose(key.port), 0);
    }
    EXPECT_EQ(elements(), 1u + 2 + 2 * CLOSED + 2);
    bond(BOND, 1, {1});
    EXPECT_TRUE(hasName("p1") && hasName("bond0"));
    EXPECT_TRUE(has("guard_if", BOND) && has("guard_if", 102) && !has("guard_if", 101));
    bond(BOND, 1, {2});
    EXPECT_TRUE(has("guard_if", BOND) && !has("guard_if", 102));
    EXPECT_EQ(elements(), 1u + 1 + CLOSED + 3);
    bond(BOND + 1, 1, {1, 2}); // made anew
    EXPECT_TRUE(has("guard_if", BOND + 1) && !has("guard_if", BOND));
    EXPECT_EQ(elements(), 1u + 1 + CLOSED + 3);
    place(1, 101, BRIDGE, 1);
    linuxGuardSettle();
    EXPECT_TRUE(has("guard_if", BOND + 1) && has("guard_if", 101));
    EXPECT_TRUE(written(keys[0], {.ifindex = 101, .native = 1}));
    EXPECT_TRUE(written(keys[1], {.ifindex = BOND + 1, .native = 1}));
    EXPECT_EQ(elements(), 1u + 2 + 2 * CLOSED + 3);
}

// The same host is bound in both VLANs: its element for frames without a tag stays, whoever it is there for.
TEST_F(LinuxGuard, TheNativeVlanChanges) {
    const LinuxGuardKey one = filter(LINUX_FILTER_PORT_VLAN, 1, 1);
    const LinuxGuardKey ten = filter(LINUX_FILTER_PORT_VLAN, 1, 10);
    const LinuxGuardKey only = filter(LINUX_FILTER_PORT_VLAN, 1, 10, 2);
    for (const LinuxGuardKey *key : {&one, &ten, &only})
        ASSERT_EQ(linuxGuardFilterAdd(key), 0);
    ASSERT_EQ(linuxGuardPortClose(1), 0);
    EXPECT_EQ(elements(), 1u + 4 + CLOSED + 1);
    for (const uint32_t native : {10u, 1u, 10u}) {
        place(1, 101, BRIDGE, native);
        linuxGuardSettle();
        EXPECT_EQ(elements(), 1u + (native == 10 ? 5 : 4) + CLOSED + 1);
        for (const LinuxGuardKey *key : {&one, &ten, &only})
            EXPECT_TRUE(written(*key, {.ifindex = 101, .native = native}));
    }
    place(1, 101, BRIDGE, 0);
    linuxGuardSettle();
    EXPECT_EQ(elements(), 1u + 3 + CLOSED + 1);
}

TEST_F(LinuxGuard, TheNativeVlanOfABondChanges) {
    const LinuxGuardKey keys[] = {filter(LINUX_FILTER_PORT_VLAN, 1, 1), filter(LINUX_FILTER_PORT_VLAN, 2, 1),
                                  filter(LINUX_FILTER_PORT_VLAN, 2, 10)};
    bond(BOND, 1, {1, 2});
    for (const LinuxGuardKey &key : keys)
        ASSERT_EQ(linuxGuardFilterAdd(&key), 0);
    ASSERT_EQ(linuxGuardPortClose(1), 0);
    ASSERT_EQ(linuxGuardPortClose(2), 0);
    ASSERT_EQ(linuxGuardVlanExempt(10, true), 0);
    for (const uint32_t native : {10u, 1u, 10u, 20u}) {
        bond(BOND, native, {1, 2});
        EXPECT_EQ(has("exempt_if", BOND), native == 10);
        for (const LinuxGuardKey &key : keys)
            EXPECT_TRUE(written(key, {.ifindex = BOND, .native = native}));
        EXPECT_EQ(elements(), 1u + 1 + 2 + (native == 20 ? 0 : 1) + CLOSED + 3 + (native == 10 ? 1 : 0));
    }
    EXPECT_EQ(linuxGuardVlanExempt(10, false), 0);
}

TEST_F(LinuxGuard, ExemptVlansReachFramesWithoutATag) {
    bond(BOND, 1, {1, 2});
    ASSERT_EQ(linuxGuardPortClose(1), 0);
    ASSERT_EQ(linuxGuardPortClose(2), 0);
    ASSERT_EQ(linuxGuardVlanExempt(1, true), 0);
    EXPECT_TRUE(has("exempt_if", BOND));
    EXPECT_FALSE(has("exempt_if", 103)); // open anyhow
    ASSERT_EQ(linuxGuardPortClose(3), 0);
    EXPECT_TRUE(has("exempt_if", 103));
    ASSERT_EQ(linuxGuardPortOpen(3), 0);
    EXPECT_FALSE(has("exempt_if", 103));
    ASSERT_EQ(linuxGuardPortOpen(1), 0);
    EXPECT_TRUE(has("exempt_if", BOND));
    ASSERT_EQ(linuxGuardPortClose(1), 0);
    EXPECT_EQ(linuxGuardVlanExempt(1, false), 0); // once for both members
    EXPECT_FALSE(has("exempt_if", BOND));
    EXPECT_EQ(linuxGuardVlanExempt(1, false), -ENOENT);
    for (const uint32_t vlan : {0u, 4095u, 65537u})
        EXPECT_EQ(linuxGuardVlanExempt(vlan, true), -EINVAL);
}

TEST_F(LinuxGuard, KnowsWhichTagsArePayload) {
    constexpr std::array<uint8_t, 2> Q = {0x81, 0x00}, AD = {0x88, 0xA8};
    EXPECT_TRUE(has("foreign_tag", AD) && !has("foreign_tag", Q));
    linuxBridge.vlanTpid = LINUX_TPID_8021AD;
    linuxGuardSettle();
    EXPECT_TRUE(has("foreign_tag", Q) && !has("foreign_tag", AD));
    linuxBridge.vlanFiltering = 0;
    linuxGuardSettle();
    EXPECT_TRUE(!has("foreign_tag", Q) && !has("foreign_tag", AD));
    linuxBridge.vlanFiltering = 1;
    linuxBridge.vlanTpid = LINUX_TPID_8021Q;
    linuxGuardSettle();
}

TEST_F(LinuxGuard, RefusesWhatIsNoPortOrVlan) {
    for (const uint32_t port : {0u, 5u, 28u, 29u, 0xFFFFFFFFu}) {
        const LinuxGuardKey key = filter(LINUX_FILTER_PORT, port, 0);
        EXPECT_EQ(linuxGuardFilterAdd(&key), -ENODEV) << port;
        EXPECT_EQ(linuxGuardFilterRemove(&key), -ENOENT) << port;
        EXPECT_EQ(linuxGuardPortClose(port), -ENODEV) << port;
        EXPECT_EQ(linuxGuardPortOpen(port), -ENODEV) << port;
    }
    for (const uint32_t vlan : {0u, 4095u, 4096u, 65537u, 0xFFFFFFFFu}) { // 65537 would be 1 in 16 bits
        const LinuxGuardKey key = filter(LINUX_FILTER_PORT_VLAN, 1, vlan);
        EXPECT_EQ(linuxGuardFilterAdd(&key), -EINVAL) << vlan;
    }
    EXPECT_EQ(elements(), 1u);
}

TEST_F(LinuxGuard, AFullBatchAndMore) {
    for (uint32_t number = 1; number <= 1500; ++number) {
        const LinuxGuardKey key = filter(LINUX_FILTER_PORT_VLAN, 1, 1, number);
        ASSERT_EQ(linuxGuardFilterAdd(&key), 0);
    }
    EXPECT_EQ(elements(), 1u + 3000);
    place(1, 111, BRIDGE, 10);
    linuxGuardSettle();
    EXPECT_EQ(elements(), 1u + 1500);
    for (const LinuxGuardFilter *one = linuxGuardNext(nullptr); one != nullptr; one = linuxGuardNext(&one->key))
        ASSERT_TRUE(linuxGuardInKernel(&one->key));
}

TEST_F(LinuxGuard, ARefusalChangesNothingAndIsMadeUpFor) {
    const LinuxGuardKey kept = filter(LINUX_FILTER_PORT_VLAN, 1, 1);
    const LinuxGuardKey refused = filter(LINUX_FILTER_PORT, 1, 0);
    ASSERT_EQ(linuxGuardFilterAdd(&kept), 0);
    ASSERT_EQ(linuxGuardPortClose(1), 0);
    ASSERT_EQ(linuxGuardVlanExempt(1, true), 0);
    ASSERT_EQ(system("nft delete table bridge snoopd6"), 0);
    EXPECT_EQ(linuxGuardFilterAdd(&refused), -ENOENT);
    EXPECT_EQ(linuxGuardNext(&kept), nullptr);
    EXPECT_EQ(linuxGuardPortClose(2), -ENOENT);
    EXPECT_EQ(linuxGuardNeighbourDiscovery(true), -ENOENT);
    EXPECT_EQ(linuxGuardVlanExempt(2, true), -ENOENT);
    EXPECT_EQ(linuxGuardVlanExempt(1, false), -ENOENT);
    place(1, 111, BRIDGE, 1);
    linuxGuardSettle();
    EXPECT_FALSE(linuxGuardInKernel(&kept));
    linuxNftTableUnload();
    load();
    linuxGuardSettle(); // any notification
    EXPECT_TRUE(written(kept, {.ifindex = 111, .native = 1}));
    EXPECT_TRUE(has("guard_if", 111) && has("exempt_if", 111) && !has("guard_if", 102));
    linuxBridge.vlanFiltering = 0;
    linuxGuardSettle();
    linuxBridge.vlanFiltering = 1;
    linuxGuardSettle();
    const std::array<uint8_t, 2> vlan = {0, 1};
    linuxNftBegin();
    linuxNftAdd("exempt_vlan", vlan);
    ASSERT_EQ(linuxNftCommit(), 0);
    EXPECT_EQ(linuxGuardVlanExempt(1, false), 0);
}

// What the kernel kept where the port was before goes as well, once the kernel lets it: here it refuses as long as sets are gone.
TEST_F(LinuxGuard, ARefusedMoveLeavesNothingBehind) {
    const LinuxGuardKey key = filter(LINUX_FILTER_PORT_VLAN, 1, 1);
    const auto move = [](uint32_t first) { // port 1 is exempt, port 4 closed to routers
        place(1, first, BRIDGE, 1);
        place(4, first + 3, BRIDGE, 2);
        linuxGuardSettle();
    };
    ASSERT_TRUE(linuxGuardFilterAdd(&key) == 0 && linuxGuardPortClose(1) == 0 && linuxGuardPortClose(4) == 0);
    ASSERT_EQ(linuxGuardVlanExempt(1, true), 0);
    ASSERT_EQ(system("nft 'flush chain bridge snoopd6 guard_native; flush chain bridge snoopd6 guard_native_2; "
                     "flush chain bridge snoopd6 refuse; flush chain bridge snoopd6 refuse_2; flush chain bridge snoopd6 over; "
                     "flush chain bridge snoopd6 block; delete set bridge snoopd6 f_native'"),
              0);
    uint32_t at = 101;
    for (const std::string counter : {"blocked", "blocked_local", "blocked_nd"}) {
        ASSERT_EQ(system(("nft delete set bridge snoopd6 " + counter).c_str()), 0);
        move(at + 10);
        EXPECT_TRUE(has("guard_if", at) && has("ra_closed_if", at + 3) && has("exempt_if", at)) << "nothing is in force of it";
        ASSERT_EQ(system(("nft 'add set bridge snoopd6 " + counter + " { typeof iif; counter; }'").c_str()), 0);
        at += 20;
        move(at); // any notification
        EXPECT_FALSE(has("blocked", at - 20) || has("blocked_local", at - 20));
    }
    ASSERT_EQ(system("nft 'add set bridge snoopd6 f_native { typeof iif . ether saddr . @nh,64,128; }'"), 0);
    linuxGuardSettle();
    EXPECT_TRUE(linuxGuardInKernel(&key) && has("exempt_if", at) && has("guard_if", at + 3) && has("ra_closed_if", at + 3));
    EXPECT_EQ(elements(), 1u + 1 + 2 + 2 * CLOSED + 2 + 1 + 1)
        << "tag type, VLAN, filter, two closed ones and their names, one exempt, one to routers";
    EXPECT_EQ(linuxGuardVlanExempt(1, false), 0);
}

// The daemon took the record away and nobody asked for its filter any more.
TEST_F(LinuxGuard, OpeningAPortLeavesNoneOfItsFilters) {
    const LinuxGuardKey stale[] = {filter(LINUX_FILTER_PORT, 1, 0), filter(LINUX_FILTER_PORT_VLAN, 1, 1)};
    const LinuxGuardKey others[] = {filter(LINUX_FILTER_ADDRESS, 0, 0), filter(LINUX_FILTER_MAC_ADDRESS, 0, 0),
                                    filter(LINUX_FILTER_PORT_VLAN, 2, 1)};
    ASSERT_EQ(linuxGuardPortClose(1), 0);
    for (const LinuxGuardKey &key : stale)
        ASSERT_EQ(linuxGuardFilterAdd(&key), 0);
    for (const LinuxGuardKey &key : others)
        ASSERT_EQ(linuxGuardFilterAdd(&key), 0);
    EXPECT_EQ(linuxGuardPortOpen(1), 0);
    for (const LinuxGuardKey &key : stale)
        EXPECT_EQ(linuxGuardFilterRemove(&key), -ENOENT);
    EXPECT_EQ(elements(), 1u + 4);
    EXPECT_EQ(linuxGuardPortOpen(1), -ENOENT);
    for (const LinuxGuardKey &key : others)
        EXPECT_TRUE(linuxGuardInKernel(&key));
}

// More than one batch; what another member of the bond wants stays.
TEST_F(LinuxGuard, OpeningOneMemberLeavesTheOthersFilters) {
    bond(BOND, 1, {1, 2});
    ASSERT_TRUE(linuxGuardPortClose(1) == 0 && linuxGuardPortClose(2) == 0);
    for (uint32_t number = 1; number <= 1100; ++number) {
        const LinuxGuardKey key = filter(LINUX_FILTER_PORT_VLAN, 1, 1, number);
        ASSERT_EQ(linuxGuardFilterAdd(&key), 0);
    }
    const LinuxGuardKey shared = filter(LINUX_FILTER_PORT_VLAN, 2, 1);
    ASSERT_EQ(linuxGuardFilterAdd(&shared), 0);
    EXPECT_EQ(linuxGuardPortOpen(1), 0);
    EXPECT_TRUE(written(shared, {.ifindex = BOND, .native = 1}));
    EXPECT_EQ(elements(), 1u + 2 + CLOSED + 2);
}

TEST_F(LinuxGuard, HalfAnElementMissingLeavesNoOtherHalf) {
    const LinuxGuardKey key = filter(LINUX_FILTER_PORT_VLAN, 1, 1);
    ASSERT_EQ(linuxGuardFilterAdd(&key), 0);
    ASSERT_EQ(system("nft flush set bridge snoopd6 f_vlan"), 0);
    EXPECT_FALSE(linuxGuardInKernel(&key));
    EXPECT_EQ(linuxGuardFilterRemove(&key), -ENOENT);
    EXPECT_EQ(linuxGuardFilterRemove(&key), -ENOENT);
    EXPECT_EQ(elements(), 1u);
    ASSERT_EQ(linuxGuardPortClose(1), 0);
    ASSERT_EQ(system("nft flush set bridge snoopd6 guard_if"), 0);
    EXPECT_EQ(linuxGuardPortOpen(1), -ENOENT);
    EXPECT_EQ(elements(), 1u);
    EXPECT_EQ(linuxGuardPortOpen(1), -ENOENT);
}

} // namespace
