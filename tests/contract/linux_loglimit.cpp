// Lines that somebody outside can cause: some at once, then few, with a count of what was left out.

#include <cstdio>
#include <event2/event.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "platform/libvos.h"
#include "platform/linux/loglimit.h"
#include "platform/linux/loop.h"

using Lines = std::vector<std::string>;

static void captureBegin() { testing::internal::CaptureStderr(); }

static Lines captureEnd() {
    std::stringstream written(testing::internal::GetCapturedStderr());
    Lines lines;
    for (std::string line; std::getline(written, line);)
        lines.push_back(line + "\n");
    return lines;
}

// No place gets another line while the loop does not run, however long that takes.
class LogLimit : public testing::Test {
  protected:
    void SetUp() override {
        linuxLogPause = {0, 1000};
        quiet = waiting();
    }
    void TearDown() override { linuxLogPause = {60, 0}; }

    // What the loop waits for, pauses among it.
    static int waiting() { return event_base_get_num_events(linuxLoopBase(), EVENT_BASE_COUNT_ADDED); }

    // So many pauses, of the only place that has any.
    static Lines pauses(uint32_t count) {
        captureBegin();
        for (uint32_t i = 0; i < count; ++i)
            event_base_loop(linuxLoopBase(), EVLOOP_ONCE);
        return captureEnd();
    }

    // Pauses until every bucket is full.
    Lines allPauses() const {
        captureBegin();
        while (waiting() > quiet)
            event_base_loop(linuxLoopBase(), EVLOOP_ONCE);
        return captureEnd();
    }

    int quiet = 0;
};

static Lines knocks(uint32_t first, uint32_t count) {
    captureBegin();
    for (uint32_t i = 0; i < count; ++i)
        linuxLogLimited("knock %u", first + i);
    return captureEnd();
}

static Lines knockLines(uint32_t first, uint32_t count) {
    Lines lines;
    for (uint32_t i = 0; i < count; ++i)
        lines.push_back("snoopd6: knock " + std::to_string(first + i) + "\n");
    return lines;
}

TEST_F(LogLimit, SomeAtOnceThenACount) {
    EXPECT_EQ(knocks(1, 9), knockLines(1, 5));
    EXPECT_EQ(pauses(1), Lines{"snoopd6: knock 9 (3 more like this)\n"});
    EXPECT_EQ(knocks(10, 1), Lines{}) << "the pause's line was that of the count";
    EXPECT_EQ(pauses(1), knockLines(10, 1)) << "one that was held back alone comes whole";
    EXPECT_EQ(knocks(11, 1000), Lines{});
    EXPECT_EQ(pauses(1), Lines{"snoopd6: knock 1010 (999 more like this)\n"});
    EXPECT_EQ(pauses(2), Lines{});
    EXPECT_EQ(knocks(1, 3), knockLines(1, 2)) << "a line a pause";
    EXPECT_EQ(pauses(1), knockLines(3, 1));
    EXPECT_EQ(allPauses(), Lines{});
    EXPECT_EQ(knocks(1, 6), knockLines(1, 5)) << "full again";
    EXPECT_EQ(allPauses(), knockLines(6, 1));
}

TEST_F(LogLimit, PlacesHaveTheirOwn) {
    EXPECT_EQ(knocks(1, 6), knockLines(1, 5));
    captureBegin();
    linuxLogLimited("ring %u", 1u);
    linuxLog("knock %u", 7u); // what an operator does is never held back
    EXPECT_EQ(captureEnd(), (Lines{"snoopd6: ring 1\n", "snoopd6: knock 7\n"}));
    EXPECT_EQ(allPauses(), knockLines(6, 1));
}

TEST_F(LogLimit, LongLines) {
    const std::string longest(600, 'x');
    captureBegin();
    for (uint32_t i = 0; i < 7; ++i)
        linuxLogLimited("%s", longest.c_str());
    Lines lines = captureEnd();
    const Lines last = allPauses();
    lines.insert(lines.end(), last.begin(), last.end());
    const std::string line = "snoopd6: " + longest.substr(0, 511);
    EXPECT_EQ(lines, (Lines{line + "\n", line + "\n", line + "\n", line + "\n", line + "\n", line + " (1 more like this)\n"}));
}

TEST_F(LogLimit, TheConsole) {
    testing::internal::CaptureStdout();
    int32_t result = 0;
    for (int32_t i = 0; i < 8; ++i)
        result = vosPrintf("\r\nunknown msg %d", i);
    EXPECT_EQ(result, 15);
    allPauses();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\r\nunknown msg 0\r\nunknown msg 1\r\nunknown msg 2\r\nunknown msg 3\r\nunknown msg 4"
              "\r\nunknown msg 7 (2 more like this)");
}
