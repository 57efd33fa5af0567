// The trace routine and its assertion.

#include "l2/dhcp6snooping/base/trace.h"
#include "tests/unit/fixture.h"

#include <csignal>

namespace {

struct TraceTest : SnoopingTest {};

const char *const ASSERTION = "\r\n/sbin/snoopd6\\([1-9][0-9]*\\):Assertion failed!ulDebugStrLen < sizeof\\(debugStr\\) && "
                              "ulDebugStrLen > 0, l2/dhcp6snooping/Dhcp6Snooping, dhcp6snooping_debug_printf, line=1213\\.\r\n";

TEST_F(TraceTest, ALineIsFormattedAndSent) {
    dhcp6snooping_debug_printf("\r\n port %d of %s", 3, "switch");
    EXPECT_EQ(recordingTake(), Lines{"syslogSendInfo module=53 level=7 tag=\"dhcp6snooping\" \"\\r\\n port 3 of switch\""});
    EXPECT_EQ(recordingTraces, Lines{"\r\n port 3 of switch"});
}

TEST_F(TraceTest, WhileOffNothingIsFormatted) {
    recordingDebugOn = 0;
    const std::string tooLong(300, 'x');
    dhcp6snooping_debug_printf("%s", tooLong.c_str());
    dhcp6snooping_debug_printf("%s", "");
    EXPECT_EQ(recordingTake(), Lines{});
    EXPECT_EQ(recordingCount("syslogModuleSwitch"), 2u);
}

TEST_F(TraceTest, TheSwitchOfItsModuleAndLevelIsAsked) {
    recordingShowQuiet(true);
    recordingDebugOn = 0;
    dhcp6snooping_debug_printf("%d", 1);
    EXPECT_EQ(recordingTake(), Lines{"syslogModuleSwitch module=53 level=7"});
}

TEST_F(TraceTest, AnyNonZeroSwitchIsOn) {
    recordingDebugOn = 0x80000000u;
    dhcp6snooping_debug_printf("%d", 1);
    EXPECT_EQ(recordingTraces, Lines{"1"});
}

TEST_F(TraceTest, NoFormatIsNoLine) {
    const char *none = nullptr;
    dhcp6snooping_debug_printf(none, 1);
    EXPECT_EQ(recordingCount("syslogModuleSwitch"), 0u);
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(TraceTest, EveryLengthUpTo255IsSent) {
    for (size_t length = 1; length <= 255; length++)
        dhcp6snooping_debug_printf("%s", std::string(length, 'a').c_str());
    ASSERT_EQ(recordingTraces.size(), 255u);
    for (size_t length = 1; length <= 255; length++)
        EXPECT_EQ(recordingTraces[length - 1], std::string(length, 'a'));
}

TEST_F(TraceTest, TextIsNeverAFormat) {
    dhcp6snooping_debug_printf("%s", "100%n%s");
    EXPECT_EQ(recordingTraces, Lines{"100%n%s"});
}

TEST_F(TraceTest, AFailedSendIsIgnored) {
    recordingFailAlways("syslogSendInfo");
    dhcp6snooping_debug_printf("%d", 1);
    EXPECT_EQ(recordingTake().size(), 1u);
}

TEST_F(TraceTest, ATooLongLineEndsTheProcess) {
    for (const size_t length : {256u, 257u, 5000u})
        EXPECT_EXIT(dhcp6snooping_debug_printf("%s", std::string(length, 'a').c_str()), testing::KilledBySignal(SIGABRT),
                    ASSERTION);
}

TEST_F(TraceTest, AnEmptyLineEndsTheProcess) {
    EXPECT_EXIT(dhcp6snooping_debug_printf("%s", ""), testing::KilledBySignal(SIGABRT), ASSERTION);
}

TEST_F(TraceTest, TheAssertionNamesTheProcess) {
    recordingProcessName = "other";
    EXPECT_EXIT(dhcp6snooping_assertion_failed("a < b", "somewhere", 12), testing::KilledBySignal(SIGABRT),
                "\r\nother\\([1-9][0-9]*\\):Assertion failed!a < b, l2/dhcp6snooping/Dhcp6Snooping, somewhere, line=12\\.\r\n");
}

} // namespace
