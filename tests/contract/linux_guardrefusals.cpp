// What is left of the source guard's elements when the kernel refuses a change, and when a port is opened.

#include "platform/libqacl.h"
#include "tests/contract/linux_guardtable.h"

#include <array>
#include <cerrno>

namespace {

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

// What was counted stays counted, however often the kernel refuses, and when it lets everything be written anew.
TEST_F(LinuxGuard, ARefusalCountsNothingTwiceAndForgetsNothing) {
    const auto blocked = []() {
        LinuxGuardPortStatus status;
        linuxGuardPortStatus(1, &status);
        return status.blocked;
    };
    const auto counts = [](const char *packets) {
        const std::string element = std::string("bridge snoopd6 blocked { 101 counter packets ") + packets + " bytes 0 }'";
        return system("nft delete element bridge snoopd6 blocked { 101 }") + system(("nft 'add element " + element).c_str());
    };
    const LinuxGuardKey key = filter(LINUX_FILTER_PORT_VLAN, 1, 1);
    ASSERT_TRUE(linuxGuardFilterAdd(&key) == 0 && linuxGuardPortClose(1) == 0);
    ASSERT_EQ(counts("7"), 0);
    ASSERT_EQ(blocked(), 7u);
    ASSERT_EQ(system("nft 'flush chain bridge snoopd6 in_native; flush chain bridge snoopd6 in_native_2; "
                     "flush chain bridge snoopd6 over; delete set bridge snoopd6 f_native'"),
              0);
    const auto move = [](uint32_t native) {
        place(1, 101, BRIDGE, native);
        linuxGuardSettle();
    };
    for (const uint32_t native : {2u, 3u}) { // the filters are refused, the counters made anew
        move(native);
        EXPECT_EQ(blocked(), 7u) << native;
    }
    ASSERT_EQ(system("nft delete set bridge snoopd6 blocked_nd"), 0);
    for (const uint32_t native : {4u, 5u}) { // the counters are refused, too
        move(native);
        EXPECT_EQ(blocked(), 7u) << native;
    }
    ASSERT_EQ(system("nft 'add set bridge snoopd6 blocked_nd { typeof iif; counter; }; "
                     "add set bridge snoopd6 f_native { typeof iif . ether saddr . @nh,64,128; }'"),
              0);
    for (const uint32_t native : {6u, 1u}) {
        move(native);
        EXPECT_EQ(blocked(), 7u) << native;
    }
    ASSERT_EQ(counts("5"), 0);
    EXPECT_EQ(blocked(), 12u);
}

// The core tells its caller no more than that the filter was refused.
TEST_F(LinuxGuard, ARefusedFilterIsNamed) {
    const uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
    const uint8_t address[16] = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7};
    const uint8_t loopback[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    testing::internal::CaptureStderr();
    EXPECT_EQ(FRM_InstallForwardIp6AddrFilterResource(5, mac, address), -ENODEV);
    EXPECT_EQ(FRM_InstallForwardIp6AddrFilterResource_new(2, mac, address, 4095), -EINVAL);
    EXPECT_EQ(FRM_InstallGlobalForwardIp6AddrOnlyFilterResource(loopback), -EADDRNOTAVAIL);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "snoopd6: port 0/5: there is no filter for 2001:db8::7: No such device\n"
              "snoopd6: port 0/2: there is no filter for 2001:db8::7: Invalid argument\n"
              "snoopd6: there is no filter for ::1: no host may have it\n");
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
    ASSERT_EQ(system("nft 'flush chain bridge snoopd6 in_native; flush chain bridge snoopd6 in_native_2; "
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
