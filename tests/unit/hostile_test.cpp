// Frames that are shorter than they say, or not what they say: nothing is read outside them, nothing is learned from them.

#include "l2/dhcp6snooping/clients/limits.h"
#include "tests/unit/infoopt.h"

#include <random>

namespace {

struct HostileTest : SnoopingTest {};

TEST_F(HostileTest, AMessageOutsideTheFrameIsDroppedInSilence) {
    const Bytes bytes = bytesOf(fromClient(DHCP6_SOLICIT)); // 70 bytes: headers and a message without options
    ASSERT_EQ(bytes.size(), 70u);
    for (const uint32_t offset : {0u, 18u, 58u, 65u, 67u, 69u, 70u, 71u, 0xFFFFu, 0x7FFFFFFFu, 0xFFFFFFFCu, 0xFFFFFFFFu}) {
        Bytes changed = bytes;
        if (offset < changed.size())
            changed[offset] = DHCP6_SOLICIT; // what is read there would be recorded
        EXPECT_EQ(processRaw(changed, offset, 0, 10, 1).result, 0) << offset;
        EXPECT_EQ(recordingTake(), Lines{}) << offset;
    }
    for (uint32_t length = 0; length < 70; length++) {
        EXPECT_EQ(processRaw(Bytes(bytes.begin(), bytes.begin() + length), 66, 0, 10, 1).result, 0);
        EXPECT_EQ(recordingTake(), Lines{}) << length;
    }
    EXPECT_EQ(tableMacs(), Lines{});
    processRaw(bytes, 66, 0, 10, 1);
    EXPECT_EQ(tableMacs(), Lines{CLIENT});
}

TEST_F(HostileTest, WithTwoTagsTheMessageStartsFourBytesLater) {
    const Bytes bytes = bytesOf(fromClient(DHCP6_SOLICIT).inner(30));
    for (uint32_t offset = 66; offset < 70; offset++) {
        Bytes changed = bytes;
        changed[offset] = DHCP6_SOLICIT;
        processRaw(changed, offset, SMD_CTL_DOUBLE_TAGGED, 10, 1);
    }
    EXPECT_EQ(recordingTake(), Lines{});
    processRaw(bytes, 70, SMD_CTL_DOUBLE_TAGGED, 10, 1);
    EXPECT_EQ(tableMacs(), Lines{CLIENT});
}

TEST_F(HostileTest, OnlyTheFlagOfTheSecondTagCounts) {
    const Bytes bytes = bytesOf(fromClient(DHCP6_SOLICIT));
    processRaw(bytes, 66, ~SMD_CTL_DOUBLE_TAGGED, 10, 1);
    EXPECT_EQ(tableMacs(), Lines{CLIENT});
}

TEST_F(HostileTest, ExtensionHeadersMoveTheMessage) {
    Bytes bytes = bytesOf(fromClient(DHCP6_SOLICIT));
    bytes.insert(bytes.begin() + 58, 8, 0);
    processRaw(bytes, 74, 0, 10, 1);
    EXPECT_EQ(tableMacs(), Lines{CLIENT});
}

// An exchange whose frames are cut at every byte.
TEST_F(HostileTest, CutAtEveryByte) {
    dhcp6L2Relay = 1;
    Options leases = options().serverId().iaNa(1, 2, options().address("2001:db8::1", 10, 20, options().status(0)));
    leases.iaPd(1, 2, options().prefix("2001:db8:1::", 56, 10, 20));
    const Frame relayed = frame().from(SERVER).to(CLIENT).udp(547).carrying(
        relayMessage(13, options().relayMessage(message(DHCP6_REPLY, leases))));
    const Frame frames[] = {fromClient(DHCP6_SOLICIT, leases), fromServer(DHCP6_REPLY, leases), relayed,
                            fromClient(DHCP6_RELEASE, leases)};
    enableOptions({OPTION_18, OPTION_37});
    for (const Frame &f : frames) {
        const Bytes whole = bytesOf(f);
        for (size_t cut = 0; cut <= whole.size(); cut++) {
            dhcp6snooping_delete_allavlnode();
            addAckedClient(CLIENT, 10, 2);
            EXPECT_EQ(processRaw(Bytes(whole.begin(), whole.begin() + static_cast<long>(cut)), 66, 0, 10, 3).result, 0);
        }
    }
}

// Thousands of frames with bytes, offsets, places and flags at random, over a table that keeps its state.
TEST_F(HostileTest, AnyBytesFromAnywhere) {
    std::mt19937 generator(6);
    const auto any = [&generator]() { return static_cast<uint32_t>(generator()); };
    recordingDebugOn = 1;
    gul_max_port_num = 40;
    Options leases = options().iaNa(1, 2, options().address("2001:db8::1", 10, 20).address("2001:db8::2", 10, 20));
    leases.iaPd(1, 2, options().prefix("2001:db8:1::", 56, 10, 20)).relayMessage(message(DHCP6_REPLY, leases));
    leases.option(18, Bytes(8, 9)).option(37, Bytes(12, 20));
    for (int round = 0; round < 10000; round++) {
        dhcp6L2Relay = any() % 2;
        dhcp6InfoOptionPolicy.option18Enable = any() % 2;
        dhcp6InfoOptionPolicy.option37Enable = any() % 2;
        dhcp6InfoOptionPolicy.strategy = 1 + any() % 3;
        const auto type = static_cast<uint8_t>(any() % 16);
        Frame f = any() % 2 == 0 ? fromClient(type, leases) : fromServer(type, leases);
        if (any() % 3 == 0)
            f.payload = relayMessage(DHCP6_RELAY_REPL, options().relayMessage(f.payload));
        f.source[5] = f.destination[5] = static_cast<uint8_t>(any() % 8);
        if (any() % 4 == 0)
            f.inner(7);
        Bytes bytes = bytesOf(f);
        for (uint32_t change = any() % 6; change > 0; change--)
            bytes[any() % bytes.size()] = static_cast<uint8_t>(any());
        if (any() % 4 == 0)
            bytes.resize(any() % bytes.size());
        const uint32_t offset = any() % 4 == 0 ? any() % 300 : messageOffset(f);
        const uint32_t flags = any() % 8 == 0 ? any() : flagsOf(f);
        const uint32_t port0 = any() % 8 == 0 ? any() : any() % 5;
        const auto vlan = static_cast<uint16_t>(any() % 8 == 0 ? any() : 10);
        ASSERT_EQ(processRaw(bytes, offset, flags, vlan, port0).result, 0);
        recordingTake();
        recordingSent.clear();
        recordingTraces.clear();
    }
    uint32_t counted = 0;
    for (const Dhcp6SnoopingNode *node = dhcp6snooping_first_avlnode(); node != nullptr;
         node = dhcp6snooping_next_avlnode(node->mac)) {
        EXPECT_TRUE(node->port >= 1 && node->port <= 28 && node->vlan < 4096);
        counted++;
    }
    EXPECT_EQ(counted + listDhcp6SnoopingAvlNode.count, 2048u);
    uint32_t byPort = 0;
    for (const uint16_t count : dhcp6SnoopingPortIpNum)
        byPort += count;
    EXPECT_EQ(byPort, counted);
}

} // namespace
