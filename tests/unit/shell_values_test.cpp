// Values as people write and read them.
#include <gtest/gtest.h>

#include "shell/values.h"

namespace {

using std::string_literals::operator""s;
using std::string_view_literals::operator""sv;

TEST(ShellValues, PortsAreZeroSlashOneToTwentyEight) {
    uint32_t port = 99;
    std::string error;
    EXPECT_TRUE(valueReadPort("0/1", &port, &error));
    EXPECT_EQ(port, 1u);
    EXPECT_TRUE(valueReadPort("0/28", &port, &error));
    EXPECT_EQ(port, 28u);
    for (const std::string_view word : {"0/0"sv, "0/29"sv, "1/1"sv, "0/"sv, "3"sv, ""sv, "0/1x"sv, "0/-1"sv, "0/+1"sv, "0/ 1"sv,
                                        "0/4294967297"sv, "0/1\0"sv}) {
        EXPECT_FALSE(valueReadPort(word, &port, &error)) << word;
        EXPECT_EQ(port, 28u);
    }
    EXPECT_FALSE(valueReadPort("0/29", &port, &error));
    EXPECT_EQ(error, "\"0/29\" is not a port: allowed are 0/1 to 0/28");
}

TEST(ShellValues, VlansAndLimitsEndWhereTheDaemonEndsThem) {
    uint32_t number = 7;
    std::string error;
    EXPECT_TRUE(valueReadVlan("1", &number, &error));
    EXPECT_TRUE(valueReadVlan("4094", &number, &error));
    EXPECT_EQ(number, 4094u);
    EXPECT_FALSE(valueReadVlan("0", &number, &error));
    EXPECT_FALSE(valueReadVlan("4095", &number, &error));
    EXPECT_EQ(error, "\"4095\" is not a VLAN: allowed are 1 to 4094");
    EXPECT_TRUE(valueReadLimit("0", &number, &error));
    EXPECT_EQ(number, 0u);
    EXPECT_TRUE(valueReadLimit("2048", &number, &error));
    EXPECT_FALSE(valueReadLimit("2049", &number, &error));
    EXPECT_EQ(error, "\"2049\" is not a number of clients: allowed are 0 to 2048");
    EXPECT_EQ(number, 2048u);
}

TEST(ShellValues, VlanLists) {
    VlanList vlans = {};
    std::string error;
    const struct {
        std::string_view word;
        std::vector<uint32_t> listed;
    } good[] = {{"1", {1}}, {"1,3-5", {1, 3, 4, 5}}, {"4094,1-1,", {1, 4094}}, {"7-9,8-10", {7, 8, 9, 10}}};
    for (const auto &c : good) {
        EXPECT_TRUE(valueReadVlans(c.word, &vlans, &error)) << c.word << error;
        EXPECT_EQ(vlansListed(vlans), c.listed) << c.word;
    }
    EXPECT_TRUE(valueReadVlans("1-4094", &vlans, &error));
    EXPECT_EQ(vlansListed(vlans).size(), 4094u);
    EXPECT_EQ(vlans.front(), 0x7f) << "there is no VLAN 0";
    EXPECT_EQ(vlans.back(), 0xfe) << "there is no VLAN 4095";
    const VlanList before = vlans;
    for (const std::string_view word : {""sv, ","sv, ",1"sv, "1,,2"sv, "1,,"sv, "0"sv, "4095"sv, "1-4095"sv, "0-3"sv, "5-3"sv,
                                        "1-"sv, "-1"sv, "1-2-3"sv, "1, 2"sv, "a"sv, "1;2"sv, "+1"sv, "1\0"sv, "4294967297"sv}) {
        EXPECT_FALSE(valueReadVlans(word, &vlans, &error)) << word;
        EXPECT_EQ(vlans, before);
    }
    EXPECT_FALSE(valueReadVlans("5-3", &vlans, &error));
    EXPECT_EQ(error, "\"5-3\" is not a list of VLANs: it is written like 1,3-5, and allowed are 1 to 4094");
}

TEST(ShellValues, MacAddresses) {
    MacAddress mac = {};
    std::string error;
    EXPECT_TRUE(valueReadMac("02:00:5E:10:00:01", &mac, &error));
    EXPECT_EQ(mac, (MacAddress{0x02, 0x00, 0x5e, 0x10, 0x00, 0x01}));
    EXPECT_TRUE(valueReadMac("2-0-0-0-0-f", &mac, &error));
    EXPECT_EQ(textMac(mac), "02:00:00:00:00:0f");
    for (const std::string_view word : {""sv, ":"sv, ":::::"sv, "02:00:5e:10:00"sv, "02:00:5e:10:00:"sv, "02:00:5e:10:00:01:"sv,
                                        "02:00:5e:10:00:01:02"sv, "02-00-5e:10-00-01"sv, "002:0:0:0:0:1"sv, "0x:0:0:0:0:1"sv,
                                        "-2:0:0:0:0:1"sv, "0200.5e10.0001"sv, "02:00:5e:10:00:0g"sv}) {
        EXPECT_FALSE(valueReadMac(word, &mac, &error)) << word;
    }
    EXPECT_FALSE(valueReadMac("0:0:0:0:0:0", &mac, &error));
    EXPECT_EQ(error, "\"0:0:0:0:0:0\" belongs to no client: the all-zero MAC address is not allowed");
    EXPECT_EQ(textMac(mac), "02:00:00:00:00:0f");
}

TEST(ShellValues, Ipv6Addresses) {
    Ipv6Address address = {};
    std::string error;
    EXPECT_TRUE(valueReadIpv6("2001:db8::1", &address, &error));
    EXPECT_EQ(textIpv6(address, 128), "2001:db8::1");
    EXPECT_EQ(textIpv6(address, 56), "2001:db8::1/56");
    EXPECT_EQ(textIpv6(address, 4294967295), "2001:db8::1/4294967295");
    for (const std::string_view word : {"2001:db8::1/64"sv, "10.0.0.1"sv, ""sv, ":"sv, "2001:db8::1\0x"sv, "2001:db8::g"sv}) {
        EXPECT_FALSE(valueReadIpv6(word, &address, &error)) << word;
        EXPECT_EQ(textIpv6(address, 128), "2001:db8::1");
    }
}

TEST(ShellValues, AddressesThatMayBeSources) {
    const std::pair<const char *, const char *> refused[] = {
        {"::", "it is the unspecified address, which names no host"},
        {"0:0:0:0:0:0:0.0.0.0", "it is the unspecified address, which names no host"},
        {"::1", "it is the loopback address, which never leaves a host"},
        {"ff00::", "it is a multicast address, which names receivers and no sender"},
        {"ff02::1", "it is a multicast address, which names receivers and no sender"},
        {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", "it is a multicast address, which names receivers and no sender"},
        {"::ffff:0:0", "it is an IPv4-mapped address, which no packet carries"},
        {"::ffff:10.0.0.1", "it is an IPv4-mapped address, which no packet carries"},
        {"::ffff:ffff:ffff", "it is an IPv4-mapped address, which no packet carries"},
    };
    Ipv6Address address = {1};
    std::string error;
    for (const auto &[word, why] : refused) {
        EXPECT_FALSE(valueReadSource(word, &address, &error)) << word;
        EXPECT_EQ(error, "\"" + std::string(word) + "\" cannot be bound: " + why);
        EXPECT_EQ(address, Ipv6Address{1}) << word;
    }
    for (const char *word :
         {"2001:db8::1", "fe80::1", "::2", "::1:0:0:0", "::fffe:0:1", "::1:ffff:0:1", "feff::1", "::1.2.3.4"}) {
        Ipv6Address same = {};
        ASSERT_TRUE(valueReadSource(word, &address, &error)) << error;
        ASSERT_TRUE(valueReadIpv6(word, &same, &error));
        EXPECT_EQ(address, same) << word;
    }
    EXPECT_FALSE(valueReadSource("2001:db8::/64", &address, &error));
    EXPECT_EQ(error, "\"2001:db8::/64\" is not an IPv6 address: it is written like 2001:db8::1, without a prefix length");
}

TEST(ShellValues, Ipv4Addresses) {
    Ipv4Address address = {};
    std::string error;
    EXPECT_TRUE(valueReadIpv4("10.0.0.255", &address, &error));
    EXPECT_EQ(address, (Ipv4Address{10, 0, 0, 255}));
    EXPECT_EQ(textIpv4(address), "10.0.0.255");
    for (const std::string_view word : {""sv, "10.0.0"sv, "10.0.0.256"sv, "10.0.0.1.2"sv, "10.0.0.1 "sv, "10.0.0.1/8"sv,
                                        "::1"sv, "0x0a.0.0.1"sv, "10.0.0.1\0"sv}) {
        EXPECT_FALSE(valueReadIpv4(word, &address, &error)) << word;
        EXPECT_EQ(error,
                  textQuoted(word) + " is not an IPv4 address: it is written like 10.0.0.1, as four numbers from 0 to 255");
        EXPECT_EQ(textIpv4(address), "10.0.0.255");
    }
}

TEST(ShellValues, TextsThatAreKept) {
    std::string error;
    for (const std::string_view text : {""sv, "two words"sv, "\\n {}'`$(x)!#?"sv, "Z\xc3\xbcrich"sv,
                                        "\xe6\x9d\xb1\xe4\xba\xac"sv, "\xf0\x9f\x90\x8d"sv, "\xf4\x8f\xbf\xbd"sv}) {
        EXPECT_TRUE(valueCheckText("the text", text, &error)) << text << error;
        EXPECT_EQ(textPrintable(text), text);
    }
    // NUL, controls of both kinds, cut off, too long by design, surrogate, beyond Unicode, direction marks.
    for (const std::string_view text :
         {"ab\0c"sv, "ab\tc"sv, "ab\n"sv, "ab\x7f"sv, "ab\xc2\x85"sv, "ab\xc3"sv, "ab\xc3("sv, "ab\xfcrich"sv, "ab\xc0\xaf"sv,
          "ab\xe0\x80\xaf"sv, "ab\xe2\x82"sv, "ab\xed\xa0\x80"sv, "ab\xf4\x90\x80\x80"sv, "ab\xf8\x88\x80\x80\x80"sv,
          "ab\x80"sv, "ab\xe2\x80\xae"sv, "ab\xe2\x81\xa6"sv, "ab\xef\xbb\xbf"sv}) {
        EXPECT_FALSE(valueCheckText("the text", text, &error)) << text;
        EXPECT_NE(error.find("the text cannot be kept with \"\\x"), std::string::npos) << error;
        EXPECT_NE(error.find("at column 3: allowed are printable characters other than double quotes"), std::string::npos)
            << error;
        for (const char c : textPrintable(text)) {
            EXPECT_TRUE(c >= ' ' && c < 0x7f) << textPrintable(text);
        }
    }
    EXPECT_FALSE(valueCheckText("the text", "\xc3\xbc\"", &error));
    EXPECT_EQ(error, "the text cannot be kept with the double quote at column 2: allowed are printable characters other than "
                     "double quotes");
}

TEST(ShellValues, DurationsNameTheirTwoLargestUnits) {
    EXPECT_EQ(textDuration(0), "0s");
    EXPECT_EQ(textDuration(59), "59s");
    EXPECT_EQ(textDuration(60), "1m");
    EXPECT_EQ(textDuration(7199), "1h59m");
    EXPECT_EQ(textDuration(7200), "2h");
    EXPECT_EQ(textDuration(86399), "23h59m");
    EXPECT_EQ(textDuration(86400 + 3599), "1d");
    EXPECT_EQ(textDuration(365 * 86400), "1y");
    EXPECT_EQ(textDuration(4294967295), "136y70d");
}

TEST(ShellValues, RunsOfPortsAreJoined) {
    EXPECT_EQ(textPorts(std::vector<uint32_t>{}), "");
    EXPECT_EQ(textPorts(std::vector<uint32_t>{3}), "0/3");
    EXPECT_EQ(textPorts(std::vector<uint32_t>{1, 2, 3, 7, 27, 28}), "0/1-0/3, 0/7, 0/27-0/28");
}

TEST(ShellValues, VlansAreWrittenAsTheyAreRead) {
    EXPECT_EQ(textVlans(std::vector<uint32_t>{}), "");
    EXPECT_EQ(textVlans(std::vector<uint32_t>{1, 3, 4, 5, 4093, 4094}), "1,3-5,4093-4094");
}

TEST(ShellValues, NothingUnprintableReachesTheTerminal) {
    EXPECT_EQ(textPrintable("a\x1b[2J\x7f\xff\n"s), "a\\x1b[2J\\x7f\\xff\\x0a");
    EXPECT_EQ(textQuoted("a\0b"sv), "\"a\\x00b\"");
    EXPECT_EQ(textQuoted(std::string(65, 'x')), '"' + std::string(64, 'x') + "...\"");
    std::string many;
    for (int i = 0; i < 65; i++) {
        many += "\xc3\xbc";
    }
    EXPECT_EQ(textQuoted(many), '"' + many.substr(2) + "...\"") << "cut between characters";
    const char whole[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(textField(whole), "abcd");
    const char part[4] = {'a', '\0', 'c', 'd'};
    EXPECT_EQ(textField(part), "a");
}

} // namespace
