// The table of the bindings that SNMP managers made.

#include <climits>
#include <cstring>

#include "l2/dhcp6snooping/main/Dhcp6Snooping.h"
#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "l2/dhcp6snooping/sourceguard/snmprows.h"
#include "tests/unit/guard.h"
#include "tests/unit/remote.h"

namespace {

struct SnmpRowsTest : GuardTest {
    void SetUp() override {
        GuardTest::SetUp();
        memset(ip6SourceGuardBindForSnmp, 0, sizeof ip6SourceGuardBindForSnmp);
        snmpIp6Bind = {};
    }
};

int32_t add(int32_t first, const std::string &address, const std::string &mac = M1, uint32_t port = 3, uint32_t vlan = 10) {
    return ip6_source_guard_bind_for_snmp_add(first, ip6(address), macBytes(mac).data(), port, vlan);
}

bool holds(const Ip6BindSnmpRow &row, uint32_t status, const std::string &address, const std::string &mac, uint32_t port,
           uint32_t vlan) {
    const Ip6Address wanted = ip6(address);
    return row.status == status && memcmp(&row.address, &wanted, sizeof wanted) == 0 &&
           memcmp(row.mac, macBytes(mac).data(), sizeof row.mac) == 0 && row.port == port && row.vlan == vlan;
}

bool isClear(const Ip6BindSnmpRow &row) { return holds(row, 0, NO_ADDRESS, NO_MAC, 0, 0); }

// Numbers of the rows with any bit set.
std::vector<uint32_t> rowsSet() {
    std::vector<uint32_t> numbers;
    for (uint32_t number = 0; number < IP6_SNMP_ROWS; number++)
        if (!isClear(ip6SourceGuardBindForSnmp[number]))
            numbers.push_back(number);
    return numbers;
}

using Numbers = std::vector<uint32_t>;

TEST_F(SnmpRowsTest, Layout) {
    EXPECT_EQ(std::size(ip6SourceGuardBindForSnmp), 240u);
    EXPECT_EQ(sizeof(Ip6BindSnmpRow), 36u);
    EXPECT_EQ(offsetof(Ip6BindSnmpRow, status), 0u);
    EXPECT_EQ(offsetof(Ip6BindSnmpRow, address), 4u);
    EXPECT_EQ(offsetof(Ip6BindSnmpRow, mac), 20u);
    EXPECT_EQ(offsetof(Ip6BindSnmpRow, port), 28u);
    EXPECT_EQ(offsetof(Ip6BindSnmpRow, vlan), 32u);
}

TEST_F(SnmpRowsTest, ARowTakesItsPlace) {
    EXPECT_EQ(add(9, A1, M1, 3, 10), 0);
    EXPECT_EQ(rowsSet(), Numbers{9});
    EXPECT_TRUE(holds(ip6SourceGuardBindForSnmp[9], 1, A1, M1, 3, 10));
    EXPECT_EQ(add(0, NO_ADDRESS, NO_MAC, 0, 0), 0);
    EXPECT_TRUE(holds(ip6SourceGuardBindForSnmp[0], 1, NO_ADDRESS, NO_MAC, 0, 0));
    EXPECT_EQ(add(239, A2, M2, 0xFFFFFFFF, 0xFFFFFFFF), 0);
    EXPECT_TRUE(holds(ip6SourceGuardBindForSnmp[239], 1, A2, M2, 0xFFFFFFFF, 0xFFFFFFFF)) << "nothing is judged";
    EXPECT_EQ(recordingTake(), Lines{}) << "no filter, no binding";
    EXPECT_EQ(bindings(), Lines{});
    EXPECT_TRUE(isClear(snmpIp6Bind));
}

TEST_F(SnmpRowsTest, ATakenRowIsSteppedOverUpwards) {
    add(9, A1);
    add(10, A2);
    EXPECT_EQ(add(9, A3, M3, 4, 20), 0);
    EXPECT_EQ(rowsSet(), (Numbers{9, 10, 11}));
    EXPECT_TRUE(holds(ip6SourceGuardBindForSnmp[9], 1, A1, M1, 3, 10));
    EXPECT_TRUE(holds(ip6SourceGuardBindForSnmp[11], 1, A3, M3, 4, 20));
    ip6SourceGuardBindForSnmp[12].status = 7; // anything but 0 is in use
    EXPECT_EQ(add(10, A1), 0);
    EXPECT_EQ(rowsSet(), (Numbers{9, 10, 11, 12, 13}));
    EXPECT_EQ(ip6SourceGuardBindForSnmp[12].status, 7u);
}

TEST_F(SnmpRowsTest, AFreeRowIsOverwrittenWhole) {
    memset(&ip6SourceGuardBindForSnmp[5], 0xEE, sizeof(Ip6BindSnmpRow));
    ip6SourceGuardBindForSnmp[5].status = 0;
    add(5, A1, M1, 3, 0);
    EXPECT_TRUE(holds(ip6SourceGuardBindForSnmp[5], 1, A1, M1, 3, 0));
}

TEST_F(SnmpRowsTest, TheSameAddressMayBeThereTwice) {
    add(0, A1);
    add(0, A1);
    EXPECT_EQ(rowsSet(), (Numbers{0, 1}));
}

TEST_F(SnmpRowsTest, WithNoneFreeAboveNothingIsRecorded) {
    for (int32_t number = 200; number < 240; number++)
        add(number, A1);
    const Numbers full = rowsSet();
    EXPECT_EQ(full.size(), 40u);
    EXPECT_EQ(add(200, A2), 0);
    EXPECT_EQ(add(239, A2), 0);
    EXPECT_EQ(rowsSet(), full) << "rows below are not used";
    EXPECT_EQ(add(199, A2), 0);
    EXPECT_EQ(rowsSet().front(), 199u);
}

TEST_F(SnmpRowsTest, NumbersThatNoRowHas) {
    for (const int32_t first : {240, 241, 0x7FFFFFFF}) {
        EXPECT_EQ(add(first, A1), 0);
        EXPECT_EQ(rowsSet(), Numbers{});
    }
    uint32_t next = 0;
    for (const int32_t first : {-1, -240, INT_MIN}) { // from the first row on
        EXPECT_EQ(add(first, A1), 0);
        EXPECT_EQ(rowsSet().back(), next++);
    }
}

TEST_F(SnmpRowsTest, WithoutAMacNothingIsRecorded) {
    EXPECT_EQ(ip6_source_guard_bind_for_snmp_add(0, ip6(A1), nullptr, 3, 10), 0);
    EXPECT_EQ(rowsSet(), Numbers{});
}

TEST_F(SnmpRowsTest, DeletionClearsTheFirstRowOfTheAddress) {
    add(3, A1, M1);
    add(5, A2, M2);
    add(7, A1, M3);
    EXPECT_EQ(ip6_source_guard_bind_for_snmp_delete(ip6(A3)), -1);
    EXPECT_EQ(rowsSet(), (Numbers{3, 5, 7}));
    EXPECT_EQ(ip6_source_guard_bind_for_snmp_delete(ip6(A1)), 0);
    EXPECT_EQ(rowsSet(), (Numbers{5, 7})) << "no field is left";
    EXPECT_EQ(ip6_source_guard_bind_for_snmp_delete(ip6(A1)), 0);
    EXPECT_EQ(rowsSet(), Numbers{5});
    EXPECT_EQ(ip6_source_guard_bind_for_snmp_delete(ip6(A1)), -1);
}

TEST_F(SnmpRowsTest, EveryByteOfTheAddressCounts) {
    add(0, A1);
    for (uint32_t byte = 0; byte < 16; byte++) {
        Ip6Address other = ip6(A1);
        other.bytes[byte] ^= 0x80;
        EXPECT_EQ(ip6_source_guard_bind_for_snmp_delete(other), -1) << byte;
    }
    EXPECT_EQ(rowsSet(), Numbers{0});
}

TEST_F(SnmpRowsTest, DeletionLooksAtFreeRowsToo) {
    ip6SourceGuardBindForSnmp[2].address = ip6(A1);
    add(4, A1);
    EXPECT_EQ(ip6_source_guard_bind_for_snmp_delete(ip6(A1)), 0);
    EXPECT_EQ(rowsSet(), Numbers{4});
    EXPECT_EQ(ip6_source_guard_bind_for_snmp_delete(ip6(NO_ADDRESS)), 0) << "a clear row has that address";
    EXPECT_EQ(rowsSet(), Numbers{4});
}

TEST_F(SnmpRowsTest, TheLastRowIsFoundAndNoneBehindIt) {
    for (int32_t number = 0; number < 240; number++)
        add(number, A1);
    EXPECT_EQ(ip6_source_guard_bind_for_snmp_delete(ip6(NO_ADDRESS)), -1);
    ip6SourceGuardBindForSnmp[239].address = ip6(A2);
    EXPECT_EQ(ip6_source_guard_bind_for_snmp_delete(ip6(A2)), 0);
    EXPECT_TRUE(isClear(ip6SourceGuardBindForSnmp[239]));
    EXPECT_EQ(rowsSet().size(), 239u);
}

TEST_F(SnmpRowsTest, TheAddressMayLieInTheRowThatGoes) {
    add(0, A1);
    add(1, A2);
    EXPECT_EQ(ip6_source_guard_bind_for_snmp_delete(ip6SourceGuardBindForSnmp[1].address), 0);
    EXPECT_EQ(rowsSet(), Numbers{0});
}

TEST_F(SnmpRowsTest, DeleteAll) {
    snmpIp6Bind = {.status = 9, .address = ip6(A3), .mac = {1}, .port = 2, .vlan = 3};
    memset(ip6SourceGuardBindForSnmp, 0xEE, sizeof ip6SourceGuardBindForSnmp);
    EXPECT_EQ(ip6_source_guard_bind_for_snmp_delete_all(), 0);
    EXPECT_EQ(rowsSet(), Numbers{});
    EXPECT_EQ(ip6_source_guard_bind_for_snmp_delete_all(), 0);
    EXPECT_EQ(snmpIp6Bind.status, 9u) << "the row being made is another matter";
}

TEST_F(SnmpRowsTest, StartUpClearsTheTable) {
    add(0, A1);
    add(239, A2);
    EXPECT_EQ(dhcp6snooping_init(), 0);
    EXPECT_EQ(rowsSet(), Numbers{});
}

TEST_F(SnmpRowsTest, ABindingThatGoesByAnotherWayLeavesItsRow) {
    addBinding(A1, M1, 3, 10);
    add(0, A1);
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_DELETE_ALL), -1) << "no call is registered yet";
    ip6_source_guard_bind_node_delete(ip6(A1));
    EXPECT_EQ(rowsSet(), Numbers{0});
    addBinding(A1, M1, 3, 10);
    ip6_source_guard_bind_node_delete_all();
    EXPECT_EQ(rowsSet(), Numbers{0});
    addBinding(A1, M1, 3, 10);
    ip6_source_guard_bind_for_snmp_delete(ip6(A1));
    EXPECT_EQ(bindings(), Lines{A1 + " " + M1 + " port 3 vlan 10"}) << "nor the other way round";
}

// ---- The calls ----------------------------------------------------------------------------------------------------------

struct SnmpRowCallsTest : SnmpRowsTest {
    void SetUp() override {
        SnmpRowsTest::SetUp();
        ASSERT_EQ(dhcp6snoopingRmWrapFunction(), 0);
        recordingTake();
    }
};

TEST_F(SnmpRowCallsTest, Add) {
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_ADD, {u32(7), addressBytes(A1), macBytes(M1), u32(3), u32(10)}), 0);
    EXPECT_TRUE(holds(ip6SourceGuardBindForSnmp[7], 1, A1, M1, 3, 10));
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_ADD,
                   {u32(0xFFFFFFFF), addressBytes(A2), macBytes(M2), u32(0xFFFFFFFF), u32(0)}),
              0);
    EXPECT_TRUE(holds(ip6SourceGuardBindForSnmp[0], 1, A2, M2, 0xFFFFFFFF, 0)) << "row -1 is the first";
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_ADD, {u32(240), addressBytes(A3), macBytes(M3), u32(1), u32(1)}),
              0);
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_ADD, {u32(1), addressBytes(A3), macBytes(M3), u32(1)}), -1001);
    EXPECT_EQ(rowsSet(), (Numbers{0, 7}));
    EXPECT_EQ(bindings(), Lines{});
}

TEST_F(SnmpRowCallsTest, Delete) {
    add(4, A1);
    add(5, A2);
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_DELETE, {addressBytes(A3)}), -1);
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_DELETE, {addressBytes(A1), u32(0)}), -1001);
    EXPECT_EQ(rowsSet(), (Numbers{4, 5}));
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_DELETE, {addressBytes(A1)}), 0);
    EXPECT_EQ(rowsSet(), Numbers{5});
}

TEST_F(SnmpRowCallsTest, DeleteAll) {
    add(4, A1);
    add(239, A2);
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_DELETE_ALL, {u32(0)}), -1001);
    EXPECT_EQ(rowsSet().size(), 2u);
    EXPECT_EQ(call(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_DELETE_ALL), 0);
    EXPECT_EQ(rowsSet(), Numbers{});
}

} // namespace
