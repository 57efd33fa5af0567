// The source guard's elements as ports share a bond, move, and change their VLANs.

#include "tests/contract/linux_guardtable.h"

#include <array>
#include <cerrno>

namespace {

TEST_F(LinuxGuard, FollowsAnInterface) {
    const LinuxGuardKey keys[] = {filter(LINUX_FILTER_PORT, 1, 0), filter(LINUX_FILTER_PORT_VLAN, 1, 1),
                                  filter(LINUX_FILTER_PORT_VLAN, 1, 10)};
    for (const LinuxGuardKey &key : keys)
        ASSERT_EQ(linuxGuardFilterAdd(&key), 0);
    ASSERT_EQ(linuxGuardPortClose(1), 0);
    EXPECT_EQ(elements(), 1u + 4 + 1 + CLOSED + 1);
    EXPECT_TRUE(hasName("p1"));
    place(1, 0, 0, 0);
    linuxGuardSettle();
    EXPECT_EQ(elements(), 1u + 1 + 1) << "a source, and an interface of that name is closed before its index is known";
    EXPECT_FALSE(linuxGuardInKernel(&keys[0]));
    place(1, 111, BRIDGE, 10);
    linuxGuardSettle();
    EXPECT_EQ(elements(), 1u + 4 + 1 + CLOSED + 1);
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
    EXPECT_EQ(elements(), 1u + 2 + 1 + 2 * CLOSED + 2);
    bond(BOND, 1, {1});
    EXPECT_TRUE(hasName("p1") && hasName("bond0"));
    EXPECT_TRUE(has("guard_if", BOND) && has("guard_if", 102) && !has("guard_if", 101));
    bond(BOND, 1, {2});
    EXPECT_TRUE(has("guard_if", BOND) && !has("guard_if", 102));
    EXPECT_EQ(elements(), 1u + 1 + 1 + CLOSED + 3);
    bond(BOND + 1, 1, {1, 2}); // made anew
    EXPECT_TRUE(has("guard_if", BOND + 1) && !has("guard_if", BOND));
    EXPECT_EQ(elements(), 1u + 1 + 1 + CLOSED + 3);
    place(1, 101, BRIDGE, 1);
    linuxGuardSettle();
    EXPECT_TRUE(has("guard_if", BOND + 1) && has("guard_if", 101));
    EXPECT_TRUE(written(keys[0], {.ifindex = 101, .native = 1}));
    EXPECT_TRUE(written(keys[1], {.ifindex = BOND + 1, .native = 1}));
    EXPECT_EQ(elements(), 1u + 2 + 1 + 2 * CLOSED + 3);
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

} // namespace
