// The program itself: options, exit status, and its behaviour at a terminal.
#include <chrono>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include "shell_fake.h"

namespace {

struct Finished {
    int status;
    std::string out;
    std::string err;
};

std::string readFile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class ShellProgram : public testing::Test {
  protected:
    FakeDaemon daemon;

    void SetUp() override { fakeStart(&daemon, fakeSwitch); }
    void TearDown() override { fakeStop(&daemon); }

    Finished run(std::vector<std::string> arguments, const std::string &input = "") {
        const std::string base = daemon.folder + "/";
        std::ofstream(base + "in", std::ios::binary) << input;
        const pid_t child = fork();
        if (child == 0) {
            const bool ready = freopen((base + "in").c_str(), "r", stdin) != nullptr &&
                               freopen((base + "out").c_str(), "w", stdout) != nullptr &&
                               freopen((base + "err").c_str(), "w", stderr) != nullptr &&
                               setenv("SNOOPD6_RUN", daemon.folder.c_str(), 1) == 0;
            std::vector<char *> argv = {const_cast<char *>("snoopctl")};
            for (std::string &argument : arguments) {
                argv.push_back(argument.data());
            }
            argv.push_back(nullptr);
            if (ready) {
                execv(SNOOPCTL_PROGRAM, argv.data());
            }
            _exit(99);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(base + "out"), readFile(base + "err")};
    }
};

TEST_F(ShellProgram, ExitStatusSaysHowItWent) {
    EXPECT_EQ(run({"dhcpv6-snooping"}).status, 0);
    EXPECT_EQ(run({"vlan", "10", "dhcpv6-snooping", "max-clients", "9"}).status, 0);
    const Finished usage = run({"vlan", "9999"});
    EXPECT_EQ(usage.status, 2);
    EXPECT_EQ(usage.out, "");
    EXPECT_EQ(usage.err, "snoopctl: \"9999\" is not a VLAN: allowed are 1 to 4094\n");
    const Finished absent = run({"show", "platform", "--run", "/nonexistent"});
    EXPECT_EQ(absent.status, 1);
    EXPECT_EQ(absent.err, "snoopctl: no answer from the daemon: is snoopd6 running? looked at /nonexistent/snoopd6.sock\n");
}

// What a program gives as one argument stays one word.
TEST_F(ShellProgram, ArgumentsAreWords) {
    const std::string head = "2000000003000000040000000000000000000000000000000400000000000000040000000000000";
    const struct {
        std::vector<std::string> arguments;
        const char *value; // hexadecimal, with length and padding
    } cases[] = {
        {{"dhcpv6-snooping", "information", "remote-id", "string", "two words"}, "0a0000000000000074776f20776f726473000000"},
        {{"dhcpv6-snooping", "information", "remote-id", "string", "what?"},
         "06000000000000007768"
         "61743f000000"},
        {{"dhcpv6-snooping", "information", "remote-id", "string", " "}, "020000000000000020"},
        {{"dhcpv6-snooping information remote-id string \"two words\""}, "0a0000000000000074776f20776f726473000000"},
    };
    for (const auto &c : cases) {
        const Finished done = run(c.arguments);
        EXPECT_EQ(done.status, 0) << done.err;
        const std::string payload = fakeHex(fakeRequests(&daemon).back()).substr(48);
        EXPECT_EQ(payload.rfind(head, 0), 0u) << payload;
        EXPECT_EQ(payload.find(c.value), 80u) << payload;
    }
    const struct {
        std::vector<std::string> arguments;
        const char *error;
    } refused[] = {
        {{"dhcpv6-snooping", "information", "remote-id", "string", "\"two"},
         "the string cannot be kept with the double quote at column 1: allowed are printable characters other than double "
         "quotes"},
        {{"dhcpv6-snooping", "information", "remote-id", "string", ""}, "the string \"\" has 0 bytes: allowed are 1 to 79"},
        {{"show dhcpv6-snooping", "clients"},
         "\"show dhcpv6-snooping\" is not known here: allowed are dhcpv6-snooping, undo, "
         "interface, ipv6-source-guard, vlan, clear, show, debug, help and quit"},
        {{"show", ""}, "\"\" is not known behind \"show\": allowed are dhcpv6-snooping, ipv6-source-guard and platform"},
    };
    for (const auto &c : refused) {
        const Finished done = run(c.arguments);
        EXPECT_EQ(done.status, 2);
        EXPECT_EQ(done.err, std::string("snoopctl: ") + c.error + "\n");
    }
    EXPECT_EQ(run({"show", "platform", "p?"}).out, "  ports  interface, link and state of every port\n");
    EXPECT_EQ(run({"dhcpv6-snooping", "information", "remote-id", "string", "?"}).out.rfind("  TEXT  ", 0), 0u);
    EXPECT_EQ(run({std::string(600, 'x'), std::string(600, 'x')}).status, 2);
}

TEST_F(ShellProgram, Options) {
    EXPECT_EQ(run({"--version"}).out, "snoopctl " SNOOPD6_VERSION "\n");
    const Finished help = run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind("Usage: snoopctl", 0), 0u);
    EXPECT_EQ(run({"--nonsense"}).status, 2);
    EXPECT_EQ(run({"--run"}).status, 2);
    EXPECT_EQ(run({"-f", "x", "show"}).status, 2);
    EXPECT_EQ(run({"show", "dhcpv6-snooping", "clients", "--json"}).out.front(), '{');
    EXPECT_EQ(run({"--json", "show dhcpv6-snooping clients"}).out.front(), '{');
}

TEST_F(ShellProgram, LinesFromAPipeAndFromAFile) {
    const Finished piped = run({}, "show platform vlans\n");
    EXPECT_EQ(piped.status, 0) << piped.err;
    EXPECT_EQ(piped.out.rfind("VLAN  MEMBERS", 0), 0u);
    std::ofstream(daemon.folder + "/lines") << "dhcpv6-snooping\nfoo\n";
    const Finished file = run({"-f", daemon.folder + "/lines"});
    EXPECT_EQ(file.status, 1);
    EXPECT_EQ(file.err.rfind("snoopctl: " + daemon.folder + "/lines, line 2, \"foo\": ", 0), 0u) << file.err;
    EXPECT_EQ(run({"-f", "-"}, "dhcpv6-snooping\n").status, 0);
    const Finished missing = run({"-f", "/nonexistent/lines"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "snoopctl: cannot read /nonexistent/lines: No such file or directory\n");
    const Finished folder = run({"-f", daemon.folder});
    EXPECT_EQ(folder.status, 1);
    EXPECT_NE(folder.err.find("cannot be read"), std::string::npos) << folder.err;
}

TEST_F(ShellProgram, OutputThatCannotBeWrittenIsAFailure) {
    const pid_t child = fork();
    if (child == 0) {
        if (freopen("/dev/full", "w", stdout) != nullptr) {
            execl(SNOOPCTL_PROGRAM, "snoopctl", "--help", nullptr);
        }
        _exit(99);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 1);
}

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

TEST_F(ShellProgram, AtATerminal) {
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

TEST_F(ShellProgram, TextsAtATerminal) {
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

TEST_F(ShellProgram, EndOfInputLeavesTheTerminal) {
    Terminal terminal = terminalStart(daemon);
    ASSERT_TRUE(terminalExpect(&terminal, "snoopd6> ")) << terminal.seen;
    terminalType(terminal, "\x04");
    EXPECT_EQ(terminalEnd(&terminal), 0) << terminal.seen;
}

} // namespace
