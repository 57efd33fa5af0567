// Callers of the daemon's socket that break its rules, or only go away, and callers that may not speak at all.

#include <algorithm>
#include <event2/event.h>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <random>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/linux/loop.h"
#include "platform/linux/protocol.h"
#include "platform/linux/queue.h"
#include "tests/contract/linux_caller.h"

// ---- Callers that misbehave ----------------------------------------------------------------------------------------

static Bytes withVersion(uint16_t version) {
    Bytes bytes = message(1, 1, {1, 2, 3, 4});
    memcpy(&bytes[2], &version, sizeof version);
    return bytes;
}

static Bytes withLength(uint16_t length) {
    Bytes bytes = message(1, 1, {1, 2, 3, 4});
    memcpy(&bytes[10], &length, sizeof length);
    return bytes;
}

TEST_F(Queue, BrokenMessagesEndTheirConnectionOnly) {
    std::vector<Bytes> broken = {
        withVersion(0),  withVersion(2),     withVersion(0x0100),       withLength(0),  withLength(3), withLength(5),
        withLength(100), withLength(0xFFFF), Bytes(VOS_MSG_MAX + 1, 1), Bytes(70000, 1)};
    Bytes cut = message(1, 1, Bytes(VOS_MSG_MAX - HEADER, 1)); // as long as it says, once the rest of it is cut off
    cut.push_back(1);
    broken.push_back(cut);
    const Bytes whole = message(1, 1, {1, 2, 3, 4});
    for (size_t length = 0; length < whole.size(); length++) {
        broken.emplace_back(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
    }
    for (const uint16_t type : {LINUX_MSG_RUNNING_CONFIG, LINUX_MSG_DEBUG, LINUX_MSG_STATUS}) {
        Bytes platform = message(type, 1, {1, 2, 3, 4});
        platform.pop_back();
        broken.push_back(platform);
    }
    for (const Bytes &bytes : broken) {
        const int bad = callerConnect();
        callerSend(bad, bytes);
        daemonIdle();
        EXPECT_EQ(callerRead(bad).got, Got::hangUp) << bytes.size();
        close(bad);
    }
    expectServed(caller, 1);
}

static uint32_t pick(std::mt19937 *random, uint32_t choices) { return static_cast<uint32_t>((*random)() % choices); }

// A message of any type, more often than not with a length, a version or a payload that is wrong.
static Bytes randomMessage(std::mt19937 *random) {
    static constexpr uint16_t TYPES[] = {1, 2, 0x8000, LINUX_MSG_RUNNING_CONFIG, LINUX_MSG_DEBUG, LINUX_MSG_STATUS, 0xFFFF};
    Bytes payload(pick(random, 4) == 0 ? pick(random, 60000) : pick(random, 20));
    std::generate(payload.begin(), payload.end(), [random]() { return static_cast<uint8_t>(pick(random, 4)); });
    Bytes bytes = message(TYPES[pick(random, std::size(TYPES))], pick(random, 1000), payload);
    for (uint32_t changes = pick(random, 3); changes > 0; changes--) {
        bytes[pick(random, HEADER)] = static_cast<uint8_t>((*random)());
    }
    if (pick(random, 4) == 0) {
        bytes.resize(pick(random, static_cast<uint32_t>(bytes.size()) + 20));
    }
    return bytes;
}

TEST_F(Queue, RandomMessagesHarmNobody) {
    ASSERT_EQ(vosMsgRegisterBldrun([](char *, uint32_t *, uint32_t, uint32_t) { return 0; }), 0);
    std::mt19937 random(2026);
    uint32_t taken = 0;
    uint32_t answered = 0;
    uint32_t ended = 0;
    for (uint32_t round = 0; round < 600; round++) {
        const int bad = callerConnect();
        const Bytes bytes = randomMessage(&random);
        callerSend(bad, bytes);
        Taken got = daemonTake(1);
        if (got.result > 0) {
            ASSERT_EQ(got.bytes, bytes) << "as it was sent, or not at all";
            ASSERT_EQ(daemonReply(&got, 7), 0);
            taken++;
        }
        const Reply reply = callerRead(bad);
        ASSERT_NE(reply.got, Got::nothing) << "every message is answered or ends its connection";
        (reply.got == Got::reply ? answered : ended)++;
        close(bad);
        if (round % 100 == 0) {
            expectServed(caller, round);
        }
    }
    EXPECT_GT(taken, 60u);
    EXPECT_GT(answered - taken, 60u);
    EXPECT_GT(ended, 60u);
    expectServed(caller, 1);
}

TEST_F(Queue, SilentCallersHoldNobody) {
    std::vector<int> silent;
    for (uint32_t i = 0; i < 40; i++) {
        silent.push_back(callerConnect());
    }
    expectServed(caller, 3);
    for (const int fd : silent) {
        EXPECT_EQ(callerRead(fd).got, Got::nothing);
        close(fd);
    }
}

TEST_F(Queue, MoreCallersThanPlaces) {
    expectServed(caller, 1); // spoke last, so the others go before it
    std::vector<int> others;
    for (uint32_t i = 0; i < 2 * LINUX_CALLERS_MAX; i++) {
        const int fd = callerConnect();
        ASSERT_GE(fd, 0);
        others.push_back(fd);
        expectServed(fd, i);
        if (i % 8 == 0) {
            expectServed(caller, 1000 + i);
        }
    }
    uint32_t alive = 0;
    for (const int fd : others) {
        alive += callerRead(fd).got == Got::nothing;
    }
    EXPECT_EQ(alive, LINUX_CALLERS_MAX - 1);
    EXPECT_EQ(callerRead(others.front()).got, Got::hangUp);
    expectServed(others.back(), 3);
    expectServed(caller, 4);
    for (const int fd : others) {
        close(fd);
    }
}

// A caller that was served stays, however many come and say nothing; the newest of those have not been sent away either.
TEST_F(Queue, CallersThatNeverSpokeMakePlace) {
    const int later = callerConnect();
    expectServed(caller, 1);
    expectServed(later, 2);
    std::vector<int> silent;
    for (uint32_t i = 0; i < 3 * LINUX_CALLERS_MAX; i++) {
        silent.push_back(callerConnect());
        daemonIdle();
    }
    for (uint32_t i = 0; i < silent.size(); i++) {
        const bool newest = i >= silent.size() - (LINUX_CALLERS_MAX - 2);
        EXPECT_EQ(callerRead(silent[i]).got, newest ? Got::nothing : Got::hangUp) << i;
    }
    expectServed(caller, 3);
    expectServed(silent.back(), 4);
    expectServed(later, 5);
    for (const int fd : silent) {
        close(fd);
    }
    close(later);
}

// Turns of the loop while the daemon is busy and takes no message.
static void loopOnly() {
    for (uint32_t i = 0; i < 10; i++) {
        event_base_loop(linuxLoopBase(), EVLOOP_NONBLOCK);
    }
}

TEST_F(Queue, WaitingMessageKeepsItsPlace) {
    std::vector<int> others;
    callerSend(caller, message(1, 500, {}));
    for (uint32_t i = 0; i < LINUX_CALLERS_MAX - 1; i++) {
        others.push_back(callerConnect());
        callerSend(others.back(), message(1, i, {}));
    }
    loopOnly();
    const int tooMany = callerConnect();
    loopOnly();
    EXPECT_EQ(callerRead(tooMany).got, Got::hangUp);
    uint32_t served = 0;
    for (Taken taken = daemonTake(20); taken.result > 0; taken = daemonTake(20)) {
        EXPECT_EQ(daemonReply(&taken, 0), 0);
        served++;
    }
    EXPECT_EQ(served, LINUX_CALLERS_MAX);
    for (const int fd : others) {
        EXPECT_EQ(callerRead(fd).got, Got::reply);
        close(fd);
    }
    close(tooMany);
}

TEST_F(Queue, CallerThatLeftGetsNoReply) {
    const int gone = callerConnect();
    callerSend(gone, message(1, 1, {}));
    close(gone);
    Taken taken = daemonTake();
    ASSERT_EQ(taken.bytes, message(1, 1, {})); // what was asked is done all the same
    EXPECT_NE(daemonReply(&taken, 0), 0);
    expectServed(caller, 2);
}

TEST_F(Queue, LateReplyDoesNotReachTheNextCaller) {
    const int gone = callerConnect();
    callerSend(gone, message(1, 1, {}));
    Taken taken = daemonTake();
    ASSERT_GT(taken.result, 0);
    close(gone);
    daemonIdle();
    const int next = callerConnect(); // in the place of the one that left
    daemonIdle();
    EXPECT_NE(daemonReply(&taken, 0), 0);
    EXPECT_EQ(callerRead(next).got, Got::nothing);
    expectServed(next, 5);
    close(next);
}

TEST_F(Queue, CallerThatDoesNotReadLosesItsConnection) {
    const int deaf = callerConnect();
    int32_t result = 0;
    uint32_t replies = 0;
    while (result == 0) {
        ASSERT_LT(replies, 1000u);
        callerSend(deaf, message(1, replies, Bytes(60000, 1)));
        Taken taken = daemonTake();
        ASSERT_GT(taken.result, 0);
        result = daemonReply(&taken, 0);
        replies++;
        expectServed(caller, replies);
    }
    EXPECT_GT(replies, 1u);
    for (uint32_t i = 1; i < replies; i++) { // what it did not read is still there, and then the end
        EXPECT_EQ(callerRead(deaf).got, Got::reply);
    }
    EXPECT_EQ(callerRead(deaf).got, Got::hangUp);
    close(deaf);
}

// Its connection ends while its next message waits behind another caller's: only that message goes.
TEST_F(Queue, DeafCallerWithAMessageWaiting) {
    const int deaf = callerConnect();
    callerSend(deaf, message(1, 1, Bytes(60000, 1)));
    callerSend(deaf, message(1, 2, {2}));
    Taken first = daemonTake();
    ASSERT_EQ(first.bytes.size(), 60000 + HEADER);
    callerSend(caller, message(1, 3, {3}));
    loopOnly();
    linuxQueueResume();
    loopOnly();
    const int behind = callerConnect();
    callerSend(behind, message(1, 4, {4}));
    loopOnly();
    uint32_t replies = 0;
    while (daemonReply(&first, 0) == 0) {
        ASSERT_LT(replies, 1000u);
        replies++;
    }
    const int next = callerConnect(); // takes the place
    callerSend(next, message(1, 5, {5}));
    loopOnly();
    EXPECT_EQ(daemonTake().bytes, message(1, 3, {3}));
    EXPECT_EQ(daemonTake().bytes, message(1, 4, {4}));
    EXPECT_EQ(daemonTake().bytes, message(1, 5, {5}));
    daemonIdle();
    close(deaf);
    close(behind);
    close(next);
}

TEST_F(Queue, ReplyThatIsNoMessage) {
    callerSend(caller, message(1, 1, {}));
    Taken taken = daemonTake();
    ASSERT_GT(taken.result, 0);
    Bytes large(70000);
    EXPECT_NE(vosMsgResp(queueOpened(), 0, large.data(), HEADER - 1, &taken.ctx), 0);
    EXPECT_NE(vosMsgResp(queueOpened(), 0, large.data(), VOS_MSG_MAX + 1, &taken.ctx), 0);
    EXPECT_NE(vosMsgResp(queueOpened(), 0, nullptr, HEADER, &taken.ctx), 0);
    EXPECT_NE(vosMsgResp(queueOpened() + 1, 0, large.data(), HEADER, &taken.ctx), 0);
    VosMsgReplyCtx nobody = {};
    EXPECT_NE(vosMsgResp(queueOpened(), 0, large.data(), HEADER, &nobody), 0);
    EXPECT_EQ(callerRead(caller).got, Got::nothing);
    EXPECT_EQ(vosMsgResp(queueOpened(), 0, large.data(), VOS_MSG_MAX, &taken.ctx), 0);
    EXPECT_EQ(callerRead(caller).payload.size(), VOS_MSG_MAX - HEADER);
}

// ---- Who may speak -------------------------------------------------------------------------------------------------

// A caller with other credentials, in a process of its own. Exit status 1 when it was served, 0 when it was turned away.
static int callerAs(uid_t user, gid_t group, bool supplementary) {
    const int pid = fork();
    if (pid == 0) {
        const gid_t none = 65534;
        if (setgroups(supplementary ? 1 : 0, &group) != 0 || setgid(supplementary ? none : group) != 0 || setuid(user) != 0) {
            _exit(9);
        }
        const int fd = callerConnect();
        const Bytes ask = message(0xFFFF, 1, {});
        if (fd < 0 || send(fd, ask.data(), ask.size(), MSG_NOSIGNAL) < 0) {
            _exit(0);
        }
        timeval limit = {5, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        const int flags = fcntl(fd, F_GETFL);
        fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
        uint8_t answer[64];
        _exit(recv(fd, answer, sizeof answer, 0) > 0 ? 1 : 0);
    }
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        daemonTake(1);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(Queue, StrangersAreTurnedAway) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to become another user";
    }
    ASSERT_EQ(chmod(linuxSocketPath(), 0666), 0); // so that only the credentials are left to stop them
    ASSERT_EQ(chown(linuxSocketPath(), 0, 4242), 0);
    EXPECT_EQ(callerAs(1234, 1234, false), 0);
    EXPECT_EQ(callerAs(1234, 4243, true), 0);
    EXPECT_EQ(callerAs(1234, 4242, false), 1);
    EXPECT_EQ(callerAs(1234, 4242, true), 1);
    EXPECT_EQ(callerAs(0, 1234, false), 1);
    ASSERT_EQ(chmod(linuxSocketPath(), 0660), 0);
    expectServed(caller, 1);
}
