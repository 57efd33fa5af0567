// The remote calls: registration, each wrapper by its message, wrong counts, missing data.

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/clients/queries.h"
#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "l2/dhcp6snooping/packet/onoff.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "l2/dhcp6snooping/sourceguard/snmprows.h"
#include "tests/unit/guard.h"
#include "tests/unit/remote.h"

#include <cstring>

namespace {

constexpr int32_t REFUSED = -1;

struct Call {
    uint32_t id;
    std::string wrapper;
    uint32_t arguments;
};

const Call CALLS[] = {{0, "start", 0},
                      {1, "stop", 0},
                      {2, "port_mode", 2},
                      {3, "port_mode_get", 2},
                      {4, "set_ip6_source_guard_port_mode", 2},
                      {5, "get_ip6_source_guard_port_mode", 2},
                      {6, "port_maxclients", 2},
                      {7, "port_maxclients_get", 3},
                      {8, "vlanlist_maxclients", 2},
                      {9, "get_nextclients_ext", 6},
                      {10, "GlobalInfoGet", 1},
                      {11, "PortInfoGet", 2},
                      {12, "vlan_maxclients_get", 3},
                      {13, "ip6_source_guard_bind_entry_num_get", 1},
                      {14, "ip6_source_guard_bind_node_add", 4},
                      {15, "ip6_source_guard_bind_node_check", 3},
                      {16, "ip6_source_guard_bind_node_delete", 1},
                      {17, "ip6_source_guard_bind_node_delete_all", 0},
                      {18, "ip6_source_guard_bind_node_get", 4},
                      {19, "ip6_source_guard_bind_node_get_by_ip", 2},
                      {20, "ip6_source_guard_bind_for_snmp_add", 5},
                      {21, "ip6_source_guard_bind_for_snmp_delete", 1},
                      {22, "ip6_source_guard_bind_for_snmp_delete_all", 0},
                      {23, "ip6_source_guard_vlanlist_config", 3},
                      {24, "no_ip6_source_guard_vlanlist_get", 1},
                      {25, "delete_by_port", 1},
                      {26, "delete_by_ip", 1},
                      {27, "delete_by_mac", 1},
                      {28, "delete_by_vlan", 1},
                      {29, "delete_all", 0},
                      {30, "info_option18_enable", 1},
                      {31, "info_option37_enable", 1},
                      {32, "info_id_set", 3},
                      {33, "info_get", 3},
                      {34, "fastRemove_enable", 1},
                      {35, "l2Relay_enable", 1},
                      {36, "vlan_reset", 1}};

struct RemoteCallsTest : GuardTest {
    void SetUp() override {
        GuardTest::SetUp();
        EXPECT_EQ(dhcp6snoopingRmWrapFunction(), 0);
        recordingTake();
    }
    void TearDown() override {
        dhcp6SnoopingOn = 0;
        GuardTest::TearDown();
    }
};

TEST_F(RemoteCallsTest, RegistrationStopsWithoutATable) {
    recordingFailFunction("smdRMWrapInit", 1);
    EXPECT_EQ(dhcp6snoopingRmWrapFunction(), -1);
    EXPECT_EQ(recordingTake(), (Lines{"smdRMWrapInit entries=37 -> fails",
                                      "smdDebugPrintf level=0x4 \"dhcp6snoopingRmWrapFunction:smdRMWrapInit failed\""}));
}

TEST_F(RemoteCallsTest, RegistrationGoesOnAfterAFailureAndAddsThemUp) {
    recordingFailFunction("__smdRmWrapRegister", 3);
    EXPECT_EQ(dhcp6snoopingRmWrapFunction(), -1);
    Lines lines = recordingTake();
    EXPECT_EQ(lines.size(), 1 + std::size(CALLS) + 1);
    EXPECT_EQ(lines.back(), "smdDebugPrintf level=0x4 \"dhcp6snoopingRmWrapFunction:register failed\"");
    recordingFailAlways("__smdRmWrapRegister");
    EXPECT_EQ(dhcp6snoopingRmWrapFunction(), -static_cast<int32_t>(std::size(CALLS)));
}

TEST_F(RemoteCallsTest, EveryIdentifierHasItsCall) {
    EXPECT_EQ(std::size(CALLS), 37u);
    EXPECT_EQ(DH6S_FUNC_COUNT, 37u);
    for (uint32_t id = 0; id < DH6S_FUNC_COUNT; id++) {
        EXPECT_EQ(CALLS[id].id, id);
        EXPECT_NE(recordingRemoteFunction(id), nullptr) << id;
    }
    EXPECT_EQ(recordingRemoteFunction(37), nullptr);
}

TEST_F(RemoteCallsTest, EveryCallSaysItsNameAndRefusesAWrongCount) {
    for (const Call &one : CALLS) {
        SCOPED_TRACE(one.wrapper);
        const std::string name = "dhcp6snoopingWrap_" + one.wrapper;
        alignas(16) static uint8_t slots[SMD_RM_ARGS][SMD_RM_SLOT];
        memset(slots, 0, sizeof slots);
        SmdRmArg arguments[SMD_RM_ARGS];
        for (uint32_t i = 0; i < SMD_RM_ARGS; i++)
            arguments[i] = {.length = 4, .data = slots[i]};
        addClient(CLIENT, 10, 1);
        for (uint32_t count = 0; count <= 8; count++) {
            if (count == one.arguments)
                continue;
            recordingTake();
            EXPECT_EQ(recordingRemoteFunction(one.id)(nullptr, arguments, count), -1001);
            EXPECT_EQ(recordingTake(),
                      (Lines{"smdDebugPrintf level=0x400 \"" + name + ":start\"",
                             "smdDebugPrintf level=0x800 \"" + name + ":ulArgsNum " + std::to_string(count) + " error\""}));
        }
        EXPECT_EQ(tableMacs(), Lines{CLIENT}) << "the function behind was not called";
        EXPECT_EQ(bDhcp6SnoopingFastRemove, 1u);
        EXPECT_EQ(dhcp6SnoopingOn, 0u);
        EXPECT_EQ(bindings(), Lines{});
        recordingRemoteFunction(one.id)(nullptr, arguments, one.arguments);
        EXPECT_EQ(recordingTake().front(), "smdDebugPrintf level=0x400 \"" + name + ":start\"");
        dhcp6SnoopingOn = 0;
        bDhcp6SnoopingFastRemove = 1;
        dhcp6snooping_delete_allavlnode();
        ip6_source_guard_bind_node_delete_all();
    }
}

TEST_F(RemoteCallsTest, AWrongCountIsSeenBeforeAnyArgument) {
    for (const Call &one : CALLS) {
        SCOPED_TRACE(one.wrapper);
        for (const uint32_t count : {one.arguments + 1, 0x80000000u | one.arguments, 0xFFFFFFFFu}) {
            recordingTake();
            EXPECT_EQ(recordingRemoteFunction(one.id)(nullptr, nullptr, count), -1001);
            EXPECT_EQ(recordingTake().back(), "smdDebugPrintf level=0x800 \"dhcp6snoopingWrap_" + one.wrapper + ":ulArgsNum " +
                                                  std::to_string(count) + " error\"");
        }
        if (one.arguments == 0)
            continue;
        EXPECT_EQ(recordingRemoteFunction(one.id)(nullptr, nullptr, one.arguments), -1001) << "no arguments at all";
        EXPECT_EQ(recordingTake(), Lines{"smdDebugPrintf level=0x400 \"dhcp6snoopingWrap_" + one.wrapper + ":start\""});
    }
    EXPECT_EQ(dhcp6SnoopingOn, 0u);
}

// What the wrapper reads itself must be there; of a missing buffer the function called is the judge.
TEST_F(RemoteCallsTest, AMissingNumberOrAddressIsAWrongArgument) {
    struct Values {
        uint32_t id;
        std::vector<uint32_t> read;
    };
    const Values values[] = {{2, {0, 1}}, {3, {0}},           {4, {0, 1}}, {5, {0}},        {6, {0, 1}},  {7, {0}},  {8, {0}},
                             {11, {0}},   {12, {0}},          {13, {0}},   {14, {0, 2, 3}}, {15, {0, 2}}, {16, {0}}, {18, {0}},
                             {19, {0}},   {20, {0, 1, 3, 4}}, {21, {0}},   {23, {0}},       {25, {0}},    {28, {0}}, {30, {0}},
                             {31, {0}},   {32, {0, 1}},       {34, {0}},   {35, {0}}};
    alignas(16) static uint8_t slots[SMD_RM_ARGS][SMD_RM_SLOT];
    memset(slots, 0, sizeof slots);
    for (const Values &one : values)
        for (const uint32_t missing : one.read) {
            SmdRmArg arguments[SMD_RM_ARGS] = {};
            for (uint32_t i = 0; i < SMD_RM_ARGS; i++)
                arguments[i].data = i == missing ? nullptr : slots[i];
            recordingTake();
            EXPECT_EQ(recordingRemoteFunction(one.id)(nullptr, arguments, CALLS[one.id].arguments), -1001)
                << one.id << " without " << missing;
            EXPECT_EQ(recordingTake().size(), 1u) << "nothing but the name";
        }
}

TEST_F(RemoteCallsTest, MissingDataIsRefused) {
    for (const Call &one : CALLS) {
        if (one.arguments == 0 || one.id == 36)
            continue;
        SCOPED_TRACE(one.wrapper);
        addAckedClient(CLIENT, 10, 1);
        alignas(16) static uint8_t slots[SMD_RM_ARGS][SMD_RM_SLOT];
        memset(slots, 0, sizeof slots);
        for (uint32_t missing = 0; missing < one.arguments; missing++) {
            SmdRmArg arguments[SMD_RM_ARGS] = {};
            for (uint32_t i = 0; i < one.arguments; i++)
                arguments[i].data = i == missing ? nullptr : slots[i];
            slots[0][0] = 1; // port 1, VLAN 1, limit 1
            if (one.id == DH6S_FUNC_IP6_SOURCE_GUARD_VLANLIST_CONFIG && missing == 2)
                continue; // who does not want to know the failures need not
            if (one.id == DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_ADD && missing == 2)
                continue; // has a test of its own
            EXPECT_LT(recordingRemoteFunction(one.id)(nullptr, arguments, one.arguments), 0) << missing;
        }
        EXPECT_EQ(tableMacs(), Lines{CLIENT});
        EXPECT_EQ(bDhcp6SnoopingFastRemove, 1u);
        EXPECT_EQ(dhcp6L2Relay, 0u);
        EXPECT_EQ(dhcp6SnoopingPortMaxIP[0], 2048);
        EXPECT_EQ(dhcp6SnoopingTrustPort[0], 0u);
        EXPECT_EQ(Ip6SourceGuardPort[0], 1u);
        EXPECT_EQ(bindings(), Lines{});
    }
    SmdRmArg none[1] = {};
    EXPECT_EQ(recordingRemoteFunction(36)(nullptr, none, 1), 0) << "a reset of no list has nothing to do";
}

TEST_F(RemoteCallsTest, ARowWithoutAMacIsDroppedWithoutAWord) {
    Bytes first = u32(0), address = addressBytes(A1), number = u32(1);
    SmdRmArg arguments[5] = {{4, first.data()}, {16, address.data()}, {0, nullptr}, {4, number.data()}, {4, number.data()}};
    recordingTake();
    EXPECT_EQ(recordingRemoteFunction(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_ADD)(nullptr, arguments, 5), 0);
    EXPECT_EQ(recordingTake(),
              Lines{"smdDebugPrintf level=0x400 \"dhcp6snoopingWrap_ip6_source_guard_bind_for_snmp_add:start\""});
    for (const Ip6BindSnmpRow &row : ip6SourceGuardBindForSnmp)
        EXPECT_EQ(row.status, 0u);
}

TEST_F(RemoteCallsTest, StartAndStop) {
    EXPECT_EQ(call(DH6S_FUNC_START), 0);
    EXPECT_EQ(dhcp6snooping_is_enabled(), 1u);
    addClient(CLIENT, 10, 1);
    EXPECT_EQ(call(DH6S_FUNC_STOP), 0);
    EXPECT_EQ(dhcp6snooping_is_enabled(), 0u);
    EXPECT_EQ(tableMacs(), Lines{});
    EXPECT_EQ(call(DH6S_FUNC_START, {u32(1)}), -1001);
    EXPECT_EQ(dhcp6snooping_is_enabled(), 0u);
}

TEST_F(RemoteCallsTest, PortMode) {
    EXPECT_EQ(call(DH6S_FUNC_PORT_MODE_SET, {u32(2), u32(1)}), 0);
    EXPECT_EQ(dhcp6SnoopingTrustPort[1], 1u);
    std::vector<Bytes> arguments = {u32(2), u32(99)};
    EXPECT_EQ(call(DH6S_FUNC_PORT_MODE_GET, &arguments), 0);
    EXPECT_EQ(numberIn(arguments[1]), 1u);
    EXPECT_EQ(call(DH6S_FUNC_PORT_MODE_SET, {u32(29), u32(1)}), REFUSED);
    EXPECT_EQ(call(DH6S_FUNC_PORT_MODE_SET, {u32(2), u32(0xFFFFFFFF)}), REFUSED);
    EXPECT_EQ(call(DH6S_FUNC_PORT_MODE_SET, {u32(3), u32(1), u32(1)}), -1001);
    EXPECT_EQ(dhcp6SnoopingTrustPort[2], 0u);
}

TEST_F(RemoteCallsTest, Limits) {
    EXPECT_EQ(call(DH6S_FUNC_PORT_MAX_CLIENTS_SET, {u32(2), u32(7)}), 0);
    std::vector<Bytes> arguments = {u32(2), u32(99), u32(99)};
    addClient(CLIENT, 10, 2);
    EXPECT_EQ(call(DH6S_FUNC_PORT_MAX_CLIENTS_GET, &arguments), 0);
    EXPECT_EQ(numberIn(arguments[1]), 7u);
    EXPECT_EQ(numberIn(arguments[2]), 1u);
    EXPECT_EQ(call(DH6S_FUNC_PORT_MAX_CLIENTS_SET, {u32(2), u32(2049)}), REFUSED);
    Bytes list(512, 0);
    list[1] = 0x20; // VLAN 10
    EXPECT_EQ(call(DH6S_FUNC_VLANLIST_MAX_CLIENTS_SET, {u32(5), list}), 0);
    arguments = {u32(10), u32(99), u32(99)};
    EXPECT_EQ(call(DH6S_FUNC_VLAN_MAXCLIENTS_GET, &arguments), 0);
    EXPECT_EQ(numberIn(arguments[1]), 5u);
    EXPECT_EQ(numberIn(arguments[2]), 1u);
    EXPECT_EQ(call(DH6S_FUNC_VLAN_RESET, {list}), 0);
    EXPECT_EQ(call(DH6S_FUNC_VLAN_MAXCLIENTS_GET, &arguments), 0);
    EXPECT_EQ(numberIn(arguments[1]), 2048u);
    EXPECT_EQ(numberIn(arguments[2]), 0u);
    EXPECT_EQ(call(DH6S_FUNC_VLAN_MAXCLIENTS_GET, {u32(0), u32(0), u32(0)}), REFUSED);
}

TEST_F(RemoteCallsTest, Information) {
    dhcp6SnoopingOn = 1;
    std::vector<Bytes> arguments = {Bytes(8, 0)};
    EXPECT_EQ(call(DH6S_FUNC_GLOBAL_INFO_GET, &arguments), 0);
    EXPECT_EQ(arguments[0], (Bytes{1, 0, 0, 0, 1, 0, 0, 0}));
    arguments = {u32(4), Bytes(12, 0)};
    addClient(CLIENT, 10, 4);
    EXPECT_EQ(call(DH6S_FUNC_PORT_INFO_GET, &arguments), 0);
    EXPECT_EQ(arguments[1], (Bytes{1, 0, 0, 0, 0, 8, 0, 0, 1, 0, 0, 0}));
    EXPECT_EQ(call(DH6S_FUNC_PORT_INFO_GET, {u32(29), Bytes(12, 0)}), REFUSED);
}

TEST_F(RemoteCallsTest, NextClient) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 2);
    addLease(client, "2001:db8::1", 128, 100);
    std::vector<Bytes> arguments = {Bytes(6, 0), u32(0), u32(0), u32(0), Bytes(200, 0), Bytes(40, 0)};
    EXPECT_EQ(call(DH6S_FUNC_GET_NEXTCLIENTS_EXT, &arguments), 0);
    EXPECT_EQ(arguments[0], macBytes(CLIENT));
    EXPECT_EQ(numberIn(arguments[1]), 10u);
    EXPECT_EQ(numberIn(arguments[2]), 2u);
    EXPECT_EQ(numberIn(arguments[3]), 1u);
    EXPECT_EQ(Bytes(arguments[4].begin(), arguments[4].begin() + 16), addressBytes("2001:db8::1"));
    EXPECT_EQ(arguments[4][16], 128);
    EXPECT_EQ(numberIn(arguments[5]), 100u);
    EXPECT_EQ(call(DH6S_FUNC_GET_NEXTCLIENTS_EXT, &arguments), REFUSED);
}

TEST_F(RemoteCallsTest, Deletions) {
    const auto fill = []() {
        addLease(addClient(CLIENT, 10, 1), "2001:db8::1", 128, 100);
        addClient(OTHER_CLIENT, 20, 2);
    };
    fill();
    EXPECT_EQ(call(DH6S_FUNC_DELETE_BY_PORT, {u32(1)}), 0);
    EXPECT_EQ(tableMacs(), Lines{OTHER_CLIENT});
    fill();
    EXPECT_EQ(call(DH6S_FUNC_DELETE_BY_IP, {addressBytes("2001:db8::1")}), 0);
    EXPECT_EQ(tableMacs(), Lines{OTHER_CLIENT});
    EXPECT_EQ(call(DH6S_FUNC_DELETE_BY_MAC, {macBytes(OTHER_CLIENT)}), 0);
    EXPECT_EQ(tableMacs(), Lines{});
    fill();
    EXPECT_EQ(call(DH6S_FUNC_DELETE_BY_VLAN, {u32(20)}), 0);
    EXPECT_EQ(tableMacs(), Lines{CLIENT});
    EXPECT_EQ(call(DH6S_FUNC_DELETE_ALL), 0);
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(RemoteCallsTest, DeleteAllIsTheOneThatIsCutOff) {
    for (const char *mac : {"02:00:00:00:00:01", "02:00:00:00:00:02"})
        addClient(mac, 10, 1);
    recordingClockMovesOn("avlSuccessorGet", 40);
    EXPECT_EQ(call(DH6S_FUNC_DELETE_ALL), 0);
    EXPECT_EQ(tableMacs(), Lines{"02:00:00:00:00:02"});
}

TEST_F(RemoteCallsTest, Switches) {
    EXPECT_EQ(call(DH6S_FUNC_FASTREMOVE_ENABLE, {u32(0)}), 0);
    EXPECT_EQ(bDhcp6SnoopingFastRemove, 0u);
    EXPECT_EQ(dhcp6L2Relay, 0u);
    EXPECT_EQ(call(DH6S_FUNC_L2RELAY_ENABLE, {u32(9)}), 0);
    EXPECT_EQ(dhcp6L2Relay, 9u);
    EXPECT_EQ(bDhcp6SnoopingFastRemove, 0u);
}

TEST_F(RemoteCallsTest, ShortArgumentsAreReadAsZeroFilled) {
    EXPECT_EQ(call(DH6S_FUNC_PORT_MODE_SET, {{2}, {1}}), 0);
    EXPECT_EQ(dhcp6SnoopingTrustPort[1], 1u);
    EXPECT_EQ(call(DH6S_FUNC_VLANLIST_MAX_CLIENTS_SET, {u32(5), {0x40}}), 0);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanMaxIP[1], 5);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanMaxIP[9], 2048);
}

} // namespace
