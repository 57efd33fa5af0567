// Daemons that are absent, silent, broken or hostile: one sentence each, and nothing taken from a damaged answer.
#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <sys/socket.h>

#include "shell_fake.h"

#include "platform/libvos.h"
#include "platform/linux/protocol.h"
#include "shell/clients.h"
#include "shell/commands.h"
#include "shell/remotecall.h"
#include "shell/status.h"

namespace {

class ShellHostile : public FakeDaemonTest {};

// Puts a 32-bit number into a message.
Bytes patched(Bytes message, size_t at, uint32_t word) {
    std::memcpy(message.data() + at, &word, sizeof word);
    return message;
}

Bytes cut(Bytes message, size_t length) {
    message.resize(length);
    return message;
}

TEST_F(ShellHostile, AbsentDaemon) {
    session.connection.socketPath = "/nonexistent/snoopd6.sock";
    EXPECT_EQ(sessionRun(&session, "dhcpv6-snooping"), Outcome::unreachable);
    EXPECT_EQ(session.error, "no answer from the daemon: is snoopd6 running? looked at /nonexistent/snoopd6.sock");
}

TEST_F(ShellHostile, FolderNameTooLongForASocket) {
    session.connection.socketPath = connectionSocketPath("/" + std::string(200, 'a'));
    EXPECT_EQ(sessionRun(&session, "dhcpv6-snooping"), Outcome::unreachable);
    EXPECT_NE(session.error.find("has 214 characters, allowed are 107"), std::string::npos) << session.error;
}

TEST_F(ShellHostile, SilentDaemonIsGivenUp) {
    // The daemon may come to the request only when the test is over already.
    const auto givenUp = std::make_shared<std::atomic<bool>>(false);
    start([givenUp](const Bytes &) {
        givenUp->wait(false);
        return Bytes();
    });
    Reply reply;
    std::string error;
    EXPECT_FALSE(connectionExchange(&session.connection, VOS_MSG_TYPE_REMOTE_CALL, fakeWords({0, 0}), 50, &reply, &error));
    EXPECT_EQ(session.connection.fd, -1);
    EXPECT_NE(error.find("has not answered within"), std::string::npos) << error;
    *givenUp = true;
    givenUp->notify_all();
}

TEST_F(ShellHostile, ConnectionClosedWithoutAnAnswer) {
    start([](const Bytes &) { return Bytes(); });
    EXPECT_EQ(sessionRun(&session, "dhcpv6-snooping"), Outcome::unreachable);
    EXPECT_NE(session.error.find("closed the connection without an answer"), std::string::npos) << session.error;
    EXPECT_EQ(fakeRequests(&daemon).size(), 1u) << "a request that was handed over must not be repeated";
}

TEST_F(ShellHostile, RestartedDaemonIsFoundAgain) {
    start(fakeSwitch);
    EXPECT_EQ(sessionRun(&session, "dhcpv6-snooping l2-relay"), Outcome::done);
    // The daemon has ended the connection between two lines.
    shutdown(session.connection.fd, SHUT_RDWR);
    EXPECT_EQ(sessionRun(&session, "undo dhcpv6-snooping l2-relay"), Outcome::done) << session.error;
    EXPECT_EQ(fakeRequests(&daemon).size(), 2u);
}

TEST_F(ShellHostile, DamagedHeaders) {
    const struct {
        const char *what;
        FakeAnswer answer;
        const char *error;
    } cases[] = {
        {"shorter than a header", [](const Bytes &r) { return cut(fakeEcho(r, 0), 23); },
         "the daemon's answer is damaged: it is only 23 bytes long"},
        {"other version", [](const Bytes &r) { return patched(fakeEcho(r, 0), 0, 0x00020001); },
         "the daemon speaks version 2 of the protocol, snoopctl version 1: install both from the same release"},
        {"other type", [](const Bytes &r) { return patched(fakeEcho(r, 0), 0, 0x00010002); },
         "the daemon's answer is damaged: its header does not fit the question"},
        {"other request", [](const Bytes &r) { return patched(fakeEcho(r, 0), 4, 77); },
         "the daemon's answer is damaged: its header does not fit the question"},
        {"payload length lies", [](const Bytes &r) { return patched(fakeEcho(r, 0), 8, 0x00090000); },
         "the daemon's answer is damaged: its header does not fit the question"},
        {"longer than any message", [](const Bytes &) { return Bytes(VOS_MSG_MAX + 1); },
         "the daemon's answer is damaged: it is 64501 bytes long"},
        {"refuses the form of the call", [](const Bytes &r) { return fakeEcho(r, -1001); },
         "the daemon does not take remote call 0 in this form: install snoopd6 and snoopctl from the same release"},
        {"payload missing", [](const Bytes &r) { return fakeReply(r, 0, {}); },
         "the daemon's answer is damaged: it does not repeat remote call 0"},
    };
    for (const auto &c : cases) {
        FakeDaemon own;
        fakeStart(&own, c.answer);
        Session other = fakeSession(own);
        EXPECT_EQ(sessionRun(&other, "dhcpv6-snooping"), Outcome::unreachable) << c.what;
        EXPECT_EQ(other.error, c.error) << c.what;
        connectionClose(&other.connection);
        fakeStop(&own);
    }
}

TEST(ShellCallDecode, OnlyTheExactCallIsTaken) {
    uint32_t number = 5;
    MacAddress mac = {1, 2, 3, 4, 5, 6};
    const CallArgument arguments[] = {callArgument(&number, sizeof number), callArgument(mac.data(), mac.size())};
    const Bytes good = callEncode(9, arguments);
    ASSERT_EQ(good.size(), 8u + 16u + 16u);
    EXPECT_TRUE(callDecode(good, 9, arguments));
    EXPECT_FALSE(callDecode(good, 8, arguments));
    EXPECT_FALSE(callDecode(good, 9, std::span(arguments).first(1)));
    for (size_t length = 0; length < good.size(); length++) {
        EXPECT_FALSE(callDecode(cut(good, length), 9, arguments)) << length;
    }
    EXPECT_FALSE(callDecode(cut(good, good.size() + 8), 9, arguments));
    for (const uint32_t lie : {0u, 1u, 3u, 0xffffffffu, 0xfffffff9u}) {
        EXPECT_FALSE(callDecode(patched(good, 4, lie), 9, arguments));
        EXPECT_FALSE(callDecode(patched(patched(good, 16, 99), 8, lie), 9, arguments));
    }
    // Wrong in the last argument: the first is untouched as well.
    EXPECT_FALSE(callDecode(patched(patched(good, 16, 99), 24, 7), 9, arguments));
    EXPECT_EQ(number, 5u);
    EXPECT_TRUE(callDecode(patched(good, 16, 99), 9, arguments));
    EXPECT_EQ(number, 99u);
}

TEST(ShellStatusPage, LyingHeadsAreRefused) {
    const LinuxStatusAsk ask = {.table = 3, .start = 4};
    std::vector<uint8_t> records;
    uint32_t next = 9;
    const auto take = [&](const Bytes &payload) { return statusPageTake(payload, ask, 8, &records, &next); };
    const auto head = [](uint32_t table, uint32_t nextPage, uint32_t count, uint32_t size, size_t body) {
        Bytes page = fakeWords({table, nextPage, count, size});
        page.resize(page.size() + body, 0xaa);
        return page;
    };
    EXPECT_FALSE(take({}));
    EXPECT_FALSE(take(cut(head(3, 0, 0, 8, 0), 15)));
    EXPECT_FALSE(take(head(2, 0, 0, 8, 0))) << "another table";
    EXPECT_FALSE(take(head(3, 0, 2, 8, 15))) << "a byte short";
    EXPECT_FALSE(take(head(3, 0, 2, 8, 17))) << "a byte long";
    EXPECT_FALSE(take(head(3, 0, 2, 4, 8))) << "records shorter than known";
    EXPECT_FALSE(take(head(3, 0, 0x20000000, 8, 0))) << "count times size is 2^32";
    EXPECT_FALSE(take(head(3, 0, 0xffffffff, 0xffffffff, 8)));
    EXPECT_FALSE(take(head(3, 4, 1, 8, 8))) << "the same page again";
    EXPECT_FALSE(take(head(3, 1, 1, 8, 8))) << "backwards";
    EXPECT_FALSE(take(head(3, 5, 0, 8, 0))) << "nothing, and more to come";
    EXPECT_TRUE(records.empty());
    EXPECT_EQ(next, 9u);
    EXPECT_TRUE(take(head(3, 0, 0, 8, 0))) << "an empty table";
    EXPECT_TRUE(take(head(3, 5, 2, 12, 24))) << "longer records of a later release";
    EXPECT_EQ(records.size(), 16u);
    EXPECT_EQ(next, 5u);
}

TEST_F(ShellHostile, ATableThatNeverEndsIsGivenUp) {
    // Every page names the next; all are full.
    start([](const Bytes &request) {
        Bytes page = fakeWords({LINUX_STATUS_MACS, fakeWord(request, sizeof(VosMsgHeader) + 4) + 1, 2600, 24});
        page.resize(page.size() + 2600 * 24);
        return fakeReply(request, 0, page);
    });
    EXPECT_EQ(sessionRun(&session, "show platform macs"), Outcome::unreachable);
    EXPECT_EQ(session.error, "the daemon's answer is damaged: platform table 3 cannot be read");
    EXPECT_EQ(fakeRequests(&daemon).size(), STATUS_RECORDS_MAX / 2600 + 1);
}

TEST_F(ShellHostile, AClientWalkThatStandsStillIsGivenUp) {
    start([](const Bytes &request) { return fakeEcho(request, 0); });
    EXPECT_EQ(sessionRun(&session, "show dhcpv6-snooping clients"), Outcome::unreachable);
    EXPECT_EQ(session.error,
              "the daemon's answer is damaged: behind client 00:00:00:00:00:00 it names 00:00:00:00:00:00 with 0 leases");
    EXPECT_EQ(fakeRequests(&daemon).size(), 1u);
}

TEST_F(ShellHostile, MoreLeasesThanAnAnswerHolds) {
    start([](const Bytes &request) {
        // Arguments: MAC at 40, then VLAN, port and count, each 8 bytes behind a head of 8.
        return patched(patched(fakeEcho(request, 0), 40, 0x02), 40 + 3 * 16, 11);
    });
    EXPECT_EQ(sessionRun(&session, "show dhcpv6-snooping clients"), Outcome::unreachable);
    EXPECT_EQ(session.error,
              "the daemon's answer is damaged: behind client 00:00:00:00:00:00 it names 02:00:00:00:00:00 with 11 leases");
}

TEST_F(ShellHostile, DebugAndSwitchAnswersOfTheWrongLength) {
    start([](const Bytes &request) { return fakeReply(request, 0, fakeWords({53})); });
    EXPECT_EQ(sessionRun(&session, "debug dhcpv6-snooping"), Outcome::unreachable);
    EXPECT_EQ(session.error, "the daemon's answer is damaged: it does not hold the debug switch");
    daemon.answer = [](const Bytes &request) { return fakeReply(request, 0, fakeWords({0, 0, 0, 64})); };
    EXPECT_EQ(sessionRun(&session, "show platform"), Outcome::unreachable);
    EXPECT_EQ(session.error, "the daemon's answer is damaged: it describes 0 switches");
}

TEST_F(ShellHostile, DebugThatStaysAsItIsCountsAsRefused) {
    start([](const Bytes &request) { return fakeReply(request, 0, fakeWords({53, 0})); });
    EXPECT_EQ(sessionRun(&session, "debug dhcpv6-snooping"), Outcome::refused);
    EXPECT_EQ(sessionRun(&session, "undo debug dhcpv6-snooping"), Outcome::done);
}

// Good answers with a few bytes changed, cut or added: every show ends, with a report or with a sentence.
TEST_F(ShellHostile, MutatedAnswers) {
    std::mt19937 random(20240601);
    start([&random](const Bytes &request) {
        Bytes answer = fakeSwitch(request);
        // The header stays whole most of the time, so that the payload is looked at.
        const size_t from = random() % 8 == 0 ? 0 : sizeof(VosMsgHeader);
        for (auto changes = random() % 4; changes > 0 && answer.size() > from; changes--) {
            answer[from + random() % (answer.size() - from)] = static_cast<uint8_t>(random());
        }
        if (random() % 16 == 0) {
            answer.resize(1 + random() % 200);
        }
        return answer;
    });
    size_t ends[4] = {};
    for (int round = 0; round < 200; round++) {
        for (const char *line :
             {"show dhcpv6-snooping", "show dhcpv6-snooping clients", "show dhcpv6-snooping interfaces",
              "show dhcpv6-snooping client 2:0:0:0:0:1", "show platform", "show platform ports", "show platform vlans",
              "show platform macs", "show platform counters", "show platform filters", "show ipv6-source-guard",
              "show ipv6-source-guard interfaces", "show ipv6-source-guard bindings", "show ipv6-source-guard vlans",
              "show dhcpv6-snooping information", "show running-config"}) {
            session.json = random() % 2 == 0;
            const Outcome outcome = sessionRun(&session, line);
            ends[static_cast<size_t>(outcome)]++;
            EXPECT_EQ(session.error.empty(), outcome == Outcome::done) << line << ": " << session.error;
            EXPECT_EQ(session.output.empty(), outcome != Outcome::done) << line;
        }
    }
    EXPECT_GT(ends[static_cast<size_t>(Outcome::done)], 100u);
    EXPECT_GT(ends[static_cast<size_t>(Outcome::unreachable)], 100u);
    EXPECT_EQ(ends[static_cast<size_t>(Outcome::usage)], 0u);
}

// Lines of words, values and rubbish in any order: each is run or refused with a sentence.
TEST_F(ShellHostile, RandomLines) {
    start(fakeSwitch);
    std::mt19937 random(7);
    std::vector<std::string> words = {"0/1",
                                      "0/29",
                                      "10",
                                      "2048",
                                      "99999999999",
                                      "2:0:0:0:0:1",
                                      "2001:db8::1",
                                      "?",
                                      "!",
                                      "\xff",
                                      std::string(1, '\0'),
                                      "\x1b[2J",
                                      "s",
                                      "d",
                                      "<port>",
                                      "<words>",
                                      "<enter>",
                                      "\"",
                                      "\"two words\"",
                                      "{hostname}",
                                      "{vlan-address:",
                                      "{"};
    for (const Command &command : commandTable()) {
        for (size_t i = 0; i < commandWordCount(command); i++) {
            words.emplace_back(commandWord(command, i));
        }
    }
    // One asks for every VLAN, one by one; the others use files of any name.
    for (const char *word : {"vlans", "save", "load"}) {
        std::erase(words, word);
    }
    words.emplace_back("1,3-5");
    for (int round = 0; round < 5000; round++) {
        std::string line;
        for (auto count = random() % 9; count > 0; count--) {
            const std::string &word = words[random() % words.size()];
            line += word.substr(0, random() % 4 == 0 ? random() % (word.size() + 1) : word.size()) +
                    (random() % 20 == 0 ? "" : " ");
        }
        const Outcome outcome = sessionRun(&session, line);
        EXPECT_EQ(session.error.empty(), outcome == Outcome::done) << line;
        EXPECT_NE(outcome, Outcome::unreachable) << line << ": " << session.error;
        for (const char c : session.error) {
            EXPECT_TRUE(c >= ' ' && c < 0x7f) << line;
        }
    }
}

} // namespace
