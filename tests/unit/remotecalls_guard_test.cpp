// The remote calls of the source guard, by their messages.

#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "l2/dhcp6snooping/sourceguard/exemption.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "tests/unit/guard.h"
#include "tests/unit/remote.h"

#include <cstring>

namespace {

constexpr int32_t REFUSED = -1;

struct RemoteCallsGuardTest : GuardTest {
    void SetUp() override {
        GuardTest::SetUp();
        EXPECT_EQ(dhcp6snoopingRmWrapFunction(), 0);
        recordingTake();
    }
};

// The filter calls and trace lines of the last remote calls, without the messages around them.
Lines filterLines() {
    Lines lines = recordingTake();
    std::erase_if(lines, [](const std::string &line) { return !line.starts_with("FRM_") && !line.starts_with("syslog"); });
    return lines;
}

int32_t callAdd(const std::string &address, const std::string &mac, uint32_t port, uint32_t vlan) {
    return call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_ADD, {addressBytes(address), macBytes(mac), u32(port), u32(vlan)});
}

int32_t callCheck(const std::string &address, const std::string &mac, uint32_t port) {
    return call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_CHECK, {addressBytes(address), macBytes(mac), u32(port)});
}

TEST_F(RemoteCallsGuardTest, PortMode) {
    EXPECT_EQ(call(DH6S_FUNC_SET_IP6_SOURCE_GUARD_PORT_MODE, {u32(2), u32(0)}), 0);
    EXPECT_EQ(filterLines(), joined({denyInstalled(2), ND_INSTALLED}));
    EXPECT_EQ(Ip6SourceGuardPort[1], 0u);
    std::vector<Bytes> arguments = {u32(2), u32(99)};
    EXPECT_EQ(call(DH6S_FUNC_GET_IP6_SOURCE_GUARD_PORT_MODE, &arguments), 0);
    EXPECT_EQ(numberIn(arguments[1]), 0u);
    EXPECT_EQ(call(DH6S_FUNC_SET_IP6_SOURCE_GUARD_PORT_MODE, {u32(2), u32(1)}), 0);
    EXPECT_EQ(call(DH6S_FUNC_GET_IP6_SOURCE_GUARD_PORT_MODE, &arguments), 0);
    EXPECT_EQ(numberIn(arguments[1]), 1u);
    recordingTake();
    EXPECT_EQ(call(DH6S_FUNC_SET_IP6_SOURCE_GUARD_PORT_MODE, {u32(29), u32(0)}), REFUSED);
    EXPECT_EQ(call(DH6S_FUNC_SET_IP6_SOURCE_GUARD_PORT_MODE, {u32(2), u32(2)}), REFUSED);
    EXPECT_EQ(call(DH6S_FUNC_SET_IP6_SOURCE_GUARD_PORT_MODE, {u32(4), u32(0)}), REFUSED) << "trusted";
    arguments = {u32(0), u32(99)};
    EXPECT_EQ(call(DH6S_FUNC_GET_IP6_SOURCE_GUARD_PORT_MODE, &arguments), REFUSED);
    EXPECT_EQ(numberIn(arguments[1]), 99u);
    EXPECT_EQ(filterLines(), Lines{});
}

TEST_F(RemoteCallsGuardTest, TheStatusOfTheSwitchComesBackUnchanged) {
    recordingFilterStatus = -77;
    recordingFailAlways("FRM_OperatePortDenyAllIp6FilterResource");
    EXPECT_EQ(call(DH6S_FUNC_SET_IP6_SOURCE_GUARD_PORT_MODE, {u32(2), u32(0)}), -77);
}

TEST_F(RemoteCallsGuardTest, AddCheckDelete) {
    EXPECT_EQ(callAdd(A1, M1, 3, 10), 0);
    EXPECT_EQ(callAdd(A1, M1, 3, 20), 2);
    EXPECT_EQ(callAdd(A1, M2, 3, 10), REFUSED);
    EXPECT_EQ(callAdd(A2, NO_MAC, 0xFFFFFFFF, 0), 0);
    EXPECT_EQ(bindings(), (Lines{A2 + " " + NO_MAC + " port 4294967295 vlan 0", A1 + " " + M1 + " port 3 vlan 10"}));
    EXPECT_EQ(callCheck(A1, M1, 3), 0);
    EXPECT_EQ(callCheck(A1, M1, 10), REFUSED);
    EXPECT_EQ(callCheck(A2, NO_MAC, 0xFFFFFFFF), 0);
    EXPECT_EQ(callCheck(A3, M1, 3), REFUSED);
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_DELETE, {addressBytes(A3)}), REFUSED);
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_DELETE, {addressBytes(A2)}), 0);
    EXPECT_EQ(bindings(), Lines{A1 + " " + M1 + " port 3 vlan 10"});
}

TEST_F(RemoteCallsGuardTest, ABindingOpensAndCloses) {
    guard({3});
    EXPECT_EQ(callAdd(A1, M1, 3, 10), 0);
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_DELETE, {addressBytes(A1)}), 0);
    EXPECT_EQ(filterLines(), joined({installed(4, A1, M1, 3, 10), removed(4, A1, M1, 3, 10)}));
}

TEST_F(RemoteCallsGuardTest, TheNumberOfBindingsGoesIntoTheBuffer) {
    std::vector<Bytes> arguments = {u32(99)};
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_ENTRY_NUM_GET, &arguments), 0);
    EXPECT_EQ(numberIn(arguments[0]), 0u);
    addBinding(A1);
    addBinding(A2);
    arguments = {Bytes(8, 0xEE)};
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_ENTRY_NUM_GET, &arguments), 0);
    EXPECT_EQ(arguments[0], (Bytes{2, 0, 0, 0, 0xEE, 0xEE, 0xEE, 0xEE})) << "32 bits, and no more";
}

TEST_F(RemoteCallsGuardTest, DeleteAllTellsHowMany) {
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_DELETE_ALL), 0);
    addBinding(A1);
    addBinding(A2);
    addBinding(A3);
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_DELETE_ALL), 3);
    EXPECT_EQ(bindings(), Lines{});
}

TEST_F(RemoteCallsGuardTest, PagesOfBindings) {
    for (uint32_t i = 1; i <= 65; i++) {
        Ip6Address address = ip6(A1);
        address.bytes[0] = static_cast<uint8_t>(i);
        ASSERT_EQ(ip6_source_guard_bind_node_add(address, macBytes(NO_MAC).data(), 66 - i, 10), 0);
    }
    const Bytes room(64 * sizeof(Ip6SourceGuardBindNode), 0xEE);
    std::vector<Bytes> arguments = {u32(1), Bytes(4, 0xEE), Bytes(4, 0xEE), room};
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET, &arguments), 0);
    EXPECT_EQ(arguments[1], (Bytes{65, 0, 0xEE, 0xEE})) << "16 bits each";
    EXPECT_EQ(arguments[2], (Bytes{64, 0, 0xEE, 0xEE}));
    Ip6SourceGuardBindNode record;
    for (uint32_t i = 0; i < 64; i++) {
        memcpy(&record, &arguments[3][i * sizeof record], sizeof record);
        EXPECT_EQ(record.port, i + 1);
    }
    EXPECT_EQ(Bytes(arguments[3].begin(), arguments[3].begin() + 16), Bytes(16, 0xEE)) << "the caller's own bytes";
    arguments[0] = u32(65);
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET, &arguments), 0);
    EXPECT_EQ(arguments[1], (Bytes{0, 0, 0xEE, 0xEE}));
    EXPECT_EQ(arguments[2], (Bytes{1, 0, 0xEE, 0xEE}));
    arguments[0] = u32(65536 + 65);
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET, &arguments), 0);
    EXPECT_EQ(arguments[2], (Bytes{1, 0, 0xEE, 0xEE})) << "a position has 16 bits";
}

TEST_F(RemoteCallsGuardTest, OneBindingByItsAddress) {
    addBinding(A1, M1, 3, 10);
    std::vector<Bytes> arguments = {addressBytes(A1), Bytes(48, 0xEE)};
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET_BY_IP, &arguments), 0);
    const Bytes &record = arguments[1];
    EXPECT_EQ(Bytes(record.begin(), record.begin() + 16), Bytes(16, 0xEE)) << "the caller's own bytes";
    EXPECT_EQ(Bytes(record.begin() + 16, record.begin() + 32), addressBytes(A1));
    EXPECT_EQ(Bytes(record.begin() + 32, record.begin() + 38), macBytes(M1));
    EXPECT_EQ(Bytes(record.begin() + 40, record.end()), (Bytes{3, 0, 0, 0, 10, 0, 0, 0}));
    arguments = {addressBytes(A2), Bytes(48, 0xEE)};
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET_BY_IP, &arguments), REFUSED);
    EXPECT_EQ(arguments[1], Bytes(48, 0xEE));
}

TEST_F(RemoteCallsGuardTest, ExemptVlans) {
    Bytes list(512, 0);
    list[1] = 0x20; // VLAN 10
    list[2] = 0x40; // VLAN 17
    std::vector<Bytes> arguments = {u32(0), list, Bytes(512, 0)};
    recordingFailFunction("FRM_InstallGlobalForwardIp6VidOnlyFilterResource", 2);
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_VLANLIST_CONFIG, &arguments), REFUSED);
    list[2] = 0;
    EXPECT_EQ(arguments[2][1], 0);
    EXPECT_EQ(arguments[2][2], 0x40);
    std::vector<Bytes> shown = {Bytes(512, 0xFF)};
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_VLANLIST_GET, &shown), 0);
    EXPECT_EQ(shown[0], list);
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_VLANLIST_CONFIG, {u32(1), list, Bytes(512, 0)}), 0);
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_VLANLIST_GET, &shown), 0);
    EXPECT_EQ(shown[0], Bytes(512, 0));
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_VLANLIST_CONFIG, {u32(0xFFFFFFFF), list, {}}), 0)
        << "any operation but 1 adds, and who does not want the failures gives no room";
    EXPECT_EQ(no_ip6_source_guard_vlan[10], 1u);
}

} // namespace
