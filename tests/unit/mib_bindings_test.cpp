// Binding table of the MIB: what managers read and test.

#include "l2/dhcp6snooping/sourceguard/snmprows.h"
#include "tests/unit/mib.h"

#include <cstring>

namespace {

struct MibBindingsTest : MibTest {};

const uint32_t COLUMNS[] = {MIB_BIND_INDEX, MIB_BIND_ADDRESS, MIB_BIND_MAC, MIB_BIND_PORT, MIB_BIND_VLAN, MIB_BIND_ROW_STATUS};
const Index NO_ROW[] = {{}, {0}, {241}, {0x80000000}, {0xFFFFFFFF}, {1, 0}, Index(32, 1)};

// ---- Get ----------------------------------------------------------------------------------------------------------------

TEST_F(MibBindingsTest, ValuesOfARow) {
    addRow(4, "2001:db8::a:b", M1, 7, 4000);
    EXPECT_EQ(mibGet(MIB_BIND_INDEX, {5}), "5");
    EXPECT_EQ(mibGet(MIB_BIND_ADDRESS, {5}), "2001:db8::a:b");
    EXPECT_EQ(mibGet(MIB_BIND_MAC, {5}), M1);
    EXPECT_EQ(mibGet(MIB_BIND_PORT, {5}), "7");
    EXPECT_EQ(mibGet(MIB_BIND_VLAN, {5}), "4000");
    EXPECT_EQ(mibGet(MIB_BIND_ROW_STATUS, {5}), "1");
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(MibBindingsTest, AFreeRowAnswersWhatItHolds) {
    const Lines expected = {"240", "::", NO_MAC, "0", "0", "1"};
    for (uint32_t column = 0; column < 6; column++)
        EXPECT_EQ(mibGet(COLUMNS[column], {240}), expected[column]);
    addRow(239, A1, M1, 7, 10);
    ip6SourceGuardBindForSnmp[239].status = 0;
    EXPECT_EQ(mibGet(MIB_BIND_ADDRESS, {240}), A1);
    EXPECT_EQ(mibGet(MIB_BIND_PORT, {240}), "7");
}

TEST_F(MibBindingsTest, RowsThatAreNotThere) {
    for (const uint32_t column : COLUMNS)
        for (const Index &index : NO_ROW)
            EXPECT_EQ(mibGet(column, index), "no such instance");
}

TEST_F(MibBindingsTest, AWalkOverTheRowsInUse) {
    for (const int32_t row : {0, 9, 239})
        addRow(row, A1, M1, static_cast<uint32_t>(row), 10);
    EXPECT_EQ(mibWalk(MIB_BIND_PORT), (Lines{"1 = 0", "10 = 9", "240 = 239"}));
    EXPECT_EQ(mibWalk(MIB_BIND_INDEX), (Lines{"1 = 1", "10 = 10", "240 = 240"}));
    EXPECT_EQ(mibNext(MIB_BIND_INDEX, {0}), "1 = 1");
    EXPECT_EQ(mibNext(MIB_BIND_INDEX, {1, 5, 5}), "10 = 10");
    for (const Index &index : {Index{240}, Index{240, 0}, Index{241}, Index{0x80000000}, Index{0xFFFFFFFE}, Index{0xFFFFFFFF}})
        EXPECT_EQ(mibNext(MIB_BIND_INDEX, index), "no next instance");
    ip6SourceGuardBindForSnmp[9].status = 7; // anything but 0
    EXPECT_EQ(mibNext(MIB_BIND_INDEX, {1}), "10 = 10");
}

TEST_F(MibBindingsTest, OtherBindingsHaveNoRow) {
    addBinding(A1, M1, 2, 10);
    EXPECT_EQ(mibWalk(MIB_BIND_INDEX), Lines{});
}

// ---- Test ---------------------------------------------------------------------------------------------------------------

TEST_F(MibBindingsTest, TheIndexGoesFrom1To240) {
    for (const uint32_t value : {1u, 240u})
        EXPECT_EQ(mibTest(MIB_BIND_INDEX, {1}, value), "ok");
    for (const uint32_t value : {0u, 241u, 380u, 0xFFFFFFFFu})
        EXPECT_EQ(mibTest(MIB_BIND_INDEX, {1}, value), "invalid range");
    EXPECT_EQ(mibTestLength(MIB_BIND_INDEX, {1}, 1, 5), "invalid length");
    EXPECT_EQ(mibTestLength(MIB_BIND_INDEX, {1}, 241, 5), "invalid range") << "the value is looked at first";
    EXPECT_EQ(mibTestLength(MIB_BIND_INDEX, {1}, 1, 0), "ok");
}

TEST_F(MibBindingsTest, AnAddressHasAtMost39Characters) {
    for (const uint32_t length : {0u, 1u, 39u})
        EXPECT_EQ(mibTest(MIB_BIND_ADDRESS, {1}, std::string(length, 'z')), "ok") << "whether it is one shows at the commit";
    for (const uint32_t length : {40u, 255u, 256u})
        EXPECT_EQ(mibTest(MIB_BIND_ADDRESS, {1}, std::string(length, '1')), "invalid length");
}

TEST_F(MibBindingsTest, AMacAddressIsATextOf17Characters) {
    for (const char *text : {"00:00:00:00:00:00", "02:00:5e:10:00:01", "FE:ff:FF:ff:FF:ff", "zz:zz:zz:zz:zz:zz"})
        EXPECT_EQ(mibTest(MIB_BIND_MAC, {1}, text), "ok") << text;
    for (const char *text : {"", "02", "02:00:5e:10:00:0", "02:00:5e:10:00:011", "020000000001", "\x02\x01\x01\x01\x01\x01"})
        EXPECT_EQ(mibTest(MIB_BIND_MAC, {1}, text), "invalid range") << text;
    EXPECT_EQ(mibTestLength(MIB_BIND_MAC, {1}, 0, 0xFFFFFFFF), "invalid range");
    for (const uint32_t colon : {2u, 5u, 8u, 11u, 14u}) {
        std::string text = M1;
        text[colon] = '-';
        EXPECT_EQ(mibTest(MIB_BIND_MAC, {1}, text), "invalid range") << text;
    }
}

TEST_F(MibBindingsTest, GroupAddressesAreRefused) {
    for (const char *text : {"01:00:5e:00:00:01", "03:00:00:00:00:00", "ff:ff:ff:ff:ff:ff", "0B:00:00:00:00:00"})
        EXPECT_EQ(mibTest(MIB_BIND_MAC, {1}, text), "invalid range") << text;
    for (const char *text : {"10:00:00:00:00:00", "f0:ff:ff:ff:ff:ff", "0a:01:01:01:01:01"})
        EXPECT_EQ(mibTest(MIB_BIND_MAC, {1}, text), "ok") << text;
}

TEST_F(MibBindingsTest, PortsOfTheDevice) {
    gul_max_port_num = 24;
    for (const uint32_t value : {1u, 24u})
        EXPECT_EQ(mibTest(MIB_BIND_PORT, {1}, value), "ok");
    for (const uint32_t value : {0u, 25u, 255u, 0xFFFFFFFFu})
        EXPECT_EQ(mibTest(MIB_BIND_PORT, {1}, value), "invalid range");
    gul_max_port_num = 28;
    EXPECT_EQ(mibTest(MIB_BIND_PORT, {1}, 28), "ok");
}

TEST_F(MibBindingsTest, VlansFrom0To4094) {
    for (const uint32_t value : {0u, 1u, 4094u})
        EXPECT_EQ(mibTest(MIB_BIND_VLAN, {1}, value), "ok");
    for (const uint32_t value : {4095u, 4096u, 0xFFFFFFFFu})
        EXPECT_EQ(mibTest(MIB_BIND_VLAN, {1}, value), "invalid range");
}

TEST_F(MibBindingsTest, RowStatesFrom1To6) {
    for (uint32_t value = 1; value <= 6; value++)
        EXPECT_EQ(mibTest(MIB_BIND_ROW_STATUS, {1}, value), "ok");
    for (const uint32_t value : {0u, 7u, 0xFFFFFFFFu})
        EXPECT_EQ(mibTest(MIB_BIND_ROW_STATUS, {1}, value), "invalid range");
}

TEST_F(MibBindingsTest, ATestStagesNothing) {
    mibTest(MIB_BIND_INDEX, {1}, 5);
    mibTest(MIB_BIND_ADDRESS, {1}, A1);
    mibTest(MIB_BIND_MAC, {1}, M1);
    mibTest(MIB_BIND_PORT, {1}, 2);
    mibTest(MIB_BIND_VLAN, {1}, 10);
    mibTest(MIB_BIND_ROW_STATUS, {1}, 4);
    EXPECT_TRUE(isClear(snmpIp6Bind));
    EXPECT_EQ(bindings(), Lines{});
}

TEST_F(MibBindingsTest, ASetNeedsAnIndexOfOneArc) {
    for (const uint32_t column : COLUMNS)
        for (const Index &index : {Index{}, Index{1, 0}, Index(32, 1)}) {
            EXPECT_EQ(mibTest(column, index, 1), "no such instance");
            EXPECT_EQ(mibCommit(column, index, 1), "no such instance");
        }
    EXPECT_TRUE(isClear(snmpIp6Bind));
}

TEST_F(MibBindingsTest, ObjectsOfOtherGroups) {
    for (const uint32_t object :
         {uint32_t{MIB_SNOOPING_ON_OFF}, uint32_t{MIB_CLIENT_MAC}, uint32_t{MIB_OBJECTS}, 0xFFFFFFFFu}) {
        addRow(0, A1);
        for (const uint32_t kind : {1u, 2u, 5u, 6u}) {
            CcdVariable variable = variableOf(object, kind == CCD_GETNEXT ? Index{} : Index{1}, 1);
            EXPECT_EQ(dhcp6snoopingMibBindTableHandler(kind, &variable), ccdErrorNoSuchInstance());
        }
    }
}

} // namespace
