// Unwrapping of Relay-Reply.

#include "l2/dhcp6snooping/clients/limits.h"
#include "tests/unit/fixture.h"

namespace {

struct RelayTest : SnoopingTest {
    void SetUp() override {
        SnoopingTest::SetUp();
        dhcp6L2Relay = 1;
    }
};

Frame relayed(const Options &content) {
    return frame().from(SERVER).to(CLIENT).udpFrom(547).udp(547).carrying(relayMessage(DHCP6_RELAY_REPL, content));
}

// What a relayed frame becomes: the inner message, to the client's port.
Frame unwrapped(const Frame &f, const Bytes &inner) { return Frame(f).udp(546).carrying(inner); }

const Bytes REPLY = message(DHCP6_REPLY, options().serverId().iaNa(1, 2, options().address("2001:db8::1", 10, 20)));

TEST_F(RelayTest, TheInnerReplyTakesItsPlace) {
    const Dhcp6SnoopingNode *client = addClient(CLIENT, 10, 2);
    const Frame f = relayed(options().relayMessage(REPLY));
    const Frame inner = unwrapped(f, REPLY);
    const Outcome outcome = process(f, 4);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.bytes, bytesOf(inner)) << "length, port, checksum";
    EXPECT_EQ(recordingTake(),
              joined({said("\r\n dhcpv6 REPLY msg to user: mac " + CLIENT), floodedToClients(inner, 4, "1,2,3")}));
    EXPECT_EQ(leasesOf(client->leases), Lines{"2001:db8::1/128=20"});
}

TEST_F(RelayTest, OtherOptionsAroundItAreDropped) {
    const Frame f = relayed(options().option(18, {1, 2, 3}).relayMessage(REPLY).option(79, {4}));
    EXPECT_EQ(process(f, 4).bytes, bytesOf(unwrapped(f, REPLY)));
}

TEST_F(RelayTest, DoubleTaggedFramesAreCorrectedInTheRightPlaces) {
    const Frame f = relayed(options().relayMessage(REPLY)).inner(30);
    EXPECT_EQ(process(f, 4).bytes, bytesOf(unwrapped(f, REPLY)));
}

TEST_F(RelayTest, EveryInnerLengthIsCorrected) {
    for (uint32_t extra = 0; extra < 70; extra++) { // shorter and longer than the header that goes
        const Bytes inner = message(DHCP6_ADVERTISE, options().option(99, Bytes(extra, 0xC3)));
        const Frame f = relayed(options().relayMessage(inner));
        ASSERT_EQ(process(f, 4).bytes, bytesOf(unwrapped(f, inner))) << extra;
    }
    const Bytes shortest = {DHCP6_ADVERTISE, 1, 2, 3};
    const Frame f = relayed(options().relayMessage(shortest));
    EXPECT_EQ(process(f, 4).bytes, bytesOf(unwrapped(f, shortest)));
}

TEST_F(RelayTest, AChecksumOfZeroIsSentAsAllOnes) {
    // The checksum is what the words lack to 0xFFFF: put into a free word of the message, it leaves a checksum of 0.
    Bytes inner = {DHCP6_ADVERTISE, 0, 0, 0};
    const Bytes without = bytesOf(unwrapped(relayed({}), inner));
    inner[2] = without[64];
    inner[3] = without[65];
    const Bytes after = process(relayed(options().relayMessage(inner)), 4).bytes;
    EXPECT_EQ(after[64], 0xFF);
    EXPECT_EQ(after[65], 0xFF);
    EXPECT_EQ(after, bytesOf(unwrapped(relayed({}), inner)));
}

TEST_F(RelayTest, WhileOffItIsForwardedAsItIs) {
    dhcp6L2Relay = 0;
    const Frame f = relayed(options().relayMessage(REPLY));
    EXPECT_EQ(process(f, 4).bytes, bytesOf(f));
    EXPECT_EQ(recordingTake(), floodedToClients(f, 4, "1,2,3"));
}

TEST_F(RelayTest, AnyNonZeroSwitchIsOn) {
    dhcp6L2Relay = 7;
    const Frame f = relayed(options().relayMessage(REPLY));
    EXPECT_EQ(process(f, 4).bytes, bytesOf(unwrapped(f, REPLY)));
}

TEST_F(RelayTest, OtherTypesAreNotUnwrapped) {
    const Frame f = frame().carrying(relayMessage(DHCP6_RELAY_FORW, options().relayMessage(REPLY)));
    EXPECT_EQ(process(f, 1).bytes, bytesOf(f));
    EXPECT_EQ(recordingTake(), floodedToServers(f, 1));
}

TEST_F(RelayTest, WithoutARelayMessageItStaysAsItIs) {
    const Options contents[] = {options(),
                                options().option(18, {1, 2, 3, 4}),
                                options().relayMessage({}),
                                options().relayMessage({7}),
                                options().relayMessage({7, 7}),
                                options().relayMessage({7, 7, 7})};
    for (const Options &content : contents) {
        const Frame f = relayed(content);
        EXPECT_EQ(process(f, 4).bytes, bytesOf(f));
        EXPECT_EQ(recordingTake(), floodedToClients(f, 4, "1,2,3"));
        process(f, 1);
        EXPECT_EQ(recordingTake(), said("\r\n dhcpv6 RELAY_REPLY msg comes from untrust port, drop msg."));
    }
}

TEST_F(RelayTest, ATooShortRelayMessageIsNotUnwrapped) {
    const Frame whole = relayed(options().relayMessage(REPLY));
    for (uint32_t length = 4; length < 38; length++) {
        Frame f = whole;
        f.payload.resize(length);
        EXPECT_EQ(process(f, 4).bytes, bytesOf(f)) << length;
    }
}

TEST_F(RelayTest, TheInnerTypeDecidesNotThePort) {
    const Bytes solicit = message(DHCP6_SOLICIT, options().clientId());
    const Frame f = relayed(options().relayMessage(solicit)).from(OTHER_CLIENT);
    const Frame inner = unwrapped(f, solicit);
    EXPECT_EQ(process(f, 1).bytes, bytesOf(inner)) << "on an untrusted port too, and to port 546 like any other";
    EXPECT_EQ(recordingTake(), joined({saidRecorded("SOLICIT", OTHER_CLIENT, 1), floodedToServers(inner, 1)}));
}

TEST_F(RelayTest, TheTrustTestNamesTheInnerType) {
    process(relayed(options().relayMessage(REPLY)), 1);
    EXPECT_EQ(recordingTake(), said("\r\n dhcpv6 REPLY msg comes from untrust port, drop msg."));
}

TEST_F(RelayTest, OnlyOneLayerIsTakenOffAndANestedOneKeepsItsPort) {
    const Bytes nested = relayMessage(DHCP6_RELAY_REPL, options().relayMessage(REPLY));
    const Frame f = relayed(options().relayMessage(nested));
    const Frame inner = Frame(f).carrying(nested);
    EXPECT_EQ(process(f, 4).bytes, bytesOf(inner));
    EXPECT_EQ(recordingTake(), floodedToClients(inner, 4, "1,2,3"));
}

TEST_F(RelayTest, AnUnknownInnerTypeIsDropped) {
    process(relayed(options().relayMessage({0, 1, 2, 3})), 4);
    process(relayed(options().relayMessage({14, 1, 2, 3})), 4);
    EXPECT_EQ(recordingTake(), Lines{});
}

// The search for the inner message may run as far behind the frame as it started in it: 34 bytes of the zeros that every
// frame has behind its end.
TEST_F(RelayTest, AnInnerLengthMayReachIntoTheZerosBehindTheFrame) {
    for (const uint32_t beyond : {1u, 20u, 34u}) {
        Bytes inner = message(DHCP6_ADVERTISE, options().option(99, Bytes(30, 0xC3)));
        Frame f = relayed(options().relayMessage(inner));
        f.payload[34 + 3] = static_cast<uint8_t>(inner.size() + beyond);
        inner.resize(inner.size() + beyond, 0);
        EXPECT_EQ(process(f, 4).bytes, bytesOf(unwrapped(f, inner))) << beyond;
    }
    const Bytes inner = message(DHCP6_ADVERTISE, options().option(99, Bytes(30, 0xC3)));
    Frame f = relayed(options().relayMessage(inner));
    f.payload[34 + 3] = static_cast<uint8_t>(inner.size() + 35);
    EXPECT_EQ(process(f, 4).bytes, bytesOf(f)) << "one more is too far";
}

// Bytes behind the message (padding) count in the frame's length only. What goes is taken off the length fields as they
// were, and the checksum's length is that of the new frame.
TEST_F(RelayTest, LengthFieldsGetTheDifference) {
    const Bytes inner = message(DHCP6_ADVERTISE, options().option(99, {1, 2}));
    const Frame f = relayed(options().relayMessage(inner));
    Bytes padded = bytesOf(f);
    padded.insert(padded.end(), 6, 0);
    const Bytes after = processRaw(padded, 66, 0, 10, 3).bytes;
    ASSERT_EQ(after.size(), 66 + inner.size());
    const auto field = [&after](uint32_t at) { return after[at] << 8 | after[at + 1]; };
    const int difference = static_cast<int>(66 + inner.size()) - static_cast<int>(padded.size());
    EXPECT_EQ(field(62), static_cast<int>(f.payload.size()) + 8 + difference) << "UDP length";
    EXPECT_EQ(field(22), static_cast<int>(f.payload.size()) + 8 + difference) << "IPv6 payload length";
    uint32_t sum = 17 + static_cast<uint32_t>(after.size() - 58);
    for (uint32_t at = 26; at < after.size(); at++) // addresses, UDP header and message, end to end
        sum += at % 2 == 0 ? static_cast<uint32_t>(after[at] << 8) : after[at];
    EXPECT_EQ(sum % 0xFFFF, 0u) << "checksum";
}

TEST_F(RelayTest, LengthFieldsThatLieWrapAround) {
    const Bytes inner = message(DHCP6_ADVERTISE, {});
    Bytes bytes = bytesOf(relayed(options().relayMessage(inner)));
    bytes[22] = bytes[23] = bytes[62] = bytes[63] = 0;
    const uint32_t gone = static_cast<uint32_t>(bytes.size() - 66 - inner.size());
    const Bytes after = processRaw(bytes, 66, 0, 10, 3).bytes;
    EXPECT_EQ(after[22] << 8 | after[23], static_cast<int>(0x10000 - gone));
    EXPECT_EQ(after[62] << 8 | after[63], static_cast<int>(0x10000 - gone));
}

TEST_F(RelayTest, AnInnerRequestMeetsTheLimits) {
    dhcp6SnoopingPortMaxIP[0] = 0;
    process(relayed(options().relayMessage(message(DHCP6_REQUEST))), 1);
    EXPECT_EQ(recordingTake(), said("\r\n user number reaches max of port or vlan, drop dhcpv6 REQUEST msg"));
}

} // namespace
