// The lines of options 18 and 37: what they send, what they refuse, and what is shown.
#include <algorithm>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "shell_fake.h"

#include "l2/dhcp6snooping/infoopt/policy.h"
#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "platform/libvos.h"

namespace {

class ShellInformation : public FakeSwitchTest {
  protected:
    // What a line sends, behind the header.
    Bytes sent(const std::string &line) {
        EXPECT_EQ(sessionRun(&session, line), Outcome::done) << line << ": " << session.error;
        EXPECT_EQ(session.output, "");
        const Bytes request = fakeRequests(&daemon).back();
        return {request.begin() + sizeof(VosMsgHeader), request.end()};
    }

    void expectUsage(const std::string &line, const std::string &error) {
        const size_t before = fakeRequests(&daemon).size();
        EXPECT_EQ(sessionRun(&session, line), Outcome::usage) << line;
        EXPECT_EQ(session.error, error);
        EXPECT_EQ(session.output, "");
        EXPECT_EQ(fakeRequests(&daemon).size(), before) << "nothing may be sent";
    }

    std::string show(bool json = false) {
        session.json = json;
        EXPECT_EQ(sessionRun(&session, "show dhcpv6-snooping information"), Outcome::done) << session.error;
        return session.output;
    }
};

// Remote call 32 with `which`, `type` and a value, up to the value's bytes.
std::string idCall(const char *which, const char *type, const char *length) {
    return "20000000030000000400000000000000" + std::string(which) + "000000000000000400000000000000" + type +
           "00000000000000" + length + "00000000";
}

TEST_F(ShellInformation, EveryLineIsItsCall) {
    const struct {
        const char *line;
        std::string payload;
    } cases[] = {
        {"dhcpv6-snooping information option 18", "1e0000000100000004000000000000000100000000000000"},
        {"undo dhcpv6-snooping information option 18", "1e0000000100000004000000000000000000000000000000"},
        {"dhcpv6-snooping information option 37", "1f0000000100000004000000000000000100000000000000"},
        {"undo dhcpv6-snooping information option 37", "1f0000000100000004000000000000000000000000000000"},
        {"dhcpv6-snooping information interface-id ipv4-address 10.0.0.1", idCall("01", "01", "04000000") + "0a00000100000000"},
        {"dhcpv6-snooping information remote-id ipv4-address 10.0.0.1", idCall("00", "01", "04000000") + "0a00000100000000"},
        {"dhcpv6-snooping information interface-id ipv6-address 2001:db8::1",
         idCall("01", "02", "10000000") + "20010db8000000000000000000000001"},
        {"dhcpv6-snooping information remote-id ipv6-address 2001:db8::1",
         idCall("00", "02", "10000000") + "20010db8000000000000000000000001"},
        {"undo dhcpv6-snooping information interface-id", idCall("01", "03", "04000000") + "0000000000000000"},
        {"undo dhcpv6-snooping information remote-id", idCall("00", "03", "04000000") + "0000000000000000"},
        {"dhcpv6-snooping information interface-id string \"some text\"", idCall("01", "04", "0a000000") +
                                                                              "736f6d6520746578740000000000"
                                                                              "0000"},
        {"dhcpv6-snooping information remote-id string a\\n", idCall("00", "04", "04000000") + "615c6e0000000000"},
        {"dhcpv6-snooping information remote-id string \"a\\\"", idCall("00", "04", "03000000") + "615c000000000000"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(fakeHex(sent(c.line)), c.payload) << c.line;
    }
}

TEST_F(ShellInformation, ATemplateGoesOutWhole) {
    const Bytes payload = sent("dhcpv6-snooping information interface-id user-defined \"{hostname}/{vlan-address:10} x\"");
    ASSERT_EQ(payload.size(), 48u + 1968u);
    EXPECT_EQ(fakeHex(std::span(payload).first(48)), idCall("01", "05", "b0070000"));
    Bytes record(1968);
    const auto put = [&record](size_t at, std::string_view text) {
        std::copy(text.begin(), text.end(), record.begin() + static_cast<long>(at));
    };
    put(0, "{hostname}/{vlan-address:10} x");
    put(129 + 65, "/");
    put(129 + 2 * 65, " x");
    record[1300 + 4] = 2;
    record[1300 + 8] = 13;
    put(1372 + 2 * 33, "10");
    EXPECT_EQ(fakeHex(std::span(payload).subspan(48)), fakeHex(record));
}

TEST_F(ShellInformation, AStringMayHave79Bytes) {
    const Bytes payload = sent("dhcpv6-snooping information remote-id string " + std::string(79, 'x'));
    EXPECT_EQ(fakeHex(payload), idCall("00", "04", "50000000") + fakeHex(Bytes(79, 'x')) + "00");
    expectUsage("dhcpv6-snooping information remote-id string " + std::string(80, 'x'),
                "the string \"" + std::string(64, 'x') + "...\" has 80 bytes: allowed are 1 to 79");
    expectUsage("dhcpv6-snooping information remote-id string \"\"", "the string \"\" has 0 bytes: allowed are 1 to 79");
}

TEST_F(ShellInformation, WrongLines) {
    const std::string head = "dhcpv6-snooping information ";
    expectUsage(head + "option 19", "\"19\" is not known behind \"dhcpv6-snooping information option\": allowed are 18 and 37");
    expectUsage(head + "remote-id", "the line is not complete: \"dhcpv6-snooping information remote-id\" wants ipv4-address, "
                                    "ipv6-address, string, user-defined, escaped-string or escaped-user-defined behind it");
    expectUsage(head + "remote-id string", "the line is not complete: \"dhcpv6-snooping information remote-id string\" wants "
                                           "TEXT behind it");
    expectUsage(head + "remote-id ipv4-address 10.0.0",
                "\"10.0.0\" is not an IPv4 address: it is written like 10.0.0.1, as four numbers from 0 to 255");
    expectUsage(head + "remote-id ipv6-address 10.0.0.1",
                "\"10.0.0.1\" is not an IPv6 address: it is written like 2001:db8::1, without a prefix length");
    expectUsage(head + "remote-id string \"two words", "the double quote in front of \"two words\" is never closed");
    expectUsage(head + "remote-id string \"say \"hi\"\"", "a blank must stand behind the double quote that closes \"say \": "
                                                          "there are no double quotes inside a text");
    expectUsage(head + "remote-id string a\"b", "the string cannot be kept with the double quote at column 2: allowed are "
                                                "printable characters other than double quotes");
    expectUsage(head + "remote-id string \"a\tb\"", "the string cannot be kept with \"\\x09\" at column 2: allowed are "
                                                    "printable characters other than double quotes");
    expectUsage(head + "remote-id user-defined {hostname", "\"{hostname\" at column 1 of the template is not closed with a }: "
                                                           "nearest is {hostname}; a { that shall stand for itself is "
                                                           "written {{");
}

TEST_F(ShellInformation, ARefusalSaysWhereToLook) {
    daemon.answer = [](const Bytes &request) { return fakeEcho(request, -1); };
    const struct {
        const char *line;
        const char *error;
    } cases[] = {
        {"dhcpv6-snooping information option 18", "the daemon refused to turn option 18 on"},
        {"undo dhcpv6-snooping information option 37", "the daemon refused to turn option 37 off"},
        {"undo dhcpv6-snooping information remote-id",
         "the daemon refused this remote-id: \"show dhcpv6-snooping information\" says what it has now"},
        {"dhcpv6-snooping information interface-id string x",
         "the daemon refused this interface-id: \"show dhcpv6-snooping information\" says what it has now"},
        {"show dhcpv6-snooping information", "the daemon refused to tell about options 18 and 37"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(sessionRun(&session, c.line), Outcome::refused) << c.line;
        EXPECT_EQ(session.error, c.error);
    }
}

TEST_F(ShellInformation, HelpListsTheElementsInsideAndOutsideOfThem) {
    EXPECT_EQ(sessionHelp(&session, "dh inf int user "), Outcome::done);
    EXPECT_EQ(session.output.rfind("  TEMPLATE           text with elements like {hostname} in it, in double quotes when there "
                                   "are blanks\n  {switch-address}   IPv4 address",
                                   0),
              0u)
        << session.output;
    EXPECT_EQ(std::count(session.output.begin(), session.output.end(), '\n'), 18);
    const std::string all = session.output;
    EXPECT_EQ(sessionRun(&session, "dh inf int user ?"), Outcome::done);
    EXPECT_EQ(session.output, all);
    EXPECT_EQ(sessionHelp(&session, "dh inf int user \"a b"), Outcome::done);
    EXPECT_EQ(session.output, all);
    EXPECT_EQ(sessionHelp(&session, "dh inf int user \"a {sys"), Outcome::done);
    EXPECT_EQ(session.output, "  {system-mac}  MAC address of the switch, 12 lower-case digits\n");
    EXPECT_EQ(sessionRun(&session, "dh inf int user {sys?"), Outcome::done) << "a pipe has no keys";
    EXPECT_EQ(session.output, "  {system-mac}  MAC address of the switch, 12 lower-case digits\n");
    EXPECT_EQ(sessionHelp(&session, "dh inf int user {vlan-address:1"), Outcome::done);
    EXPECT_EQ(session.output, "  {vlan-address:10}  IPv4 address of the switch in that VLAN, 8 hexadecimal digits\n");
    EXPECT_EQ(sessionHelp(&session, "dh inf int user {zz"), Outcome::usage);
    EXPECT_EQ(session.error, "nothing that starts with \"{zz\" may stand here");
    EXPECT_EQ(sessionHelp(&session, "dh inf int user \"a\""), Outcome::done);
    EXPECT_EQ(session.output, "  <enter>  option 18 holds a text that is made for each message\n");
    EXPECT_EQ(sessionHelp(&session, "dh inf int user \"a\"b"), Outcome::usage);
    EXPECT_EQ(session.error, "a blank must stand behind the double quote that closes \"a\": there are no double quotes inside "
                             "a text");
    EXPECT_TRUE(fakeRequests(&daemon).empty());
}

TEST_F(ShellInformation, Show) {
    EXPECT_EQ(show(), "Layer 2 relay agent                  on\n"
                      "If a message has the option already  replace\n"
                      "\n"
                      "OPTION  NAME          ADDED  KIND          CONTENT\n"
                      "    18  interface-id  on     user-defined  {hostname}/{port}\n"
                      "    37  remote-id     off    string        two words\n");
    EXPECT_EQ(nlohmann::json::parse(show(true)), nlohmann::json::parse(R"({"l2_relay": true, "strategy": "replace", "options": [
        {"option": 18, "name": "interface-id", "enabled": true, "kind": "user-defined", "content": "{hostname}/{port}"},
        {"option": 37, "name": "remote-id", "enabled": false, "kind": "string", "content": "two words"}]})"));
}

TEST_F(ShellInformation, ShowWhateverTheRecordHolds) {
    const struct {
        uint32_t strategy;
        uint32_t type;
        bool held; // a template
        const char *shown;
    } cases[] = {
        {1, DHCP6_INFO_IPV4, true, R"(["drop", true, "ipv4-address", "65.66.67.68"])"},
        {2, DHCP6_INFO_IPV6, false, R"(["keep", true, "ipv6-address", "4142:4344:4142:4344:4142:4344:4142:4344"])"},
        {3, DHCP6_INFO_DEFAULT, false, R"(["replace", true, "default", null])"},
        {4, DHCP6_INFO_USER_DEFINED, false, R"(["4", true, "user-defined", null])"},
        {0, 4294967295, true, R"(["0", true, "4294967295", null])"},
    };
    for (const auto &c : cases) {
        daemon.answer = [&c](const Bytes &request) {
            if (fakeWord(request, 0) != 0x00010001) {
                return fakeSwitch(request);
            }
            Bytes policy(sizeof(Dhcp6InfoOptionPolicy));
            policy[0] = static_cast<uint8_t>(c.strategy);
            policy[offsetof(Dhcp6InfoOptionPolicy, option37Enable)] = 1;
            std::memcpy(policy.data() + offsetof(Dhcp6InfoOptionPolicy, remoteIdType), &c.type, sizeof c.type);
            for (size_t i = 0; i < DHCP6_INFO_VALUE; i++) {
                policy[offsetof(Dhcp6InfoOptionPolicy, remoteIdValue) + i] = static_cast<uint8_t>('A' + i % 4);
            }
            policy[offsetof(Dhcp6InfoOptionPolicy, remoteIdTemplate)] = c.held ? 8 : 0;
            policy[offsetof(Dhcp6InfoOptionPolicy, option18Enable)] = 2; // on is 1 and nothing else
            Bytes reply = fakeEcho(request, 0);
            fakePutArgument(&reply, 0, policy);
            return reply;
        };
        const nlohmann::json shown = nlohmann::json::parse(show(true));
        const nlohmann::json option = shown["options"][1];
        EXPECT_EQ(nlohmann::json::array({shown["strategy"], option["enabled"], option["kind"], option["content"]}),
                  nlohmann::json::parse(c.shown));
        EXPECT_EQ(shown["options"][0]["enabled"], false);
    }
}

// Neither field need be terminated, nor hold what a terminal may see.
TEST_F(ShellInformation, ShowTextsOfAnotherManager) {
    daemon.answer = [](const Bytes &request) {
        if (fakeWord(request, 0) != 0x00010001) {
            return fakeSwitch(request);
        }
        Bytes policy(sizeof(Dhcp6InfoOptionPolicy));
        policy[offsetof(Dhcp6InfoOptionPolicy, remoteIdType)] = DHCP6_INFO_STRING;
        std::fill_n(policy.begin() + offsetof(Dhcp6InfoOptionPolicy, remoteIdValue), DHCP6_INFO_VALUE, '\x1b');
        policy[offsetof(Dhcp6InfoOptionPolicy, interfaceIdType)] = DHCP6_INFO_USER_DEFINED;
        policy[offsetof(Dhcp6InfoOptionPolicy, interfaceIdTemplate)] = 8;
        Bytes reply = fakeEcho(request, 0);
        fakePutArgument(&reply, 0, policy);
        fakePutArgument(&reply, 1, Bytes(sizeof(Dhcp6InfoIdTemplate), 'x'));
        return reply;
    };
    std::string escapes;
    for (uint32_t i = 0; i < DHCP6_INFO_VALUE; i++) {
        escapes += "\\x1b";
    }
    EXPECT_NE(show().find("string        " + escapes + "\n"), std::string::npos) << session.output;
    EXPECT_NE(session.output.find("user-defined  " + std::string(129, 'x') + "\n"), std::string::npos) << session.output;
}

} // namespace
