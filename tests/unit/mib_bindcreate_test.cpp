// Binding table of the MIB: how managers make and destroy a row.

#include "tests/unit/mib.h"

#include <cstring>

namespace {

struct MibBindCreateTest : MibTest {};

constexpr uint32_t CREATE_AND_GO = 4, CREATE_AND_WAIT = 5, DESTROY = 6;

std::string create(uint32_t how = CREATE_AND_GO, uint32_t index = 1) { return mibCommit(MIB_BIND_ROW_STATUS, {index}, how); }
std::string destroy(uint32_t index) { return mibCommit(MIB_BIND_ROW_STATUS, {index}, DESTROY); }

// ---- The scratch row ----------------------------------------------------------------------------------------------------

TEST_F(MibBindCreateTest, ColumnsAreStagedWhateverTheInstance) {
    stage(5, "2001:DB8::1");
    EXPECT_EQ(snmpIp6Bind.status, 4u) << "the row number, from 0";
    EXPECT_EQ(memcmp(&snmpIp6Bind.address, ip6(A1).bytes, 16), 0);
    EXPECT_EQ(memcmp(snmpIp6Bind.mac, macBytes(M1).data(), 6), 0);
    EXPECT_EQ(snmpIp6Bind.port, 2u);
    EXPECT_EQ(snmpIp6Bind.vlan, 10u);
    EXPECT_EQ(mibCommit(MIB_BIND_PORT, {200}, 3), "ok");
    EXPECT_EQ(snmpIp6Bind.port, 3u);
    EXPECT_EQ(rows(), Lines{});
    EXPECT_EQ(bindings(), Lines{});
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(MibBindCreateTest, NumbersAreStagedAsTheyCome) {
    mibCommit(MIB_BIND_INDEX, {1}, 0);
    EXPECT_EQ(snmpIp6Bind.status, 0xFFFFFFFFu);
    mibCommit(MIB_BIND_INDEX, {1}, 0xFFFFFFFF);
    mibCommit(MIB_BIND_PORT, {1}, 0xFFFFFFFF);
    mibCommit(MIB_BIND_VLAN, {1}, 5000);
    EXPECT_EQ(snmpIp6Bind.status, 0xFFFFFFFEu);
    EXPECT_EQ(snmpIp6Bind.port, 0xFFFFFFFFu);
    EXPECT_EQ(snmpIp6Bind.vlan, 5000u);
}

TEST_F(MibBindCreateTest, WhatIsNoAddressIsNotStaged) {
    stage(1, A1);
    for (const char *text : {"", "nonsense", "192.0.2.1", "1::2::3", ":1"})
        EXPECT_EQ(mibCommit(MIB_BIND_ADDRESS, {1}, text), "wrong value") << text;
    for (const uint32_t length : {40u, 255u, 256u})
        EXPECT_EQ(mibCommit(MIB_BIND_ADDRESS, {1}, std::string(length, ':')), "invalid length");
    EXPECT_EQ(memcmp(&snmpIp6Bind.address, ip6(A1).bytes, 16), 0);
    EXPECT_EQ(mibCommit(MIB_BIND_ADDRESS, {1}, "2001:0db8:0000:0000:0000:0000:0000:0002"), "ok") << "39 characters, no end";
    EXPECT_EQ(memcmp(&snmpIp6Bind.address, ip6(A2).bytes, 16), 0);
    EXPECT_EQ(mibCommit(MIB_BIND_ADDRESS, {1}, "2001:db8::"), "ok") << "digits behind the text are none of it";
    EXPECT_EQ(memcmp(&snmpIp6Bind.address, ip6("2001:db8::").bytes, 16), 0);
}

TEST_F(MibBindCreateTest, AMacAddressIsReadOctetByOctet) {
    EXPECT_EQ(mibCommit(MIB_BIND_MAC, {1}, "0a:1B:2c:3D:4e:5F"), "ok");
    const Bytes before = {0x0a, 0x1b, 0x2c, 0x3d, 0x4e, 0x5f};
    EXPECT_EQ(Bytes(snmpIp6Bind.mac, snmpIp6Bind.mac + 6), before);
    EXPECT_EQ(snmpIp6Bind.port, 0u) << "nothing behind it is written";
    for (const char *text : {"", "00:00:00:00:00:0", "00:00:00:00:00:000"})
        EXPECT_EQ(mibCommit(MIB_BIND_MAC, {1}, text), "invalid length");
    EXPECT_EQ(mibCommit(MIB_BIND_MAC, {1}, "zz:00:00:00:00:00"), "ok");
    EXPECT_EQ(Bytes(snmpIp6Bind.mac, snmpIp6Bind.mac + 6), before) << "octets that cannot be read stay";
    EXPECT_EQ(mibCommit(MIB_BIND_MAC, {1}, "01:02:03:zz:05:06"), "ok");
    EXPECT_EQ(Bytes(snmpIp6Bind.mac, snmpIp6Bind.mac + 6), (Bytes{1, 2, 3, 0x3d, 0x4e, 0x5f}));
    EXPECT_EQ(mibCommit(MIB_BIND_MAC, {1}, "0c:zz:00:00:00:00"), "ok");
    EXPECT_EQ(Bytes(snmpIp6Bind.mac, snmpIp6Bind.mac + 6), (Bytes{0x0c, 2, 3, 0x3d, 0x4e, 0x5f})) << "one is enough";
}

// ---- Create -------------------------------------------------------------------------------------------------------------

TEST_F(MibBindCreateTest, CreateMakesBindingAndRow) {
    guard({2});
    for (const uint32_t how : {CREATE_AND_GO, CREATE_AND_WAIT}) {
        stage(5, A1);
        recordingTake();
        EXPECT_EQ(create(how), "ok");
        EXPECT_EQ(recordingTake(), installed(4, A1, M1, 2, 10));
        EXPECT_EQ(bindings(), Lines{A1 + " " + M1 + " port 2 vlan 10"});
        EXPECT_EQ(rows(), Lines{"4: " + A1 + " " + M1 + " port 2 vlan 10"});
        EXPECT_TRUE(isClear(snmpIp6Bind));
        EXPECT_EQ(destroy(5), "ok");
    }
    unguard({2});
}

TEST_F(MibBindCreateTest, TheRowIsTheOneOfTheIndexColumn) {
    stage(5, A1);
    EXPECT_EQ(create(CREATE_AND_GO, 77), "ok") << "not that of the instance";
    EXPECT_EQ(rows(), Lines{"4: " + A1 + " " + M1 + " port 2 vlan 10"});
    EXPECT_EQ(mibCommit(MIB_BIND_ADDRESS, {77}, A2), "ok");
    EXPECT_EQ(create(CREATE_AND_GO, 77), "ok") << "without an index it is the first";
    EXPECT_EQ(rows().front(), "0: " + A2 + " " + NO_MAC + " port 0 vlan 0");
    mibCommit(MIB_BIND_INDEX, {77}, 0);
    mibCommit(MIB_BIND_ADDRESS, {77}, A3);
    EXPECT_EQ(create(CREATE_AND_GO, 77), "ok");
    EXPECT_EQ(rows()[1], "1: " + A3 + " " + NO_MAC + " port 0 vlan 0");
}

TEST_F(MibBindCreateTest, ATakenRowLeadsToTheNextFreeOne) {
    addRow(9, "2001:db8::aa");
    addRow(10, "2001:db8::bb");
    stage(10, A1);
    EXPECT_EQ(create(), "ok");
    EXPECT_EQ(rows().back(), "11: " + A1 + " " + M1 + " port 2 vlan 10");
    EXPECT_EQ(mibGet(MIB_BIND_ADDRESS, {12}), A1);
}

TEST_F(MibBindCreateTest, WithoutARowTheBindingIsMadeAllTheSame) {
    addRow(239, "2001:db8::aa");
    stage(240, A1);
    EXPECT_EQ(create(), "ok");
    EXPECT_EQ(bindings().size(), 1u);
    EXPECT_EQ(rows().size(), 1u);
    EXPECT_TRUE(isClear(snmpIp6Bind));
}

TEST_F(MibBindCreateTest, NoAddressAndMulticastAreWrong) {
    EXPECT_EQ(create(), "wrong value") << "nothing staged";
    for (const char *address : {"::", "ff02::1", "ff00::"}) {
        stage(5, address);
        EXPECT_EQ(create(), "wrong value");
        EXPECT_EQ(snmpIp6Bind.status, 4u) << "a commit that fails leaves the scratch row";
        EXPECT_EQ(snmpIp6Bind.port, 2u);
    }
    EXPECT_EQ(bindings(), Lines{});
    EXPECT_EQ(rows(), Lines{});
    stage(5, "fe80::1");
    EXPECT_EQ(create(), "ok");
    stage(6, "::1", M2);
    EXPECT_EQ(create(), "ok");
}

TEST_F(MibBindCreateTest, WhatIsBoundAlreadyCannotBeCreated) {
    addBinding(A1, M1, 2, 10);
    const std::pair<std::string, std::string> taken[] = {{A1, M1}, {A1, M2}, {A2, M1}}; // present, and two conflicts
    for (const auto &[address, mac] : taken) {
        stage(5, address, mac);
        EXPECT_EQ(create(), "commit failed");
        EXPECT_EQ(snmpIp6Bind.status, 4u);
        EXPECT_EQ(memcmp(&snmpIp6Bind.address, ip6(address).bytes, 16), 0);
    }
    EXPECT_EQ(rows(), Lines{});
    EXPECT_EQ(bindings().size(), 1u);
}

TEST_F(MibBindCreateTest, WithoutMemoryNothingIsCreated) {
    stage(5, A1);
    recordingAllocationsBegin(1);
    const std::string result = create();
    recordingAllocationsEnd();
    EXPECT_EQ(result, "commit failed");
    EXPECT_EQ(rows(), Lines{});
    EXPECT_EQ(snmpIp6Bind.status, 4u);
    EXPECT_EQ(create(), "ok") << "the columns are still staged";
}

void addBindings(uint32_t count) {
    for (uint32_t number = 1; number <= count; number++) {
        Ip6Address address = ip6("2001:db8:1::");
        address.bytes[15] = static_cast<uint8_t>(number);
        ASSERT_EQ(ip6_source_guard_bind_node_add(address, macBytes(NO_MAC).data(), 2, 10), 0);
    }
    recordingTake();
}

TEST_F(MibBindCreateTest, From240BindingsOnThereIsNoRoom) {
    addBindings(239);
    stage(5, A1);
    EXPECT_EQ(create(), "ok") << "the 240th";
    stage(6, A2, M2);
    EXPECT_EQ(create(), "resource unavailable");
    EXPECT_EQ(snmpIp6Bind.status, 5u);
    addBinding(A3, M3); // other ways have no such limit
    EXPECT_EQ(create(CREATE_AND_WAIT), "resource unavailable");
    EXPECT_EQ(rows().size(), 1u);
}

TEST_F(MibBindCreateTest, WithoutRoomOneThatExistsSucceedsAndChangesNothing) {
    addBindings(239);
    addBinding(A1, M1, 2, 10);
    const Lines before = bindings();
    const std::tuple<std::string, uint32_t, std::string> asked[] = {
        {M2, 2, "resource unavailable"}, // MAC and port have to be the same as well
        {M1, 3, "resource unavailable"},
        {M1, 2, "ok"},
    };
    for (const auto &[mac, port, expected] : asked) {
        stage(5, A1, mac, port, 99); // the VLAN does not count
        EXPECT_EQ(create(), expected);
        EXPECT_EQ(isClear(snmpIp6Bind), expected == "ok");
    }
    EXPECT_EQ(bindings(), before);
    EXPECT_EQ(rows(), Lines{});
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(MibBindCreateTest, WithoutRoomAWrongAddressIsStillWrong) {
    addBindings(240);
    stage(5, "ff02::1");
    EXPECT_EQ(create(), "wrong value");
}

TEST_F(MibBindCreateTest, ColumnsOfSeveralRequestsMakeOneRow) {
    mibCommit(MIB_BIND_ADDRESS, {3}, A1);
    mibGet(MIB_BIND_ADDRESS, {3});
    mibWalk(MIB_BIND_INDEX);
    mibCommit(MIB_BIND_PORT, {4}, 9);
    mibCommit(MIB_BIND_ADDRESS, {5}, A2); // the last word counts
    EXPECT_EQ(create(), "ok");
    EXPECT_EQ(bindings(), Lines{A2 + " " + NO_MAC + " port 9 vlan 0"});
}

TEST_F(MibBindCreateTest, OtherStatesDoNothing) {
    addRow(0, A1);
    stage(5, A2);
    const Ip6BindSnmpRow before = snmpIp6Bind;
    for (const uint32_t value : {0u, 1u, 2u, 3u, 7u, 0xFFFFFFFFu})
        EXPECT_EQ(mibCommit(MIB_BIND_ROW_STATUS, {1}, value), "ok");
    EXPECT_EQ(memcmp(&before, &snmpIp6Bind, sizeof before), 0);
    EXPECT_EQ(rows().size(), 1u);
    EXPECT_EQ(bindings(), Lines{});
}

// ---- Destroy ------------------------------------------------------------------------------------------------------------

TEST_F(MibBindCreateTest, DestroyTakesBindingRowAndScratchRow) {
    guard({2});
    stage(5, A1);
    create();
    stage(9, A2, M2);
    recordingTake();
    EXPECT_EQ(destroy(5), "ok");
    EXPECT_EQ(recordingTake(), removed(4, A1, M1, 2, 10));
    EXPECT_EQ(bindings(), Lines{});
    EXPECT_TRUE(isClear(ip6SourceGuardBindForSnmp[4]));
    EXPECT_TRUE(isClear(snmpIp6Bind)) << "what another request staged included";
    EXPECT_EQ(destroy(5), "resource unavailable");
    unguard({2});
}

TEST_F(MibBindCreateTest, OnlyRowsInUseCanBeDestroyed) {
    stage(240, A1);
    create();
    stage(9, A2, M2);
    const Ip6BindSnmpRow before = snmpIp6Bind;
    for (const uint32_t index : {0u, 1u, 239u, 241u, 0x80000000u, 0xFFFFFFFFu})
        EXPECT_EQ(destroy(index), "resource unavailable");
    EXPECT_EQ(memcmp(&before, &snmpIp6Bind, sizeof before), 0);
    EXPECT_EQ(bindings().size(), 1u);
    EXPECT_EQ(destroy(240), "ok");
}

TEST_F(MibBindCreateTest, AStaleRowCannotBeDestroyed) {
    stage(5, A1);
    create();
    ip6_source_guard_bind_node_delete(ip6(A1)); // another way: nobody tells the row
    EXPECT_EQ(mibNext(MIB_BIND_ADDRESS), "5 = " + A1);
    stage(9, A2, M2);
    EXPECT_EQ(destroy(5), "commit failed");
    EXPECT_EQ(snmpIp6Bind.status, 8u);
    EXPECT_EQ(rows().size(), 1u);
    addBinding(A1, M3, 4, 20); // the address is bound again, and now the row goes with it
    EXPECT_EQ(destroy(5), "ok");
    EXPECT_EQ(bindings(), Lines{});
    EXPECT_EQ(rows(), Lines{});
}

TEST_F(MibBindCreateTest, TheFirstRowWithTheAddressGoes) {
    stage(2, A1);
    create();
    ip6_source_guard_bind_node_delete(ip6(A1));
    stage(7, A1);
    EXPECT_EQ(create(), "ok");
    EXPECT_EQ(destroy(7), "ok");
    EXPECT_EQ(rows(), Lines{"6: " + A1 + " " + M1 + " port 2 vlan 10"}) << "that of index 2 was the first";
}

} // namespace
