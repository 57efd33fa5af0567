// Lines of the daemon, and the switch that lets its debug lines out.

#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/libsmd.h"
#include "platform/libsyslog.h"
#include "platform/linux/debugswitch.h"
#include "platform/linux/switchfile.h"
#include "tests/contract/linux_env.h"

static constexpr uint32_t MODULE = LINUX_MODULE_DHCP6_SNOOPING;

static std::vector<std::string> linesOf(uint32_t level, const std::string &text) {
    const Captured captured = captureBegin();
    EXPECT_EQ(syslogSendInfo(MODULE, level, "DHCP6SNOOPING", text.c_str(), text.c_str(), 0, 0, 0), 0);
    return captureEnd(captured);
}

using Lines = std::vector<std::string>;

TEST(Syslog, OneWriteALine) {
    EXPECT_EQ(linesOf(2, "plain"), Lines{"plain\n"});
    EXPECT_EQ(linesOf(2, "\r\n in front"), Lines{" in front\n"});
    EXPECT_EQ(linesOf(2, "\n\r\nboth ends\r\n\r\n"), Lines{"both ends\n"});
    EXPECT_EQ(linesOf(2, "in the\r\nmiddle"), Lines{"in the\r\nmiddle\n"});
    EXPECT_EQ(linesOf(2, ""), Lines{"\n"});
    EXPECT_EQ(linesOf(2, "\r\n"), Lines{"\n"});
}

TEST(Syslog, TextIsNoFormat) { EXPECT_EQ(linesOf(7, "%s%n%d 100%"), Lines{"%s%n%d 100%\n"}); }

TEST(Syslog, NullIsRefused) { EXPECT_NE(syslogSendInfo(MODULE, 2, "t", nullptr, nullptr, 0, 0, 0), 0); }

TEST(Syslog, LevelsUnderSystemd) {
    const Captured captured = captureBegin();
    struct stat file;
    fstat(STDERR_FILENO, &file);
    setenv("JOURNAL_STREAM", (std::to_string(file.st_dev) + ":" + std::to_string(file.st_ino)).c_str(), 1);
    syslogSendInfo(MODULE, 2, "t", "failed", "failed", 0, 0, 0);
    syslogSendInfo(MODULE, 7, "t", "\r\ntrace", "\r\ntrace", 0, 0, 0);
    setenv("JOURNAL_STREAM", "1:1", 1); // another file: this standard error was redirected
    syslogSendInfo(MODULE, 7, "t", "trace", "trace", 0, 0, 0);
    unsetenv("JOURNAL_STREAM");
    EXPECT_EQ(captureEnd(captured), (Lines{"<2>failed\n", "<7>trace\n", "trace\n"}));
}

TEST(Syslog, DebugSwitch) {
    EXPECT_EQ(syslogModuleSwitch(MODULE, 7), 0);
    EXPECT_NE(syslogModuleSwitch(MODULE, 6), 0);
    EXPECT_NE(syslogModuleSwitch(MODULE, 0), 0);
    EXPECT_NE(syslogModuleSwitch(1, 6), 0);
    EXPECT_TRUE(linuxDebugSet(MODULE, true));
    EXPECT_NE(syslogModuleSwitch(MODULE, 7), 0);
    EXPECT_EQ(syslogModuleSwitch(52, 7), 0);
    EXPECT_TRUE(linuxDebugSet(MODULE, false));
    EXPECT_EQ(syslogModuleSwitch(MODULE, 7), 0);
    EXPECT_FALSE(linuxDebugSet(52, true));
    EXPECT_EQ(syslogModuleSwitch(52, 7), 0);
}

TEST(Syslog, RemoteCallLines) {
    const Captured captured = captureBegin();
    smdDebugPrintf(4, "%s:register failed", "dhcp6snoopingRmWrapFunction");
    smdDebugPrintf(0x400, "%s:start", "hidden");
    linuxDebugSet(MODULE, true);
    smdDebugPrintf(0x400, "%s:start", "shown");
    linuxDebugSet(MODULE, false);
    EXPECT_EQ(captureEnd(captured), (Lines{"dhcp6snoopingRmWrapFunction:register failed\n", "shown:start\n"}));
}

TEST(Syslog, Title) {
    snprintf(linuxSwitch.title, sizeof linuxSwitch.title, "snooping of %s", "floor 2");
    EXPECT_STREQ(get_str_by_mid(MODULE), "snooping of floor 2");
    EXPECT_EQ(get_str_by_mid(52), nullptr);
    EXPECT_EQ(get_str_by_mid(0xFFFFFFFF), nullptr);
}
