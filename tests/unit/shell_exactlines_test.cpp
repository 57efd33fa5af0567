// The line of one setting: exact, or none and a reason.
#include <cstring>
#include <gtest/gtest.h>

#include "shell_configmodel.h"

#include "shell/exactlines.h"

namespace {

const InformationOption DEFAULT = modelOption(DHCP6_INFO_DEFAULT, "");

Binding bindingOf(const char *address, MacAddress mac, uint32_t port, uint32_t vlan) {
    return {.address = modelAddress(address), .mac = mac, .port = port, .vlan = vlan};
}

TEST(ShellExactLines, EveryKindOfBinding) {
    const MacAddress mac = {2, 0, 0, 0, 0, 5};
    const std::pair<Binding, const char *> cases[] = {
        {bindingOf("2001:db8::5", {}, 0, 0), ""},
        {bindingOf("2001:db8::5", {}, 0, 10), " vlan 10"},
        {bindingOf("2001:db8::5", {}, 1, 0), " interface ethernet 0/1"},
        {bindingOf("2001:db8::5", {}, 28, 4094), " interface ethernet 0/28 vlan 4094"},
        {bindingOf("2001:db8::5", mac, 0, 0), " mac 02:00:00:00:00:05"},
        {bindingOf("2001:db8::5", mac, 0, 10), " mac 02:00:00:00:00:05 vlan 10"},
        {bindingOf("2001:db8::5", mac, 1, 0), " mac 02:00:00:00:00:05 interface ethernet 0/1"},
        {bindingOf("2001:db8::5", mac, 1, 10), " mac 02:00:00:00:00:05 interface ethernet 0/1 vlan 10"},
    };
    for (const auto &[binding, rest] : cases) {
        const ExactLine exact = exactBinding(binding);
        EXPECT_EQ(exact.line, "ipv6-source-guard bind ip 2001:db8::5" + std::string(rest));
        EXPECT_EQ(exact.reason, "");
    }
}

TEST(ShellExactLines, BindingsThatNoLineMakes) {
    const MacAddress mac = {2, 0, 0, 0, 0, 5};
    const std::pair<Binding, const char *> cases[] = {
        {bindingOf("2001:db8::5", {}, 29, 0),
         "2001:db8::5 to any MAC, port 0/29 has no line, because \"0/29\" is not a port: allowed are 0/1 to 0/28"},
        {bindingOf("2001:db8::5", mac, 4294967295, 0), "2001:db8::5 to MAC 02:00:00:00:00:05, port 0/4294967295 has no line, "
                                                       "because \"0/4294967295\" is not a port: allowed are 0/1 to 0/28"},
        {bindingOf("2001:db8::5", {}, 1, 4095),
         "2001:db8::5 to any MAC, port 0/1, VLAN 4095 has no line, because \"4095\" is not a VLAN: allowed are 1 to 4094"},
        {bindingOf("2001:db8::5", {}, 0, 4095),
         "2001:db8::5 to any MAC, VLAN 4095 has no line, because \"4095\" is not a VLAN: allowed are 1 to 4094"},
        {bindingOf("::", {}, 0, 0),
         ":: to any MAC has no line, because \"::\" cannot be bound: it is the unspecified address, which names no host"},
        {bindingOf("ff02::1", mac, 1, 10),
         "ff02::1 to MAC 02:00:00:00:00:05, port 0/1, VLAN 10 has no line, because \"ff02::1\" "
         "cannot be bound: it is a multicast address, which names receivers and no sender"},
    };
    for (const auto &[binding, what] : cases) {
        const ExactLine exact = exactBinding(binding);
        EXPECT_EQ(exact.line, "");
        EXPECT_EQ(exact.reason, "the binding of " + std::string(what) + "; \"undo ipv6-source-guard bind ip " +
                                    textIpv6(binding.address, 128) + "\" takes it back");
    }
}

std::string lineOf(const InformationOption &option) { return exactInformation("remote-id", option).line; }

TEST(ShellExactLines, IdsAreWrittenAsEverWhereThatSuffices) {
    const std::string setting = "dhcpv6-snooping information remote-id ";
    EXPECT_EQ(lineOf(DEFAULT), "");
    EXPECT_EQ(exactInformation("remote-id", DEFAULT).reason, "");
    EXPECT_EQ(lineOf(modelOption(DHCP6_INFO_IPV4, "\x0a\x01\x02\x03")), setting + "ipv4-address 10.1.2.3");
    EXPECT_EQ(lineOf(modelOption(DHCP6_INFO_STRING, "C:\\new {port} ! # ?")), setting + "string \"C:\\new {port} ! # ?\"");
    EXPECT_EQ(lineOf(modelOption(DHCP6_INFO_STRING, "\xc3\xbc")), setting + "string \"\xc3\xbc\"");
    EXPECT_EQ(lineOf(modelOption(DHCP6_INFO_STRING, "\\x41")), setting + "string \"\\x41\"");
    EXPECT_EQ(lineOf(modelOption(DHCP6_INFO_STRING, "A\"\\x41")), setting + "escaped-string \"A\\x22\\\\x41\"");
    EXPECT_EQ(lineOf(modelOption(DHCP6_INFO_STRING, "\xff")), setting + "escaped-string \"\\xff\"");
    EXPECT_EQ(lineOf(modelOption(DHCP6_INFO_STRING, "")), setting + "escaped-string \"\"");
    EXPECT_EQ(lineOf(modelOption(DHCP6_INFO_STRING, " ")), setting + "string \" \"");
    EXPECT_EQ(lineOf(modelTemplate("{hostname}\\n")), setting + "user-defined \"{hostname}\\n\"");
    EXPECT_EQ(lineOf(modelTemplate("{hostname}\n")), setting + "escaped-user-defined \"{hostname}\\n\"");
    EXPECT_EQ(lineOf(modelTemplate("")), setting + "escaped-user-defined \"\"");
}

TEST(ShellExactLines, IdsThatNoLineMakes) {
    InformationOption lying = modelTemplate("{hostname}");
    lying.idTemplate.elementType[1] = DHCP6_INFO_SERIAL;
    InformationOption unending = modelTemplate("x");
    std::memset(unending.idTemplate.text, 'x', sizeof unending.idTemplate.text);
    InformationOption unknown = modelTemplate("{hostname}");
    unknown.idTemplate.text[1] = 'H';
    const std::pair<InformationOption, std::string> cases[] = {
        {modelOption(DHCP6_INFO_USER_DEFINED, ""), "it is user-defined, and the daemon holds no template for it"},
        {lying, "its template does something else than its text \"{hostname}\" says"},
        {unending, "its template does something else than its text \"" + std::string(64, 'x') + "...\" says"},
        {unknown, "its template does something else than its text \"{Hostname}\" says"},
        {modelOption(DHCP6_INFO_STRING, std::string(80, 'x')), "its text is too long"},
        {modelOption(77, "x"), "its kind 77 is not known"},
    };
    for (const auto &[option, why] : cases) {
        const ExactLine exact = exactInformation("interface-id", option);
        EXPECT_EQ(exact.line, "");
        EXPECT_EQ(exact.reason, "the interface-id has no line, because " + why +
                                    "; \"undo dhcpv6-snooping information interface-id\" takes it back");
    }
}

} // namespace
