// What holds for a request on any object of the MIB.

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/infoopt/policy.h"
#include "l2/dhcp6snooping/mib/objects.h"
#include "l2/dhcp6snooping/sourceguard/exemption.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "l2/dhcp6snooping/sourceguard/snmprows.h"
#include "tests/unit/mib.h"

#include <cstring>
#include <random>

namespace {

struct MibRequestsTest : MibTest {
    // One client, one binding with its row, one exempt VLAN.
    void SetUp() override {
        MibTest::SetUp();
        addLease(addAckedClient(M1, 10, 1), A1, 128, 100);
        addBinding(A2, M2, 2, 10);
        ip6_source_guard_bind_for_snmp_add(0, ip6(A2), macBytes(M2).data(), 2, 10);
        no_ip6_source_guard_vlan[10] = 1;
    }
    void TearDown() override {
        memset(no_ip6_source_guard_vlan, 0, sizeof no_ip6_source_guard_vlan);
        MibTest::TearDown();
    }
};

// Everything that a set may change.
Bytes state() {
    Bytes bytes;
    const auto add = [&bytes](const void *from, size_t size) {
        const auto *first = static_cast<const uint8_t *>(from);
        bytes.insert(bytes.end(), first, first + size);
    };
    add(&dhcp6SnoopingOn, sizeof dhcp6SnoopingOn);
    add(&bDhcp6SnoopingFastRemove, sizeof bDhcp6SnoopingFastRemove);
    add(dhcp6SnoopingTrustPort, sizeof dhcp6SnoopingTrustPort);
    add(dhcp6SnoopingPortMaxIP, sizeof dhcp6SnoopingPortMaxIP);
    add(dhcp6SnoopingDhcpVlanMaxIP, sizeof dhcp6SnoopingDhcpVlanMaxIP);
    add(Ip6SourceGuardPort, sizeof Ip6SourceGuardPort);
    add(no_ip6_source_guard_vlan, sizeof no_ip6_source_guard_vlan);
    add(&dhcp6InfoOptionPolicy, sizeof dhcp6InfoOptionPolicy);
    add(optionContent, sizeof optionContent);
    add(&optionContentType, sizeof optionContentType);
    add(optionInterface, sizeof optionInterface);
    add(&optionInterfaceType, sizeof optionInterfaceType);
    add(ip6SourceGuardBindForSnmp, sizeof ip6SourceGuardBindForSnmp);
    add(&snmpIp6Bind, sizeof snmpIp6Bind);
    return bytes;
}

CcdHandler handlers[] = {dhcp6snoopingMibScalarHandler, dhcp6snoopingMibPortTableHandler, dhcp6snoopingMibVlanTableHandler,
                         dhcp6snoopingMibClientTableHandler, dhcp6snoopingMibBindTableHandler};

Index oneInstance(uint32_t object) {
    const uint32_t columns = tqzL2Dhcp6SnoopingObjects[object].group->indexColumns;
    if (columns == 0)
        return SCALAR;
    return object >= MIB_CLIENT_MAC && object <= MIB_CLIENT_LEASE_TIME ? macIndex(M1) : Index{1};
}

TEST_F(MibRequestsTest, WithoutAVariableThereIsNoInstance) {
    for (const CcdHandler handler : handlers)
        for (const uint32_t kind : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 0xFFFFFFFFu})
            EXPECT_EQ(handler(kind, nullptr), ccdErrorNoSuchInstance());
}

TEST_F(MibRequestsTest, OtherKindsDoNothing) {
    const Bytes before = state();
    for (uint32_t object = 0; object < MIB_OBJECTS; object++)
        for (const uint32_t kind : {0u, 3u, 4u, 7u, 8u, 256u + 6, 0x80000006u, 0xFFFFFFFFu}) {
            CcdVariable variable = variableOf(object, oneInstance(object), DHCP6_INFO_STRING);
            const CcdVariable asked = variable;
            EXPECT_EQ(handle(kind, &variable), 0) << object;
            EXPECT_EQ(memcmp(&variable, &asked, sizeof asked), 0) << object;
        }
    EXPECT_EQ(state(), before);
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(MibRequestsTest, OtherKindsOnTablesDoNotLookAtTheVariable) {
    for (uint32_t handler = 1; handler < 5; handler++)
        for (const uint32_t kind : {0u, 3u, 4u, 7u, 0xFFFFFFFFu}) {
            CcdVariable variable = variableAt(0xFFFFFFFF, Index(32, 0xFFFFFFFF));
            EXPECT_EQ(handlers[handler](kind, &variable), 0);
        }
}

TEST_F(MibRequestsTest, GetsAndTestsWriteNothing) {
    std::mt19937 random(72);
    const Bytes before = state();
    const uint32_t values[] = {0, 1, 2, 3, 4, 5, 6, 17, 28, 29, 240, 241, 2048, 4094, 0xFFFFFFFF};
    const uint32_t kinds[] = {CCD_GETNEXT, CCD_GET, CCD_TEST};
    for (uint32_t round = 0; round < 20000; round++) {
        CcdVariable variable = variableAt(static_cast<uint32_t>(random() % MIB_OBJECTS), {});
        variable.indexLength = static_cast<uint32_t>(random() % 4 == 0 ? random() % 33 : random() % 2);
        if (random() % 4 == 0)
            variable.indexLength = 6;
        for (uint32_t &arc : variable.index)
            arc = values[random() % std::size(values)];
        variable.integer = values[random() % std::size(values)];
        variable.length = static_cast<uint32_t>(random() % 3 == 0 ? random() : random() % 300);
        const uint32_t kind = kinds[random() % 3];
        const CcdVariable asked = variable;
        const int32_t result = handle(kind, &variable);
        if (kind == CCD_GETNEXT && result == 0) {
            ASSERT_TRUE(std::lexicographical_compare(asked.index, asked.index + asked.indexLength, variable.index,
                                                     variable.index + variable.indexLength))
                << "object " << asked.object << " goes back";
        } else if (kind != CCD_GETNEXT) {
            ASSERT_EQ(variable.indexLength, asked.indexLength);
            ASSERT_EQ(memcmp(variable.index, asked.index, sizeof asked.index), 0);
        }
    }
    EXPECT_EQ(state(), before);
    EXPECT_EQ(bindings().size(), 1u);
    EXPECT_EQ(tableMacs(), Lines{M1});
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(MibRequestsTest, EveryObjectHasItsInstancesAndNoMore) {
    const uint32_t expected[MIB_OBJECTS] = {1, 28, 28, 28, 28, 3, 3, 1, 1, 1, 1, 1, 1, 0,
                                            1, 1,  1,  1,  1,  1, 1, 1, 1, 1, 1, 1, 1, 1};
    for (uint32_t object = 0; object < MIB_OBJECTS; object++) {
        EXPECT_EQ(mibWalk(object).size(), expected[object]) << object;
        EXPECT_EQ(mibNext(object, Index(32, 0xFFFFFFFF)), "no next instance") << object;
    }
}

TEST_F(MibRequestsTest, ArcsBehindTheNextInstanceAre0) {
    for (uint32_t object = MIB_PORT_INDEX; object <= MIB_BIND_ROW_STATUS; object++) {
        if (object == MIB_PORT_DOWN_ACTION || object == MIB_CLIENT_ADDRESSES_2)
            continue;
        CcdVariable variable = variableAt(object, {0, 0, 0, 0, 0, 0, 9, 9, 9});
        ASSERT_EQ(handle(CCD_GETNEXT, &variable), 0) << object;
        EXPECT_TRUE(std::all_of(variable.index + variable.indexLength, std::end(variable.index), [](uint32_t arc) {
            return arc == 0;
        })) << object;
    }
}

// A manager who reads everything, sets everything, and makes and destroys a binding.
void session() {
    for (uint32_t object = 0; object < MIB_OBJECTS; object++) {
        mibWalk(object);
        mibGet(object, oneInstance(object));
        mibTest(object, oneInstance(object), 1);
    }
    for (const uint32_t object : {MIB_SNOOPING_ON_OFF, MIB_PORT_DOWN_ACTION, MIB_OPTION18_ENABLE, MIB_OPTION37_ENABLE})
        for (const uint32_t value : {1u, 0u})
            mibCommit(object, SCALAR, value);
    for (const uint32_t object : {MIB_PORT_SOURCE_GUARD_MODE, MIB_PORT_TRUST_MODE})
        for (const uint32_t value : {1u, 2u})
            mibCommit(object, {2}, value);
    mibCommit(MIB_VLAN_MAX_NUM, {10}, 2048);
    mibCommit(MIB_PORT_MAX_NUM, {2}, 2048);
    for (const uint32_t type : {1u, 2u, 4u, 3u}) {
        mibCommit(MIB_REMOTE_TEXT, SCALAR, type == 1 ? "192.0.2.1" : "2001:db8::1");
        mibCommit(MIB_REMOTE_ID, SCALAR, type);
    }
    mibCommit(MIB_EXEMPT_VLANS, SCALAR, "20-22");
    mibCommit(MIB_EXEMPT_VLANS, SCALAR, "10");
    mibCommit(MIB_BIND_INDEX, {9}, 9);
    mibCommit(MIB_BIND_ADDRESS, {9}, A3);
    mibCommit(MIB_BIND_MAC, {9}, M3);
    mibCommit(MIB_BIND_ROW_STATUS, {9}, 4);
    mibCommit(MIB_BIND_ROW_STATUS, {9}, 6);
    mibCommit(MIB_BIND_INDEX, {9}, 1); // nothing of a create that failed stays staged
}

void expectSound() {
    const Lines bound = bindings();
    EXPECT_EQ(bound.back(), A2 + " " + M2 + " port 2 vlan 10");
    EXPECT_LE(bound.size(), 1u) << "what was made is gone";
    for (uint32_t row = 1; row < IP6_SNMP_ROWS; row++)
        EXPECT_EQ(ip6SourceGuardBindForSnmp[row].status, 0u);
    for (const uint32_t mode : Ip6SourceGuardPort)
        EXPECT_LE(mode, 1u);
}

TEST_F(MibRequestsTest, EveryCallOfThePlatformFailingInTurn) {
    uint32_t failed = 0;
    for (uint32_t nth = 1;; nth++) {
        recordingFailNth(nth);
        session();
        const bool last = recordingFailed.empty();
        recordingFailNone();
        recordingTake();
        expectSound();
        if (last)
            break;
        failed++;
        nth += recordingFailed == "vlan_exist" ? 100 : 0; // thousands of them, all alike
    }
    EXPECT_GT(failed, 100u);
}

TEST_F(MibRequestsTest, EveryAllocationFailingInTurn) {
    for (uint32_t nth = 1;; nth++) {
        recordingAllocationsBegin(nth);
        session();
        const uint32_t count = recordingAllocationsEnd();
        expectSound();
        if (count < nth)
            break;
    }
}

} // namespace
