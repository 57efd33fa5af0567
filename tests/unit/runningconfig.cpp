#include "tests/unit/runningconfig.h"

#include <cstring>
#include <memory>

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/sourceguard/exemption.h"

void RunningConfigTest::SetUp() {
    GuardTest::SetUp();
    dhcp6SnoopingTrustPort[3] = 0;
}

void RunningConfigTest::TearDown() {
    dhcp6SnoopingOn = 0;
    dhcp6snooping_limits_init();
    GuardTest::TearDown();
}

Built built(uint32_t space, const std::string &before) {
    const size_t start = before.size();
    const std::unique_ptr<char[]> block(new char[start + std::max(space, 1u)]);
    memcpy(block.get(), before.c_str(), start + 1);
    Built answer = {.result = 99, .space = space, .text = ""};
    answer.result = BldRun_dhcp6snooping_cmd(block.get(), &answer.space, 0, 0);
    EXPECT_EQ(std::string(block.get(), start), before);
    answer.text = block.get() + start;
    return answer;
}

Built expectedOf(const Lines &pieces, uint32_t space) {
    Built answer = {.result = space == 0 ? -1 : 0, .space = space, .text = ""};
    for (const std::string &piece : pieces.empty() ? Lines{} : joined({{COMMENT}, pieces})) {
        if (answer.result != 0)
            break;
        if (answer.space > piece.size())
            answer.text += piece;
        else
            answer.result = -1;
        answer.space -= static_cast<uint32_t>(piece.size());
    }
    return answer;
}

void expectConfig(const Lines &pieces) {
    const Built got = built(ROOM);
    const Built wanted = expectedOf(pieces, ROOM);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.text, wanted.text);
    EXPECT_EQ(got.space, wanted.space);
}

std::string portBlock(uint32_t port, const std::string &lines) {
    return "interface ethernet 0/" + std::to_string(port) + "\r\n" + lines + "quit\r\n";
}

namespace {

Lines configureIds() {
    enableOptions({OPTION_18, OPTION_37});
    useString(OPTION_18, "building 7");
    TemplateWords words;
    snprintf(words.made.text, sizeof words.made.text, "%%hostname port %%portname");
    useTemplate(OPTION_37, words.made);
    return {"dhcpv6-snooping information option 18\r\n", "dhcpv6-snooping information interface-id string \"building 7\"\r\n",
            "dhcpv6-snooping information option 37\r\n",
            "dhcpv6-snooping information remote-id user-defined \"%hostname port %portname\"\r\n"};
}

// Two texts: 22 VLANs of four digits fill one.
Lines configureExemptions() {
    Lines lines = {"undo ipv6-source-guard vlan ", "undo ipv6-source-guard vlan "};
    for (uint32_t i = 0; i < 25; i++) {
        no_ip6_source_guard_vlan[1000 + 2 * i] = 1;
        lines[i < 22 ? 0 : 1] += std::to_string(1000 + 2 * i) + (i < 24 ? "," : "\r\n");
    }
    lines[0] += "\r\n";
    return lines;
}

} // namespace

Lines configureEverything() {
    dhcp6SnoopingOn = 1;
    bDhcp6SnoopingFastRemove = 0;
    dhcp6L2Relay = 1;
    dhcp6SnoopingTrustPort[0] = 1;
    guard({2});
    dhcp6SnoopingPortMaxIP[27] = 100;
    dhcp6SnoopingDhcpVlanMaxIP[10] = 7;
    dhcp6SnoopingDhcpVlanMaxIP[20] = 0;
    const Lines ids = configureIds();
    const Lines exemptions = configureExemptions();
    addBinding(A1, M1, 3, 10);
    addBinding(A2);
    return joined(
        {{"dhcpv6-snooping\r\n", "undo dhcpv6-snooping port-down-action fast-remove\r\n", "dhcpv6-snooping l2-relay\r\n",
          portBlock(1, "dhcpv6-snooping trust\r\n"), portBlock(2, "ipv6-source-guard\r\n"),
          portBlock(28, "dhcpv6-snooping max-clients 100\r\n"), "vlan 10\r\ndhcpv6-snooping max-clients 7\r\nquit\r\n",
          "vlan 20\r\ndhcpv6-snooping max-clients 0\r\nquit\r\n"},
         ids,
         exemptions,
         {"ipv6-source-guard bind ip 2001:db8::2\r\n",
          "ipv6-source-guard bind ip 2001:db8::1 mac 02:00:00:00:00:01 interface ethernet 0/3 vlan 10\r\n"}});
}
