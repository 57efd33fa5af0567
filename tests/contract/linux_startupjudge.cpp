// What the bytes of a saved configuration are taken for.

#include "platform/linux/startupjudge.h"

#include <gtest/gtest.h>

namespace {

const std::string TEXT = "!!!DHCPv6 snooping\ndhcpv6-snooping\ninterface ethernet 0/4\ndhcpv6-snooping trust\nquit\n";

void expectDamaged(std::string_view text, const std::string &reason) {
    const LinuxStartupVerdict verdict = linuxStartupJudge(text);
    EXPECT_EQ(verdict.kind, LinuxStartupKind::damaged) << text.substr(0, 80);
    EXPECT_EQ(verdict.reason, reason);
}

void expectFine(std::string_view text, LinuxStartupKind kind, uint32_t lines) {
    const LinuxStartupVerdict verdict = linuxStartupJudge(text);
    EXPECT_EQ(verdict.kind, kind) << text.substr(0, 80);
    EXPECT_EQ(verdict.lines, lines);
    EXPECT_EQ(verdict.reason, "");
}

TEST(StartupJudge, Complete) {
    expectFine(linuxStartupMarked(TEXT), LinuxStartupKind::complete, 4);
    expectFine(linuxStartupMarked(""), LinuxStartupKind::complete, 0);
    std::string crossed;
    for (const char character : linuxStartupMarked(TEXT))
        crossed += character == '\n' ? std::string("\r\n") : std::string(1, character);
    expectFine(crossed, LinuxStartupKind::complete, 4);
    expectFine(linuxStartupMarked(TEXT) + "vlan 9\nquit", LinuxStartupKind::complete, 6);
}

TEST(StartupJudge, ByHand) {
    expectFine(TEXT, LinuxStartupKind::byHand, 4);
    expectFine("\n# remark\n\tdhcpv6-snooping", LinuxStartupKind::byHand, 1);
    expectFine("! remark: K\xc3\xbc"
               "che, B\xfcro\n",
               LinuxStartupKind::byHand, 0);
}

// Every cut of a saved file is noticed, wherever it is.
TEST(StartupJudge, Cut) {
    const std::string whole = linuxStartupMarked(TEXT);
    const size_t end = whole.size() - 1; // the last line end may be missing
    expectDamaged("", "is empty");
    for (size_t length = 1; length < end; ++length)
        expectDamaged(whole.substr(0, length), "is cut off: its last line is missing");
    expectFine(whole.substr(0, end), LinuxStartupKind::complete, 4);
    for (size_t from = 1; from + LINUX_STARTUP_END.size() < end; ++from)
        expectDamaged(whole.substr(from), "is cut off: its first line is missing");
}

TEST(StartupJudge, Empty) {
    for (const char *text : {" ", "\n", "\r\n\t\n  \n"})
        expectDamaged(text, "is empty");
}

TEST(StartupJudge, NoText) {
    for (int byte = 0; byte < 256; ++byte) {
        const bool control = byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r';
        const std::string text = "dhcpv6-snooping\nvlan " + std::string(1, static_cast<char>(byte)) + "9\n";
        if (control || byte == 0x7f || byte >= 0xfe)
            expectDamaged(text, "is not text: line 2 has bytes that no line may have");
        else
            EXPECT_EQ(linuxStartupJudge(text).kind, LinuxStartupKind::byHand) << byte;
        EXPECT_EQ(linuxStartupRefusal(text) != nullptr, linuxStartupJudge(text).kind == LinuxStartupKind::damaged) << byte;
    }
}

std::string linesOf(uint32_t count) {
    std::string text;
    for (uint32_t i = 0; i < count; ++i)
        text += "quit\n";
    return text;
}

TEST(StartupJudge, Bounds) {
    expectFine(linesOf(LINUX_STARTUP_LINES_MAX), LinuxStartupKind::byHand, LINUX_STARTUP_LINES_MAX);
    expectDamaged(linesOf(LINUX_STARTUP_LINES_MAX + 1), "has more than 100000 lines");
    const std::string longest = linesOf(LINUX_STARTUP_LINES_MAX - 2);
    EXPECT_EQ(linuxStartupRefusal(longest), nullptr);
    expectFine(linuxStartupMarked(longest), LinuxStartupKind::complete, LINUX_STARTUP_LINES_MAX - 2);
    EXPECT_STREQ(linuxStartupRefusal(longest + "\n"), "has too many lines for a file");
    std::string largest(LINUX_STARTUP_BYTES_MAX, 'x');
    expectFine(largest, LinuxStartupKind::byHand, 1);
    expectDamaged(largest + "x", "is larger than 8 MiB");
    largest.resize(LINUX_STARTUP_BYTES_MAX - linuxStartupMarked("").size());
    largest.back() = '\n';
    EXPECT_EQ(linuxStartupRefusal(largest), nullptr);
    EXPECT_EQ(linuxStartupMarked(largest).size(), LINUX_STARTUP_BYTES_MAX);
    EXPECT_STREQ(linuxStartupRefusal("x" + largest), "is too long for a file");
}

TEST(StartupJudge, Refused) {
    EXPECT_EQ(linuxStartupRefusal(""), nullptr);
    EXPECT_EQ(linuxStartupRefusal(TEXT), nullptr);
    EXPECT_STREQ(linuxStartupRefusal("dhcpv6-snooping"), "ends in the middle of a line");
    for (const std::string_view mark : {LINUX_STARTUP_HEAD, LINUX_STARTUP_END})
        EXPECT_STREQ(linuxStartupRefusal("quit\n \t" + std::string(mark) + "\r\nquit\n"),
                     "has the marks of a saved file in it");
}

TEST(StartupJudge, TrustedPorts) {
    const struct {
        const char *text;
        uint32_t ports;
    } cases[] = {
        {"", 0},
        {"interface ethernet 0/4\ndhcpv6-snooping trust\nquit\n", 1u << 3},
        {"interface ethernet 0/4\r\nipv6-source-guard\r\n  dhcpv6-snooping\t trust\r\nquit\r\n", 1u << 3},
        {"interface ethernet 0/4 dhcpv6-snooping trust\ninterface ethernet 0/28 dhcpv6-snooping trust\n", 1u << 3 | 1u << 27},
        {"interface ethernet 0/1\ninterface ethernet 0/2\ndhcpv6-snooping trust\n", 1u << 1},
        {"interface ethernet 0/1\nquit\ndhcpv6-snooping trust\n", 0},
        {"interface ethernet 0/1\nvlan 5\ndhcpv6-snooping trust\n", 0},
        {"interface ethernet 0/1\ninterface bond 0/2\ndhcpv6-snooping trust\n", 0},
        {"interface ethernet 0/1 ipv6-source-guard\ndhcpv6-snooping trust\n", 0},
        {"interface ethernet 0/1\n! dhcpv6-snooping trust\n", 0},
        {"interface ethernet 0/1\ndhcpv6-snooping trust\nundo dhcpv6-snooping trust\n", 0},
        {"interface ethernet 0/1 dhcpv6-snooping trust\ninterface ethernet 0/1 undo dhcpv6-snooping trust\n", 0},
        {"interface ethernet 0/0\ndhcpv6-snooping trust\n", 0},
        {"interface ethernet 0/29\ndhcpv6-snooping trust\n", 0},
        {"interface ethernet 0/4294967297\ndhcpv6-snooping trust\n", 0},
        {"interface ethernet 0/1x\ndhcpv6-snooping trust\n", 0},
        {"interface ethernet 0/1\ndhcpv6-snooping trust now\n", 0},
        {"dhcpv6-snooping\ndhcpv6-snooping information remote-id string \"interface ethernet 0/3 dhcpv6-snooping trust\"\n", 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(linuxStartupTrusted(c.text), c.ports) << c.text;
}

} // namespace
