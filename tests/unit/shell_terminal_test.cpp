// The program at a terminal: prompt, keys, completion, history, and what goes on until a key is pressed.
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include "shell_fake.h"

namespace {

class ShellTerminal : public testing::Test {
  protected:
    FakeDaemon daemon;

    void SetUp() override { fakeStart(&daemon, fakeSwitch); }
    void TearDown() override { fakeStop(&daemon); }
};

// A user at a terminal.
struct Terminal {
    pid_t child;
    int fd;
    std::string seen;
};

Terminal terminalStart(const FakeDaemon &daemon) {
    Terminal terminal = {};
    winsize size = {.ws_row = 24, .ws_col = 120, .ws_xpixel = 0, .ws_ypixel = 0};
    terminal.child = forkpty(&terminal.fd, nullptr, nullptr, &size);
    if (terminal.child == 0) {
        setenv("TERM", "vt100", 1);
        setenv("LC_ALL", "C", 1); // a serial console
        setenv("XDG_STATE_HOME", (daemon.folder + "/state").c_str(), 1);
        execl(SNOOPCTL_PROGRAM, "snoopctl", "--run", daemon.folder.c_str(), nullptr);
        _exit(99);
    }
    return terminal;
}

// Reads until `text` has appeared behind what was seen before. False after ten seconds, or when the program ended.
bool terminalExpect(Terminal *terminal, const std::string &text) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (terminal->seen.find(text) == std::string::npos) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
        pollfd wanted = {terminal->fd, POLLIN, 0};
        char bytes[512];
        const ssize_t length =
            left > 0 && poll(&wanted, 1, static_cast<int>(left)) > 0 ? read(terminal->fd, bytes, sizeof bytes) : 0;
        if (length <= 0) {
            return false;
        }
        terminal->seen.append(bytes, static_cast<size_t>(length));
    }
    terminal->seen.erase(0, terminal->seen.find(text) + text.size());
    return true;
}

void terminalType(const Terminal &terminal, const std::string &keys) {
    ASSERT_EQ(write(terminal.fd, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

int terminalEnd(Terminal *terminal) {
    int status = 0;
    terminalExpect(terminal, std::string(1, '\0')); // whatever comes until the program ends, or does not end in time
    kill(terminal->child, SIGKILL);
    waitpid(terminal->child, &status, 0);
    close(terminal->fd);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(ShellTerminal, AtATerminal) {
    Terminal terminal = terminalStart(daemon);
    ASSERT_TRUE(terminalExpect(&terminal, "snoopd6> ")) << terminal.seen;
    terminalType(terminal, "int\te\t0/1\r");
    ASSERT_TRUE(terminalExpect(&terminal, "snoopd6(0/1)> ")) << terminal.seen;
    terminalType(terminal, "dhcpv6-snooping ?");
    ASSERT_TRUE(terminalExpect(&terminal, "max-clients  the most clients that this port may have")) << terminal.seen;
    ASSERT_TRUE(terminalExpect(&terminal, "snoopd6(0/1)> dhcpv6-snooping ")) << terminal.seen;
    terminalType(terminal, "trust\r");
    ASSERT_TRUE(terminalExpect(&terminal, "snoopd6(0/1)> ")) << terminal.seen;
    terminalType(terminal, "vlan 10\r");
    ASSERT_TRUE(terminalExpect(&terminal, "snoopd6(vlan10)> ")) << terminal.seen;
    terminalType(terminal, "vlan 9999\r");
    ASSERT_TRUE(terminalExpect(&terminal, "\"9999\" is not a VLAN: allowed are 1 to 4094")) << terminal.seen;
    ASSERT_TRUE(terminalExpect(&terminal, "snoopd6(vlan10)> ")) << terminal.seen;
    terminalType(terminal, "quit nonsense\x03");
    ASSERT_TRUE(terminalExpect(&terminal, "^C")) << terminal.seen;
    ASSERT_TRUE(terminalExpect(&terminal, "snoopd6(vlan10)> ")) << terminal.seen;
    terminalType(terminal, "quit\r");
    ASSERT_TRUE(terminalExpect(&terminal, "snoopd6> ")) << terminal.seen;
    terminalType(terminal, "\x1b[A\x1b[A\r"); // history: "vlan 9999"
    ASSERT_TRUE(terminalExpect(&terminal, "is not a VLAN")) << terminal.seen;
    terminalType(terminal, "quit\r");
    EXPECT_EQ(terminalEnd(&terminal), 0) << terminal.seen;
    const std::vector<Bytes> requests = fakeRequests(&daemon);
    ASSERT_FALSE(requests.empty());
    EXPECT_EQ(fakeHex(requests[0]).substr(48), "0200000002000000"
                                               "04000000000000000100000000000000"
                                               "04000000000000000100000000000000");
}

TEST_F(ShellTerminal, TextsAtATerminal) {
    Terminal terminal = terminalStart(daemon);
    ASSERT_TRUE(terminalExpect(&terminal, "snoopd6> ")) << terminal.seen;
    terminalType(terminal, "dh inf rem user \"\xc3\xbc{ho\t? {vl?");
    ASSERT_TRUE(terminalExpect(&terminal, "  {vlan-address:  IPv4 address of the switch in that VLAN")) << terminal.seen;
    ASSERT_TRUE(terminalExpect(&terminal, "snoopd6> dh inf rem user \"\xc3\xbc{hostname}? {vl")) << terminal.seen;
    terminalType(terminal, "\t10}\"\r");
    ASSERT_TRUE(terminalExpect(&terminal, "snoopd6> ")) << terminal.seen;
    terminalType(terminal, "dh inf int user ?");
    ASSERT_TRUE(terminalExpect(&terminal, "  {outer-vlan}       outer VLAN")) << terminal.seen;
    terminalType(terminal, "\x03");
    ASSERT_TRUE(terminalExpect(&terminal, "^C")) << terminal.seen;
    ASSERT_TRUE(terminalExpect(&terminal, "snoopd6> ")) << terminal.seen;
    terminalType(terminal, "quit\r");
    EXPECT_EQ(terminalEnd(&terminal), 0) << terminal.seen;
    const std::vector<Bytes> requests = fakeRequests(&daemon);
    ASSERT_EQ(requests.size(), 1u);
    const std::string text = "\xc3\xbc{hostname}? {vlan-address:10}";
    EXPECT_EQ(std::string(requests[0].begin() + 72, requests[0].begin() + 72 + static_cast<long>(text.size())), text);
}

TEST_F(ShellTerminal, EndOfInputLeavesTheTerminal) {
    Terminal terminal = terminalStart(daemon);
    ASSERT_TRUE(terminalExpect(&terminal, "snoopd6> ")) << terminal.seen;
    terminalType(terminal, "\x04");
    EXPECT_EQ(terminalEnd(&terminal), 0) << terminal.seen;
}

// Lines come back in the next session, from a file that is nobody else's.
TEST_F(ShellTerminal, HistoryIsKept) {
    Terminal first = terminalStart(daemon);
    ASSERT_TRUE(terminalExpect(&first, "snoopd6> ")) << first.seen;
    terminalType(first, "vlan 9876\rquit\r");
    ASSERT_EQ(terminalEnd(&first), 0) << first.seen;
    const std::filesystem::path file = daemon.folder + "/state/snoopctl/history";
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(std::filesystem::status(file.parent_path()).permissions(), std::filesystem::perms(0700));
    Terminal second = terminalStart(daemon);
    ASSERT_TRUE(terminalExpect(&second, "snoopd6> ")) << second.seen;
    terminalType(second, "\x1b[A\x1b[A\r");
    ASSERT_TRUE(terminalExpect(&second, "\"9876\" is not a VLAN")) << second.seen;
    terminalType(second, "quit\r");
    EXPECT_EQ(terminalEnd(&second), 0) << second.seen;
}

// Backslashes are text to the editor and to its history file.
TEST_F(ShellTerminal, EscapesComeBackFromTheHistory) {
    const std::string line = R"(dh inf rem escaped-string "\\n\x22\xff\x41 \r")";
    Terminal first = terminalStart(daemon);
    ASSERT_TRUE(terminalExpect(&first, "snoopd6> ")) << first.seen;
    terminalType(first, line + "\rquit\r");
    ASSERT_EQ(terminalEnd(&first), 0) << first.seen;
    Terminal second = terminalStart(daemon);
    ASSERT_TRUE(terminalExpect(&second, "snoopd6> ")) << second.seen;
    terminalType(second, "\x1b[A\x1b[A\r");
    ASSERT_TRUE(terminalExpect(&second, "snoopd6> ")) << second.seen;
    terminalType(second, "quit\r");
    EXPECT_EQ(terminalEnd(&second), 0) << second.seen;
    const std::vector<Bytes> requests = fakeRequests(&daemon);
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(fakeHex(requests[0]).substr(2 * 64), "0800000000000000"
                                                   "5c6e22ff41200d00");
    EXPECT_EQ(fakeHex(requests[1]).substr(16), fakeHex(requests[0]).substr(16)) << "all but the number of the request";
}

TEST_F(ShellTerminal, HistoryOfRubbishAndWithoutAPlace) {
    std::filesystem::create_directories(daemon.folder + "/state/snoopctl");
    std::ofstream(daemon.folder + "/state/snoopctl/history", std::ios::binary) << std::string(3000, '\xff') + "\n\0\n\\x";
    for (int round = 0; round < 2; round++) {
        Terminal terminal = terminalStart(daemon);
        ASSERT_TRUE(terminalExpect(&terminal, "snoopd6> ")) << terminal.seen;
        terminalType(terminal, "quit\r");
        EXPECT_EQ(terminalEnd(&terminal), 0) << terminal.seen;
        std::filesystem::remove_all(daemon.folder + "/state");
        std::ofstream(daemon.folder + "/state") << "a file is no folder";
    }
}

TEST_F(ShellTerminal, WatchIsRedrawnUntilAKeyIsPressed) {
    Terminal terminal = terminalStart(daemon);
    ASSERT_TRUE(terminalExpect(&terminal, "snoopd6> ")) << terminal.seen;
    terminalType(terminal, "watch 1 show dhcpv6-snooping\r");
    for (int picture = 0; picture < 2; picture++) {
        ASSERT_TRUE(terminalExpect(&terminal, "\x1b[?7l\x1b[H")) << terminal.seen;
        ASSERT_TRUE(terminalExpect(&terminal, ", every 1s; any key ends this\x1b[K\r\n")) << terminal.seen;
        ASSERT_TRUE(terminalExpect(&terminal, "DHCPv6 snooping           on\x1b[K\r\n")) << terminal.seen;
        ASSERT_TRUE(terminalExpect(&terminal, "\x1b[J\x1b[?7h")) << terminal.seen;
    }
    terminalType(terminal, "x");
    ASSERT_TRUE(terminalExpect(&terminal, "snoopd6> ")) << terminal.seen;
    terminalType(terminal, "watch show dhcpv6-snooping\r");
    ASSERT_TRUE(terminalExpect(&terminal, "\x1b[?7h")) << terminal.seen;
    terminalType(terminal, "\x03"); // a key as well: the shell goes on
    ASSERT_TRUE(terminalExpect(&terminal, "snoopd6> ")) << terminal.seen;
    terminalType(terminal, "quit\r");
    EXPECT_EQ(terminalEnd(&terminal), 0) << terminal.seen;
}

TEST_F(ShellTerminal, UndoAllAsksFirst) {
    Terminal terminal = terminalStart(daemon);
    ASSERT_TRUE(terminalExpect(&terminal, "snoopd6> ")) << terminal.seen;
    for (const char *answer : {"n\r", "\r", "yeah\r"}) {
        terminalType(terminal, "undo all\r");
        ASSERT_TRUE(terminalExpect(&terminal, "Go on? [y/N] ")) << terminal.seen;
        terminalType(terminal, answer);
        ASSERT_TRUE(terminalExpect(&terminal, "Nothing was changed.")) << terminal.seen;
        ASSERT_TRUE(terminalExpect(&terminal, "snoopd6> ")) << terminal.seen;
    }
    EXPECT_TRUE(fakeRequests(&daemon).empty());
    terminalType(terminal, "undo all\r");
    ASSERT_TRUE(terminalExpect(&terminal, "Go on? [y/N] ")) << terminal.seen;
    terminalType(terminal, "y\r");
    ASSERT_TRUE(terminalExpect(&terminal, "snoopd6> ")) << terminal.seen;
    EXPECT_FALSE(fakeRequests(&daemon).empty());
    terminalType(terminal, "quit\r");
    EXPECT_EQ(terminalEnd(&terminal), 0) << terminal.seen;
}

} // namespace
