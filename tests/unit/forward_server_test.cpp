// Sending toward servers.

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/packet/forward.h"
#include "tests/unit/fixture.h"

namespace {

struct ForwardServerTest : SnoopingTest {
    Frame f = fromClient(DHCP6_SOLICIT).to(SERVER);
    const Bytes server = macBytes(SERVER);

    int32_t send(uint32_t port0) { return sendIn(10, port0); }
    int32_t sendIn(uint16_t vlan, uint32_t port0) {
        Bytes bytes = bytesOf(f);
        Dhcp6PacketDescriptor packet = {
            .data = bytes.data(), .length = static_cast<uint32_t>(bytes.size()), .info = {}, .ctl = {}};
        packet.ctl.payloadOffset = 66;
        return dhcp6snooping_send_packet_to_sever(&packet, vlan, port0, 66);
    }
    Lines asked() const { return askedFor(f); }
    Lines flooded() const { return floodedToServers(f, 1); }
    Lines trunkAsked(uint32_t trunk) const { return {"lac_get_channel_ag trunk=" + std::to_string(trunk) + " port0=65535"}; }
};

const Lines SAME_PORT = said("\r\n Send packet failed, send port equal to receiver port");
const Lines SAME_TRUNK = said("\r\n Send packet failed, send tgid equal to receiver tgid");
const Lines NO_PORT = said("\r\n Send packet failed, can't find any send port");

TEST_F(ForwardServerTest, AKnownTrustedPortGetsTheFrameAlone) {
    recordingMacOnPort(10, server.data(), 4);
    EXPECT_EQ(send(0), 0);
    EXPECT_EQ(recordingTake(), joined({asked(), sentTo(4, f)}));
}

TEST_F(ForwardServerTest, AKnownUntrustedPortIsNoWayToAServer) {
    recordingMacOnPort(10, server.data(), 2);
    for (const uint32_t trust : {0u, 2u}) {
        dhcp6SnoopingTrustPort[1] = trust;
        EXPECT_EQ(send(0), 0);
        EXPECT_EQ(recordingTake(), flooded());
    }
}

TEST_F(ForwardServerTest, AMacOfAnotherVlanIsUnknown) {
    recordingMacOnPort(20, server.data(), 4);
    send(0);
    EXPECT_EQ(recordingTake(), flooded());
}

TEST_F(ForwardServerTest, ABroadcastIsNotLookedUp) {
    f.to(BROADCAST);
    recordingMacOnPort(10, macBytes(BROADCAST).data(), 4);
    EXPECT_EQ(send(0), 0);
    EXPECT_EQ(recordingTake(), flooded());
    EXPECT_EQ(recordingCount("smdVDMacGet"), 0u);
}

TEST_F(ForwardServerTest, AlmostABroadcastIsLookedUp) {
    for (uint32_t i = 0; i < 6; i++) {
        f.to(BROADCAST);
        f.destination[i] = 0xFE;
        send(0);
        EXPECT_EQ(recordingTake().front(), asked()[0]);
    }
}

TEST_F(ForwardServerTest, NotBackToTheReceivingPort) {
    recordingMacOnPort(10, server.data(), 4);
    EXPECT_EQ(send(3), 0);
    EXPECT_EQ(recordingTake(), joined({asked(), SAME_PORT}));
}

TEST_F(ForwardServerTest, PortsTheSwitchDoesNotHaveFlood) {
    for (const uint32_t port : {0u, 29u, 40u, 65536u, 65540u, 0xFFFFFFFFu}) {
        gul_max_port_num = port == 40 ? 64 : 28;
        recordingMacOnPort(10, server.data(), port);
        EXPECT_EQ(send(0), 0);
        EXPECT_EQ(recordingTake(), flooded()) << port;
    }
    recordingMacOnPort(10, server.data(), 4);
    gul_max_port_num = 3; // port 4 is beyond: not for one, nor cleared from the list
    send(0);
    EXPECT_EQ(recordingTake(), flooded());
    gul_max_port_num = 4;
    send(0);
    EXPECT_EQ(recordingTake(), joined({asked(), sentTo(4, f)}));
}

TEST_F(ForwardServerTest, ATrunkIsSentToAsATrunk) {
    recordingTrunk(5, {4, 6});
    recordingMacOnTrunk(10, server.data(), 5, 6);
    EXPECT_EQ(send(0), 0);
    EXPECT_EQ(recordingTake(), joined({asked(), trunkAsked(5), {"lac_channel_get_from_port port=1"}, sentTo(0x80000005u, f)}));
}

TEST_F(ForwardServerTest, ATrunkOfUntrustedPortsFloods) {
    recordingTrunk(5, {2, 4});
    recordingMacOnTrunk(10, server.data(), 5, 4);
    send(0);
    const Lines lines = recordingTake();
    EXPECT_EQ(lines[1], trunkAsked(5)[0]);
    EXPECT_EQ(lines[2], "VLAN_Api_PortList_Get vlan=10 list=0000000000000000 zero=0");
    EXPECT_EQ(lines.back(), NO_PORT[0]) << "the trunk stands as port 2, which is not trusted";
}

TEST_F(ForwardServerTest, NotBackToTheReceivingTrunk) {
    recordingTrunk(5, {4, 6});
    recordingMacOnTrunk(10, server.data(), 5, 4);
    EXPECT_EQ(send(5), 0);
    EXPECT_EQ(recordingTake(), joined({asked(), trunkAsked(5), {"lac_channel_get_from_port port=6"}, SAME_TRUNK}));
    EXPECT_EQ(send(3), 0);
    EXPECT_EQ(recordingTake(), joined({asked(), trunkAsked(5), SAME_PORT})) << "the member port is compared first";
}

TEST_F(ForwardServerTest, AnotherTrunkIsAnotherWay) {
    recordingTrunk(5, {4});
    recordingTrunk(6, {1});
    recordingMacOnTrunk(10, server.data(), 5, 4);
    send(0);
    EXPECT_EQ(recordingTake().back(), sentTo(0x80000005u, f)[0]);
}

TEST_F(ForwardServerTest, TrunkZeroAndTheHighestAreTrunks) {
    for (const uint16_t trunk : std::initializer_list<uint16_t>{0, 0xFFFF}) {
        recordingMacOnTrunk(10, server.data(), trunk, 4);
        recordingTrunkAnswer(0, true, 3);
        EXPECT_EQ(send(0), 0);
        EXPECT_EQ(recordingTake(),
                  joined({asked(), trunkAsked(trunk), {"lac_channel_get_from_port port=1"}, sentTo(0x80000000u | trunk, f)}));
    }
}

TEST_F(ForwardServerTest, AFailedTrunkAnswerOfZeroFloods) {
    recordingMacOnTrunk(10, server.data(), 5, 4);
    recordingTrunkAnswer(-1, true, 0);
    dhcp6SnoopingTrustPort[0] = 1; // port index 0 would be trusted
    EXPECT_EQ(send(1), 0);
    const Lines lines = recordingTake();
    EXPECT_EQ(lines[1], trunkAsked(5)[0]);
    EXPECT_TRUE(lines.back().starts_with("smdVDPktSendPortlist ports=1,4 ")) << lines.back();
}

TEST_F(ForwardServerTest, AnyOtherTrunkAnswerIsTakenAsWritten) {
    recordingMacOnTrunk(10, server.data(), 5, 4);
    recordingTrunkAnswer(-1, true, 3);
    send(0);
    EXPECT_EQ(recordingTake().back(), sentTo(0x80000005u, f)[0]);
    recordingTrunkAnswer(-2, true, 0);
    dhcp6SnoopingTrustPort[0] = 1;
    send(1);
    EXPECT_EQ(recordingTake().back(), sentTo(0x80000005u, f)[0]);
    recordingTrunkAnswer(0, true, 0);
    send(1);
    EXPECT_EQ(recordingTake().back(), sentTo(0x80000005u, f)[0]);
    for (const int32_t result : {0, -1}) {
        recordingTrunkAnswer(result, false, 0);
        send(1);
        EXPECT_TRUE(recordingTake().back().starts_with("smdVDPktSendPortlist")) << "nothing written: no port";
    }
}

TEST_F(ForwardServerTest, TheFloodGoesToTrustedPortsOfTheVlan) {
    dhcp6SnoopingTrustPort[1] = 1;
    dhcp6SnoopingTrustPort[2] = 2;
    dhcp6SnoopingTrustPort[8] = 1; // not in the VLAN
    EXPECT_EQ(send(0), 0);
    EXPECT_TRUE(recordingTake().back().starts_with("smdVDPktSendPortlist ports=2,4 "));
    EXPECT_EQ(send(1), 0);
    EXPECT_TRUE(recordingTake().back().starts_with("smdVDPktSendPortlist ports=4 ")) << "not the receiving port";
}

TEST_F(ForwardServerTest, AnEmptyFloodIsNoError) {
    dhcp6SnoopingTrustPort[3] = 0;
    EXPECT_EQ(send(0), 0);
    EXPECT_EQ(recordingTake().back(), NO_PORT[0]);
    dhcp6SnoopingTrustPort[3] = 1;
    EXPECT_EQ(send(3), 0);
    EXPECT_EQ(recordingTake().back(), NO_PORT[0]) << "only the receiving port is trusted";
    EXPECT_EQ(sendIn(99, 0), 0);
    EXPECT_EQ(recordingTake().back(), NO_PORT[0]) << "a VLAN without ports";
    EXPECT_TRUE(recordingSent.empty());
}

TEST_F(ForwardServerTest, TheFloodFoldsTrunks) {
    recordingVlan(10, {1, 4, 6, 7});
    recordingTrunk(5, {4, 6});
    dhcp6SnoopingTrustPort[5] = 1;
    dhcp6SnoopingTrustPort[6] = 1;
    send(0);
    EXPECT_TRUE(recordingTake().back().starts_with("smdVDPktSendPortlist ports=4,7 "));
    send(5);
    EXPECT_TRUE(recordingTake().back().starts_with("smdVDPktSendPortlist ports=7 ")) << "not the receiving trunk";
}

TEST_F(ForwardServerTest, PortsBeyondTheSwitchAreLeftAsThePlatformGaveThem) {
    recordingVlan(10, {1, 2, 4, 30, 64});
    gul_max_port_num = 3;
    send(0);
    EXPECT_TRUE(recordingTake().back().starts_with("smdVDPktSendPortlist ports=4,30,64 "));
    gul_max_port_num = 30;
    send(0);
    EXPECT_TRUE(recordingTake().back().starts_with("smdVDPktSendPortlist ports=4,64 ")) << "30 has no trust entry";
    gul_max_port_num = 100;
    send(0);
    EXPECT_TRUE(recordingTake().back().starts_with("smdVDPktSendPortlist ports=4 "));
}

TEST_F(ForwardServerTest, AReceivingPortOutsideTheListIsSafe) {
    recordingVlan(10, {1, 4, 64});
    gul_max_port_num = 28;
    for (const uint32_t port0 : {64u, 65u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        EXPECT_EQ(send(port0), 0);
        EXPECT_TRUE(recordingTake().back().starts_with("smdVDPktSendPortlist ports=4,64 "));
    }
    EXPECT_EQ(send(63), 0);
    EXPECT_TRUE(recordingTake().back().starts_with("smdVDPktSendPortlist ports=4 ")) << "the last one inside";
}

TEST_F(ForwardServerTest, FailedQuestionsLeaveAnEmptyList) {
    for (const char *question : {"VLAN_Api_PortList_Get", "lac_ap_2_ag_hi_hi_excpt_cur"}) {
        recordingFailFunction(question, 1);
        EXPECT_EQ(send(0), 0);
        EXPECT_EQ(recordingTake().back(), NO_PORT[0]);
    }
    recordingMacOnPort(10, server.data(), 4);
    recordingFailFunction("smdVDMacGet", 1);
    send(0);
    const Lines lines = recordingTake();
    EXPECT_EQ(lines.front(), asked()[0] + " -> fails");
    EXPECT_EQ(lines.back(), flooded().back());
}

TEST_F(ForwardServerTest, ARefusedSendIsAnError) {
    recordingFailAlways("smdVDPktSendPortlist");
    EXPECT_EQ(send(0), -1);
    recordingMacOnPort(10, server.data(), 4);
    recordingFailAlways("smdVDPktSendPort");
    EXPECT_EQ(send(0), -1);
}

TEST_F(ForwardServerTest, WithoutAFrameItRefuses) {
    uint8_t bytes[14] = {};
    EXPECT_EQ(dhcp6snooping_send_packet_to_sever(nullptr, 10, 0, 66), -1);
    Dhcp6PacketDescriptor packet = {};
    packet.length = 100;
    EXPECT_EQ(dhcp6snooping_send_packet_to_sever(&packet, 10, 0, 66), -1);
    packet.data = bytes;
    for (packet.length = 0; packet.length < 14; packet.length++)
        EXPECT_EQ(dhcp6snooping_send_packet_to_sever(&packet, 10, 0, 66), -1);
    EXPECT_EQ(recordingTake(), Lines{});
    EXPECT_EQ(dhcp6snooping_send_packet_to_sever(&packet, 10, 0, 66), 0);
    EXPECT_EQ(recordingSent.size(), 1u);
}

} // namespace
