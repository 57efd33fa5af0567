// Replay of files: what runs, what is named, what is left out.
#include <gtest/gtest.h>

#include "shell_fake.h"

#include "shell/replay.h"

namespace {

class ShellReplay : public FakeSwitchTest {
  protected:
    std::string out;
    std::string err;

    ReplayResult replay(std::string text, ReplayMode mode = ReplayMode::keepGoing) {
        FILE *in = fmemopen(text.data(), text.size(), "r");
        char *outText = nullptr;
        char *errText = nullptr;
        size_t outSize = 0;
        size_t errSize = 0;
        FILE *outFile = open_memstream(&outText, &outSize);
        FILE *errFile = open_memstream(&errText, &errSize);
        const ReplayResult result = replayRun(&session, in, "startup.conf", mode, outFile, errFile);
        fclose(in);
        fclose(outFile);
        fclose(errFile);
        out.assign(outText, outSize);
        err.assign(errText, errSize);
        free(outText);
        free(errText);
        return result;
    }

    // Identifiers of the remote calls that arrived.
    std::vector<uint32_t> calls() {
        std::vector<uint32_t> ids;
        for (const Bytes &request : fakeRequests(&daemon)) {
            if (fakeWord(request, 0) == 0x00010001) {
                ids.push_back(fakeWord(request, 24));
            }
        }
        return ids;
    }
};

TEST_F(ShellReplay, RulesAreAskedForOnceAfterAllLines) {
    std::string lines;
    for (int number = 1; number <= 100; number++)
        lines += "ipv6-source-guard bind ip 2001:db8::" + std::to_string(number) + "\n";
    EXPECT_EQ(replay(lines).outcome, Outcome::done);
    EXPECT_EQ(fakeSwitchQuestions(&daemon), 1u);
    EXPECT_EQ(replay("dhcpv6-snooping l2-relay\n").outcome, Outcome::done);
    EXPECT_EQ(fakeSwitchQuestions(&daemon), 1u) << "no line needed them";
    daemon.answer = fakeWithoutRules;
    const ReplayResult result = replay(lines);
    EXPECT_EQ(result.outcome, Outcome::refused);
    EXPECT_EQ(result.failed, 0u);
    EXPECT_EQ(calls().size(), 201u);
    EXPECT_EQ(err.rfind("startup.conf: the kernel has lost the daemon's filter rules", 0), 0u) << err;
    EXPECT_EQ(fakeSwitchQuestions(&daemon), 2u);
}

TEST_F(ShellReplay, ARunningConfigurationGoesThrough) {
    const ReplayResult result = replay("!!!DHCPv6 snooping\r\n"
                                       "dhcpv6-snooping\r\n"
                                       "undo dhcpv6-snooping port-down-action fast-remove\r\n"
                                       "dhcpv6-snooping l2-relay\r\n"
                                       "dhcpv6-snooping information option 18\r\n"
                                       "dhcpv6-snooping information option 37\r\n"
                                       "dhcpv6-snooping information interface-id ipv4-address 10.0.0.1\r\n"
                                       "dhcpv6-snooping information interface-id ipv6-address 2001:db8::1\r\n"
                                       "dhcpv6-snooping information interface-id string \"a ! \\ # b?\"\r\n"
                                       "dhcpv6-snooping information remote-id string \"?\"\r\n"
                                       "dhcpv6-snooping information remote-id user-defined \"{hostname} {{ {port}\"\r\n"
                                       "interface ethernet 0/4\r\n"
                                       "dhcpv6-snooping trust\r\n"
                                       "dhcpv6-snooping max-clients 5\r\n"
                                       "quit\r\n"
                                       "interface ethernet 0/1\r\n"
                                       "ipv6-source-guard\r\n"
                                       "quit\r\n"
                                       "\r\n"
                                       "# a remark\n"
                                       "vlan 10\r\n"
                                       "dhcpv6-snooping max-clients 100\r\n"
                                       "quit\r\n"
                                       "undo ipv6-source-guard vlan 20,30-32,\r\n"
                                       "undo ipv6-source-guard vlan 4094\r\n"
                                       "ipv6-source-guard bind ip 2001:db8::7\r\n"
                                       "ipv6-source-guard bind ip 2001:db8::6 mac 02:00:00:00:00:06\r\n"
                                       "ipv6-source-guard bind ip 2001:db8::5 mac 02:00:00:00:00:05 interface ethernet 0/1 "
                                       "vlan 10\r\n");
    EXPECT_EQ(err, "");
    EXPECT_EQ(result.failed + result.skipped, 0u);
    EXPECT_EQ(calls(), (std::vector<uint32_t>{0, 34, 35, 30, 31, 32, 32, 32, 32, 32, 2, 6, 4, 8, 23, 23, 14, 14, 14}));
    EXPECT_EQ(session.place.kind, PLACE_TOP);
    EXPECT_FALSE(session.ended);
}

TEST_F(ShellReplay, AFailedLineIsNamedAndTheRestRuns) {
    const ReplayResult result =
        replay("dhcpv6-snooping\nnonsense here\nshow platform\nvlan 10 dhcpv6-snooping max-clients 3000");
    EXPECT_EQ(result.failed, 2u);
    EXPECT_EQ(result.skipped, 0u);
    EXPECT_EQ(err,
              "startup.conf:2: nonsense here: \"nonsense\" is not known here: allowed are dhcpv6-snooping, undo, interface, "
              "ipv6-source-guard, vlan, save, load, erase, clear, show, watch, debug, help and quit\n"
              "startup.conf:4: vlan 10 dhcpv6-snooping max-clients 3000: \"3000\" is not a number of clients: allowed are "
              "0 to 2048\n");
    EXPECT_EQ(replaySummary(result), "4 lines, 2 failed");
    EXPECT_EQ(result.outcome, Outcome::usage);
    EXPECT_NE(out.find("Process                 4711\n"), std::string::npos);
}

TEST_F(ShellReplay, APlaceThatCannotBeEnteredTakesItsLinesAlong) {
    const ReplayResult result = replay("interface ethernet 0/1\n"
                                       "interface ethernet 0/99\n"
                                       "dhcpv6-snooping trust\n"
                                       "undo dhcpv6-snooping max-clients\n"
                                       "quit\n"
                                       "dhcpv6-snooping\n"
                                       "vlan 5000\n"
                                       "dhcpv6-snooping max-clients 1\n"
                                       "vlan 10\n"
                                       "dhcpv6-snooping max-clients 2\n"
                                       "quit\n");
    EXPECT_EQ(result.failed, 2u);
    EXPECT_EQ(result.skipped, 4u);
    EXPECT_EQ(calls(), (std::vector<uint32_t>{0, 8}));
    EXPECT_EQ(session.place.kind, PLACE_TOP);
}

TEST_F(ShellReplay, NothingRunsBehindTheEndOfTheShell) {
    const ReplayResult result = replay("quit\n\n! remark\ndhcpv6-snooping\nundo dhcpv6-snooping\n");
    EXPECT_EQ(result.failed, 0u);
    EXPECT_EQ(result.skipped, 2u);
    EXPECT_EQ(err, "startup.conf:4: dhcpv6-snooping: not run, because the line before it left the shell\n");
    EXPECT_EQ(replaySummary(result), "3 lines, 0 failed, 2 not run");
    EXPECT_EQ(result.outcome, Outcome::usage);
    EXPECT_TRUE(calls().empty());
}

TEST_F(ShellReplay, WithoutADaemonItStopsAtOnce) {
    session.connection.socketPath = "/nonexistent/snoopd6.sock";
    const ReplayResult result = replay("dhcpv6-snooping\ndhcpv6-snooping l2-relay\nshow platform\n");
    EXPECT_EQ(result.failed, 1u);
    EXPECT_EQ(result.skipped, 2u);
    EXPECT_EQ(result.outcome, Outcome::unreachable);
}

TEST_F(ShellReplay, StopsAtTheFirstFailureWhenItIsTold) {
    const ReplayResult result =
        replay("! remark\ndhcpv6-snooping\nvlan 0\nnonsense\nundo dhcpv6-snooping\n", ReplayMode::stopAtFailure);
    EXPECT_EQ(err, "startup.conf:3: vlan 0: \"0\" is not a VLAN: allowed are 1 to 4094\n");
    EXPECT_EQ(replaySummary(result), "4 lines, 1 failed, 2 not run");
    EXPECT_EQ(calls(), (std::vector<uint32_t>{0}));
}

TEST_F(ShellReplay, WatchIsNotForFiles) {
    const ReplayResult result = replay("watch 1 show platform\nwatch\nwatch 5\ndhcpv6-snooping\n");
    EXPECT_EQ(result.failed, 3u);
    EXPECT_EQ(result.skipped, 0u);
    EXPECT_NE(err.find("startup.conf:1: watch 1 show platform: \"watch\" cannot stand in a file"), std::string::npos) << err;
    EXPECT_EQ(calls(), (std::vector<uint32_t>{0}));
}

TEST_F(ShellReplay, ALineOfAnyLengthIsOneLine) {
    const ReplayResult result = replay(std::string(100000, 'x') + "\ndhcpv6-snooping\n" + std::string("a\0b\n", 4));
    EXPECT_EQ(result.failed, 2u);
    EXPECT_NE(err.find("startup.conf:1: " + std::string(64, 'x') + "...: the line is too long: "), std::string::npos) << err;
    EXPECT_NE(err.find("startup.conf:3: a\\x00b: \"a\\x00b\" is not known here"), std::string::npos) << err;
    EXPECT_EQ(calls(), (std::vector<uint32_t>{0}));
}

} // namespace
