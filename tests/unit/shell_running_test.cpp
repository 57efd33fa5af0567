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
    ASSERT_EQ(requests.size(), 5u);                                  // two pages; options 18 and 37, exempt VLANs, bindings
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
    start([](const Bytes &request) { return fakeConfigured(request, {}); });
    EXPECT_EQ(sessionRun(&session, "show running-config"), Outcome::done) << session.error;
    EXPECT_EQ(session.output, "");
    session.json = true;
    EXPECT_EQ(sessionRun(&session, "show running-config"), Outcome::done);
    EXPECT_EQ(nlohmann::json::parse(session.output), nlohmann::json::parse(R"({"lines": []})"));
}

// What another manager put into a string is a string, and does not reach the terminal.
FakeConfig forged() {
    constexpr std::string_view string = "\x1b[2J\"\r\ndhcpv6-snooping l2-relay\r\nundo ipv6-source-guard vlan 1-4094\r\n!";
    FakeConfig config;
    config.policy.interfaceIdType = DHCP6_INFO_STRING;
    std::copy(string.begin(), string.end(), config.policy.interfaceIdValue);
    config.text = "!!!DHCPv6 snooping\r\ndhcpv6-snooping\r\ndhcpv6-snooping information interface-id string \"" +
                  std::string(string) + "\"\r\n";
    return config;
}

TEST_F(ShellRunning, AForgedStringIsOneLine) {
    start([](const Bytes &request) { return fakeConfigured(request, forged()); });
    EXPECT_EQ(sessionRun(&session, "show running-config"), Outcome::done) << session.error;
    EXPECT_EQ(session.output, "!!!DHCPv6 snooping\ndhcpv6-snooping\ndhcpv6-snooping information interface-id escaped-string "
                              "\"\\x1b[2J\\x22\\r\\ndhcpv6-snooping l2-relay\\r\\nundo ipv6-source-guard vlan "
                              "1-4094\\r\\n!\"\n");
    for (const char *line : {"show dhcpv6-snooping", "show dhcpv6-snooping information"}) {
        EXPECT_EQ(sessionRun(&session, line), Outcome::done) << session.error;
        EXPECT_NE(session.output.find("Layer 2 relay agent"), std::string::npos);
        const size_t at = session.output.find("Layer 2 relay agent") + 19;
        EXPECT_EQ(session.output.substr(session.output.find_first_not_of(' ', at), 4), "off\n") << line;
    }
}

TEST_F(ShellRunning, L2RelayIsShown) {
    for (const bool on : {false, true}) {
        FakeConfig config = forged();
        config.text.insert(config.text.find("dhcpv6-snooping information"), on ? "dhcpv6-snooping l2-relay\r\n" : "");
        FakeDaemon own;
        fakeStart(&own, [config](const Bytes &request) { return fakeConfigured(request, config); });
        Session other = fakeSession(own);
        other.json = true;
        for (const char *line : {"show dhcpv6-snooping", "show dhcpv6-snooping information"}) {
            EXPECT_EQ(sessionRun(&other, line), Outcome::done) << other.error;
            EXPECT_EQ(nlohmann::json::parse(other.output)["l2_relay"], on) << line;
        }
        connectionClose(&other.connection);
        fakeStop(&own);
    }
}

TEST_F(ShellRunning, ChangedUnderTheReadersHands) {
    uint32_t changes = 3;
    start([&changes](const Bytes &request) {
        if (fakeWord(request, 0) == 0x00018001 && fakeWord(request, HEADER) != 0 && changes > 0) {
            changes--;
            return fakeReply(request, LINUX_RESULT_CHANGED, {});
        }
        return fakeSwitch(request);
    });
    EXPECT_EQ(sessionRun(&session, "show running-config"), Outcome::done);
    EXPECT_EQ(session.output, plainConfig());
    EXPECT_EQ(fakeRequests(&daemon).size(), 8u + 3);
    changes = 1000;
    EXPECT_EQ(sessionRun(&session, "show running-config"), Outcome::unreachable);
    EXPECT_EQ(session.error, "the running configuration changed at each of 16 attempts to read it: try again when nobody else "
                             "configures");
    EXPECT_EQ(session.output, "");
    EXPECT_EQ(fakeRequests(&daemon).size(), 8u + 3 + 2 * CONFIG_ATTEMPTS);
}

// A manager who changes his string between the text and the question for the string.
TEST_F(ShellRunning, TextAndValuesMustAgree) {
    uint32_t asked = 0;
    uint32_t agreeFrom = 3;
    bool textChanges = true;
    start([&asked, &agreeFrom, &textChanges](const Bytes &request) {
        FakeConfig config = forged();
        const bool values = fakeWord(request, 0) == 0x00010001;
        asked += values && fakeWord(request, HEADER) == DH6S_FUNC_INFO_GET ? 1 : 0;
        if (asked < agreeFrom) {
            config.policy.interfaceIdValue[7] = '\0';
            config.text += textChanges && asked % 2 == 1 ? "!\r\n" : "";
        }
        return fakeConfigured(request, config);
    });
    EXPECT_EQ(sessionRun(&session, "show running-config"), Outcome::done) << session.error;
    EXPECT_EQ(asked, 3u);
    EXPECT_EQ(std::count(session.output.begin(), session.output.end(), '\n'), 3);
    agreeFrom = 1000;
    for (const char *line : {"show running-config", "save /nonexistent/x.conf"}) {
        textChanges = true;
        asked = 0;
        EXPECT_EQ(sessionRun(&session, line), Outcome::unreachable);
        EXPECT_EQ(session.error, runningConfigUnsteady());
        EXPECT_EQ(asked, CONFIG_ATTEMPTS);
        textChanges = false;
        EXPECT_EQ(sessionRun(&session, line), Outcome::unreachable);
        EXPECT_EQ(session.error, "the daemon's running configuration does not agree with its settings: install snoopd6 and "
                                 "snoopctl from the same release");
    }
}

TEST_F(ShellRunning, MoreBindingsThanCanBeListed) {
    FakeConfig config;
    config.bindings.assign(70000, fakeBinding(6, 0, 0, 0));
    start([&config](const Bytes &request) { return fakeConfigured(request, config); });
    EXPECT_EQ(sessionRun(&session, "show running-config"), Outcome::unreachable);
    EXPECT_EQ(session.error, "the daemon has more bindings than it can list, which are about 65535: take some back");
}

TEST_F(ShellRunning, ADaemonThatDoesNotTellItsSettings) {
    start(
        [](const Bytes &request) { return fakeWord(request, 0) == 0x00010001 ? fakeEcho(request, -1) : fakeSwitch(request); });
    EXPECT_EQ(sessionRun(&session, "show running-config"), Outcome::unreachable);
    EXPECT_EQ(session.error, "the daemon refused to tell its settings");
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

TEST(ShellRunningText, LinesAndHead) {
    using Lines = std::vector<std::string>;
    EXPECT_EQ(runningConfigLines(""), Lines{});
    EXPECT_EQ(runningConfigLines("a\r\n\r\nb\nc"), (Lines{"a", "", "b", "c"}));
    EXPECT_EQ(runningConfigHead(""), "");
    EXPECT_EQ(runningConfigHead("a\r\nb"), "a\r\nb");
    const std::string head = "!!!x\r\ndhcpv6-snooping\r\ninterface ethernet 0/1\r\nipv6-source-guard\r\nquit\r\n";
    for (const char *line :
         {"dhcpv6-snooping information option 18", "undo ipv6-source-guard vlan 1", "ipv6-source-guard bind ip ::"}) {
        EXPECT_EQ(runningConfigHead(head + line + "\r\ndhcpv6-snooping l2-relay\r\n"), head);
        EXPECT_EQ(runningConfigHead(line), "");
        EXPECT_EQ(runningConfigHead(std::string("! ") + line), std::string("! ") + line);
    }
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
