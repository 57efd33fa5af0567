// The MIB module as the sub-agent library reads it, byte by byte.

#include "l2/dhcp6snooping/mib/objects.h"
#include "tests/unit/mib.h"

#include <cstring>
#include <set>

namespace {

struct MibObjectsTest : MibTest {};

const std::string MODULE = "tqzL2Dhcp6Snooping";
constexpr uint32_t OBJECTS = 28;

enum Group { GLOBAL, PORTS, VLANS, CLIENTS, BINDINGS, INFORMATION };

struct Row {
    const char *name;
    Group group;
    uint16_t column;
    uint32_t size, low, high, syntax, access;
    uint64_t flags;
};

constexpr uint32_t RO = 1, RW = 3;
constexpr uint32_t INTEGER = 1, TEXT = 2, MAC = 5, ROW_STATUS = 13;

const Row ROWS[OBJECTS] = {
    {"dhcp6snoopingOnOff", GLOBAL, 1, 4, 1, 2, INTEGER, RW, 0x1},
    {"portIndex", PORTS, 1, 4, 0, 0, INTEGER, RO, 0x11},
    {"portTrustMode", PORTS, 2, 4, 1, 2, INTEGER, RW, 0x1},
    {"portMaxNum", PORTS, 3, 4, 0, 0, INTEGER, RW, 0x1},
    {"portIpSourceGuardMode", PORTS, 4, 4, 1, 2, INTEGER, RW, 0x1},
    {"vlanIndex", VLANS, 1, 4, 1, 4094, INTEGER, RO, 0x11},
    {"vlanMaxNum", VLANS, 2, 4, 0, 0, INTEGER, RW, 0x1},
    {"dhcp6snoopingPortDownAction", GLOBAL, 4, 4, 1, 2, INTEGER, RW, 0x1},
    {"client6MacAddr", CLIENTS, 1, 6, 0, 0, MAC, RO, 0x11},
    {"client6VlanId", CLIENTS, 2, 4, 1, 4094, INTEGER, RO, 0x1},
    {"client6PortId", CLIENTS, 3, 4, 1, 255, INTEGER, RO, 0x1},
    {"client6LeaseNum", CLIENTS, 4, 4, 1, 255, INTEGER, RO, 0x1},
    {"client6IpAddrStr", CLIENTS, 5, 255, 0, 0, TEXT, RO, 0x1},
    {"client6IpAddrStr2", CLIENTS, 6, 255, 0, 0, TEXT, RO, 0x1},
    {"client6LeaseTime", CLIENTS, 7, 255, 0, 0, TEXT, RO, 0x1},
    {"ip6BindIndex", BINDINGS, 1, 4, 1, 380, INTEGER, RW, 0x11},
    {"ip6BindIpAddr", BINDINGS, 2, 255, 0, 0, TEXT, RW, 0x1},
    {"ip6BindMacAddr", BINDINGS, 3, 6, 0, 0, MAC, RW, 0x1},
    {"ip6BindPortId", BINDINGS, 4, 4, 1, 255, INTEGER, RW, 0x1},
    {"ip6BindVlanId", BINDINGS, 5, 4, 1, 4094, INTEGER, RW, 0x1},
    {"ip6SourceGuardBindRowstatus", BINDINGS, 6, 4, 1, 6, ROW_STATUS, RW, 0x1},
    {"ipv6SourceGuardDisabledVlanString", GLOBAL, 8, 255, 0, 0, TEXT, RW, 0x1},
    {"dhcp6snoopingInfoOption18Enable", INFORMATION, 1, 4, 1, 0, INTEGER, RW, 0x1},
    {"dhcp6snoopingInfoOption37Enable", INFORMATION, 2, 4, 1, 0, INTEGER, RW, 0x1},
    {"dhcp6snoopingInfoRemoteId", INFORMATION, 3, 4, 1, 4, INTEGER, RW, 0x1},
    {"dhcp6snoopingInfoRemoteStr", INFORMATION, 4, 255, 0, 0, TEXT, RW, 0x1},
    {"dhcp6snoopingInfoInterfaceId", INFORMATION, 5, 4, 1, 4, INTEGER, RW, 0x1},
    {"dhcp6snoopingInfoInterfaceStr", INFORMATION, 6, 255, 0, 0, TEXT, RW, 0x1},
};

CcdHandler handlerOf(Group group) {
    switch (group) {
    case PORTS: return dhcp6snoopingMibPortTableHandler;
    case VLANS: return dhcp6snoopingMibVlanTableHandler;
    case CLIENTS: return dhcp6snoopingMibClientTableHandler;
    case BINDINGS: return dhcp6snoopingMibBindTableHandler;
    default: return dhcp6snoopingMibScalarHandler;
    }
}

Index arcsOf(Group group) {
    Index arcs = {1, 1, 3, 6, 1, 4, 1, 47119, 1, 2, 4, 9};
    const Index behind[] = {{}, {2, 1}, {3, 1}, {6, 1}, {7, 1}, {20}};
    arcs.insert(arcs.end(), behind[group].begin(), behind[group].end());
    return arcs;
}

bool isTable(Group group) { return group != GLOBAL && group != INFORMATION; }

// The bytes at an offset, as a number or a pointer.
template <typename T> T field(const void *record, size_t offset) {
    T value;
    memcpy(&value, static_cast<const uint8_t *>(record) + offset, sizeof value);
    return value;
}

const uint8_t *record(uint32_t object) { return reinterpret_cast<const uint8_t *>(tqzL2Dhcp6SnoopingObjects[object].object); }

const uint8_t *descriptor(uint32_t object) {
    return reinterpret_cast<const uint8_t *>(tqzL2Dhcp6SnoopingObjects[object].group);
}

bool allZero(const uint8_t *bytes, size_t count) {
    return std::all_of(bytes, bytes + count, [](uint8_t byte) { return byte == 0; });
}

// The objects that stand in one group together, in their order: a table, or one scalar by itself.
std::vector<uint32_t> objectsBeside(uint32_t object) {
    if (!isTable(ROWS[object].group))
        return {object};
    std::vector<uint32_t> beside;
    for (uint32_t other = 0; other < OBJECTS; other++)
        if (ROWS[other].group == ROWS[object].group)
            beside.push_back(other);
    return beside;
}

TEST_F(MibObjectsTest, EveryObjectRecord) {
    for (uint32_t object = 0; object < OBJECTS; object++) {
        const Row &row = ROWS[object];
        SCOPED_TRACE(row.name);
        const uint8_t *bytes = record(object);
        EXPECT_EQ(field<uint16_t>(bytes, 0), object);
        EXPECT_EQ(field<uint16_t>(bytes, 2), row.column);
        EXPECT_EQ(field<uint32_t>(bytes, 4), row.size);
        EXPECT_EQ(field<uint32_t>(bytes, 8), row.low);
        EXPECT_EQ(field<uint32_t>(bytes, 12), row.high);
        EXPECT_EQ(field<uint32_t>(bytes, 16), row.syntax);
        EXPECT_EQ(field<uint32_t>(bytes, 20), row.access);
        EXPECT_EQ(field<uint64_t>(bytes, 24), row.flags);
        EXPECT_EQ(field<CcdHandler>(bytes, 32), handlerOf(row.group));
        EXPECT_EQ(field<uint64_t>(bytes, 40), 0u);
        EXPECT_EQ(field<const char *>(bytes, 48), MODULE + ":" + row.name);
    }
}

TEST_F(MibObjectsTest, EveryGroupDescriptor) {
    for (uint32_t object = 0; object < OBJECTS; object++) {
        const Row &row = ROWS[object];
        SCOPED_TRACE(row.name);
        const uint8_t *bytes = descriptor(object);
        Index arcs = arcsOf(row.group);
        const auto used = static_cast<uint32_t>(arcs.size());
        arcs.resize(32, 0);
        for (uint32_t arc = 0; arc < 32; arc++)
            EXPECT_EQ(field<uint32_t>(bytes, 4 * arc), arcs[arc]) << arc;
        EXPECT_EQ(field<uint32_t>(bytes, 128), 0u);
        EXPECT_EQ(field<uint32_t>(bytes, 132), used);
        EXPECT_EQ(field<uint32_t>(bytes, 136), isTable(row.group) ? 1u : 0u);
        EXPECT_EQ(field<uint32_t>(bytes, 140), row.group == CLIENTS ? 6u : 1u);
        EXPECT_TRUE(allZero(bytes + 152, 64));
        EXPECT_EQ(field<const uint8_t *>(bytes, 216), record(objectsBeside(object).front()));
        const char *indexName = field<const char *>(bytes, 144);
        if (isTable(row.group))
            EXPECT_EQ(indexName, MODULE + ":" + ROWS[objectsBeside(object).front()].name);
        else
            EXPECT_EQ(indexName, nullptr);
    }
}

TEST_F(MibObjectsTest, RecordsOfAGroupStandBetweenTheNameAndAZeroRecord) {
    for (uint32_t object = 0; object < OBJECTS; object++) {
        SCOPED_TRACE(ROWS[object].name);
        const std::vector<uint32_t> beside = objectsBeside(object);
        const uint8_t *first = record(beside.front());
        EXPECT_EQ(field<const char *>(first - 8, 0), MODULE);
        for (uint32_t at = 0; at < beside.size(); at++)
            EXPECT_EQ(record(beside[at]), first + 56 * at);
        EXPECT_TRUE(allZero(first + 56 * beside.size(), 56));
    }
}

TEST_F(MibObjectsTest, AScalarHasADescriptorOfItsOwnAndATableOne) {
    std::set<const uint8_t *> descriptors;
    for (uint32_t object = 0; object < OBJECTS; object++) {
        descriptors.insert(descriptor(object));
        EXPECT_EQ(descriptor(object), descriptor(objectsBeside(object).front())) << ROWS[object].name;
    }
    EXPECT_EQ(descriptors.size(), 13u);
}

TEST_F(MibObjectsTest, TheListEndsWithAPairOfNulls) {
    EXPECT_EQ(tqzL2Dhcp6SnoopingObjects[OBJECTS].group, nullptr);
    EXPECT_EQ(tqzL2Dhcp6SnoopingObjects[OBJECTS].object, nullptr);
}

TEST_F(MibObjectsTest, RegisteredAndWithdrawnByName) {
    EXPECT_EQ(tqzL2Dhcp6SnoopingInit(1, 2), 0) << "the arguments do not matter";
    EXPECT_EQ(recordingTake(), Lines{"ccdModuleRegister module=\"tqzL2Dhcp6Snooping\" objects=28"});
    EXPECT_EQ(tqzL2Dhcp6SnoopingTerminate(3, 4), 0);
    EXPECT_EQ(recordingTake(), Lines{"ccdModuleDeRegister module=\"tqzL2Dhcp6Snooping\""});
}

TEST_F(MibObjectsTest, WhatTheLibraryAnswersDoesNotMatter) {
    for (const char *name : {"ccdModuleRegister", "ccdModuleDeRegister"}) {
        recordingFailAlways(name);
        EXPECT_EQ(tqzL2Dhcp6SnoopingInit(0, 0), 0);
        EXPECT_EQ(tqzL2Dhcp6SnoopingTerminate(0, 0), 0);
        EXPECT_EQ(recordingFailed, name);
    }
}

} // namespace
