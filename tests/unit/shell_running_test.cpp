// The running configuration: pages, what is shown of it, and the way back to a daemon as it starts.
#include <cstring>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "shell_fake.h"

#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "platform/libvos.h"
#include "shell/runningconfig.h"

namespace {

constexpr size_t HEADER = sizeof(VosMsgHeader);

class ShellRunning : public FakeDaemonTest {};

Bytes page(std::initializer_list<uint32_t> head, std::string_view text) {
    Bytes bytes = fakeWords(head);
    bytes.insert(bytes.end(), text.begin(), text.end());
    return bytes;
}

std::string plainConfig() {
    std::string text = FAKE_CONFIG;
    std::erase(text, '\r');
    return text;
}

TEST_F(ShellRunning, IsShownWithPlainLineEnds) {
    start(fakeSwitch);
    EXPECT_EQ(sessionRun(&session, "show running-config"), Outcome::done) << session.error;
    EXPECT_EQ(session.output, plainConfig());
    const std::vector<Bytes> requests = fakeRequests(&daemon);
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(fakeHex(std::span(requests[0]).first(4)), "01800100"); // type and version
    EXPECT_EQ(fakeHex(std::span(requests[0]).subspan(HEADER)), "0000000000000000");
    EXPECT_EQ(fakeHex(std::span(requests[1]).subspan(HEADER)), "6400000009000000");
    session.json = true;
    EXPECT_EQ(sessionRun(&session, "show running-config"), Outcome::done);
    std::string lines;
    const nlohmann::json shown = nlohmann::json::parse(session.output);
    for (const std::string line : shown["lines"]) {
        lines += line + '\n';
    }
    EXPECT_EQ(lines, plainConfig());
}

TEST_F(ShellRunning, OfADaemonAsItStartsIsEmpty) {
    start([](const Bytes &request) { return fakeReply(request, 0, fakeWords({0, 0, 1, 0})); });
    EXPECT_EQ(sessionRun(&session, "show running-config"), Outcome::done);
    EXPECT_EQ(session.output, "");
    session.json = true;
    EXPECT_EQ(sessionRun(&session, "show running-config"), Outcome::done);
    EXPECT_EQ(nlohmann::json::parse(session.output), nlohmann::json::parse(R"({"lines": []})"));
}

// What another manager put into a string must not reach the terminal.
TEST_F(ShellRunning, NothingUnprintableIsShown) {
    start([](const Bytes &request) { return fakeReply(request, 0, page({5, 0, 1, 5}, "a\x1b\r\r\n")); });
    EXPECT_EQ(sessionRun(&session, "show running-config"), Outcome::done);
    EXPECT_EQ(session.output, "a\\x1b\\x0d\n");
}

TEST_F(ShellRunning, ChangedUnderTheReadersHands) {
    uint32_t changes = 3;
    start([&changes](const Bytes &request) {
        if (fakeWord(request, HEADER) != 0 && changes > 0) {
            changes--;
            return fakeReply(request, LINUX_RESULT_CHANGED, {});
        }
        return fakeSwitch(request);
    });
    EXPECT_EQ(sessionRun(&session, "show running-config"), Outcome::done);
    EXPECT_EQ(session.output, plainConfig());
    EXPECT_EQ(fakeRequests(&daemon).size(), 8u);
    changes = 1000;
    EXPECT_EQ(sessionRun(&session, "show running-config"), Outcome::unreachable);
    EXPECT_EQ(session.error, "the running configuration changed at each of 16 attempts to read it: try again when nobody else "
                             "configures");
    EXPECT_EQ(session.output, "");
    EXPECT_EQ(fakeRequests(&daemon).size(), 8u + 2 * CONFIG_ATTEMPTS);
}

TEST_F(ShellRunning, WithoutOneNothingIsShown) {
    start([](const Bytes &request) { return fakeReply(request, LINUX_RESULT_UNKNOWN, {}); });
    EXPECT_EQ(sessionRun(&session, "show running-config"), Outcome::unreachable);
    EXPECT_EQ(session.error,
              "the daemon cannot tell its running configuration: install snoopd6 and snoopctl from the same release");
    daemon.answer = [](const Bytes &request) { return fakeReply(request, 0, fakeWords({1, 0, 1, 2})); };
    EXPECT_EQ(sessionRun(&session, "show running-config"), Outcome::unreachable);
    EXPECT_EQ(session.error, "the daemon's answer is damaged: its running configuration cannot be read");
}

TEST(ShellRunningPage, LyingHeadsAreRefused) {
    const auto taken = [](const Bytes &payload, LinuxConfigAsk ask) {
        std::string text;
        const bool good = runningConfigPageTake(payload, &ask, &text);
        EXPECT_EQ(text.empty(), !good);
        return good;
    };
    const LinuxConfigAsk first = {.offset = 0, .generation = 0};
    const LinuxConfigAsk second = {.offset = 4, .generation = 7};
    EXPECT_TRUE(taken(page({8, 4, 7, 4}, "abcd"), first));
    EXPECT_TRUE(taken(page({8, 0, 7, 4}, "efgh"), second));
    EXPECT_TRUE(taken(page({8, 6, 7, 2}, "ef"), second));
    EXPECT_FALSE(taken(page({8, 4, 7}, ""), first)) << "no whole head";
    EXPECT_FALSE(taken(page({8, 4, 7, 5}, "abcd"), first)) << "a byte short";
    EXPECT_FALSE(taken(page({8, 4, 7, 3}, "abcd"), first)) << "a byte long";
    EXPECT_FALSE(taken(page({8, 0, 7, 4}, "abcd"), first)) << "the last page, and not all of it";
    EXPECT_FALSE(taken(page({8, 5, 7, 4}, "abcd"), first)) << "a gap";
    EXPECT_FALSE(taken(page({8, 3, 7, 4}, "abcd"), first)) << "the same again";
    EXPECT_FALSE(taken(page({8, 4, 7, 0}, ""), second)) << "nothing, and more to come";
    EXPECT_FALSE(taken(page({8, 0, 8, 4}, "efgh"), second)) << "a page of another text";
    EXPECT_FALSE(taken(page({7, 0, 7, 4}, "efgh"), second)) << "more than there is";
    EXPECT_FALSE(taken(page({3, 0, 7, 0}, ""), second)) << "behind the end";
    EXPECT_FALSE(taken(page({CONFIG_MAX + 1, 4, 7, 4}, "abcd"), first)) << "longer than any";
    EXPECT_FALSE(taken(page({0xffffffff, 0, 7, 4}, "efgh"), {.offset = 0xfffffffb, .generation = 7}));
}

TEST(ShellRunningReplay, BindingsComeOldestFirst) {
    using Lines = std::vector<std::string>;
    EXPECT_EQ(runningConfigForReplay({}), Lines{});
    EXPECT_EQ(runningConfigForReplay({"a", "b"}), (Lines{"a", "b"}));
    EXPECT_EQ(runningConfigForReplay({"ipv6-source-guard bind ip 2001:db8::2", "ipv6-source-guard bind ip 2001:db8::1"}),
              (Lines{"ipv6-source-guard bind ip 2001:db8::1", "ipv6-source-guard bind ip 2001:db8::2"}));
    EXPECT_EQ(runningConfigForReplay({"a", "ipv6-source-guard", "ipv6-source-guard bind ip 2001:db8::3",
                                      "ipv6-source-guard bind ip 2001:db8::2", "ipv6-source-guard bind ip 2001:db8::1"}),
              (Lines{"a", "ipv6-source-guard", "ipv6-source-guard bind ip 2001:db8::1", "ipv6-source-guard bind ip 2001:db8::2",
                     "ipv6-source-guard bind ip 2001:db8::3"}));
}

// Every setting has a call that takes it back; ports that the switch does not have are not asked for.
TEST_F(ShellRunning, UndoAllIsTheOrdinaryCalls) {
    start(fakeSwitch);
    EXPECT_EQ(sessionRun(&session, "undo all"), Outcome::done) << session.error;
    EXPECT_EQ(session.output, "");
    std::vector<std::string> calls;
    for (const Bytes &request : fakeRequests(&daemon)) {
        if (fakeWord(request, 0) == 0x00010001) {
            calls.push_back(fakeHex(std::span(request).subspan(HEADER)));
        }
    }
    std::vector<std::string> expected;
    for (const char *number : {"01", "02", "04"}) {
        for (const auto &[id, value] :
             {std::pair{"02", "0000000000000000"}, std::pair{"04", "0100000000000000"}, std::pair{"06", "0008000000000000"}}) {
            expected.push_back(std::string(id) + "000000" + "02000000" + "0400000000000000" + number + "00000000000000" +
                               "0400000000000000" + value);
        }
    }
    ASSERT_GT(calls.size(), expected.size());
    EXPECT_EQ(std::vector(calls.begin(), calls.begin() + 9), expected);
    const std::string all = "7f" + std::string(1020, 'f') + "fe"; // VLAN 1 to 4094
    EXPECT_EQ(calls[9], "1100000000000000");
    EXPECT_EQ(calls[10].substr(0, 64 + 1024), "170000000300000004000000000000000100000000000000"
                                              "0002000000000000" +
                                                  all);
    EXPECT_EQ(calls[11], "0100000000000000");
    EXPECT_EQ(calls[12], "220000000100000004000000000000000100000000000000");
    EXPECT_EQ(calls[13], "230000000100000004000000000000000000000000000000");
    EXPECT_EQ(calls[14], "1e0000000100000004000000000000000000000000000000");
    EXPECT_EQ(calls[15], "1f0000000100000004000000000000000000000000000000");
    EXPECT_EQ(calls[16].substr(0, 80), "20000000030000000400000000000000010000000000000004000000000000000300000000000000");
    EXPECT_EQ(calls[17].substr(0, 80), "20000000030000000400000000000000000000000000000004000000000000000300000000000000");
    EXPECT_EQ(calls[18], "080000000200000004000000000000000008000000000000"
                         "0002000000000000" +
                             all);
    EXPECT_EQ(calls.size(), 19u);
}

TEST_F(ShellRunning, UndoAllSaysWhereItStopped) {
    start([](const Bytes &request) {
        const bool relay = fakeWord(request, 0) == 0x00010001 && fakeWord(request, HEADER) == DH6S_FUNC_L2RELAY_ENABLE;
        return relay ? fakeEcho(request, -1) : fakeSwitch(request);
    });
    EXPECT_EQ(sessionRun(&session, "undo all"), Outcome::refused);
    EXPECT_EQ(session.error, "stopped at \"undo dhcpv6-snooping l2-relay\": the daemon refused to change l2-relay");
    EXPECT_EQ(session.place.kind, PLACE_TOP);
}

} // namespace
