// Sending toward servers with options 18 and 37 switched on.

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/packet/forward.h"
#include "tests/unit/infoopt.h"

namespace {

struct ForwardInfoTest : InfoTest {
    Frame f = fromClient(DHCP6_SOLICIT, options().clientId()).to(SERVER);
    Frame with18 = fromClient(DHCP6_SOLICIT, options().clientId().option(18, textBytes("N1"))).to(SERVER);
    const Bytes server = macBytes(SERVER);
    const Lines asked = {"getSWByVLAN vlan=10", "vosHostNameGet size=128", "getSysMacAdress"};

    void SetUp() override {
        InfoTest::SetUp();
        useString(OPTION_18, "N1");
        useString(OPTION_37, "N3");
        enableOptions({OPTION_18});
    }
    int32_t send(uint32_t port0 = 0) {
        const Bytes before = bytesOf(f);
        Bytes bytes = before;
        Dhcp6PacketDescriptor packet = {
            .data = bytes.data(), .length = static_cast<uint32_t>(bytes.size()), .info = {}, .ctl = {}};
        packet.ctl.flags = flagsOf(f);
        packet.ctl.payloadOffset = static_cast<uint16_t>(messageOffset(f));
        const int32_t result = dhcp6snooping_send_packet_to_sever(&packet, f.outerVlan, port0, messageOffset(f));
        EXPECT_EQ(bytes, before) << "the frame that came is the platform's";
        return result;
    }
};

TEST_F(ForwardInfoTest, TheOptionsComeBeforeTheWay) {
    recordingMacOnPort(10, server.data(), 4);
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(recordingTake(), joined({asked, askedFor(f), sentTo(4, with18)}));
    EXPECT_EQ(recordingSent.back().ctl.payloadOffset, 66);
}

TEST_F(ForwardInfoTest, AFloodHasThemToo) {
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(recordingTake(), joined({asked, floodedToServers(with18, 1)}));
    f.inner(30);
    with18.inner(30);
    EXPECT_EQ(send(1), 0);
    EXPECT_EQ(recordingTake(), joined({asked, floodedToServers(with18, 2)}));
}

TEST_F(ForwardInfoTest, EitherOptionIsEnough) {
    enableOptions({OPTION_37});
    EXPECT_EQ(send(), 0);
    const Frame with37 = fromClient(DHCP6_SOLICIT, options().clientId().option(37, hexBytes("0000b80f 4e33"))).to(SERVER);
    EXPECT_EQ(recordingSent.back().bytes, bytesOf(with37));
    enableOptions({OPTION_18, OPTION_37});
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(recordingSent.back().bytes,
              bytesOf(f.carrying(message(
                  DHCP6_SOLICIT, options().clientId().option(18, textBytes("N1")).option(37, hexBytes("0000b80f 4e33"))))));
}

TEST_F(ForwardInfoTest, SwitchedOffTheFrameGoesAsItCame) {
    dhcp6L2Relay = 1; // wraps nothing by itself
    for (const uint32_t off : {0u, 2u, 0xFFFFFFFFu}) {
        dhcp6InfoOptionPolicy.option18Enable = off;
        dhcp6InfoOptionPolicy.option37Enable = off;
        EXPECT_EQ(send(), 0);
        EXPECT_EQ(recordingTake(), floodedToServers(f, 1));
    }
}

TEST_F(ForwardInfoTest, ADroppedFrameIsAnErrorAndAsksNothing) {
    dhcp6InfoOptionPolicy.strategy = 1;
    f.carrying(message(DHCP6_SOLICIT, options().option(18, {1})));
    EXPECT_EQ(send(), -1);
    EXPECT_EQ(recordingTake(), joined({asked, said(SAID_STRATEGY), said(SAID_DROPPED)}));
    f.carrying(message(DHCP6_SOLICIT, options().option(8, Bytes(1900, 0))));
    EXPECT_EQ(send(), -1);
    EXPECT_EQ(recordingTake(), said(SAID_LENGTH));
    EXPECT_TRUE(recordingSent.empty());
    enableOptions({});
    EXPECT_EQ(send(), 0) << "too long for options, not for the switch";
}

TEST_F(ForwardInfoTest, WithoutAFrameItRefuses) {
    EXPECT_EQ(dhcp6snooping_send_packet_to_sever(nullptr, 10, 0, 66), -1);
    Dhcp6PacketDescriptor packet = {};
    packet.length = 100;
    EXPECT_EQ(dhcp6snooping_send_packet_to_sever(&packet, 10, 0, 66), -1);
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(ForwardInfoTest, PlaceAndVlanReachTheOption) {
    useTemplate(OPTION_18, TemplateWords().element(3).literal(":").element(11).made);
    f.vlan(20);
    EXPECT_EQ(send(2), 0);
    const Frame placed = fromClient(DHCP6_SOLICIT, options().clientId().option(18, textBytes("0/3:0020"))).to(SERVER).vlan(20);
    EXPECT_EQ(recordingSent.back().bytes, bytesOf(placed));
    EXPECT_EQ(recordingSent.back().vlan, 20);
}

TEST_F(ForwardInfoTest, TowardClientsNothingIsAdded) {
    f = fromServer(DHCP6_REPLY, options().clientId());
    Bytes bytes = bytesOf(f);
    Dhcp6PacketDescriptor packet = {.data = bytes.data(), .length = static_cast<uint32_t>(bytes.size()), .info = {}, .ctl = {}};
    EXPECT_EQ(dhcp6snooping_send_packet_to_client(&packet, 10, 3), 0);
    EXPECT_EQ(recordingSent.back().bytes, bytes);
    EXPECT_EQ(recordingCount("getSWByVLAN"), 0u);
}

TEST_F(ForwardInfoTest, ASnoopedSolicitGetsThem) {
    f.to(ALL_SERVERS);
    with18.to(ALL_SERVERS);
    const Outcome outcome = process(f, 2);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(recordingTake(), joined({saidRecorded("SOLICIT", CLIENT, 2), asked, floodedToServers(with18, 2)}));
    EXPECT_NE(clientOf(CLIENT), nullptr);
}

TEST_F(ForwardInfoTest, ASnoopedReleaseDoesNot) {
    dhcp6L2Relay = 1;
    addAckedClient(CLIENT, 10, 2);
    process(fromClient(DHCP6_RELEASE, options().clientId().serverId()), 2);
    ASSERT_EQ(recordingSent.size(), 1u);
    EXPECT_EQ(recordingSent[0].bytes, bytesOf(fromClient(DHCP6_RELEASE, options().clientId().serverId())));
}

TEST_F(ForwardInfoTest, TheClientOfALongMessageIsRecordedAllTheSame) {
    process(fromClient(DHCP6_SOLICIT, options().option(8, Bytes(1900, 0))), 2);
    EXPECT_NE(clientOf(CLIENT), nullptr) << "as with every message that cannot be sent on";
    EXPECT_TRUE(recordingSent.empty());
}

} // namespace
