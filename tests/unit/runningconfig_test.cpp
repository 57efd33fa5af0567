// The running configuration: which settings make which lines, in which order.

#include <cstring>

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/main/Dhcp6Snooping.h"
#include "l2/dhcp6snooping/sourceguard/exemption.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "platform/libcommon.h"
#include "tests/unit/runningconfig.h"

namespace {

TEST_F(RunningConfigTest, DefaultsHaveNoLine) {
    expectConfig({});
    EXPECT_EQ(built(1), (Built{0, 1, ""})) << "the smallest space will do";
}

TEST_F(RunningConfigTest, EverythingInOrder) {
    const Lines pieces = configureEverything();
    expectConfig(pieces);
    expectConfig(pieces);
}

TEST_F(RunningConfigTest, AFreshStartIsAllDefaults) {
    configureEverything();
    dhcp6SnoopingOn = 0;
    bDhcp6SnoopingFastRemove = 1;
    dhcp6L2Relay = 0;
    resetInfoPolicy();
    memset(no_ip6_source_guard_vlan, 0, sizeof no_ip6_source_guard_vlan);
    ip6_source_guard_bind_node_delete_all();
    dhcp6snooping_init();
    expectConfig({});
}

// ---- Switches -----------------------------------------------------------------------------------------------------------

TEST_F(RunningConfigTest, Switches) {
    for (const uint32_t on : {1u, 2u, 0x80000000u}) {
        dhcp6SnoopingOn = on;
        expectConfig({"dhcpv6-snooping\r\n"});
        dhcp6SnoopingOn = 0;
        dhcp6L2Relay = on;
        expectConfig({"dhcpv6-snooping l2-relay\r\n"});
        dhcp6L2Relay = 0;
        bDhcp6SnoopingFastRemove = on;
        expectConfig({});
    }
    bDhcp6SnoopingFastRemove = 0;
    expectConfig({"undo dhcpv6-snooping port-down-action fast-remove\r\n"});
}

// ---- Ports and VLANs ----------------------------------------------------------------------------------------------------

TEST_F(RunningConfigTest, EveryMixtureOfAPort) {
    for (const bool trusted : {false, true})
        for (const bool guarded : {false, true})
            for (const bool limited : {false, true}) {
                dhcp6SnoopingTrustPort[6] = trusted ? 1 : 0;
                Ip6SourceGuardPort[6] = guarded ? 0 : 1;
                dhcp6SnoopingPortMaxIP[6] = limited ? 100 : 2048;
                const std::string lines = std::string(trusted ? "dhcpv6-snooping trust\r\n" : "") +
                                          (guarded ? "ipv6-source-guard\r\n" : "") +
                                          (limited ? "dhcpv6-snooping max-clients 100\r\n" : "");
                expectConfig(lines.empty() ? Lines{} : Lines{portBlock(7, lines)});
            }
}

TEST_F(RunningConfigTest, OnlyOneIsTrustedAndOnlyZeroIsGuarded) {
    for (const uint32_t value : {2u, 256u, 0xFFFFFFFFu}) {
        dhcp6SnoopingTrustPort[0] = value;
        Ip6SourceGuardPort[0] = value;
        expectConfig({});
        guard({1});
        expectConfig({portBlock(1, "ipv6-source-guard\r\n")});
    }
}

TEST_F(RunningConfigTest, LimitsAreUnsigned) {
    for (const uint16_t limit : {uint16_t{0}, uint16_t{1}, uint16_t{2047}, uint16_t{2049}, uint16_t{0xFFFF}}) {
        const std::string line = "dhcpv6-snooping max-clients " + std::to_string(limit) + "\r\n";
        dhcp6SnoopingPortMaxIP[27] = limit;
        dhcp6SnoopingDhcpVlanMaxIP[20] = limit;
        expectConfig({portBlock(28, line), "vlan 20\r\n" + line + "quit\r\n"});
    }
}

TEST_F(RunningConfigTest, PortsInAscendingOrder) {
    Lines pieces;
    for (uint32_t port = 1; port <= 28; port++) {
        dhcp6SnoopingPortMaxIP[port - 1] = static_cast<uint16_t>(port);
        pieces.push_back(portBlock(port, "dhcpv6-snooping max-clients " + std::to_string(port) + "\r\n"));
    }
    expectConfig(pieces);
    recordingFailFunction("smdVDPortExistAndType", 3); // port 3 is not there
    pieces.erase(pieces.begin() + 2);
    expectConfig(pieces);
    recordingFailAlways("smdVDPortExistAndType");
    expectConfig({});
}

TEST_F(RunningConfigTest, PortsOfTheDevice) {
    guard({1, 5, 6, 28});
    const Lines all = {portBlock(1, "ipv6-source-guard\r\n"), portBlock(5, "ipv6-source-guard\r\n"),
                       portBlock(6, "ipv6-source-guard\r\n"), portBlock(28, "ipv6-source-guard\r\n")};
    for (const uint32_t most : {28u, 29u, 64u, 0xFFFFFFFFu}) { // there are tables for 28
        gul_max_port_num = most;
        expectConfig(all);
    }
    gul_max_port_num = 5;
    const uint32_t asked = recordingCount("smdVDPortExistAndType");
    expectConfig({all[0], all[1]});
    EXPECT_EQ(recordingCount("smdVDPortExistAndType") - asked, 5u);
    gul_max_port_num = 0;
    expectConfig({});
}

TEST_F(RunningConfigTest, APortIsCalledWhatThePlatformCallsIt) {
    guard({1});
    recordingPortText(1, "%s%n/1");
    expectConfig({"interface ethernet %s%n/1\r\nipv6-source-guard\r\nquit\r\n"});
    recordingOddities.textsUnending = true;
    expectConfig({std::string(255, 'x') + "\r\nipv6-source-guard\r\nquit\r\n"});
}

TEST_F(RunningConfigTest, VlansThatExistFromFirstToLast) {
    for (const uint32_t vlan : {0u, 1u, 2u, 4094u, 4095u})
        dhcp6SnoopingDhcpVlanMaxIP[vlan] = 3;
    recordingVlan(4094, {1});
    expectConfig(
        {"vlan 1\r\ndhcpv6-snooping max-clients 3\r\nquit\r\n", "vlan 4094\r\ndhcpv6-snooping max-clients 3\r\nquit\r\n"});
    EXPECT_EQ(recordingCount("vlan_exist"), 3u) << "0 and 4095 are no VLANs, the others are at their default";
}

// ---- Options 18 and 37 --------------------------------------------------------------------------------------------------

// The two options have fields of their own and the same lines.
struct Id {
    std::string name;
    uint32_t *enable;
    uint32_t *type;
    uint8_t *value;
    Dhcp6InfoIdTemplate **held;
    uint8_t code;
};
const Id IDS[] = {{"interface-id", &dhcp6InfoOptionPolicy.option18Enable, &dhcp6InfoOptionPolicy.interfaceIdType,
                   dhcp6InfoOptionPolicy.interfaceIdValue, &dhcp6InfoOptionPolicy.interfaceIdTemplate, OPTION_18},
                  {"remote-id", &dhcp6InfoOptionPolicy.option37Enable, &dhcp6InfoOptionPolicy.remoteIdType,
                   dhcp6InfoOptionPolicy.remoteIdValue, &dhcp6InfoOptionPolicy.remoteIdTemplate, OPTION_37}};

std::string idLine(const Id &id, const std::string &rest) {
    return "dhcpv6-snooping information " + id.name + " " + rest + "\r\n";
}

TEST_F(RunningConfigTest, AnIdIsToldWhetherItsOptionIsOnOrNot) {
    for (const Id &id : IDS) {
        resetInfoPolicy();
        useString(id.code, "here");
        expectConfig({idLine(id, "string \"here\"")});
        for (const uint32_t on : {1u, 2u, 0xFFFFFFFFu}) {
            *id.enable = on;
            expectConfig(
                {"dhcpv6-snooping information option " + std::to_string(id.code) + "\r\n", idLine(id, "string \"here\"")});
        }
    }
}

TEST_F(RunningConfigTest, AddressesOfAnId) {
    for (const Id &id : IDS) {
        resetInfoPolicy();
        *id.type = 1;
        memcpy(id.value, "\xC0\x00\x02\xFF", 4);
        expectConfig({idLine(id, "ipv4-address 192.0.2.255")});
        *id.type = 2;
        memcpy(id.value, addressBytes("2001:db8::ff00:1").data(), 16);
        expectConfig({idLine(id, "ipv6-address 2001:db8::ff00:1")});
        recordingFailAlways("vosInetNtop");
        expectConfig({idLine(id, "ipv6-address ")});
        recordingFailNone();
        recordingShowQuiet(true);
        recordingTake();
        built(ROOM);
        const Lines calls = recordingTake();
        recordingShowQuiet(false);
        EXPECT_NE(std::find(calls.begin(), calls.end(), "vosInetNtop family=10 limit=47"), calls.end());
    }
}

TEST_F(RunningConfigTest, StringsAsTheyAreHeld) {
    for (const Id &id : IDS) {
        resetInfoPolicy();
        *id.type = 4;
        for (const std::string text :
             {"", "a", "two words", "say \"hello\"\r\nundo ipv6-source-guard", "100% %s%n%d", "\\\\"}) {
            snprintf(reinterpret_cast<char *>(id.value), 80, "%s", text.c_str());
            expectConfig({idLine(id, "string \"" + text + "\"")});
        }
        memset(id.value, 'Z', 80); // and no end
        expectConfig({idLine(id, "string \"" + std::string(80, 'Z') + "\"")});
    }
}

TEST_F(RunningConfigTest, TemplatesAsTheyWereTyped) {
    for (const Id &id : IDS) {
        resetInfoPolicy();
        TemplateWords words;
        words.literal("not this").element(DHCP6_INFO_HOST_NAME);
        snprintf(words.made.text, sizeof words.made.text, "%%hostname \"%%s%%n\"");
        useTemplate(id.code, words.made);
        expectConfig({idLine(id, "user-defined \"%hostname \"%s%n\"\"")});
        memset((*id.held)->text, 'Z', 129); // and no end
        expectConfig({idLine(id, "user-defined \"" + std::string(129, 'Z') + "\"")});
    }
}

TEST_F(RunningConfigTest, IdsWithoutALine) {
    for (const Id &id : IDS) {
        resetInfoPolicy();
        memset(id.value, 'Z', 80);
        for (const uint32_t type : {0u, 3u, 5u, 6u, 0x80000004u, 0xFFFFFFFFu}) { // 5 without a template
            *id.type = type;
            expectConfig({});
        }
        useTemplate(id.code, templateOfLength(3));
        *id.type = 3; // a template that is not in force
        expectConfig({});
    }
}

// ---- Source guard -------------------------------------------------------------------------------------------------------

TEST_F(RunningConfigTest, ExemptVlansFromFirstToLast) {
    for (const uint32_t vlan : {0u, 1u, 2u, 3u, 17u, 4093u, 4094u, 4095u})
        no_ip6_source_guard_vlan[vlan] = vlan == 17 ? 0x80000000u : 1; // anything but 0
    expectConfig({"undo ipv6-source-guard vlan 1-3,17,4093-4094\r\n"});
    recordingShowQuiet(true);
    recordingTake();
    built(ROOM);
    const Lines calls = recordingTake();
    recordingShowQuiet(false);
    EXPECT_NE(std::find(calls.begin(), calls.end(), "vidArray2vlanList count=6 first=1 last=4094 end=0 chunk=110 zero=0"),
              calls.end());
}

TEST_F(RunningConfigTest, EveryVlanExempt) {
    for (uint32_t &exempt : no_ip6_source_guard_vlan)
        exempt = 1;
    expectConfig({"undo ipv6-source-guard vlan 1-4094\r\n"});
}

TEST_F(RunningConfigTest, LongListsBecomeManyLines) {
    const std::string start = "undo ipv6-source-guard vlan ";
    for (uint32_t vlan = 1; vlan <= 4094; vlan += 2)
        no_ip6_source_guard_vlan[vlan] = 1;
    std::string text = built(ROOM).text.substr(COMMENT.size());
    std::string list;
    uint32_t lines = 0;
    for (size_t end = 0; (end = text.find("\r\n")) != std::string::npos; text = text.substr(end + 2)) {
        ASSERT_EQ(text.substr(0, start.size()), start);
        ASSERT_LE(end - start.size(), 110u);
        list += text.substr(start.size(), end - start.size());
        lines++;
    }
    EXPECT_EQ(text, "");
    EXPECT_GT(lines, 80u);
    std::vector<uint16_t> vlans(4094);
    ASSERT_EQ(Str2ShortArray(list.c_str(), vlans.data(), 4094, 1, 4094), 0);
    for (uint32_t i = 0; i < 4094; i++)
        ASSERT_EQ(vlans[i], i < 2047 ? 2 * i + 1 : 0);
}

TEST_F(RunningConfigTest, MoreListsThanThereCanBe) {
    no_ip6_source_guard_vlan[5] = 1;
    addBinding(A1);
    const Lines bound = {"ipv6-source-guard bind ip 2001:db8::1\r\n"};
    const Lines empty(3, "undo ipv6-source-guard vlan \r\n");
    recordingOddities.vlanTexts = 4; // three of them were not written
    expectConfig(joined({{"undo ipv6-source-guard vlan 5\r\n"}, empty, bound}));
    recordingOddities.textsUnending = true;
    for (const uint32_t count : {410u, 411u, 0x80000000u, 0xFFFFFFFFu}) {
        recordingOddities.vlanTexts = count;
        expectConfig(joined({Lines(410, "undo ipv6-source-guard vlan " + std::string(128, '7') + "\r\n"), bound}));
    }
}

TEST_F(RunningConfigTest, WithoutMemoryOnlyTheExemptionsAreLeftOut) {
    guard({1});
    no_ip6_source_guard_vlan[5] = 1;
    addBinding(A1);
    recordingAllocationsBegin(1);
    const Built got = built(ROOM);
    EXPECT_EQ(recordingAllocationsEnd(), 1u);
    EXPECT_EQ(got, expectedOf({portBlock(1, "ipv6-source-guard\r\n"), "ipv6-source-guard bind ip 2001:db8::1\r\n"}, ROOM));
}

TEST_F(RunningConfigTest, WithoutExemptVlansNobodyIsAsked) {
    addBinding(A1);
    recordingOddities.vlanTexts = 7;
    expectConfig({"ipv6-source-guard bind ip 2001:db8::1\r\n"});
}

TEST_F(RunningConfigTest, EveryMixtureOfABinding) {
    const std::string bare = "ipv6-source-guard bind ip 2001:db8::1";
    for (const uint32_t port : {0u, 3u})
        for (const std::string &mac : {NO_MAC, M1})
            for (const uint32_t vlan : {0u, 10u}) {
                addBinding(A1, mac, port, vlan);
                std::string line = bare;
                if (mac != NO_MAC)
                    line += " mac " + mac;
                if (mac != NO_MAC && port != 0)
                    line += " interface ethernet 0/3";
                if (mac != NO_MAC && port != 0 && vlan != 0)
                    line += " vlan 10";
                expectConfig({line + "\r\n"});
                ip6_source_guard_bind_node_delete_all();
            }
}

TEST_F(RunningConfigTest, AnyByteMakesAMac) {
    for (const std::string mac : {"00:00:00:00:00:01", "00:00:00:00:01:00", "01:00:00:00:00:00"}) {
        addBinding(A1, mac);
        expectConfig({"ipv6-source-guard bind ip 2001:db8::1 mac " + mac + "\r\n"});
        ip6_source_guard_bind_node_delete_all();
    }
}

TEST_F(RunningConfigTest, BindingsNewestFirst) {
    addBinding(A1);
    addBinding(A2, M2);
    addBinding(A3, M3, 28, 4094);
    expectConfig({"ipv6-source-guard bind ip 2001:db8::3 mac 02:00:00:00:00:03 interface ethernet 0/28 vlan 4094\r\n",
                  "ipv6-source-guard bind ip 2001:db8::2 mac 02:00:00:00:00:02\r\n",
                  "ipv6-source-guard bind ip 2001:db8::1\r\n"});
}

TEST_F(RunningConfigTest, BindingsOfPlacesThatDoNotExist) {
    addBinding(A1, M1, 0xFFFFFFFF, 4000000000);
    expectConfig({"ipv6-source-guard bind ip 2001:db8::1 mac 02:00:00:00:00:01 interface ethernet  vlan 4000000000\r\n"});
    recordingFailAlways("vosInetNtop");
    expectConfig({"ipv6-source-guard bind ip  mac 02:00:00:00:00:01 interface ethernet  vlan 4000000000\r\n"});
    recordingFailNone();
    const std::string text(255, 'x');
    recordingOddities.textsUnending = true;
    expectConfig(
        {"ipv6-source-guard bind ip 2001:db8::1 mac " + text + " interface ethernet " + text + " vlan 4000000000\r\n"});
}

} // namespace
