// The program itself: options, ways in, exit status.
#include <fstream>
#include <gtest/gtest.h>
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
    EXPECT_EQ(absent.status, 3);
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
         "interface, ipv6-source-guard, vlan, save, load, erase, clear, show, watch, debug, help and quit"},
        {{"show", ""},
         "\"\" is not known behind \"show\": allowed are dhcpv6-snooping, ipv6-source-guard, platform and running-config"},
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
    std::ofstream(daemon.folder + "/lines") << "dhcpv6-snooping\r\nfoo\ndhcpv6-snooping\n";
    const Finished file = run({"-f", daemon.folder + "/lines"});
    EXPECT_EQ(file.status, 2);
    EXPECT_EQ(file.err.rfind(daemon.folder + "/lines:2: foo: \"foo\" is not known here", 0), 0u) << file.err;
    EXPECT_TRUE(file.err.ends_with(daemon.folder + "/lines: 3 lines, 1 failed, 1 not run; --keep-going runs the others\n"))
        << file.err;
    const Finished goingOn = run({"--keep-going", "-f", daemon.folder + "/lines"});
    EXPECT_EQ(goingOn.status, 2);
    EXPECT_TRUE(goingOn.err.ends_with(daemon.folder + "/lines: 3 lines, 1 failed\n")) << goingOn.err;
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

} // namespace
