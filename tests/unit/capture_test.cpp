// Registration of the capture, and the way of a frame from the callback to the snooping path.

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/packet/capture.h"
#include "tests/unit/fixture.h"

#include <csignal>
#include <cstring>

namespace {

struct CaptureTest : SnoopingTest {
    void SetUp() override {
        SnoopingTest::SetUp();
        dhcp6SnoopingOn = 1;
    }
};

Lines registered(const std::string &function, uint32_t mode) {
    const std::string rule = " one=1 etherType=86dd protocol=17 udpPort=";
    const std::string rest = " valid=0038 action=0 mode=" + std::to_string(mode);
    return {function + rule + "546" + rest, function + rule + "547" + rest};
}

Lines complained(const std::string &text) { return {"syslogSendInfo module=53 level=2 tag=\"init\" \"" + text + "\""}; }

TEST_F(CaptureTest, TheFirstRegistrationIsModeThreeWhateverRuns) {
    for (const uint32_t running : {0u, 1u, 7u}) {
        EXPECT_EQ(dhcp6snoopingPktReg(1, running), 0);
        EXPECT_EQ(recordingTake(), registered("smdVDPktRegister", 3));
        EXPECT_EQ(recordingCallbacks.receive, dhcp6snoopingRegPktProcess);
    }
}

TEST_F(CaptureTest, LaterOnesSwitchTheMode) {
    for (const uint32_t first : {0u, 2u, 0xFFFFFFFFu}) {
        EXPECT_EQ(dhcp6snoopingPktReg(first, 1), 0);
        EXPECT_EQ(recordingTake(), registered("smdVDPktRegRunning", 1));
        EXPECT_EQ(dhcp6snoopingPktReg(first, 0), 0);
        EXPECT_EQ(recordingTake(), registered("smdVDPktRegRunning", 3));
        EXPECT_EQ(dhcp6snoopingPktReg(first, 7), 0);
        EXPECT_EQ(recordingTake(), registered("smdVDPktRegRunning", 3));
    }
}

TEST_F(CaptureTest, AFailedRegistrationGoesToTheLog) {
    recordingFailAlways("smdVDPktRegister");
    EXPECT_EQ(dhcp6snoopingPktReg(1, 0), 0);
    const Lines calls = registered("smdVDPktRegister", 3);
    EXPECT_EQ(recordingTake(), joined({{calls[0] + " -> fails"},
                                       complained("smdVDPktRegister 1 failed."),
                                       {calls[1] + " -> fails"},
                                       complained("smdVDPktRegister 2 failed.")}));
}

TEST_F(CaptureTest, AFailedModeChangeNamesWhatWasWanted) {
    for (const uint32_t running : {0u, 1u, 7u}) {
        recordingFailAlways("smdVDPktRegRunning");
        EXPECT_EQ(dhcp6snoopingPktReg(0, running), 0);
        const Lines calls = registered("smdVDPktRegRunning", running == 1 ? 1 : 3);
        const Lines text = complained("smdVDPktRegRunning " + std::to_string(running) + " failed.");
        EXPECT_EQ(recordingTake(), joined({{calls[0] + " -> fails"}, text, {calls[1] + " -> fails"}, text}));
    }
}

TEST_F(CaptureTest, OnlyTheFailedRuleIsReported) {
    recordingFailFunction("smdVDPktRegister", 2);
    dhcp6snoopingPktReg(1, 0);
    EXPECT_EQ(recordingTake().back(), complained("smdVDPktRegister 2 failed.")[0]);
}

TEST_F(CaptureTest, AFrameReachesTheSnoopingPath) {
    const Frame f = fromClient(DHCP6_SOLICIT);
    receive(f, 2);
    EXPECT_EQ(recordingTake(), joined({saidRecorded("SOLICIT", CLIENT, 2), floodedToServers(f, 2)}));
    ASSERT_NE(clientOf(CLIENT), nullptr);
    EXPECT_EQ(clientOf(CLIENT)->port, 2u);
    EXPECT_EQ(clientOf(CLIENT)->vlan, 10u);
}

TEST_F(CaptureTest, DoubleTaggedFramesKeepTheirFlag) {
    const Frame f = fromClient(DHCP6_SOLICIT).inner(30);
    receive(f, 2);
    EXPECT_EQ(recordingTake(), joined({saidRecorded("SOLICIT", CLIENT, 2), floodedToServers(f, 2)}));
}

TEST_F(CaptureTest, WhileOffAFrameLeavesNoTrace) {
    for (const uint32_t off : {0u, 2u}) {
        dhcp6SnoopingOn = off;
        receive(fromClient(DHCP6_SOLICIT), 2);
        EXPECT_EQ(recordingTake(), Lines{});
        EXPECT_EQ(tableMacs(), Lines{});
    }
}

TEST_F(CaptureTest, AFrameMarkedToSkipIsNotProcessed) {
    for (const uint16_t skip : std::initializer_list<uint16_t>{1, 256, 0xFFFF}) {
        receive(fromClient(DHCP6_SOLICIT), 2, skip);
        EXPECT_EQ(recordingTake(), Lines{});
    }
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(CaptureTest, TheControlBlockGoesToTheSendWhole) {
    const Bytes bytes = bytesOf(fromClient(DHCP6_SOLICIT));
    alignas(8) uint8_t block[2 + 512] = {};
    std::copy(bytes.begin(), bytes.end(), block + 2);
    SmdPktCtl ctl;
    memset(&ctl, 0xA5, sizeof ctl);
    ctl.flags = 0xA5A5A5A5u & ~SMD_CTL_DOUBLE_TAGGED;
    ctl.payloadOffset = 66;
    ctl.skip = 0;
    SmdPktRecvInfo info = {};
    info.vlan = 0xABCD000A; // the low 16 bits count
    info.port = 2;
    dhcp6snoopingRegPktProcess(block + 2, static_cast<uint32_t>(bytes.size()), &info, &ctl);
    ASSERT_EQ(recordingSent.size(), 1u);
    EXPECT_EQ(memcmp(&recordingSent[0].ctl, &ctl, sizeof ctl), 0);
    EXPECT_EQ(recordingSent[0].vlan, 10);
    EXPECT_EQ(recordingSent[0].bytes, bytes);
}

TEST_F(CaptureTest, PortZeroIsNoPort) {
    receive(fromClient(DHCP6_SOLICIT), 0);
    EXPECT_EQ(recordingTake(), said("\r\n user number reaches max of port or vlan, drop dhcpv6 SOLICIT msg"));
}

TEST_F(CaptureTest, MissingArgumentsAreIgnored) {
    alignas(8) uint8_t block[128] = {};
    SmdPktRecvInfo info = {};
    SmdPktCtl ctl = {};
    dhcp6snoopingRegPktProcess(block + 2, 100, nullptr, &ctl);
    dhcp6snoopingRegPktProcess(block + 2, 100, &info, nullptr);
    dhcp6snoopingRegPktProcess(nullptr, 0, &info, &ctl); // no address to be misaligned
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(CaptureTest, ReceiveAlwaysAnswersZero) {
    Dhcp6PacketDescriptor packet = {};
    EXPECT_EQ(dhcp6snooping_recv(&packet, 66), 0); // no frame
    dhcp6SnoopingOn = 0;
    EXPECT_EQ(dhcp6snooping_recv(&packet, 66), 0);
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(CaptureTest, AMisalignedFrameEndsTheProcess) {
    const Frame f = fromClient(DHCP6_SOLICIT);
    for (const uint32_t shift : {1u, 2u, 4u, 6u, 7u})
        EXPECT_EXIT(
            receive(f, 2, 0, shift), testing::KilledBySignal(SIGABRT),
            "\r\n/sbin/snoopd6\\([1-9][0-9]*\\):Assertion failed!IP_ALLIGN == \\(\\(uintptr_t\\)pkt\\)%\\(ZUR_WORDSIZE/8\\), "
            "l2/dhcp6snooping/Dhcp6Snooping, dhcp6snoopingRegPktProcess, line=4924\\.\r\n");
    receive(f, 2, 0, 8);
    EXPECT_EQ(tableMacs(), Lines{CLIENT});
}

TEST_F(CaptureTest, AlignmentIsCheckedBeforeTheSkipMark) {
    EXPECT_EXIT(receive(fromClient(DHCP6_SOLICIT), 2, 1, 1), testing::KilledBySignal(SIGABRT), "line=4924");
}

TEST_F(CaptureTest, RedirectProgramsTheFilterHardware) {
    EXPECT_EQ(dhcp6snooping_redirect_dhcp_packets_to_cpu(), 0);
    EXPECT_EQ(recordingTake(),
              (Lines{"FRM_OperateDhcp6FilterResource operation=3", "FRM_InstallGlobalForwardIcmp6NdFilterResource"}));
    EXPECT_EQ(dhcp6snooping_undo_redirect_dhcp_packets_to_cpu(), 0);
    EXPECT_EQ(recordingTake(),
              (Lines{"FRM_OperateDhcp6FilterResource operation=4", "FRM_RemoveGlobalForwardIcmp6NdFilterResource"}));
}

TEST_F(CaptureTest, RedirectIgnoresFailures) {
    recordingFailAlways("FRM_OperateDhcp6FilterResource");
    EXPECT_EQ(dhcp6snooping_redirect_dhcp_packets_to_cpu(), 0);
    EXPECT_EQ(recordingTake().size(), 2u);
    EXPECT_EQ(dhcp6snooping_undo_redirect_dhcp_packets_to_cpu(), 0);
    EXPECT_EQ(recordingTake().size(), 2u);
}

} // namespace
