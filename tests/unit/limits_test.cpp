// Trust, limits, counts and the two switches: setters and getters.

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "tests/unit/fixture.h"

namespace {

struct LimitsTest : SnoopingTest {
    void TearDown() override {
        EXPECT_EQ(recordingTake(), Lines{}) << "nothing here calls the switch or says anything";
        SnoopingTest::TearDown();
    }
};

constexpr uint32_t REFUSED = 0xFFFFFFFF;
const uint32_t NO_PORTS[] = {0, 29, 30, 255, 0x80000000u, 0xFFFFFFFF};

TEST_F(LimitsTest, TrustIsSetAndRead) {
    uint32_t mode = 99;
    for (uint32_t port = 1; port <= 28; port++) {
        for (const int32_t value : {1, 0, 1}) {
            EXPECT_EQ(dhcp6snooping_port_mode(port, value), 0u);
            EXPECT_EQ(dhcp6SnoopingTrustPort[port - 1], static_cast<uint32_t>(value));
            EXPECT_EQ(dhcp6snooping_port_mode_get(port, &mode), 0u);
            EXPECT_EQ(mode, static_cast<uint32_t>(value));
        }
    }
}

TEST_F(LimitsTest, TrustIsRefusedOutsideTheTable) {
    uint32_t mode = 99;
    for (const uint32_t port : NO_PORTS) {
        EXPECT_EQ(dhcp6snooping_port_mode(port, 1), REFUSED);
        EXPECT_EQ(dhcp6snooping_port_mode_get(port, &mode), REFUSED);
        EXPECT_EQ(mode, 99u);
    }
    EXPECT_EQ(dhcp6snooping_port_mode_get(1, nullptr), REFUSED);
}

TEST_F(LimitsTest, OtherModesAreRefused) {
    for (const int32_t mode : {2, -1, 256, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(dhcp6snooping_port_mode(1, mode), REFUSED);
        EXPECT_EQ(dhcp6SnoopingTrustPort[0], 0u);
    }
}

TEST_F(LimitsTest, TheModeOfAPortIsKnownBeyondTheDevicesPorts) {
    gul_max_port_num = 4;
    uint32_t mode = 99;
    EXPECT_EQ(dhcp6snooping_port_mode(28, 1), 0u);
    EXPECT_EQ(dhcp6snooping_port_mode_get(28, &mode), 0u);
    EXPECT_EQ(mode, 1u);
}

TEST_F(LimitsTest, AGuardedPortIsNotMadeTrusted) {
    Ip6SourceGuardPort[0] = 0;
    EXPECT_EQ(dhcp6snooping_port_mode(1, 1), REFUSED);
    EXPECT_EQ(dhcp6SnoopingTrustPort[0], 0u);
    EXPECT_EQ(dhcp6snooping_port_mode(1, 0), 0u) << "it has this mode already";
    dhcp6SnoopingTrustPort[0] = 1;
    EXPECT_EQ(dhcp6snooping_port_mode(1, 1), 0u) << "it has this mode already";
    EXPECT_EQ(dhcp6snooping_port_mode(1, 0), 0u) << "untrusted is always allowed";
    EXPECT_EQ(dhcp6SnoopingTrustPort[0], 0u);
}

TEST_F(LimitsTest, TrustLeavesTheClientsAlone) {
    addClient(CLIENT, 10, 1);
    dhcp6snooping_port_mode(1, 1);
    EXPECT_EQ(tableMacs(), Lines{CLIENT});
    EXPECT_EQ(dhcp6SnoopingPortIpNum[0], 1);
}

TEST_F(LimitsTest, PortLimits) {
    uint32_t max = 99, num = 99;
    EXPECT_EQ(dhcp6snooping_port_maxclients_get(3, &max, &num), 0u);
    EXPECT_EQ(max, 2048u);
    EXPECT_EQ(num, 0u);
    addClient(CLIENT, 10, 3);
    for (const uint32_t limit : {2048u, 0u, 1u}) {
        EXPECT_EQ(dhcp6snooping_port_maxclients(3, limit), 0u);
        EXPECT_EQ(dhcp6snooping_port_maxclients_get(3, &max, &num), 0u);
        EXPECT_EQ(max, limit);
        EXPECT_EQ(num, 1u);
    }
    for (const uint32_t limit : {2049u, 65536u, 0x80000000u, 0xFFFFFFFFu})
        EXPECT_EQ(dhcp6snooping_port_maxclients(3, limit), REFUSED);
    EXPECT_EQ(dhcp6SnoopingPortMaxIP[2], 1);
    for (const uint32_t port : NO_PORTS)
        EXPECT_EQ(dhcp6snooping_port_maxclients(port, 10), REFUSED);
    EXPECT_EQ(dhcp6snooping_port_maxclients(1, 5), 0u);
    EXPECT_EQ(dhcp6snooping_port_maxclients(28, 6), 0u);
    EXPECT_EQ(dhcp6SnoopingPortMaxIP[0], 5);
    EXPECT_EQ(dhcp6SnoopingPortMaxIP[27], 6);
    EXPECT_EQ(tableMacs(), Lines{CLIENT});
}

TEST_F(LimitsTest, PortGettersGoByTheDevicesPorts) {
    uint32_t max = 99, num = 98;
    Dhcp6SnoopingPortInfo info = {7, 8, 9};
    gul_max_port_num = 4;
    EXPECT_EQ(dhcp6snooping_port_maxclients(5, 10), 0u) << "setters know 28";
    EXPECT_EQ(dhcp6snooping_port_maxclients_get(4, &max, &num), 0u);
    max = 99;
    for (const uint32_t devicePorts : {4u, 28u, 64u, 0xFFFFFFFFu}) {
        gul_max_port_num = devicePorts;
        for (const uint32_t port : {0u, devicePorts == 4 ? 5u : 29u, 64u, 0x80000000u, 0xFFFFFFFFu}) {
            EXPECT_EQ(dhcp6snooping_port_maxclients_get(port, &max, &num), REFUSED);
            EXPECT_EQ(dhcp6snoopingPortInfoGet(port, &info), REFUSED);
        }
    }
    EXPECT_EQ(max, 99u);
    EXPECT_EQ(num, 0u);
    EXPECT_EQ(info.mode, 7u);
    EXPECT_EQ(info.maxClients, 8u);
    EXPECT_EQ(info.clients, 9u);
    EXPECT_EQ(dhcp6snooping_port_maxclients_get(28, &max, &num), 0u);
}

TEST_F(LimitsTest, GettersRefuseWhenAnOutputIsMissing) {
    uint32_t value = 99;
    EXPECT_EQ(dhcp6snooping_port_maxclients_get(1, nullptr, &value), REFUSED);
    EXPECT_EQ(dhcp6snooping_port_maxclients_get(1, &value, nullptr), REFUSED);
    EXPECT_EQ(dhcp6snooping_vlan_maxclients_get(1, nullptr, &value), REFUSED);
    EXPECT_EQ(dhcp6snooping_vlan_maxclients_get(1, &value, nullptr), REFUSED);
    EXPECT_EQ(dhcp6snoopingPortInfoGet(1, nullptr), REFUSED);
    EXPECT_EQ(dhcp6snoopingGlobalInfoGet(nullptr), REFUSED);
    EXPECT_EQ(value, 99u);
}

TEST_F(LimitsTest, VlanLimits) {
    uint32_t max = 99, num = 99;
    addClient(CLIENT, 10, 3);
    EXPECT_EQ(dhcp6snooping_vlan_maxclients_get(10, &max, &num), 0u);
    EXPECT_EQ(max, 2048u);
    EXPECT_EQ(num, 1u);
    for (const uint32_t vlan : {1u, 10u, 4094u}) {
        EXPECT_EQ(dhcp6snooping_vlan_maxclients(vlan, 5), 0u);
        EXPECT_EQ(dhcp6snooping_vlan_maxclients_get(vlan, &max, &num), 0u);
        EXPECT_EQ(max, 5u);
        EXPECT_EQ(dhcp6snooping_vlan_maxclients(vlan, 2048), 0u);
        EXPECT_EQ(dhcp6snooping_vlan_maxclients(vlan, 0), 0u);
        EXPECT_EQ(dhcp6snooping_vlan_maxclients(vlan, 2049), REFUSED);
        EXPECT_EQ(dhcp6snooping_vlan_maxclients(vlan, 0xFFFFFFFF), REFUSED);
        EXPECT_EQ(dhcp6SnoopingDhcpVlanMaxIP[vlan], 0);
    }
    max = num = 99;
    for (const uint32_t vlan : {0u, 4095u, 4096u, 65546u, 0xFFFFFFFFu}) {
        EXPECT_EQ(dhcp6snooping_vlan_maxclients(vlan, 5), REFUSED);
        EXPECT_EQ(dhcp6snooping_vlan_maxclients_get(vlan, &max, &num), REFUSED);
    }
    EXPECT_EQ(max, 99u);
    EXPECT_EQ(num, 99u);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanMaxIP[0], 2048);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanMaxIP[4095], 2048);
}

Bytes vlanList(const std::vector<uint32_t> &vlans) {
    Bytes list(512, 0);
    for (const uint32_t vlan : vlans)
        list[vlan / 8] = static_cast<uint8_t>(list[vlan / 8] | (0x80 >> (vlan % 8)));
    return list;
}

TEST_F(LimitsTest, AVlanListSetsExactlyItsVlans) {
    const std::vector<uint32_t> vlans = {0, 1, 7, 8, 9, 100, 2047, 4088, 4094, 4095};
    EXPECT_EQ(dhcp6snooping_vlanlist_maxclients(12, vlanList(vlans).data()), 0u);
    for (uint32_t v = 0; v < 4096; v++) {
        const bool named = std::find(vlans.begin(), vlans.end(), v) != vlans.end() && v != 0 && v != 4095;
        ASSERT_EQ(dhcp6SnoopingDhcpVlanMaxIP[v], named ? 12 : 2048) << v;
    }
    EXPECT_EQ(dhcp6snooping_vlanlist_maxclients(2049, vlanList({5}).data()), REFUSED);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanMaxIP[5], 2048);
    EXPECT_EQ(dhcp6snooping_vlanlist_maxclients(2049, vlanList({}).data()), REFUSED) << "whatever the list holds";
    EXPECT_EQ(dhcp6snooping_vlanlist_maxclients(5, vlanList({}).data()), 0u);
    EXPECT_EQ(dhcp6snooping_vlanlist_maxclients(5, nullptr), REFUSED);
    EXPECT_EQ(dhcp6snooping_vlanlist_maxclients(0, Bytes(512, 0xFF).data()), 0u);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanMaxIP[0], 2048);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanMaxIP[4095], 2048);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanMaxIP[4094], 0);
}

TEST_F(LimitsTest, AVlanResetSetsLimitAndCountBack) {
    addClient("02:00:00:00:00:01", 10, 1);
    addClient("02:00:00:00:00:02", 10, 1);
    addClient("02:00:00:00:00:03", 10, 1);
    for (const uint32_t vlan : {0u, 9u, 10u, 11u, 4094u, 4095u}) {
        dhcp6SnoopingDhcpVlanMaxIP[vlan] = 5;
        dhcp6SnoopingDhcpVlanIpNum[vlan] = 3;
    }
    EXPECT_EQ(dhcp6snooping_vlan_reset(vlanList({0, 10, 4094, 4095}).data()), 0u);
    for (const uint32_t vlan : {0u, 9u, 11u, 4095u}) {
        EXPECT_EQ(dhcp6SnoopingDhcpVlanMaxIP[vlan], 5) << vlan;
        EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[vlan], 3) << vlan;
    }
    for (const uint32_t vlan : {10u, 4094u}) {
        EXPECT_EQ(dhcp6SnoopingDhcpVlanMaxIP[vlan], 2048);
        EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[vlan], 0);
    }
    EXPECT_EQ(tableMacs().size(), 3u) << "the clients stay";
    dhcp6snooping_delete_allavlnode();
    EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[10], 0) << "and their later deletion stops at 0";
    EXPECT_EQ(dhcp6SnoopingPortIpNum[0], 0);
    EXPECT_EQ(dhcp6snooping_vlan_reset(nullptr), 0u);
}

TEST_F(LimitsTest, OutsideTheTablesNothingIsCounted) {
    for (const uint32_t port0 : {28u, 29u, 0xFFFFFFFFu})
        dhcp6snooping_count_client(port0, 10);
    for (const uint32_t vlan : {4096u, 4097u, 0xFFFFFFFFu})
        dhcp6snooping_count_client(2, vlan);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[10], 3);
    EXPECT_EQ(dhcp6SnoopingPortIpNum[2], 3);
}

TEST_F(LimitsTest, GlobalInformation) {
    Dhcp6SnoopingGlobalInfo info = {9, 9};
    EXPECT_EQ(dhcp6snoopingGlobalInfoGet(&info), 0u);
    EXPECT_EQ(info.enabled, 0u);
    EXPECT_EQ(info.fastRemove, 1u);
    dhcp6SnoopingOn = 1;
    bDhcp6SnoopingFastRemove = 0;
    dhcp6snoopingGlobalInfoGet(&info);
    EXPECT_EQ(info.enabled, 1u);
    EXPECT_EQ(info.fastRemove, 0u);
}

TEST_F(LimitsTest, PortInformation) {
    addClient(CLIENT, 10, 4);
    dhcp6snooping_port_maxclients(4, 77);
    Dhcp6SnoopingPortInfo info = {};
    EXPECT_EQ(dhcp6snoopingPortInfoGet(4, &info), 0u);
    EXPECT_EQ(info.mode, 1u);
    EXPECT_EQ(info.maxClients, 77u);
    EXPECT_EQ(info.clients, 1u);
    EXPECT_EQ(dhcp6snoopingPortInfoGet(28, &info), 0u);
    EXPECT_EQ(info.mode, 0u);
    EXPECT_EQ(info.maxClients, 2048u);
    EXPECT_EQ(info.clients, 0u);
}

TEST_F(LimitsTest, SwitchesAreStoredAsTheyAre) {
    for (const uint32_t value : {0u, 1u, 7u, 0xFFFFFFFFu}) {
        EXPECT_EQ(dhcp6snooping_fastRemove_enable(value), 0u);
        EXPECT_EQ(dhcp6snooping_l2Relay_enable(value), 0u);
        EXPECT_EQ(bDhcp6SnoopingFastRemove, value);
        EXPECT_EQ(dhcp6L2Relay, value);
    }
}

TEST_F(LimitsTest, SourceGuardPortsOutsideTheTableAreOff) {
    for (const uint32_t value : {1u, 2u, 0xFFFFFFFFu}) {
        Ip6SourceGuardPort[27] = value;
        EXPECT_FALSE(ip6_source_guard_port_on(27));
    }
    Ip6SourceGuardPort[27] = 0;
    EXPECT_TRUE(ip6_source_guard_port_on(27));
    for (uint32_t &port : Ip6SourceGuardPort)
        port = 0;
    for (const uint32_t port0 : {28u, 29u, 0xFFFFFFFFu})
        EXPECT_FALSE(ip6_source_guard_port_on(port0));
}

} // namespace
