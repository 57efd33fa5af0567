// Sending toward clients.

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/packet/forward.h"
#include "tests/unit/fixture.h"

namespace {

struct ForwardClientTest : SnoopingTest {
    Frame f = fromServer(DHCP6_ADVERTISE);
    const Bytes client = macBytes(CLIENT);

    int32_t send(uint32_t port0) { return sendIn(10, port0); }
    int32_t sendIn(uint16_t vlan, uint32_t port0) {
        Bytes bytes = bytesOf(f);
        Dhcp6PacketDescriptor packet = {
            .data = bytes.data(), .length = static_cast<uint32_t>(bytes.size()), .info = {}, .ctl = {}};
        packet.ctl.payloadOffset = 66;
        return dhcp6snooping_send_packet_to_client(&packet, vlan, port0);
    }
    Lines asked() const { return askedFor(f); }
};

const Lines SAME_PORT = said("\r\n Send packet failed, send port equal to receiver port");
const Lines SAME_TRUNK = said("\r\n Send packet failed, send tgid equal to receiver tgid");
const Lines NO_PORT = said("\r\n Send packet failed, can't find any send port");

TEST_F(ForwardClientTest, AKnownPortGetsTheFrameAloneTrustedOrNot) {
    for (const uint32_t port : {2u, 4u, 9u}) {
        recordingMacOnPort(10, client.data(), port);
        EXPECT_EQ(send(4), 0);
        EXPECT_EQ(recordingTake(), joined({asked(), sentTo(port, f)}));
    }
}

TEST_F(ForwardClientTest, AnUnknownDestinationFloodsWithoutATrustFilter) {
    dhcp6SnoopingTrustPort[0] = 1;
    EXPECT_EQ(send(3), 0);
    EXPECT_EQ(recordingTake(), floodedToClients(f, 4, "1,2,3"));
    EXPECT_EQ(send(1), 0);
    EXPECT_EQ(recordingTake(), floodedToClients(f, 2, "1,3,4"));
}

TEST_F(ForwardClientTest, ABroadcastIsNotLookedUp) {
    f.to(BROADCAST);
    recordingMacOnPort(10, macBytes(BROADCAST).data(), 2);
    EXPECT_EQ(send(3), 0);
    EXPECT_EQ(recordingTake(), floodedToClients(f, 4, "1,2,3"));
    EXPECT_EQ(recordingCount("smdVDMacGet"), 0u);
}

TEST_F(ForwardClientTest, NotBackToTheReceivingPort) {
    recordingMacOnPort(10, client.data(), 4);
    EXPECT_EQ(send(3), 0);
    EXPECT_EQ(recordingTake(), joined({asked(), SAME_PORT}));
}

TEST_F(ForwardClientTest, ATrunkIsSentToWithoutAskingForItsPort) {
    recordingMacOnTrunk(10, client.data(), 5, 2);
    EXPECT_EQ(send(3), 0);
    EXPECT_EQ(recordingTake(), joined({asked(), {"lac_channel_get_from_port port=4"}, sentTo(0x80000005u, f)}));
    EXPECT_EQ(recordingCount("lac_get_channel_ag"), 0u);
}

TEST_F(ForwardClientTest, NotBackToTheReceivingTrunk) {
    recordingTrunk(5, {2, 4});
    recordingMacOnTrunk(10, client.data(), 5, 2);
    EXPECT_EQ(send(3), 0);
    EXPECT_EQ(recordingTake(), joined({asked(), {"lac_channel_get_from_port port=4"}, SAME_TRUNK}));
    EXPECT_EQ(send(0), 0);
    EXPECT_EQ(recordingTake().back(), sentTo(0x80000005u, f)[0]);
}

TEST_F(ForwardClientTest, TrunkZeroAndTheHighestAreTrunks) {
    for (const uint16_t trunk : std::initializer_list<uint16_t>{0, 0xFFFF}) {
        recordingMacOnTrunk(10, client.data(), trunk, 2);
        EXPECT_EQ(send(3), 0);
        EXPECT_EQ(recordingTake(), joined({asked(), {"lac_channel_get_from_port port=4"}, sentTo(0x80000000u | trunk, f)}));
    }
}

TEST_F(ForwardClientTest, ThereIsNoRangeTest) {
    for (const uint32_t port : {0u, 29u, 65u, 0xFFFFFFFFu}) {
        recordingMacOnPort(10, client.data(), port);
        EXPECT_EQ(send(3), 0);
        EXPECT_EQ(recordingTake(), joined({asked(), sentTo(port, f)}));
    }
    recordingMacOnPort(10, client.data(), 65536); // index 65535 means "no port"
    send(3);
    EXPECT_EQ(recordingTake(), floodedToClients(f, 4, "1,2,3"));
}

TEST_F(ForwardClientTest, AnEmptyFloodIsNoError) {
    EXPECT_EQ(sendIn(99, 3), 0);
    EXPECT_EQ(recordingTake().back(), NO_PORT[0]);
    recordingVlan(10, {4});
    EXPECT_EQ(send(3), 0);
    EXPECT_EQ(recordingTake().back(), NO_PORT[0]);
    EXPECT_TRUE(recordingSent.empty());
}

TEST_F(ForwardClientTest, TheFloodFoldsTrunks) {
    recordingVlan(10, {1, 2, 3, 4, 6});
    recordingTrunk(5, {2, 3});
    recordingTrunk(7, {4, 6});
    send(3);
    EXPECT_TRUE(recordingTake().back().starts_with("smdVDPktSendPortlist ports=1,2 "));
}

TEST_F(ForwardClientTest, AReceivingPortOutsideTheListIsSafe) {
    recordingVlan(10, {1, 64});
    for (const uint32_t port0 : {64u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        EXPECT_EQ(send(port0), 0);
        EXPECT_TRUE(recordingTake().back().starts_with("smdVDPktSendPortlist ports=1,64 "));
    }
    send(63);
    EXPECT_TRUE(recordingTake().back().starts_with("smdVDPktSendPortlist ports=1 "));
}

TEST_F(ForwardClientTest, FailedQuestionsLeaveAnEmptyList) {
    for (const char *question : {"VLAN_Api_PortList_Get", "lac_ap_2_ag_hi_hi_excpt_cur"}) {
        recordingFailFunction(question, 1);
        EXPECT_EQ(send(3), 0);
        EXPECT_EQ(recordingTake().back(), NO_PORT[0]);
    }
    recordingMacOnPort(10, client.data(), 2);
    recordingFailFunction("smdVDMacGet", 1);
    send(3);
    EXPECT_EQ(recordingTake().back(), floodedToClients(f, 4, "1,2,3").back());
}

TEST_F(ForwardClientTest, ARefusedSendIsAnError) {
    recordingFailAlways("smdVDPktSendPortlist");
    EXPECT_EQ(send(3), -1);
    recordingMacOnPort(10, client.data(), 2);
    recordingFailAlways("smdVDPktSendPort");
    EXPECT_EQ(send(3), -1);
}

TEST_F(ForwardClientTest, WithoutAFrameItRefuses) {
    uint8_t bytes[14] = {};
    EXPECT_EQ(dhcp6snooping_send_packet_to_client(nullptr, 10, 0), -1);
    Dhcp6PacketDescriptor packet = {};
    packet.length = 100;
    EXPECT_EQ(dhcp6snooping_send_packet_to_client(&packet, 10, 0), -1);
    packet.data = bytes;
    for (packet.length = 0; packet.length < 14; packet.length++)
        EXPECT_EQ(dhcp6snooping_send_packet_to_client(&packet, 10, 0), -1);
    EXPECT_EQ(recordingTake(), Lines{});
    EXPECT_EQ(dhcp6snooping_send_packet_to_client(&packet, 10, 0), 0);
    EXPECT_EQ(recordingSent.size(), 1u);
}

} // namespace
