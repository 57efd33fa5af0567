// What every line sends to the daemon, byte for byte, and what it makes of the answers.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "shell_fake.h"

#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "platform/libvos.h"

namespace {

class ShellCommands : public FakeDaemonTest {
  protected:
    std::string show(const char *line, bool json = false) {
        session.json = json;
        EXPECT_EQ(sessionRun(&session, line), Outcome::done) << session.error;
        return session.output;
    }
};

// The small switch with a full table of clients on port 0/1 in VLAN 10, and no server that answers them.
Bytes unacknowledged(const Bytes &request) {
    const bool call = fakeWord(request, 0) == 0x00010001;
    const uint32_t id = call ? fakeWord(request, sizeof(VosMsgHeader)) : 0;
    Bytes reply = fakeEcho(request, call && id == DH6S_FUNC_GET_NEXTCLIENTS_EXT ? -1 : 0);
    if (call && id == DH6S_FUNC_PORT_INFO_GET) {
        const bool first = fakeWord(request, sizeof(VosMsgHeader) + 16) == 1;
        fakePutArgument(&reply, 1, fakeWords({0, first ? 2048u : 100u, first ? 2048u : 0u}));
    } else if (call && id == DH6S_FUNC_VLAN_MAXCLIENTS_GET) {
        const bool tenth = fakeWord(request, sizeof(VosMsgHeader) + 16) == 10;
        fakePutArgument(&reply, 1, fakeWords({tenth ? 2040u : 2048u}));
        fakePutArgument(&reply, 2, fakeWords({tenth ? 2048u : 0u}));
    } else if (!call) {
        return fakeSwitch(request);
    }
    return reply;
}

// Header: type 1, version 1, request 1, flags 0, payload length, result 0, reserved 0. Call: identifier, number of arguments,
// then length, 0 and bytes of each, padded to 8.
TEST_F(ShellCommands, TrustIsThisMessage) {
    start(fakeSwitch);
    EXPECT_EQ(sessionRun(&session, "interface ethernet 0/4 dhcpv6-snooping trust"), Outcome::done);
    ASSERT_FALSE(fakeRequests(&daemon).empty());
    EXPECT_EQ(fakeHex(fakeRequests(&daemon)[0]), "0100"
                                                 "0100"
                                                 "01000000"
                                                 "0000"
                                                 "2800"
                                                 "00000000"
                                                 "0000000000000000"
                                                 "02000000"
                                                 "02000000"
                                                 "04000000"
                                                 "00000000"
                                                 "0400000000000000"
                                                 "04000000"
                                                 "00000000"
                                                 "0100000000000000");
}

TEST_F(ShellCommands, EverySettingIsItsCall) {
    start(fakeSwitch);
    const std::string vlan10 = "0020" + std::string(1020, '0');
    const std::string vlan4094 = std::string(1022, '0') + "02";
    const struct {
        const char *line;
        std::string payload; // behind the header
    } cases[] = {
        {"dhcpv6-snooping", "0000000000000000"},
        {"undo dhcpv6-snooping", "0100000000000000"},
        {"dhcpv6-snooping port-down-action fast-remove", "220000000100000004000000000000000100000000000000"},
        {"undo dhcpv6-snooping port-down-action fast-remove", "220000000100000004000000000000000000000000000000"},
        {"dhcpv6-snooping l2-relay", "230000000100000004000000000000000100000000000000"},
        {"undo dhcpv6-snooping l2-relay", "230000000100000004000000000000000000000000000000"},
        {"interface ethernet 0/2 undo dhcpv6-snooping trust", "02000000020000000400000000000000"
                                                              "020000000000000004000000000000000000000000000000"},
        {"interface ethernet 0/1 dhcpv6-snooping max-clients 0", "06000000020000000400000000000000"
                                                                 "010000000000000004000000000000000000000000000000"},
        {"interface ethernet 0/1 undo dhcpv6-snooping max-clients", "06000000020000000400000000000000"
                                                                    "010000000000000004000000000000000008000000000000"},
        {"vlan 10 dhcpv6-snooping max-clients 5", "0800000002000000040000000000000005000000000000000002000000000000" + vlan10},
        {"vlan 4094 undo dhcpv6-snooping max-clients",
         "0800000002000000040000000000000000080000000000000002000000000000" + vlan4094},
        {"clear dhcpv6-snooping clients all", "1d00000000000000"},
        {"clear dhcpv6-snooping clients interface ethernet 0/2", "190000000100000004000000000000000200000000000000"},
        {"clear dhcpv6-snooping clients ip 2001:db8::1", "1a00000001000000100000000000000020010db8000000000000000000000001"},
        {"clear dhcpv6-snooping clients mac 02:00:5e:10:00:01", "1b00000001000000060000000000000002005e1000010000"},
        {"clear dhcpv6-snooping clients vlan 300", "1c0000000100000004000000000000002c01000000000000"},
        {"debug dhcpv6-snooping", "3500000001000000"},
        {"undo debug dhcpv6-snooping", "3500000000000000"},
    };
    for (const auto &c : cases) {
        const size_t before = fakeRequests(&daemon).size();
        EXPECT_EQ(sessionRun(&session, c.line), Outcome::done) << c.line << ": " << session.error;
        EXPECT_EQ(session.output, "");
        const std::vector<Bytes> requests = fakeRequests(&daemon);
        // After a setting of a port come the two pages of the port table, after snooping the question whether its rules are there.
        const bool ofPort = std::string_view(c.line).starts_with("interface");
        const bool ofRules =
            std::string_view(c.line).ends_with("dhcpv6-snooping") && c.payload.size() == 16 && c.payload[1] < '2';
        ASSERT_EQ(requests.size(), before + (ofPort ? 3 : ofRules ? 2 : 1)) << c.line;
        EXPECT_EQ(fakeHex(requests[before]).substr(48), c.payload) << c.line;
    }
}

TEST_F(ShellCommands, SettingsOfPortsThatTheSwitchDoesNotHave) {
    start(fakeSwitch);
    EXPECT_EQ(sessionRun(&session, "interface ethernet 0/9 dhcpv6-snooping trust"), Outcome::done);
    EXPECT_EQ(session.output, "The setting is kept, but this switch has no port 0/9: its ports are 0/1-0/2, 0/4.\n");
    EXPECT_EQ(sessionRun(&session, "interface ethernet 0/3 dhcpv6-snooping max-clients 1"), Outcome::done);
    EXPECT_NE(session.output, "");
    EXPECT_EQ(sessionRun(&session, "interface ethernet 0/4 dhcpv6-snooping max-clients 1"), Outcome::done);
    EXPECT_EQ(session.output, "");
    // A platform that cannot be asked does not turn a success into a failure.
    daemon.answer = [](const Bytes &request) {
        return fakeWord(request, 0) == 0x00010001 ? fakeSwitch(request) : fakeEcho(request, -2);
    };
    EXPECT_EQ(sessionRun(&session, "interface ethernet 0/9 dhcpv6-snooping trust"), Outcome::done);
    EXPECT_EQ(session.output + session.error, "");
}

TEST_F(ShellCommands, WrongValuesAreNotSent) {
    start(fakeSwitch);
    EXPECT_EQ(sessionRun(&session, "vlan 10 dhcpv6-snooping max-clients 2049"), Outcome::usage);
    EXPECT_EQ(sessionRun(&session, "show dhcpv6-snooping client 0:0:0:0:0:0"), Outcome::usage);
    EXPECT_EQ(sessionRun(&session, std::string(1025, 'x')), Outcome::usage);
    EXPECT_EQ(session.error, "the line is too long: it has 1025 characters, allowed are 1024");
    EXPECT_TRUE(fakeRequests(&daemon).empty());
}

TEST_F(ShellCommands, RefusalsNameTheValueAndWhatIsAllowed) {
    start([](const Bytes &request) { return fakeEcho(request, -1); });
    const struct {
        const char *line;
        const char *error;
    } cases[] = {
        {"dhcpv6-snooping", "the daemon could not turn DHCPv6 snooping on: its log says why"},
        {"interface ethernet 0/4 dhcpv6-snooping trust",
         "the daemon refused 0/4 as a trusted port: allowed are 0/1 to 0/28, and only a port without IPv6 source guard can be "
         "trusted"},
        {"interface ethernet 0/4 dhcpv6-snooping max-clients 7",
         "the daemon refused 7 as the most clients of port 0/4: allowed are 0 to 2048"},
        {"vlan 10 dhcpv6-snooping max-clients 7", "the daemon refused 7 as the most clients of VLAN 10: allowed are 0 to 2048"},
        {"clear dhcpv6-snooping clients mac 2:0:0:0:0:1", "the daemon refused to clear client 02:00:00:00:00:01"},
        {"show dhcpv6-snooping client 2:0:0:0:0:1", "no client 02:00:00:00:00:01 has been learned"},
        {"debug dhcpv6-snooping", "the daemon refused to turn its debug lines on"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(sessionRun(&session, c.line), Outcome::refused) << c.line;
        EXPECT_EQ(session.error, c.error);
        EXPECT_EQ(session.output, "");
    }
}

TEST_F(ShellCommands, PlacesAreEnteredAndLeft) {
    start(fakeSwitch);
    EXPECT_EQ(sessionPrompt(session), "snoopd6> ");
    EXPECT_EQ(sessionRun(&session, "interface ethernet 0/1"), Outcome::done);
    EXPECT_EQ(sessionPrompt(session), "snoopd6(0/1)> ");
    EXPECT_EQ(sessionRun(&session, "vlan 10 dhcpv6-snooping max-clients 1"), Outcome::done);
    EXPECT_EQ(sessionPrompt(session), "snoopd6(0/1)> ");
    EXPECT_EQ(sessionRun(&session, "vlan 10"), Outcome::done);
    EXPECT_EQ(sessionPrompt(session), "snoopd6(vlan10)> ");
    EXPECT_EQ(sessionRun(&session, "quit"), Outcome::done);
    EXPECT_FALSE(session.ended);
    EXPECT_EQ(sessionPrompt(session), "snoopd6> ");
    EXPECT_EQ(sessionRun(&session, "quit"), Outcome::done);
    EXPECT_TRUE(session.ended);
}

TEST_F(ShellCommands, ShowClients) {
    start(fakeSwitch);
    EXPECT_EQ(show("show dhcpv6-snooping clients"), "Acknowledged by a server  2\n"
                                                    "Pending, without a REPLY  0\n"
                                                    "Room for more             2046\n"
                                                    "\n"
                                                    "MAC ADDRESS        VLAN  PORT  KIND     ADDRESS OR PREFIX   REMAINING\n"
                                                    "02:00:00:00:00:01    10  0/1   address  2001:db8:1::100     1h59m\n"
                                                    "                               prefix   2001:db8:8000::/56  45s\n"
                                                    "02:00:00:00:00:0a     1  0/2   -        -                   -\n");
    EXPECT_EQ(nlohmann::json::parse(show("show dhcpv6-snooping clients", true)), nlohmann::json::parse(R"({
        "acknowledged": 2, "pending": 0, "room": 2046, "clients": [
        {"mac": "02:00:00:00:00:01", "vlan": 10, "port": "0/1", "leases": [
            {"kind": "address", "address": "2001:db8:1::100", "remaining_seconds": 7140},
            {"kind": "prefix", "address": "2001:db8:8000::/56", "remaining_seconds": 45}]},
        {"mac": "02:00:00:00:00:0a", "vlan": 1, "port": "0/2", "leases": []}]})"));
}

TEST_F(ShellCommands, ShowOneClientAsksForTheOneBehindItsPredecessor) {
    start(fakeSwitch);
    EXPECT_EQ(show("show dhcpv6-snooping client 02:00:00:00:00:01"), "MAC address  02:00:00:00:00:01\n"
                                                                     "VLAN         10\n"
                                                                     "Port         0/1\n"
                                                                     "\n"
                                                                     "KIND     ADDRESS OR PREFIX   REMAINING\n"
                                                                     "address  2001:db8:1::100     1h59m\n"
                                                                     "prefix   2001:db8:8000::/56  45s\n");
    EXPECT_EQ(fakeHex(fakeRequests(&daemon)[0]).substr(48, 48), "09000000060000000600000000000000"
                                                                "0200000000000000");
    EXPECT_EQ(sessionRun(&session, "show dhcpv6-snooping client 02:00:00:00:01:00"), Outcome::refused);
    EXPECT_EQ(session.error, "no client 02:00:00:00:01:00 has been learned");
    EXPECT_EQ(fakeHex(fakeRequests(&daemon)[1]).substr(80, 16), "0200000000ff0000");
    EXPECT_EQ(sessionRun(&session, "show dhcpv6-snooping client 02:00:00:00:00:02"), Outcome::refused);
    EXPECT_EQ(session.error, "no client 02:00:00:00:00:02 has been learned");
}

TEST_F(ShellCommands, ShowSnooping) {
    start(fakeSwitch);
    EXPECT_EQ(show("show dhcpv6-snooping"), "DHCPv6 snooping           on\n"
                                            "Fast remove on link down  off\n"
                                            "Layer 2 relay agent       on\n"
                                            "Trusted ports             0/4\n"
                                            "Clients                   2\n"
                                            "Room for clients          2048\n"
                                            "Debug lines in the log    on\n"
                                            "Bridge                    br0\n"
                                            "Filter rules loaded       yes\n"
                                            "Running for               1h2m\n");
    EXPECT_EQ(nlohmann::json::parse(show("show dhcpv6-snooping", true)), nlohmann::json::parse(R"({"snooping": true,
        "fast_remove": false, "l2_relay": true,
        "trusted_ports": ["0/4"], "clients": 2, "clients_max": 2048, "debug": true, "bridge": "br0",
        "filter_rules": true, "uptime_seconds": 3725})"));
}

TEST_F(ShellCommands, ShowInterfacesReadsBothPages) {
    start(fakeSwitch);
    EXPECT_EQ(show("show dhcpv6-snooping interfaces"),
              "PORT  INTERFACE  LINK     TRUSTED  MAX CLIENTS  CLIENTS  PENDING  ROOM\n"
              "0/1   p1         up       no               100        1        0    99\n"
              "0/2   p2         missing  no              2048        1        0  2047\n"
              "0/4   p4         up       yes             2048        0        0  2048\n");
    EXPECT_EQ(nlohmann::json::parse(show("show dhcpv6-snooping interfaces", true))["interfaces"][2],
              nlohmann::json::parse(R"({"port":"0/4","interface":"p4","link":"up","trusted":true,"max_clients":2048,"clients":0,
        "pending":0,"room":2048})"));
}

TEST_F(ShellCommands, ShowVlansListsThoseThatExistOrDiffer) {
    start(fakeSwitch);
    EXPECT_EQ(show("show dhcpv6-snooping vlans"), "VLAN  EXISTS  MAX CLIENTS  CLIENTS  PENDING  ROOM\n"
                                                  "   1  yes            2048        1        0  2047\n"
                                                  "  10  yes            2048        1        0  2047\n"
                                                  "  20  no                5        0        0     5\n");
    EXPECT_EQ(fakeRequests(&daemon).size(), 1u + 3u + 4094u) << "VLANs, clients, and each VLAN's limit";
}

TEST_F(ShellCommands, ShowPlatform) {
    start(fakeSwitch);
    EXPECT_EQ(show("show platform"), "snoopd6                 0.1.0\n"
                                     "Process                 4711\n"
                                     "Running for             1h2m\n"
                                     "Bridge                  br0\n"
                                     "MAC address             02:00:00:00:00:ff\n"
                                     "Highest port            0/4\n"
                                     "VLAN filtering          on\n"
                                     "DHCPv6 snooping         on\n"
                                     "DHCPv6 is forwarded by  snoopd6\n"
                                     "Filter rules loaded     yes\n"
                                     "Not in the switch file  eth7\n"
                                     "Startup file            closed\n"
                                     "Startup failure         /nonexistent/startup.conf is empty\n"
                                     "On startup failure      closed\n"
                                     "Dropped since           17\n");
    const nlohmann::json platform = nlohmann::json::parse(show("show platform", true));
    EXPECT_EQ(platform["startup"], "closed");
    EXPECT_EQ(platform["startup_reason"], "/nonexistent/startup.conf is empty");
    EXPECT_EQ(platform["on_startup_failure"], "closed");
    EXPECT_EQ(platform["startup_dropped"], 17);
    EXPECT_EQ(platform["unlisted_interfaces"], nlohmann::json({"eth7"}));
    EXPECT_EQ(show("show platform ports"), "PORT  INTERFACE  TYPE      IFINDEX  LINK  FORWARDING  NATIVE VLAN  TRUNK\n"
                                           "0/1   p1         ethernet        3  up    yes                  10      -\n"
                                           "0/2   p2         xpon            -  down  no                    -      -\n"
                                           "0/4   p4         ethernet        5  up    yes                   1      7\n");
    EXPECT_EQ(show("show platform vlans"), "VLAN  MEMBERS       UNTAGGED\n"
                                           "   1  0/1-0/2, 0/4  0/1-0/2, 0/4\n"
                                           "  10  0/1-0/4       none\n");
    EXPECT_EQ(show("show platform macs"), "VLAN  MAC ADDRESS        PORT  TRUNK  OWN\n"
                                          "  10  02:00:00:00:00:01  0/1       -  no\n"
                                          "   -  02:00:00:00:00:02  -         7  yes\n");
    const nlohmann::json counters = nlohmann::json::parse(show("show platform counters", true))["counters"][0];
    EXPECT_EQ(counters["kernel_dropped"], 18446744073709551615u);
    EXPECT_EQ(counters["received"], 1);
    EXPECT_EQ(counters.size(), 14u);
}

TEST_F(ShellCommands, AnEmptyClientTableSaysSoInWords) {
    start(unacknowledged);
    EXPECT_EQ(show("show dhcpv6-snooping clients"), "Acknowledged by a server  0\n"
                                                    "Pending, without a REPLY  2048\n"
                                                    "Room for more             0\n"
                                                    "\n"
                                                    "No server has acknowledged a client.\n");
    EXPECT_EQ(nlohmann::json::parse(show("show dhcpv6-snooping clients", true)),
              nlohmann::json::parse(R"({"acknowledged":0,"pending":2048,"room":0,"clients":[]})"));
}

TEST_F(ShellCommands, PendingClientsAreCountedWithTheirPortAndVlan) {
    start(unacknowledged);
    EXPECT_EQ(show("show dhcpv6-snooping interfaces"),
              "PORT  INTERFACE  LINK     TRUSTED  MAX CLIENTS  CLIENTS  PENDING  ROOM\n"
              "0/1   p1         up       no              2048     2048     2048     0\n"
              "0/2   p2         missing  no               100        0        0   100\n"
              "0/4   p4         up       no               100        0        0   100\n");
    EXPECT_EQ(show("show dhcpv6-snooping vlans"), "VLAN  EXISTS  MAX CLIENTS  CLIENTS  PENDING  ROOM\n"
                                                  "   1  yes            2048        0        0  2048\n"
                                                  "  10  yes            2040     2048     2048     0\n");
}

// ---- Rules that the kernel has lost --------------------------------------------------------------------------------

TEST_F(ShellCommands, SettingsThatNeedTheRulesSayWhenTheseAreGone) {
    start(fakeWithoutRules);
    for (const char *line : {"dhcpv6-snooping", "undo dhcpv6-snooping", "interface ethernet 0/1 ipv6-source-guard",
                             "interface ethernet 0/1 undo ipv6-source-guard", "ipv6-source-guard bind ip 2001:db8::9",
                             "undo ipv6-source-guard bind ip 2001:db8::9", "undo ipv6-source-guard bind all",
                             "ipv6-source-guard vlan 10", "undo ipv6-source-guard vlan 10"}) {
        EXPECT_EQ(sessionRun(&session, line), Outcome::refused) << line;
        EXPECT_EQ(session.error,
                  "the setting is made, but the kernel has lost the daemon's filter rules, or some of them: ports may be open, "
                  "and DHCPv6 may pass; restart snoopd6 to load them again");
    }
    for (const char *line : {"dhcpv6-snooping l2-relay", "interface ethernet 0/4 dhcpv6-snooping trust", "show platform"}) {
        EXPECT_EQ(sessionRun(&session, line), Outcome::done) << line;
        EXPECT_EQ(session.error, "");
    }
}

TEST_F(ShellCommands, UndoAllGoesToItsEndWithoutTheRules) {
    start(fakeWithoutRules);
    EXPECT_EQ(sessionRun(&session, "undo all"), Outcome::refused);
    EXPECT_EQ(session.error.rfind("the setting is made, but", 0), 0u) << session.error;
    const std::vector<Bytes> requests = fakeRequests(&daemon);
    ASSERT_GT(requests.size(), 2u);
    EXPECT_EQ(fakeWord(requests[requests.size() - 2], sizeof(VosMsgHeader)), uint32_t{DH6S_FUNC_VLANLIST_MAX_CLIENTS_SET});
    EXPECT_EQ(fakeSwitchQuestions(&daemon), 1u);
}

// Every table and every fact: what stands in the text stands in the JSON and the other way round.
TEST_F(ShellCommands, TextAndJsonHoldTheSameNumberOfRowsAndFacts) {
    start(fakeSwitch);
    for (const char *line :
         {"show dhcpv6-snooping interfaces", "show dhcpv6-snooping vlans", "show platform ports", "show platform vlans",
          "show platform macs", "show platform counters", "show platform filters", "show ipv6-source-guard interfaces",
          "show ipv6-source-guard bindings", "show ipv6-source-guard vlans"}) {
        const std::string text = show(line);
        const nlohmann::json json = nlohmann::json::parse(show(line, true));
        ASSERT_EQ(json.size(), 1u) << line;
        EXPECT_EQ(static_cast<size_t>(std::count(text.begin(), text.end(), '\n')), json.begin()->size() + 1) << line;
    }
    for (const char *line : {"show dhcpv6-snooping", "show platform", "show ipv6-source-guard"}) {
        const std::string text = show(line);
        EXPECT_EQ(static_cast<size_t>(std::count(text.begin(), text.end(), '\n')),
                  nlohmann::json::parse(show(line, true)).size())
            << line;
    }
}

TEST_F(ShellCommands, HelpIsForThePlace) {
    EXPECT_EQ(sessionRun(&session, "interface ethernet 0/1 dhcpv6-snooping ?"), Outcome::done);
    EXPECT_EQ(session.output, "  trust        servers live behind this port: trust their messages\n"
                              "  max-clients  the most clients that this port may have\n");
    EXPECT_EQ(sessionRun(&session, "vlan 10 dhcpv6-snooping max-clients ?"), Outcome::done);
    EXPECT_EQ(session.output, "  0-2048  a number of clients\n");
    EXPECT_EQ(sessionRun(&session, "help un deb"), Outcome::done);
    EXPECT_EQ(session.output, "Commands here:\n"
                              "  undo debug dhcpv6-snooping  stop those lines\n"
                              "Words may be shortened while they stay unique; ? shows what may come next.\n");
    EXPECT_EQ(sessionRun(&session, "help nothing"), Outcome::usage);
    EXPECT_EQ(sessionRun(&session, "show zz?"), Outcome::usage);
    EXPECT_EQ(session.error, "nothing that starts with \"zz\" may stand here");
}

} // namespace
