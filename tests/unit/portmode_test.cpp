// Turning the guard of a port on and off: what is done, in which order, and when nothing is.

#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "tests/unit/guard.h"

namespace {

struct PortModeTest : GuardTest {};

constexpr uint32_t ON = 0, OFF = 1;
const std::string M4 = "02:00:00:00:00:04";

// A global binding, one of port 1 and one of port 2, oldest first; a learned address on each of the two ports.
void populate() {
    addBinding(A1);
    addBinding(A2, M2, 1, 10);
    addBinding(A3, M3, 2, 0);
    addLease(addAckedClient(M4, 10, 1), "2001:db8::11", 128, 100);
    addLease(clientOf(M4), "2001:db8:1::", 56, 100);
    addLease(addAckedClient(CLIENT, 20, 2), "2001:db8::12", 128, 100);
}

const Lines LEARNED_1 = installed(4, "2001:db8::11", M4, 1, 10), LEARNED_2 = installed(4, "2001:db8::12", CLIENT, 2, 20);
const Lines FORGOTTEN_1 = removed(4, "2001:db8::11", M4, 1, 10), FORGOTTEN_2 = removed(4, "2001:db8::12", CLIENT, 2, 20);

int32_t set(uint32_t port, uint32_t mode) { return set_ip6_source_guard_port_mode(port, mode); }

TEST_F(PortModeTest, FirstSecondAndLastPort) {
    populate();
    EXPECT_EQ(set(1, ON), 0);
    EXPECT_EQ(recordingTake(),
              joined({denyInstalled(1), installed(1, A1, NO_MAC), installed(4, A2, M2, 1, 10), LEARNED_1, ND_INSTALLED}));
    EXPECT_EQ(set(2, ON), 0);
    EXPECT_EQ(recordingTake(), joined({denyInstalled(2), installed(3, A3, M3, 2), LEARNED_2, ND_INSTALLED}))
        << "global bindings are there already; neighbour discovery is opened again";
    EXPECT_EQ(set(1, OFF), 0);
    EXPECT_EQ(recordingTake(), joined({FORGOTTEN_1, removed(4, A2, M2, 1, 10), denyRemoved(1), ND_INSTALLED}));
    EXPECT_EQ(set(2, OFF), 0);
    EXPECT_EQ(recordingTake(),
              joined({FORGOTTEN_2, removed(3, A3, M3, 2), removed(1, A1, NO_MAC), denyRemoved(2), ND_REMOVED}));
    EXPECT_EQ(gIp6SourceguardFilterInsatlledNum, 0);
}

TEST_F(PortModeTest, BindingsGoOldestFirstAndComeNewestFirst) {
    addBinding(A1, M1, 5, 10);
    addBinding(A2);
    addBinding(A3, M3, 5, 0);
    EXPECT_EQ(set(5, ON), 0);
    EXPECT_EQ(recordingTake(), joined({denyInstalled(5), installed(4, A1, M1, 5, 10), installed(1, A2, NO_MAC),
                                       installed(3, A3, M3, 5), ND_INSTALLED}));
    EXPECT_EQ(set(5, OFF), 0);
    EXPECT_EQ(recordingTake(),
              joined({removed(3, A3, M3, 5), removed(1, A2, NO_MAC), removed(4, A1, M1, 5, 10), denyRemoved(5), ND_REMOVED}));
}

TEST_F(PortModeTest, TheSameModeAgainDoesNothing) {
    populate();
    EXPECT_EQ(set(5, OFF), 0);
    EXPECT_EQ(recordingTake(), Lines{});
    EXPECT_EQ(set(5, ON), 0);
    recordingTake();
    EXPECT_EQ(set(5, ON), 0);
    EXPECT_EQ(recordingTake(), Lines{});
    EXPECT_EQ(Ip6SourceGuardPort[4], 0u);
}

TEST_F(PortModeTest, WhatIsRefused) {
    for (const uint32_t port : {0u, 29u, 0x80000001u, 0xFFFFFFFFu})
        for (const uint32_t mode : {ON, OFF, 2u})
            EXPECT_EQ(set(port, mode), -1) << port;
    for (const uint32_t mode : {2u, 3u, 0x80000000u, 0xFFFFFFFFu})
        EXPECT_EQ(set(1, mode), -1) << mode;
    EXPECT_EQ(recordingTake(), Lines{});
    for (const uint32_t stored : Ip6SourceGuardPort)
        EXPECT_EQ(stored, OFF);
}

TEST_F(PortModeTest, ATrustedPortIsRefusedAlwaysAndWhatItsMode) {
    for (const uint32_t trust : {1u, 2u, 0xFFFFFFFFu}) {
        dhcp6SnoopingTrustPort[5] = trust;
        for (const uint32_t mode : {ON, OFF, 2u})
            EXPECT_EQ(set(6, mode), -1);
    }
    EXPECT_EQ(Ip6SourceGuardPort[5], OFF);
    guard({6});
    EXPECT_EQ(set(6, OFF), -1);
    EXPECT_EQ(Ip6SourceGuardPort[5], ON);
    EXPECT_EQ(recordingTake(), Lines{});
    dhcp6SnoopingTrustPort[5] = 0;
    EXPECT_EQ(set(6, OFF), 0);
}

TEST_F(PortModeTest, WithoutDenyAllThePortStaysOff) {
    populate();
    recordingFilterStatus = -77;
    recordingFailFunction("FRM_OperatePortDenyAllIp6FilterResource", 1);
    EXPECT_EQ(set(1, ON), -77);
    EXPECT_EQ(recordingTake(),
              joined({failing(denyInstalled(1)), said(" turn on ip6v6_source_guard failed because "
                                                      "ip6_source_guard_intstall_deny_all_ip_traffic_frm failed.\r\n")}));
    EXPECT_EQ(Ip6SourceGuardPort[0], OFF);
    EXPECT_EQ(set(1, ON), 0) << "and can be turned on again";
    EXPECT_EQ(recordingTake().size(), 5u);
}

TEST_F(PortModeTest, NoOtherFailureStopsAChange) {
    populate();
    recordingFailAlways("FRM_InstallForwardIp6AddrFilterResource_new");
    EXPECT_EQ(set(1, ON), 0);
    EXPECT_EQ(recordingTake(), joined({denyInstalled(1), installed(1, A1, NO_MAC), failing(installed(4, A2, M2, 1, 10)),
                                       saidInstallFailed(1), failing(LEARNED_1), saidInstallFailed(1), ND_INSTALLED}));
    EXPECT_EQ(Ip6SourceGuardPort[0], ON);
    recordingFailAlways("FRM_OperatePortDenyAllIp6FilterResource");
    EXPECT_EQ(set(1, OFF), 0);
    EXPECT_EQ(recordingTake(), joined({FORGOTTEN_1, saidRemoveFailed(1), removed(4, A2, M2, 1, 10), saidRemoveFailed(1),
                                       removed(1, A1, NO_MAC), failing(denyRemoved(1)), ND_REMOVED}));
    EXPECT_EQ(Ip6SourceGuardPort[0], OFF);
}

TEST_F(PortModeTest, FailuresOfNeighbourDiscoveryAreSaid) {
    recordingFailAlways("FRM_InstallGlobalForwardIcmp6NdFilterResource");
    EXPECT_EQ(set(1, ON), 0);
    EXPECT_EQ(recordingTake(),
              joined({denyInstalled(1), failing(ND_INSTALLED), said("FRM_InstallGlobalForwardIcmp6NdFilterResource failed.")}));
    EXPECT_EQ(Ip6SourceGuardPort[0], ON);
    recordingFailAlways("FRM_RemoveGlobalForwardIcmp6NdFilterResource");
    EXPECT_EQ(set(1, OFF), 0);
    EXPECT_EQ(recordingTake(),
              joined({denyRemoved(1), failing(ND_REMOVED), said("FRM_RemoveGlobalForwardIcmp6NdFilterResource failed.")}));
    EXPECT_EQ(Ip6SourceGuardPort[0], OFF);
}

// A device with 24 ports: port 28 can be set, but it never counts as guarded. Each step does what it says all the same.
TEST_F(PortModeTest, APortThatTheDeviceDoesNotHave) {
    gul_max_port_num = 24;
    addBinding(A1);
    addBinding(A2, M2, 28, 10);
    EXPECT_EQ(set(28, ON), 0);
    EXPECT_EQ(recordingTake(), joined({denyInstalled(28), installed(1, A1, NO_MAC), installed(4, A2, M2, 28, 10), ND_REMOVED,
                                       said("FRM_RemoveGlobalForwardIcmp6NdFilterResource failed.")}));
    uint32_t mode = 9;
    EXPECT_EQ(get_ip6_source_guard_port_mode(28, &mode), 0);
    EXPECT_EQ(mode, ON);
    EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_port(28), 0u);
    EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_any(), 0u);
    EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_any_other(1), 0u);
    EXPECT_EQ(set(1, ON), 0);
    EXPECT_EQ(recordingTake(), joined({denyInstalled(1), installed(1, A1, NO_MAC), ND_INSTALLED}))
        << "as if no other were guarded";
    EXPECT_EQ(set(28, OFF), 0);
    EXPECT_EQ(recordingTake(), joined({removed(4, A2, M2, 28, 10), denyRemoved(28), ND_INSTALLED}));
}

TEST_F(PortModeTest, EveryPortCanBeGuarded) {
    for (uint32_t port = 1; port <= 28; port++) {
        if (port == 4) // trusted
            continue;
        EXPECT_EQ(set(port, ON), 0);
        EXPECT_EQ(recordingTake(), joined({denyInstalled(port), ND_INSTALLED}));
        EXPECT_EQ(Ip6SourceGuardPort[port - 1], ON);
    }
}

TEST_F(PortModeTest, WhichPortsAreGuarded) {
    for (const uint32_t guarded : {1u, 14u, 28u}) {
        guard({guarded});
        for (uint32_t port = 0; port <= 30; port++) {
            EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_port(port), port == guarded ? 1u : 0u);
            EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_any_other(port), port == guarded ? 0u : 1u);
        }
        EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_any(), 1u);
        unguard({guarded});
        EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_any(), 0u);
        EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_any_other(1), 0u);
    }
    guard({3, 4});
    EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_any_other(3), 1u);
    EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_any_other(4), 1u);
    EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_port(0xFFFFFFFF), 0u);
}

TEST_F(PortModeTest, OnlyZeroIsGuarded) {
    for (const uint32_t value : {2u, 0xFFFFFFFFu}) {
        Ip6SourceGuardPort[2] = value;
        EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_port(3), 0u);
        EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_any(), 0u);
        EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_any_other(1), 0u);
    }
}

TEST_F(PortModeTest, ADeviceWithFewerOrMorePorts) {
    guard({24});
    gul_max_port_num = 23;
    EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_any(), 0u);
    EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_port(24), 0u);
    gul_max_port_num = 24;
    EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_any(), 1u);
    EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_port(24), 1u);
    unguard({24});
    for (const uint32_t ports : {29u, 64u, 0xFFFFFFFFu}) {
        gul_max_port_num = ports; // the table ends at 28
        EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_any(), 0u);
        EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_any_other(1), 0u);
        EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_port(29), 0u);
        EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_port(ports), 0u);
        EXPECT_EQ(set(29, ON), -1);
    }
    gul_max_port_num = 0;
    guard({1});
    EXPECT_EQ(dhcp6snooping_ip6_source_guard_configed_any(), 0u);
}

TEST_F(PortModeTest, TheModeIsRead) {
    uint32_t mode = 9;
    for (const uint32_t port : {0u, 29u, 0xFFFFFFFFu})
        EXPECT_EQ(get_ip6_source_guard_port_mode(port, &mode), -1);
    EXPECT_EQ(mode, 9u);
    EXPECT_EQ(get_ip6_source_guard_port_mode(1, nullptr), -1);
    EXPECT_EQ(get_ip6_source_guard_port_mode(28, &mode), 0);
    EXPECT_EQ(mode, OFF);
    guard({28});
    EXPECT_EQ(get_ip6_source_guard_port_mode(28, &mode), 0);
    EXPECT_EQ(mode, ON);
    EXPECT_EQ(get_ip6_source_guard_port_mode(1, &mode), 0);
    EXPECT_EQ(mode, OFF);
}

} // namespace
