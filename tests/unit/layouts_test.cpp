// Sizes and field orders that others rely on.

#include "l2/dhcp6snooping/base/descriptor.h"
#include "l2/dhcp6snooping/base/lease.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/clients/queries.h"
#include "l2/dhcp6snooping/clients/table.h"
#include "l2/dhcp6snooping/infoopt/context.h"
#include "l2/dhcp6snooping/infoopt/policy.h"
#include "l2/dhcp6snooping/main/Dhcp6Snooping.h"
#include "l2/dhcp6snooping/packet/snooping.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "l2/dhcp6snooping/sourceguard/snmprows.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <gtest/gtest.h>
#include <type_traits>

namespace {

template <typename... Offsets> bool ascending(Offsets... offsets) {
    const size_t all[] = {offsets...};
    for (size_t i = 1; i < sizeof...(offsets); i++)
        if (all[i] <= all[i - 1])
            return false;
    return true;
}

TEST(LayoutTest, TheClientRecordStartsWithItsLinks) {
    using Node = Dhcp6SnoopingNode;
    EXPECT_EQ(offsetof(Node, link), 0u);
    EXPECT_GE(sizeof(AvlNode), sizeof(LstNode)) << "the free list must not reach behind the tree's links";
    EXPECT_TRUE(ascending(offsetof(Node, vlan), offsetof(Node, port), offsetof(Node, mac), offsetof(Node, unack_timeout),
                          offsetof(Node, last_update), offsetof(Node, acked), offsetof(Node, counted), offsetof(Node, leases)));
    static_assert(std::is_same_v<decltype(Node::acked), uint32_t> && std::is_same_v<decltype(Node::counted), uint32_t>);
    static_assert(sizeof(Node::mac) == 6);
}

TEST(LayoutTest, LeaseRecordsAreInFieldOrder) {
    EXPECT_EQ(sizeof(Dhcp6LeaseAttr), 36u);
    EXPECT_TRUE(ascending(offsetof(Dhcp6LeaseAttr, address), offsetof(Dhcp6LeaseAttr, prefix_len),
                          offsetof(Dhcp6LeaseAttr, preferred_lifetime), offsetof(Dhcp6LeaseAttr, valid_lifetime),
                          offsetof(Dhcp6LeaseAttr, learned_at), offsetof(Dhcp6LeaseAttr, status)));
    EXPECT_TRUE(
        ascending(offsetof(Dhcp6AttrArray, count), offsetof(Dhcp6AttrArray, capacity), offsetof(Dhcp6AttrArray, items)));
    EXPECT_TRUE(ascending(offsetof(Dhcp6IaResult, t1), offsetof(Dhcp6IaResult, t2), offsetof(Dhcp6IaResult, leases),
                          offsetof(Dhcp6IaResult, status)));
    EXPECT_EQ(sizeof(Dhcp6LeaseLine), 20u);
    EXPECT_EQ(offsetof(Dhcp6LeaseLine, prefix_len), 16u);
}

TEST(LayoutTest, RecordsForCallersAre32BitFieldsInOrder) {
    EXPECT_EQ(sizeof(Dhcp6SnoopingGlobalInfo), 8u);
    EXPECT_TRUE(ascending(offsetof(Dhcp6SnoopingGlobalInfo, enabled), offsetof(Dhcp6SnoopingGlobalInfo, fastRemove)));
    EXPECT_EQ(sizeof(Dhcp6SnoopingPortInfo), 12u);
    EXPECT_TRUE(ascending(offsetof(Dhcp6SnoopingPortInfo, mode), offsetof(Dhcp6SnoopingPortInfo, maxClients),
                          offsetof(Dhcp6SnoopingPortInfo, clients)));
}

TEST(LayoutTest, TheDescriptorIsInFieldOrder) {
    EXPECT_TRUE(ascending(offsetof(Dhcp6PacketDescriptor, data), offsetof(Dhcp6PacketDescriptor, length),
                          offsetof(Dhcp6PacketDescriptor, info), offsetof(Dhcp6PacketDescriptor, ctl)));
}

TEST(LayoutTest, TheInfoPolicyIsWhatManagersCopy) {
    using Policy = Dhcp6InfoOptionPolicy;
    EXPECT_EQ(sizeof(Policy), 200u);
    const size_t offsets[] = {
        offsetof(Policy, strategy),        offsetof(Policy, option37Enable),   offsetof(Policy, remoteIdType),
        offsetof(Policy, remoteIdValue),   offsetof(Policy, remoteIdTemplate), offsetof(Policy, option18Enable),
        offsetof(Policy, interfaceIdType), offsetof(Policy, interfaceIdValue), offsetof(Policy, interfaceIdTemplate)};
    const size_t expected[] = {0, 4, 8, 12, 96, 104, 108, 112, 192};
    EXPECT_TRUE(std::equal(std::begin(offsets), std::end(offsets), expected));
    EXPECT_EQ(sizeof(Policy::remoteIdValue), 80u);
    EXPECT_EQ(sizeof(Policy::interfaceIdValue), 80u);
    static_assert(std::is_same_v<decltype(Policy::strategy), uint32_t> &&
                  std::is_same_v<decltype(Policy::option18Enable), uint32_t>);
}

TEST(LayoutTest, TheInfoTemplateIsWhatManagersBuild) {
    using Template = Dhcp6InfoIdTemplate;
    EXPECT_EQ(sizeof(Template), 1968u);
    EXPECT_EQ(offsetof(Template, text), 0u);
    EXPECT_EQ(offsetof(Template, literal), 129u);
    EXPECT_EQ(sizeof(Template::literal[0]), 65u);
    EXPECT_EQ(offsetof(Template, elementType), 1300u);
    EXPECT_EQ(sizeof(Template::elementType), 72u);
    EXPECT_EQ(offsetof(Template, elementVlan), 1372u);
    EXPECT_EQ(sizeof(Template::elementVlan[0]), 33u);
    EXPECT_EQ(sizeof(Template::elementVlan), 594u);
}

TEST(LayoutTest, TheInfoContextIsInFieldOrder) {
    using Context = Dhcp6InfoContext;
    EXPECT_TRUE(ascending(offsetof(Context, switchId), offsetof(Context, vlan), offsetof(Context, port),
                          offsetof(Context, innerVlan), offsetof(Context, systemMac), offsetof(Context, clientMac),
                          offsetof(Context, isXpon), offsetof(Context, ponValue), offsetof(Context, serialNumber),
                          offsetof(Context, ponId), offsetof(Context, room)));
}

TEST(LayoutTest, TablesHaveTheirSizes) {
    EXPECT_EQ(sizeof gDhcp6SnoopingAvlNode / sizeof gDhcp6SnoopingAvlNode[0], 2048u);
    EXPECT_EQ(sizeof dhcp6SnoopingTrustPort, 28u * 4);
    EXPECT_EQ(sizeof Ip6SourceGuardPort, 28u * 4);
    EXPECT_EQ(sizeof dhcp6SnoopingPortMaxIP, 28u * 2);
    EXPECT_EQ(sizeof dhcp6SnoopingPortIpNum, 28u * 2);
    EXPECT_EQ(sizeof dhcp6SnoopingDhcpVlanMaxIP, 4096u * 2);
    EXPECT_EQ(sizeof dhcp6SnoopingDhcpVlanIpNum, 4096u * 2);
    EXPECT_EQ(sizeof g_smdMsgRecvBuffer, 64500u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(g_smdMsgRecvBuffer) % 16, 0u);
    EXPECT_EQ(DHCP6SNOOPING_UNACK_TIMEOUT, 180u);
}

TEST(LayoutTest, RowsOfManagersAre32BitFieldsInOrder) {
    using Row = Ip6BindSnmpRow;
    EXPECT_EQ(sizeof ip6SourceGuardBindForSnmp / sizeof ip6SourceGuardBindForSnmp[0], 240u);
    EXPECT_TRUE(
        ascending(offsetof(Row, status), offsetof(Row, address), offsetof(Row, mac), offsetof(Row, port), offsetof(Row, vlan)));
    static_assert(std::is_same_v<decltype(Row::status), uint32_t> && std::is_same_v<decltype(snmpIp6Bind), Row>);
    static_assert(sizeof(Row::address) == 16 && sizeof(Row::mac) == 6);
}

// Values that no start-up step sets are right from the first instruction on; a fresh process shows it.
TEST(LayoutTest, StaticStartValues) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(exit(bDhcp6SnoopingFastRemove == 1 && dhcp6L2Relay == 0 && dhcp6SnoopingOn == 0 ? 0 : 1),
                testing::ExitedWithCode(0), "");
    GTEST_FLAG_SET(death_test_style, "fast");
}

TEST(LayoutTest, StaticStartValuesOfTheInfoPolicy) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto asStarted = []() {
        Dhcp6InfoOptionPolicy expected = {};
        expected.strategy = 3;
        expected.remoteIdType = 3;
        expected.interfaceIdType = 3;
        const char noText[128] = {};
        return memcmp(&expected, &dhcp6InfoOptionPolicy, sizeof expected) == 0 && optionContentType == 0 &&
               optionInterfaceType == 0 && memcmp(optionContent, noText, sizeof optionContent) == 0 &&
               memcmp(optionInterface, noText, sizeof optionInterface) == 0 && sizeof optionContent == 128 &&
               sizeof optionInterface == 128;
    };
    EXPECT_EXIT(exit(asStarted() ? 0 : 1), testing::ExitedWithCode(0), "");
    GTEST_FLAG_SET(death_test_style, "fast");
}

} // namespace
