// One turn of the message loop: receive, execute, answer.

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/main/Dhcp6Snooping.h"
#include "tests/unit/fixture.h"

#include <cstring>

namespace {

struct LoopTest : SnoopingTest {
    void SetUp() override {
        SnoopingTest::SetUp();
        memset(g_smdMsgRecvBuffer, 0xEE, sizeof g_smdMsgRecvBuffer); // what an earlier request left behind
    }
};

const std::string RECEIVED = "vosMsgRecv queue=7 size=64500 timeout=-1";

Bytes header(uint16_t type, uint16_t payloadLength) {
    Bytes bytes(24, 0);
    bytes[0] = static_cast<uint8_t>(type);
    bytes[1] = static_cast<uint8_t>(type >> 8);
    bytes[10] = static_cast<uint8_t>(payloadLength);
    bytes[11] = static_cast<uint8_t>(payloadLength >> 8);
    return bytes;
}

TEST_F(LoopTest, ARemoteCallIsExecutedAndAnsweredInPlace) {
    recordingQueueMessage(1, {1, 2, 3, 4, 5});
    recordingRemoteCall = [](void *message) {
        EXPECT_EQ(message, g_smdMsgRecvBuffer);
        static_cast<uint8_t *>(message)[24] = 0x99;
        return -77;
    };
    dhcp6snooping_serve_message(7);
    EXPECT_EQ(recordingTake(), (Lines{RECEIVED, "smdCfgRmWrapProcess", "vosMsgResp queue=7 result=-77 length=29 caller=1"}));
    ASSERT_EQ(recordingReplies.size(), 1u);
    EXPECT_EQ(Bytes(recordingReplies[0].bytes.begin() + 24, recordingReplies[0].bytes.end()), (Bytes{0x99, 2, 3, 4, 5}));
    EXPECT_EQ(recordingReplies[0].ctx.requestId, 0x1234u);
}

TEST_F(LoopTest, TheReplysLengthIsReadAfterTheCall) {
    recordingQueueMessage(1, Bytes(100, 0));
    recordingRemoteCall = [](void *message) {
        static_cast<uint8_t *>(message)[10] = 8;
        return 0;
    };
    dhcp6snooping_serve_message(7);
    EXPECT_EQ(recordingTake().back(), "vosMsgResp queue=7 result=0 length=32 caller=1");
}

TEST_F(LoopTest, AFailedReplyIsIgnored) {
    recordingQueueMessage(1, {});
    recordingQueueMessage(1, {});
    recordingFailFunction("vosMsgResp", 1);
    dhcp6snooping_serve_message(7);
    dhcp6snooping_serve_message(7);
    EXPECT_EQ(recordingReplies.size(), 2u);
    EXPECT_TRUE(recordingConsole.empty());
}

TEST_F(LoopTest, AnyOtherTypeIsNamedAndGetsNoReply) {
    for (const uint16_t type : std::initializer_list<uint16_t>{0, 2, 257, 65535}) {
        recordingQueueMessage(type, {1, 2, 3});
        dhcp6snooping_serve_message(7);
        const std::string text = "main:vosMsgRecv receive unknown msg " + std::to_string(type);
        EXPECT_EQ(recordingTake(), (Lines{RECEIVED, "vosPrintf \"\\r\\n" + text + "\""}));
        EXPECT_EQ(recordingConsole.back(), "\r\n" + text);
    }
    EXPECT_TRUE(recordingReplies.empty());
}

TEST_F(LoopTest, AFailedReceiveIsNamedWithItsResult) {
    for (const int32_t result : {0, -1, -1001}) {
        recordingQueueRaw(header(1, 0), result);
        dhcp6snooping_serve_message(7);
        EXPECT_EQ(recordingConsole.back(), "\r\nmain:vosMsgRecv failed iRet = " + std::to_string(result));
        EXPECT_EQ(recordingTake().size(), 2u);
    }
}

TEST_F(LoopTest, AReplyNeverLeavesTheBuffer) {
    for (const uint16_t payload : std::initializer_list<uint16_t>{64475, 64476, 64477, 65511, 65512, 65535}) {
        recordingQueueRaw(header(1, payload), 64500);
        recordingRemoteCall = [](void *) { return 0; };
        dhcp6snooping_serve_message(7);
        const uint32_t expected = payload == 64475 ? 64499 : 64500;
        EXPECT_EQ(recordingTake().back().substr(0, 40), "vosMsgResp queue=7 result=0 length=" + std::to_string(expected));
    }
}

TEST_F(LoopTest, AResultBeyondTheBufferIsCut) {
    recordingQueueRaw(header(1, 4), 70000);
    recordingRemoteCall = [](void *) { return 0; };
    dhcp6snooping_serve_message(7);
    EXPECT_EQ(recordingTake().back(), "vosMsgResp queue=7 result=0 length=28 caller=1");
}

// A message that is shorter than its header or than it says must not carry an earlier caller's bytes.
TEST_F(LoopTest, AShortHeaderIsFilledWithZeros) {
    Bytes bytes = header(1, 0);
    for (int32_t received = 1; received < 24; received++) {
        SCOPED_TRACE(received);
        memset(g_smdMsgRecvBuffer, 0xEE, sizeof g_smdMsgRecvBuffer);
        bytes.resize(static_cast<size_t>(received));
        recordingQueueRaw(bytes, received);
        recordingRemoteCall = [](void *) { return 0; };
        dhcp6snooping_serve_message(7);
        ASSERT_FALSE(recordingReplies.empty());
        Bytes expected = header(1, 0);
        EXPECT_EQ(recordingReplies.back().bytes, expected);
        bytes = header(1, 0);
    }
    EXPECT_EQ(recordingReplies.size(), 23u);
}

TEST_F(LoopTest, AShortPayloadIsFilledWithZeros) {
    Bytes bytes = header(1, 100);
    bytes.insert(bytes.end(), {1, 2, 3});
    recordingQueueRaw(bytes, 27);
    bool filled = false;
    recordingRemoteCall = [&filled](void *message) { // before the call is executed
        const auto *at = static_cast<const uint8_t *>(message);
        filled = at[26] == 3;
        for (uint32_t i = 27; i < 124; i++)
            filled = filled && at[i] == 0;
        return 0;
    };
    dhcp6snooping_serve_message(7);
    EXPECT_TRUE(filled);
    bytes.resize(124, 0);
    EXPECT_EQ(recordingReplies.back().bytes, bytes);
}

TEST_F(LoopTest, ALyingLengthIsFilledUpToTheBuffersEnd) {
    recordingQueueRaw(header(1, 65535), 24);
    recordingRemoteCall = [](void *) { return 0; };
    dhcp6snooping_serve_message(7);
    ASSERT_EQ(recordingReplies.back().bytes.size(), 64500u);
    EXPECT_EQ(recordingReplies.back().bytes[24], 0);
    EXPECT_EQ(recordingReplies.back().bytes.back(), 0);
}

TEST_F(LoopTest, CallbacksAreMadeWhileItWaits) {
    dhcp6SnoopingOn = 1;
    recordingQueueEvent([]() { receive(fromClient(DHCP6_SOLICIT), 1); });
    recordingQueueEvent([]() { dhcp6snoopingPortLinkProcess(2, 0); });
    recordingQueueMessage(2, {});
    dhcp6snooping_serve_message(7);
    EXPECT_EQ(tableMacs(), Lines{CLIENT});
    EXPECT_EQ(recordingConsole.size(), 1u);
}

} // namespace
