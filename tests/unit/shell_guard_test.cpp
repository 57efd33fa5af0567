// The source guard's lines: what they send, what they make of a no, and what they show.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "shell_fake.h"

#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "platform/libvos.h"
#include "platform/linux/protocol.h"

namespace {

constexpr size_t HEADER = sizeof(VosMsgHeader);

uint32_t callOf(const Bytes &request) { return fakeWord(request, 0) == 0x00010001 ? fakeWord(request, HEADER) : 0xffffffffu; }

// The small switch, but this call is answered with this result.
FakeAnswer answering(uint32_t id, int32_t result) {
    return
        [id, result](const Bytes &request) { return callOf(request) == id ? fakeEcho(request, result) : fakeSwitch(request); };
}

Bytes bytesOf(const Ip6SourceGuardBindNode &binding) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(&binding);
    return {bytes, bytes + sizeof binding};
}

class ShellGuard : public FakeSwitchTest {
  protected:
    std::string show(const char *line, bool json = false) {
        session.json = json;
        EXPECT_EQ(sessionRun(&session, line), Outcome::done) << session.error;
        return session.output;
    }

    nlohmann::json showJson(const char *line) { return nlohmann::json::parse(show(line, true)); }

    void expectRefused(const char *line, const char *error) {
        EXPECT_EQ(sessionRun(&session, line), Outcome::refused) << line;
        EXPECT_EQ(session.error, error);
        EXPECT_EQ(session.output, "");
    }
};

// ---- settings ------------------------------------------------------------------------------------------------------

TEST_F(ShellGuard, EverySettingIsItsCall) {
    const std::string address = "100000000000000020010db8000000000000000000000005";
    const std::string noMac = "06000000000000000000000000000000";
    const std::string mac = "06000000000000000200000000050000";
    const std::string any = "04000000000000000000000000000000";
    const std::string port1 = "04000000000000000100000000000000";
    const std::string vlan10 = "04000000000000000a00000000000000";
    const std::string list = "0002000000000000";
    const std::string vlans = list + "5c" + std::string(1022, '0'); // 1, 3 to 5
    const std::string none = list + std::string(1024, '0');
    const struct {
        const char *line;
        std::string payload;
    } cases[] = {
        {"interface ethernet 0/2 ipv6-source-guard", "0400000002000000"
                                                     "04000000000000000200000000000000" +
                                                         any},
        {"interface ethernet 0/2 undo ipv6-source-guard", "0400000002000000"
                                                          "04000000000000000200000000000000" +
                                                              port1},
        {"ipv6-source-guard bind ip 2001:db8::5", "0e00000004000000" + address + noMac + any + any},
        {"ipv6-source-guard bind ip 2001:db8::5 mac 2:0:0:0:0:5", "0e00000004000000" + address + mac + any + any},
        {"ipv6-source-guard bind ip 2001:db8::5 mac 2:0:0:0:0:5 interface ethernet 0/1",
         "0e00000004000000" + address + mac + port1 + any},
        {"ipv6-source-guard bind ip 2001:db8::5 mac 02:00:00:00:00:05 interface ethernet 0/1 vlan 10",
         "0e00000004000000" + address + mac + port1 + vlan10},
        {"ipv6-source-guard bind ip 2001:db8::5 interface ethernet 0/1", "0e00000004000000" + address + noMac + port1 + any},
        {"ipv6-source-guard bind ip 2001:db8::5 interface ethernet 0/1 vlan 10",
         "0e00000004000000" + address + noMac + port1 + vlan10},
        {"undo ipv6-source-guard bind ip 2001:db8::5", "1000000001000000" + address},
        {"undo ipv6-source-guard bind all", "1100000000000000"},
        {"undo ipv6-source-guard vlan 1,3-5", "1700000003000000" + any + vlans + none},
        {"undo ipv6-source-guard vlan 1,3-5,", "1700000003000000" + any + vlans + none},
        {"ipv6-source-guard vlan 1,3-5", "1700000003000000" + port1 + vlans + none},
    };
    for (const auto &c : cases) {
        const size_t before = fakeRequests(&daemon).size();
        EXPECT_EQ(sessionRun(&session, c.line), Outcome::done) << c.line << ": " << session.error;
        EXPECT_EQ(session.output, "");
        const std::vector<Bytes> requests = fakeRequests(&daemon);
        // After a setting of a port come the two pages of the port table, and after all the question for the rules.
        const bool ofPort = std::string_view(c.line).find("ethernet") != std::string_view::npos;
        ASSERT_EQ(requests.size(), before + (ofPort ? 4 : 2)) << c.line;
        EXPECT_EQ(fakeHex(requests[before]).substr(2 * HEADER), c.payload) << c.line;
    }
}

TEST_F(ShellGuard, LinesBelongToTheirPlace) {
    EXPECT_EQ(sessionRun(&session, "ipv6-source-guard"), Outcome::usage);
    EXPECT_EQ(session.error, "\"ipv6-source-guard\" belongs to a port: say \"interface ethernet 0/N\" first");
    EXPECT_EQ(sessionRun(&session, "interface ethernet 0/1"), Outcome::done);
    EXPECT_EQ(sessionRun(&session, "undo ipv6-source-guard vlan 3"), Outcome::usage);
    EXPECT_EQ(session.error, "\"undo ipv6-source-guard vlan 3\" belongs to the top: say \"quit\" first");
    EXPECT_EQ(sessionRun(&session, "quit"), Outcome::done);
    EXPECT_EQ(sessionRun(&session, "ipv6-source-guard bind ip 2001:db8::5 vlan 10 interface ethernet 0/1"), Outcome::usage);
    EXPECT_EQ(session.error,
              "nothing may stand behind \"ipv6-source-guard bind ip 2001:db8::5 vlan 10\", but there is \"interface\"");
    EXPECT_EQ(sessionRun(&session, "undo ipv6-source-guard vlan 5-3"), Outcome::usage);
    EXPECT_EQ(session.error, "\"5-3\" is not a list of VLANs: it is written like 1,3-5, and allowed are 1 to 4094");
    EXPECT_TRUE(fakeRequests(&daemon).empty());
}

TEST_F(ShellGuard, AGuardThatIsRefusedSaysWhy) {
    daemon.answer = answering(DH6S_FUNC_SET_IP6_SOURCE_GUARD_PORT_MODE, -1);
    expectRefused(
        "interface ethernet 0/4 ipv6-source-guard",
        "port 0/4 is trusted, and a trusted port has no source guard: say \"undo dhcpv6-snooping trust\" there first");
    expectRefused("interface ethernet 0/2 ipv6-source-guard",
                  "the source guard of port 0/2 could not be changed: Operation not permitted");
    expectRefused("interface ethernet 0/9 ipv6-source-guard", "this switch has no port 0/9: its ports are 0/1-0/2, 0/4");
    daemon.answer = answering(DH6S_FUNC_SET_IP6_SOURCE_GUARD_PORT_MODE, -12);
    expectRefused("interface ethernet 0/2 ipv6-source-guard",
                  "the source guard of port 0/2 could not be changed: Cannot allocate memory");
    daemon.answer = answering(DH6S_FUNC_SET_IP6_SOURCE_GUARD_PORT_MODE, -2147483647 - 1);
    expectRefused("interface ethernet 0/2 undo ipv6-source-guard",
                  "the source guard of port 0/2 could not be changed: it answered -2147483648");
}

TEST_F(ShellGuard, OpeningAPortThatTheSwitchDoesNotHave) {
    EXPECT_EQ(show("interface ethernet 0/9 undo ipv6-source-guard"),
              "The setting is kept, but this switch has no port 0/9: its ports are 0/1-0/2, 0/4.\n");
    EXPECT_EQ(show("ipv6-source-guard bind ip 2001:db8::5 mac 2:0:0:0:0:5 interface ethernet 0/3"),
              "The setting is kept, but this switch has no port 0/3: its ports are 0/1-0/2, 0/4.\n");
}

// Somebody who means one VLAN must hear that the address is open in all of them.
TEST_F(ShellGuard, AVlanWithoutAPortIsKeptAndSaidNotToCount) {
    const auto sent = [this] { return fakeHex(fakeRequests(&daemon)[fakeRequests(&daemon).size() - 2]).substr(2 * HEADER); };
    const std::string said = "The VLAN is kept, but it counts only together with a port: 2001:db8::5 may pass in every VLAN.\n";
    EXPECT_EQ(show("ipv6-source-guard bind ip 2001:db8::5 vlan 10"), said);
    EXPECT_EQ(sent(), "0e00000004000000"
                      "100000000000000020010db8000000000000000000000005"
                      "06000000000000000000000000000000"
                      "04000000000000000000000000000000"
                      "04000000000000000a00000000000000");
    EXPECT_EQ(show("ipv6-source-guard bind ip 2001:db8::5 mac 2:0:0:0:0:5 vlan 10"), said);
    EXPECT_EQ(sent(), "0e00000004000000"
                      "100000000000000020010db8000000000000000000000005"
                      "06000000000000000200000000050000"
                      "04000000000000000000000000000000"
                      "04000000000000000a00000000000000");
    daemon.answer = answering(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_ADD, -1);
    EXPECT_EQ(sessionRun(&session, "ipv6-source-guard bind ip 2001:db8::5 vlan 10"), Outcome::refused);
    EXPECT_EQ(session.output, "");
}

TEST_F(ShellGuard, AConflictNamesTheBindingThatStandsInTheWay) {
    daemon.answer = [](const Bytes &request) {
        switch (callOf(request)) {
        case DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_ADD: return fakeEcho(request, -1);
        case DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET_BY_IP: {
            const bool bound = request[HEADER + 8 + 8 + 15] == 5;
            Bytes reply = fakeEcho(request, bound ? 0 : -1);
            fakePutArgument(&reply, 1, bytesOf(fakeBinding(5, 5, 1, 10)));
            return reply;
        }
        case DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET: {
            // The one with the MAC is the first of the second page.
            std::vector<Ip6SourceGuardBindNode> bindings(64, fakeBinding(1, 0, 0, 0));
            bindings.push_back(fakeBinding(9, 9, 0, 0));
            return fakeBindings(request, bindings);
        }
        default: return fakeSwitch(request);
        }
    };
    expectRefused("ipv6-source-guard bind ip 2001:db8::5",
                  "the address is bound already, 2001:db8::5 to MAC 02:00:00:00:00:05, port 0/1, VLAN 10: \"undo "
                  "ipv6-source-guard bind ip 2001:db8::5\" takes that back");
    expectRefused("ipv6-source-guard bind ip 2001:db8::6 mac 2:0:0:0:0:9",
                  "the MAC address is bound already, 2001:db8::9 to MAC 02:00:00:00:00:09: \"undo ipv6-source-guard bind ip "
                  "2001:db8::9\" takes that back");
    // Zero MACs never conflict, so only memory is left.
    expectRefused("ipv6-source-guard bind ip 2001:db8::6", "the daemon has no memory for another binding");
    expectRefused("ipv6-source-guard bind ip 2001:db8::6 mac 2:0:0:0:0:8", "the daemon has no memory for another binding");
}

TEST_F(ShellGuard, WhatIsBoundAlreadyIsSaidAndAnotherVlanRefused) {
    daemon.answer = [](const Bytes &request) {
        Bytes reply = fakeEcho(request, callOf(request) == DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_ADD ? 2 : 0);
        if (callOf(request) == DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET_BY_IP) {
            fakePutArgument(&reply, 1, bytesOf(fakeBinding(5, 5, 1, 10)));
        }
        return reply;
    };
    EXPECT_EQ(show("ipv6-source-guard bind ip 2001:db8::5 mac 2:0:0:0:0:5 interface ethernet 0/1 vlan 10"),
              "2001:db8::5 is bound like this already.\n");
    expectRefused("ipv6-source-guard bind ip 2001:db8::5 mac 2:0:0:0:0:5 interface ethernet 0/1 vlan 11",
                  "the address is bound already, 2001:db8::5 to MAC 02:00:00:00:00:05, port 0/1, VLAN 10: \"undo "
                  "ipv6-source-guard bind ip 2001:db8::5\" takes that back");
}

// Whoever has such a binding all the same, made by another manager, takes it back like any other.
TEST_F(ShellGuard, WhatIsNoSourceIsUnboundAndNotBound) {
    for (const char *address : {"::", "::1", "ff02::1", "::ffff:10.0.0.1"}) {
        const std::string bind = "ipv6-source-guard bind ip " + std::string(address);
        const size_t before = fakeRequests(&daemon).size();
        for (const char *rest : {"", " mac 2:0:0:0:0:5", " mac 2:0:0:0:0:5 interface ethernet 0/1 vlan 10"}) {
            EXPECT_EQ(sessionRun(&session, bind + rest), Outcome::usage) << bind << rest;
            EXPECT_EQ(session.error.rfind("\"" + std::string(address) + "\" cannot be bound: it is ", 0), 0u) << session.error;
        }
        EXPECT_EQ(fakeRequests(&daemon).size(), before) << "nothing may be sent";
        EXPECT_EQ(sessionRun(&session, "undo " + bind), Outcome::done) << session.error;
        EXPECT_EQ(callOf(fakeRequests(&daemon)[before]), DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_DELETE);
    }
}

TEST_F(ShellGuard, UnbindingWhatIsNotBound) {
    daemon.answer = answering(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_DELETE, -1);
    expectRefused("undo ipv6-source-guard bind ip 2001:db8::5",
                  "2001:db8::5 is not bound: \"show ipv6-source-guard bindings\" lists what is");
    // The number of bindings that were there is no failure.
    daemon.answer = answering(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_DELETE_ALL, 17);
    EXPECT_EQ(show("undo ipv6-source-guard bind all"), "");
}

TEST_F(ShellGuard, VlansThatFailedAreNamed) {
    daemon.answer = [](const Bytes &request) {
        Bytes reply = fakeEcho(request, -1);
        if (callOf(request) != DH6S_FUNC_IP6_SOURCE_GUARD_VLANLIST_CONFIG) {
            return fakeSwitch(request);
        }
        fakePutArgument(&reply, 2, {0x14, 0x80}); // 3, 5, 8
        return reply;
    };
    expectRefused("undo ipv6-source-guard vlan 1-9", "the kernel refused to exempt VLAN 3,5,8; the rest of the list is exempt");
    expectRefused("ipv6-source-guard vlan 1-9",
                  "the kernel refused to guard VLAN 3,5,8 again; the rest of the list is guarded");
    daemon.answer = [](const Bytes &request) { return fakeEcho(request, -1); };
    expectRefused("ipv6-source-guard vlan 1-9", "the daemon refused the list of VLANs");
}

// ---- show ----------------------------------------------------------------------------------------------------------

TEST_F(ShellGuard, ShowSummary) {
    EXPECT_EQ(show("show ipv6-source-guard"), "Guarded ports        0/1\n"
                                              "Configured bindings  3\n"
                                              "Exempt VLANs         20,30-32\n");
    EXPECT_EQ(showJson("show ipv6-source-guard"),
              nlohmann::json::parse(R"({"guarded_ports": ["0/1"], "bindings": 3, "exempt_vlans": [20, 30, 31, 32]})"));
}

TEST_F(ShellGuard, ShowInterfaces) {
    EXPECT_EQ(show("show ipv6-source-guard interfaces"),
              "PORT  GUARDED  INSTALLED  BLOCKED  BLOCKED LINK-LOCAL  BLOCKED DISCOVERY\n"
              "0/1   yes      yes             12                   3                  7\n"
              "0/2   no       no               0                   0                  0\n"
              "0/4   no       yes              0                   0                  0\n");
    EXPECT_EQ(showJson("show ipv6-source-guard interfaces")["interfaces"][0], nlohmann::json::parse(R"({"port": "0/1",
        "guarded": true, "installed": true, "blocked": 12, "blocked_link_local": 3, "blocked_discovery": 7})"));
}

TEST_F(ShellGuard, ShowVlans) {
    EXPECT_EQ(show("show ipv6-source-guard vlans"), "EXEMPT VLAN  EXISTS\n"
                                                    "         20  no\n"
                                                    "         30  no\n"
                                                    "         31  no\n"
                                                    "         32  no\n");
    daemon.answer = [](const Bytes &request) {
        return callOf(request) == DH6S_FUNC_IP6_SOURCE_GUARD_VLANLIST_GET ? fakeEcho(request, 0) : fakeSwitch(request);
    };
    EXPECT_EQ(show("show ipv6-source-guard vlans"), "No VLAN is exempt.\n");
    EXPECT_EQ(showJson("show ipv6-source-guard vlans"), nlohmann::json::parse(R"({"vlans": []})"));
    EXPECT_EQ(showJson("show ipv6-source-guard")["exempt_vlans"], nlohmann::json::array());
    EXPECT_NE(show("show ipv6-source-guard").find("Exempt VLANs         none\n"), std::string::npos);
}

TEST_F(ShellGuard, ShowBindingsConfiguredAndLearnedSideBySide) {
    EXPECT_EQ(show("show ipv6-source-guard bindings"),
              "ADDRESS          MAC ADDRESS        PORT  VLAN  SOURCE      INSTALLED\n"
              "2001:db8::5      02:00:00:00:00:05  0/1     10  configured  yes\n"
              "2001:db8::6      any                any    any  configured  no\n"
              "2001:db8::7      02:00:00:00:00:07  0/2    any  configured  not guarded\n"
              "2001:db8:1::100  02:00:00:00:00:01  0/1     10  learned     yes\n");
    const nlohmann::json rows = showJson("show ipv6-source-guard bindings")["bindings"];
    EXPECT_EQ(rows[1], nlohmann::json::parse(R"({"address": "2001:db8::6", "mac": null, "port": null, "vlan": null,
        "source": "configured", "installed": "no"})"));
    EXPECT_EQ(rows[3], nlohmann::json::parse(R"({"address": "2001:db8:1::100", "mac": "02:00:00:00:00:01", "port": "0/1",
        "vlan": 10, "source": "learned", "installed": "yes"})"));
}

// How the lease of client 02:00:00:00:00:01 stands beside one binding.
TEST_F(ShellGuard, ALearnedAddressBesideABinding) {
    Ip6SourceGuardBindNode sameAddress = fakeBinding(0, 9, 1, 0);
    sameAddress.address.bytes[5] = 1;
    sameAddress.address.bytes[14] = 1;
    Ip6SourceGuardBindNode sameFilter = sameAddress;
    sameFilter.mac[5] = 1;
    sameFilter.vlan = 10;
    const struct {
        const char *what;
        Ip6SourceGuardBindNode binding;
        bool filters; // those of the small switch are there
        uint32_t guardedPort;
        const char *installed;
    } cases[] = {
        {"no filter, nothing in the way", fakeBinding(5, 5, 1, 10), false, 1, "no"},
        {"the MAC is bound to another address", fakeBinding(5, 1, 0, 0), false, 1, "shadowed"},
        {"the address is bound", sameAddress, false, 1, "shadowed"},
        {"the address is bound, but the filter was there before", sameAddress, true, 1, "yes"},
        {"the filter is that of the binding", sameFilter, true, 1, "shadowed"},
        {"the port is not guarded", fakeBinding(5, 5, 1, 10), false, 2, "not guarded"},
    };
    for (const auto &c : cases) {
        daemon.answer = [&c](const Bytes &request) {
            const bool status = fakeWord(request, 0) == (LINUX_MSG_STATUS | 0x00010000u);
            if (status && fakeWord(request, HEADER) == LINUX_STATUS_FILTERS && !c.filters) {
                return fakeReply(request, 0, fakeWords({LINUX_STATUS_FILTERS, 0, 0, sizeof(LinuxFilterStatus)}));
            }
            if (callOf(request) == DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET) {
                return fakeBindings(request, {c.binding});
            }
            Bytes reply = fakeSwitch(request);
            if (callOf(request) == DH6S_FUNC_GET_IP6_SOURCE_GUARD_PORT_MODE) {
                fakePutArgument(&reply, 1, fakeWords({fakeWord(request, HEADER + 16) == c.guardedPort ? 0u : 1u}));
            }
            return reply;
        };
        const nlohmann::json rows = showJson("show ipv6-source-guard bindings")["bindings"];
        ASSERT_EQ(rows.size(), 2u) << c.what;
        EXPECT_EQ(rows[1]["source"], "learned") << c.what;
        EXPECT_EQ(rows[1]["installed"], c.installed) << c.what;
    }
}

TEST_F(ShellGuard, BindingsComeInPages) {
    std::vector<Ip6SourceGuardBindNode> bindings;
    for (uint8_t i = 0; i < 130; i++) {
        bindings.push_back(fakeBinding(i, 0, 0, 0));
    }
    daemon.answer = [&bindings](const Bytes &request) {
        return callOf(request) == DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET ? fakeBindings(request, bindings)
                                                                           : fakeSwitch(request);
    };
    EXPECT_EQ(showJson("show ipv6-source-guard bindings")["bindings"].size(), 131u);
    std::vector<uint32_t> starts;
    for (const Bytes &request : fakeRequests(&daemon)) {
        if (callOf(request) == DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET) {
            starts.push_back(fakeWord(request, HEADER + 16));
        }
    }
    EXPECT_EQ(starts, (std::vector<uint32_t>{1, 65, 129}));
}

TEST_F(ShellGuard, ShowFilters) {
    EXPECT_EQ(show("show platform filters"), "KIND     PORT  VLAN  MAC ADDRESS        ADDRESS          INSTALLED\n"
                                             "address  any    any  any                2001:db8::6      no\n"
                                             "vlan     0/1     10  02:00:00:00:00:05  2001:db8::5      yes\n"
                                             "vlan     0/1     10  02:00:00:00:00:01  2001:db8:1::100  yes\n");
    EXPECT_EQ(showJson("show platform filters")["filters"][0], nlohmann::json::parse(R"({"kind": "address", "port": null,
        "vlan": null, "mac": null, "address": "2001:db8::6", "installed": false})"));
}

// ---- answers that cannot be ----------------------------------------------------------------------------------------

TEST_F(ShellGuard, BindingPagesThatDoNotGoForwardAreGivenUp) {
    const struct {
        uint16_t next;
        uint16_t count;
        const char *error;
    } cases[] = {
        {1, 1, "the daemon's answer is damaged: from binding 1 it lists 1 and goes on with 1"},
        {2, 0, "the daemon's answer is damaged: from binding 1 it lists 0 and goes on with 2"},
        {66, 64, "the daemon's answer is damaged: from binding 1 it lists 64 and goes on with 66"},
        {0, 65, "the daemon's answer is damaged: from binding 1 it lists 65 and goes on with 0"},
        {0, 65535, "the daemon's answer is damaged: from binding 1 it lists 65535 and goes on with 0"},
    };
    for (const auto &c : cases) {
        daemon.answer = [&c](const Bytes &request) {
            if (callOf(request) != DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET) {
                return fakeSwitch(request);
            }
            Bytes reply = fakeEcho(request, 0);
            fakePutArgument(&reply, 1, {static_cast<uint8_t>(c.next), static_cast<uint8_t>(c.next >> 8)});
            fakePutArgument(&reply, 2, {static_cast<uint8_t>(c.count), static_cast<uint8_t>(c.count >> 8)});
            return reply;
        };
        EXPECT_EQ(sessionRun(&session, "show ipv6-source-guard bindings"), Outcome::unreachable);
        EXPECT_EQ(session.error, c.error);
    }
}

// Every page is full and names the next: 16 bits of positions end it.
TEST_F(ShellGuard, BindingsWithoutEndEnd) {
    const std::vector<Ip6SourceGuardBindNode> full(IP6_BIND_PAGE, fakeBinding(1, 0, 0, 0));
    daemon.answer = [&full](const Bytes &request) {
        if (callOf(request) != DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET) {
            return fakeSwitch(request);
        }
        const uint32_t next = fakeWord(request, HEADER + 16) + IP6_BIND_PAGE;
        Bytes first = request;
        fakePutArgument(&first, 0, fakeWords({1}));
        Bytes reply = fakeBindings(first, full);
        fakePutArgument(&reply, 1, {static_cast<uint8_t>(next), static_cast<uint8_t>(next >> 8)});
        return reply;
    };
    EXPECT_EQ(sessionRun(&session, "show ipv6-source-guard bindings"), Outcome::unreachable);
    EXPECT_EQ(session.error, "the daemon's answer is damaged: from binding 65473 it lists 64 and goes on with 1");
}

TEST_F(ShellGuard, AnAnswerThatIsCutOffIsNotARefusal) {
    daemon.answer = [](const Bytes &request) { return fakeReply(request, -1, {}); };
    for (const char *line : {"ipv6-source-guard bind ip 2001:db8::5", "undo ipv6-source-guard bind all",
                             "undo ipv6-source-guard vlan 3", "interface ethernet 0/1 ipv6-source-guard"}) {
        EXPECT_EQ(sessionRun(&session, line), Outcome::unreachable) << line;
        EXPECT_NE(session.error.find("the daemon's answer is damaged: it does not repeat remote call"), std::string::npos);
    }
}

TEST_F(ShellGuard, AnOlderDaemonHasNoGuard) {
    daemon.answer = [](const Bytes &request) {
        return fakeWord(request, 0) == (LINUX_MSG_STATUS | 0x00010000u) ? fakeReply(request, LINUX_RESULT_UNKNOWN, {})
                                                                        : fakeEcho(request, -1);
    };
    EXPECT_EQ(sessionRun(&session, "show ipv6-source-guard"), Outcome::unreachable);
    EXPECT_EQ(session.error, "the daemon has no platform table 5: install snoopd6 and snoopctl from the same release");
    expectRefused("undo ipv6-source-guard vlan 3", "the daemon refused the list of VLANs");
}

} // namespace
