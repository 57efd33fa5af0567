// Time in vosMsgRecv: its own limit, the timers, and what keeps a caller from spinning on an error.

#include <array>
#include <chrono>
#include <ctime>
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/libvos.h"
#include "tests/contract/linux_caller.h"

using Clock = std::chrono::steady_clock;

static int32_t receive(uint32_t id, int32_t timeoutMs) {
    static std::array<uint8_t, VOS_MSG_MAX> buffer;
    VosMsgReplyCtx ctx;
    return vosMsgRecv(id, buffer.data(), buffer.size(), timeoutMs, &ctx);
}

TEST(Timer, ReceiveEndsAtItsLimit) {
    const uint32_t id = queueOpened();
    for (const int limit : {0, 1, 30, 1001}) {
        const auto start = Clock::now();
        EXPECT_EQ(receive(id, limit), 0);
        const auto took = Clock::now() - start;
        EXPECT_GE(took + std::chrono::milliseconds(5), std::chrono::milliseconds(limit)); // the loop's clock is a coarse one
        EXPECT_LT(took, std::chrono::milliseconds(limit + 2000));
    }
}

TEST(Timer, ErrorIsNotSaidAtOnce) {
    const uint32_t id = queueOpened();
    std::array<uint8_t, 64> buffer;
    VosMsgReplyCtx ctx;
    const auto start = Clock::now();
    EXPECT_LT(vosMsgRecv(id + 1, buffer.data(), buffer.size(), -1, &ctx), 0);
    EXPECT_LT(vosMsgRecv(id, nullptr, 64, -1, &ctx), 0);
    EXPECT_LT(vosMsgRecv(id, buffer.data(), buffer.size(), -1, nullptr), 0);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(200));
}

struct Ticks {
    uint32_t count;
    uint32_t timerId;
};

static int32_t tick(uint32_t timerId, void *user) {
    Ticks *ticks = static_cast<Ticks *>(user);
    ticks->count++;
    ticks->timerId = timerId;
    return 0;
}

static Ticks fast;
static Ticks slow;

TEST(Timer, TicksWhileAMessageIsWaitedFor) {
    const uint32_t id = queueOpened();
    uint32_t fastId = 0;
    uint32_t slowId = 0;
    ASSERT_EQ(vosTimerRegister(1, 5, tick, &fastId, &fast), 0);
    ASSERT_EQ(vosTimerRegister(1, 1500, tick, &slowId, &slow), 0);
    EXPECT_NE(fastId, slowId);
    EXPECT_EQ(fast.count, 0u); // never from inside another call
    const auto start = Clock::now();
    while (slow.count < 2 && Clock::now() - start < std::chrono::seconds(20)) {
        receive(id, 100);
    }
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
    EXPECT_EQ(slow.count, 2u);
    EXPECT_GE(took, 2990);
    EXPECT_GT(fast.count, 10u);
    EXPECT_LE(fast.count, took / 5 + 1);
    EXPECT_EQ(fast.timerId, fastId);
    EXPECT_EQ(slow.timerId, slowId);
}

TEST(Timer, LateTickIsMadeOnce) {
    const uint32_t id = queueOpened();
    receive(id, 20);
    const timespec busy = {0, 100'000'000}; // the daemon is at work while twenty ticks fall due
    nanosleep(&busy, nullptr);
    const uint32_t before = fast.count;
    receive(id, 0);
    EXPECT_EQ(fast.count, before + 1);
}

// A message is always waiting, and the timer comes to its turn all the same.
TEST(Timer, MessagesDoNotStarveTimers) {
    const uint32_t id = queueOpened();
    const int fd = callerConnect();
    callerSend(fd, message(1, 1, {}));
    const uint32_t before = fast.count;
    const auto start = Clock::now();
    uint32_t messages = 0;
    while (fast.count < before + 3 && Clock::now() - start < std::chrono::seconds(20)) {
        callerSend(fd, message(1, 1, {}));
        ASSERT_EQ(receive(id, -1), static_cast<int32_t>(HEADER));
        messages++;
    }
    EXPECT_GE(fast.count, before + 3);
    EXPECT_GT(messages, 3u);
    close(fd);
    while (receive(id, 0) > 0) {
        messages++;
    }
}

TEST(Timer, RegistrationRefusesWhatItCannotDo) {
    uint32_t timerId = 0;
    EXPECT_NE(vosTimerRegister(0, 1000, tick, &timerId, nullptr), 0);
    EXPECT_NE(vosTimerRegister(1, 0, tick, &timerId, nullptr), 0);
    EXPECT_NE(vosTimerRegister(1, 1000, nullptr, &timerId, nullptr), 0);
    EXPECT_NE(vosTimerRegister(1, 1000, tick, nullptr, nullptr), 0);
    EXPECT_EQ(timerId, 0u);
}

TEST(Timer, UpSecondsIsTheMachines) {
    timespec now = {};
    ASSERT_EQ(clock_gettime(CLOCK_BOOTTIME, &now), 0);
    const uint32_t up = vosUpSeconds();
    EXPECT_GE(up, static_cast<uint32_t>(now.tv_sec));
    EXPECT_LE(up, static_cast<uint32_t>(now.tv_sec) + 2);
}
