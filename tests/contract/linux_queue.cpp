// The socket of the daemon: what reaches the daemon, what is answered for it, and how replies find their way.

#include <array>
#include <cstring>
#include <event2/event.h>
#include <event2/event_struct.h>
#include <gtest/gtest.h>
#include <set>
#include <unistd.h>

#include "platform/libsyslog.h"
#include "platform/linux/loop.h"
#include "platform/linux/protocol.h"
#include "tests/contract/linux_caller.h"

// ---- Messages and replies ------------------------------------------------------------------------------------------

TEST_F(Queue, OpensOnce) {
    uint32_t again = 0;
    EXPECT_NE(vosMsgInit("/sbin/snoopd6", 255, &again), 0);
    EXPECT_NE(vosMsgInit(nullptr, 255, &again), 0);
    EXPECT_NE(vosMsgInit("/sbin/snoopd6", 255, nullptr), 0);
}

TEST_F(Queue, MessageAndReply) {
    const Bytes sent = message(1, 0xCAFEF00D, {9, 8, 7});
    callerSend(caller, sent);
    Taken taken = daemonTake();
    ASSERT_EQ(taken.bytes, sent);
    taken.bytes[HEADER] = 42;
    EXPECT_EQ(daemonReply(&taken, -1001), 0);
    const Reply reply = callerRead(caller);
    ASSERT_EQ(reply.got, Got::reply);
    EXPECT_EQ(reply.header.type, 1);
    EXPECT_EQ(reply.header.version, 1);
    EXPECT_EQ(reply.header.requestId, 0xCAFEF00D);
    EXPECT_EQ(reply.header.flags, 0);
    EXPECT_EQ(reply.header.payloadLength, 3);
    EXPECT_EQ(reply.header.result, -1001);
    EXPECT_EQ(reply.header.reserved, 0u);
    EXPECT_EQ(reply.payload, (Bytes{42, 8, 7}));
    EXPECT_EQ(callerRead(caller).got, Got::nothing);
}

TEST_F(Queue, SmallestAndLargestMessage) {
    for (const size_t size : {size_t{0}, VOS_MSG_MAX - HEADER}) {
        const Bytes sent = message(1, 1, Bytes(size, 0x5A));
        callerSend(caller, sent);
        Taken taken = daemonTake();
        ASSERT_EQ(taken.bytes, sent);
        EXPECT_EQ(daemonReply(&taken, 0), 0);
        EXPECT_EQ(callerRead(caller).payload, Bytes(size, 0x5A));
    }
}

TEST_F(Queue, RepliesFindTheirCallers) {
    const int other = callerConnect();
    callerSend(caller, message(1, 7, {1}));
    callerSend(other, message(1, 7, {2}));
    Taken first = daemonTake();
    Taken second = daemonTake();
    ASSERT_EQ(first.bytes, message(1, 7, {1}));
    ASSERT_EQ(second.bytes, message(1, 7, {2}));
    EXPECT_EQ(daemonReply(&second, 22), 0);
    EXPECT_EQ(daemonReply(&first, 11), 0);
    EXPECT_EQ(callerRead(caller).header.result, 11);
    EXPECT_EQ(callerRead(other).header.result, 22);
    close(other);
}

TEST_F(Queue, CallersTakeTurns) {
    const int other = callerConnect();
    for (uint8_t i = 1; i <= 3; i++) {
        callerSend(caller, message(1, i, {i}));
    }
    callerSend(other, message(1, 9, {9}));
    EXPECT_EQ(daemonTake().bytes, message(1, 1, {1}));
    EXPECT_EQ(daemonTake().bytes, message(1, 9, {9}));
    EXPECT_EQ(daemonTake().bytes, message(1, 2, {2}));
    EXPECT_EQ(daemonTake().bytes, message(1, 3, {3}));
    daemonIdle();
    close(other);
}

TEST_F(Queue, UnansweredMessageDoesNotHoldItsCaller) {
    callerSend(caller, message(2, 1, {}));
    EXPECT_EQ(daemonTake().bytes, message(2, 1, {}));
    expectServed(caller, 2);
}

TEST_F(Queue, MessageLongerThanTheBuffer) {
    callerSend(caller, message(1, 1, Bytes(100, 1)));
    std::array<uint8_t, 64> small;
    VosMsgReplyCtx ctx = {};
    EXPECT_EQ(vosMsgRecv(queueOpened(), small.data(), small.size(), 20, &ctx), 0);
    EXPECT_EQ(callerRead(caller).got, Got::hangUp);
}

// ---- Platform messages ---------------------------------------------------------------------------------------------

static Reply ask(int fd, uint16_t type, const Bytes &payload) {
    callerSend(fd, message(type, 77, payload));
    daemonIdle(); // the daemon sees nothing of it
    return callerRead(fd);
}

TEST_F(Queue, UnknownPlatformMessages) {
    for (const uint16_t type : {uint16_t{0x8000}, uint16_t{0x800F}, uint16_t{0x8010}, uint16_t{0xFFFF}}) {
        const Reply reply = ask(caller, type, {1, 2, 3});
        ASSERT_EQ(reply.got, Got::reply);
        EXPECT_EQ(reply.header.result, LINUX_RESULT_UNKNOWN);
        EXPECT_EQ(reply.header.type, type);
        EXPECT_EQ(reply.header.requestId, 77u);
        EXPECT_EQ(reply.payload, Bytes{});
    }
}

static Bytes debugMessage(uint32_t module, uint32_t set) {
    const LinuxDebugMsg text = {.module = module, .set = set};
    Bytes bytes(sizeof text);
    memcpy(bytes.data(), &text, sizeof text);
    return bytes;
}

TEST_F(Queue, DebugSwitch) {
    Reply reply = ask(caller, LINUX_MSG_DEBUG, debugMessage(53, 1));
    EXPECT_EQ(reply.header.result, LINUX_RESULT_OK);
    EXPECT_EQ(reply.payload, debugMessage(53, 1));
    EXPECT_NE(syslogModuleSwitch(53, 7), 0);
    EXPECT_EQ(ask(caller, LINUX_MSG_DEBUG, debugMessage(53, 2)).payload, debugMessage(53, 1));
    EXPECT_EQ(ask(caller, LINUX_MSG_DEBUG, debugMessage(53, 0)).payload, debugMessage(53, 0));
    EXPECT_EQ(syslogModuleSwitch(53, 7), 0);
    EXPECT_EQ(ask(caller, LINUX_MSG_DEBUG, debugMessage(53, 2)).payload, debugMessage(53, 0));
    EXPECT_EQ(ask(caller, LINUX_MSG_DEBUG, debugMessage(54, 1)).header.result, LINUX_RESULT_UNKNOWN);
    EXPECT_EQ(ask(caller, LINUX_MSG_DEBUG, debugMessage(53, 3)).header.result, LINUX_RESULT_BAD);
    EXPECT_EQ(ask(caller, LINUX_MSG_DEBUG, Bytes(7, 0)).header.result, LINUX_RESULT_BAD);
    EXPECT_EQ(ask(caller, LINUX_MSG_DEBUG, Bytes(9, 0)).header.result, LINUX_RESULT_BAD);
    EXPECT_EQ(ask(caller, LINUX_MSG_DEBUG, {}).header.result, LINUX_RESULT_BAD);
}

static int32_t answerAll(const uint8_t *payload, uint32_t length, uint8_t *reply, uint32_t replyMax, uint32_t *replyLength) {
    memset(reply, payload[0], replyMax);
    *replyLength = replyMax;
    return static_cast<int32_t>(length);
}

TEST_F(Queue, HandlerMayFillTheWholeReply) {
    linuxMsgHandle(0x800E, answerAll);
    const Reply reply = ask(caller, 0x800E, {0x33, 0, 0});
    EXPECT_EQ(reply.header.result, 3);
    EXPECT_EQ(reply.payload, Bytes(VOS_MSG_MAX - HEADER, 0x33));
}

TEST_F(Queue, PlatformAndDaemonMessagesKeepTheirOrder) {
    callerSend(caller, message(1, 1, {}));
    callerSend(caller, message(LINUX_MSG_DEBUG, 2, debugMessage(53, 2)));
    Taken taken = daemonTake();
    ASSERT_EQ(taken.bytes, message(1, 1, {}));
    EXPECT_EQ(callerRead(caller).got, Got::nothing); // its turn comes when the first is answered
    EXPECT_EQ(daemonReply(&taken, 0), 0);
    daemonIdle();
    EXPECT_EQ(callerRead(caller).header.requestId, 1u);
    EXPECT_EQ(callerRead(caller).header.requestId, 2u);
}

// ---- Turns ---------------------------------------------------------------------------------------------------------

static uint32_t turns; // of the loop, so far
static event turnTimer;
static std::vector<uint32_t> answeredAt; // turns at the time of each answer

static void countTurn(evutil_socket_t, short, void *) {
    constexpr timeval NOW = {0, 0};
    turns++;
    evtimer_add(&turnTimer, &NOW);
}

static int32_t answerInTurn(const uint8_t *, uint32_t, uint8_t *, uint32_t, uint32_t *) {
    answeredAt.push_back(turns);
    return 0;
}

TEST_F(Queue, ATurnAnswersOnePlatformMessage) {
    std::vector<int> crowd = {caller};
    while (crowd.size() < 20) {
        crowd.push_back(callerConnect());
        expectServed(crowd.back(), 1);
    }
    linuxMsgHandle(0x800D, answerInTurn);
    for (const int fd : crowd) {
        callerSend(fd, message(0x800D, 7, {}));
    }
    answeredAt.clear();
    evtimer_assign(&turnTimer, linuxLoopBase(), countTurn, nullptr);
    countTurn(-1, 0, nullptr);
    for (uint32_t i = 0; i < 1000 && answeredAt.size() < crowd.size(); i++) {
        EXPECT_EQ(daemonTake(0).result, 0);
    }
    evtimer_del(&turnTimer);
    ASSERT_EQ(answeredAt.size(), crowd.size());
    EXPECT_EQ(std::set<uint32_t>(answeredAt.begin(), answeredAt.end()).size(), crowd.size());
    for (const int fd : crowd) {
        EXPECT_EQ(callerRead(fd).got, Got::reply);
    }
    for (size_t i = 1; i < crowd.size(); i++) {
        close(crowd[i]);
    }
}
