// The switch file: what it may say, and the sentence for everything else.

#include "platform/linux/switchfile.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/libcommon.h"
#include "platform/liboem.h"
#include "platform/linux/protocol.h"
#include "tests/contract/linux_env.h"

static std::string path() { return testFolder() + "/switch.toml"; }

static bool readText(const std::string &text, LinuxSwitchConfig *config, std::string *error) {
    std::ofstream(path(), std::ios::binary | std::ios::trunc) << text;
    char sentence[512] = "";
    const bool good = linuxSwitchFileRead(path().c_str(), config, sentence, sizeof sentence);
    *error = sentence;
    return good;
}

static LinuxSwitchConfig readGood(const std::string &text) {
    LinuxSwitchConfig config;
    memset(static_cast<void *>(&config), 0xA5, sizeof config);
    std::string error;
    EXPECT_TRUE(readText(text, &config, &error)) << error;
    return config;
}

// The sentence behind "<path>:<line>: ".
static void expectWrong(const std::string &text, uint32_t line, const std::string &sentence) {
    LinuxSwitchConfig config;
    std::string error;
    EXPECT_FALSE(readText(text, &config, &error)) << text;
    EXPECT_EQ(error, path() + ":" + std::to_string(line) + ": " + sentence) << text;
}

static const std::string PORT = "[[port]]\nnumber = 1\ninterface = \"a\"\n";
static const std::string INTERFACE_RULE =
    " must be the name of a network interface: a text of 1 to 15 characters without '/', ':' and blanks";

TEST(SwitchFile, Smallest) {
    const LinuxSwitchConfig config = readGood("bridge = \"br0\"\n" + PORT);
    EXPECT_STREQ(config.bridge, "br0");
    EXPECT_STREQ(config.title, "DHCPv6 snooping");
    EXPECT_EQ(config.enterprise, 47119u);
    EXPECT_EQ(config.portMax, 1u);
    EXPECT_EQ(config.vlans[0], 0x40);
    for (uint32_t i = 1; i < sizeof config.vlans; i++) {
        EXPECT_EQ(config.vlans[i], 0);
    }
    EXPECT_EQ(config.ports[0].exists, 1u);
    EXPECT_STREQ(config.ports[0].interface, "a");
    EXPECT_EQ(config.ports[0].raGuard, 0u);
    EXPECT_EQ(config.ports[0].xpon, 0u);
    EXPECT_EQ(config.ports[1].exists, 0u);
    EXPECT_STREQ(config.trunks[0].interface, "");
}

TEST(SwitchFile, Everything) {
    const LinuxSwitchConfig config = readGood(R"(# a switch
title = "floor 2, Büro"
enterprise = 4294967295
vlans = [1, 10, 4094]
bridge = "bridge-of-15-ch"
[[trunk]]
interface = "bond0"
id = 0
[[trunk]]
interface = "bond9"
id = 65534
[[port]]
number = 28
interface = "eth28"
ra_guard = true
[[port]]
number = 3
interface = "pon3"
ra_guard = false
xpon = { pon = 255, onu = 8191, serial = "ABcd12fF0078" }
)");
    EXPECT_STREQ(config.bridge, "bridge-of-15-ch");
    EXPECT_STREQ(config.title, "floor 2, Büro");
    EXPECT_EQ(config.enterprise, 4294967295u);
    EXPECT_EQ(config.portMax, 28u);
    EXPECT_EQ(config.vlans[0], 0x40);
    EXPECT_EQ(config.vlans[1], 0x20);
    EXPECT_EQ(config.vlans[511], 0x02);
    EXPECT_EQ(config.ports[27].raGuard, 1u);
    EXPECT_STREQ(config.ports[27].interface, "eth28");
    EXPECT_EQ(config.ports[2].xpon, 1u);
    EXPECT_EQ(config.ports[2].pon, 255u);
    EXPECT_EQ(config.ports[2].onu, 8191u);
    EXPECT_EQ(memcmp(config.ports[2].serial, "ABcd\x12\xFF\x00\x78", 8), 0);
    EXPECT_STREQ(config.trunks[0].interface, "bond0");
    EXPECT_EQ(config.trunks[0].id, 0u);
    EXPECT_STREQ(config.trunks[1].interface, "bond9");
    EXPECT_EQ(config.trunks[1].id, 65534u);
    EXPECT_STREQ(config.trunks[2].interface, "");
}

TEST(SwitchFile, LinesOfOtherSystems) {
    EXPECT_STREQ(readGood("bridge = \"br0\" \r\n\r\n[[port]]\r\nnumber = 1 # one\r\ninterface = \"a\"\r\n").ports[0].interface,
                 "a");
}

TEST(SwitchFile, TwentyEightPortsAndTrunks) {
    std::string text = "bridge = \"br0\"\n";
    for (uint32_t i = 1; i <= 28; i++) {
        text += "[[port]]\nnumber = " + std::to_string(i) + "\ninterface = \"p" + std::to_string(i) + "\"\n";
        text += "[[trunk]]\nid = " + std::to_string(i) + "\ninterface = \"t" + std::to_string(i) + "\"\n";
    }
    const LinuxSwitchConfig config = readGood(text);
    EXPECT_STREQ(config.ports[27].interface, "p28");
    EXPECT_STREQ(config.trunks[27].interface, "t28");
    EXPECT_STREQ(config.trunks[28].interface, "");
    expectWrong(text + "[[trunk]]\nid = 29\ninterface = \"t29\"\n", 170, "more than 28 trunks");
}

TEST(SwitchFile, BridgeIsNeeded) {
    expectWrong(PORT, 1, "bridge is missing: write bridge = \"NAME\" with the name of the kernel bridge");
    expectWrong("", 1, "bridge is missing: write bridge = \"NAME\" with the name of the kernel bridge");
    expectWrong("\n\nbridge = 7\n" + PORT, 3, "bridge" + INTERFACE_RULE);
    for (const char *name : {"", "0123456789abcdef", "a/b", "a:b", "a b", ".", "..", "a\\nb", "ä"}) {
        expectWrong("bridge = \"" + std::string(name) + "\"\n" + PORT, 1, "bridge" + INTERFACE_RULE);
    }
}

TEST(SwitchFile, PortsAreNeeded) {
    const std::string none = "no port is described: write [[port]] with number and interface for each";
    expectWrong("bridge = \"br0\"\n", 1, none);
    expectWrong("bridge = \"br0\"\nport = 3\n", 2, "port must be written as [[port]], once for each");
    expectWrong("bridge = \"br0\"\nport = [ 3 ]\n", 2, "port must be written as [[port]], once for each");
    expectWrong("bridge = \"br0\"\n[port]\nnumber = 1\n", 2, "port must be written as [[port]], once for each");
}

TEST(SwitchFile, UnknownKeys) {
    expectWrong("bridge = \"br0\"\nbrigde = \"br1\"\n" + PORT, 2,
                "unknown key \"brigde\"; known are bridge, bridge_netfilter, enterprise, on_startup_failure, title, vlans, "
                "[[port]] and [[trunk]]");
    expectWrong("bridge = \"br0\"\n" + PORT + "speed = 10\n", 5,
                "unknown key \"speed\" in a port; known are number, interface, ra_guard and xpon");
    expectWrong("bridge = \"br0\"\n" + PORT + "[[trunk]]\nid = 1\nports = [1]\n", 7,
                "unknown key \"ports\" in a trunk; known are interface and id");
}

TEST(SwitchFile, PortNumbers) {
    for (const char *number : {"0", "29", "-1", "4294967297", "9223372036854775807", "1.0", "\"1\"", "true", "[1]"}) {
        expectWrong("bridge = \"br0\"\n[[port]]\nnumber = " + std::string(number) + "\ninterface = \"a\"\n", 3,
                    "number must be a whole number from 1 to 28");
    }
    expectWrong("bridge = \"br0\"\n[[port]]\ninterface = \"a\"\n", 2, "number is missing: a port needs one from 1 to 28");
    expectWrong("bridge = \"br0\"\n" + PORT + "[[port]]\nnumber = 1\ninterface = \"b\"\n", 5, "port 1 is described twice");
}

TEST(SwitchFile, Interfaces) {
    expectWrong("bridge = \"br0\"\n[[port]]\nnumber = 4\n", 2,
                "interface is missing: port 4 needs the name of its network interface");
    expectWrong("bridge = \"br0\"\n[[port]]\nnumber = 4\ninterface = \"a-name-of-16-chr\"\n", 4, "interface" + INTERFACE_RULE);
    expectWrong("bridge = \"br0\"\n[[port]]\nnumber = 4\ninterface = [\"a\"]\n", 4, "interface" + INTERFACE_RULE);
    expectWrong("bridge = \"br0\"\n" + PORT + "[[port]]\nnumber = 2\ninterface = \"a\"\n", 5, "interface a is port 1 already");
    expectWrong("bridge = \"br0\"\n" + PORT + "[[port]]\nnumber = 2\ninterface = \"br0\"\n", 5,
                "interface br0 is the bridge itself; a port is an interface in it");
}

TEST(SwitchFile, RaGuard) {
    for (const char *value : {"1", "\"yes\"", "[true]"}) {
        expectWrong("bridge = \"br0\"\n" + PORT + "ra_guard = " + value + "\n", 5, "ra_guard must be true or false");
    }
}

TEST(SwitchFile, OnStartupFailure) {
    EXPECT_EQ(readGood("bridge = \"br0\"\n" + PORT).onStartupFailure, LINUX_STARTUP_USE_LAST_GOOD);
    const std::string line = "bridge = \"br0\"\non_startup_failure = ";
    EXPECT_EQ(readGood(line + "\"last-good\"\n" + PORT).onStartupFailure, LINUX_STARTUP_USE_LAST_GOOD);
    EXPECT_EQ(readGood(line + "\"closed\"\n" + PORT).onStartupFailure, LINUX_STARTUP_CLOSE);
    EXPECT_EQ(readGood(line + "\"open\"\n" + PORT).onStartupFailure, LINUX_STARTUP_LEAVE_OPEN);
    for (const char *value : {"\"Open\"", "\"\"", "\"closed \"", "true", "2", "[\"open\"]"})
        expectWrong(line + value + "\n" + PORT, 2, "on_startup_failure must be \"last-good\", \"closed\" or \"open\"");
}

TEST(SwitchFile, BridgeNetfilter) {
    EXPECT_EQ(readGood("bridge = \"br0\"\n" + PORT).keepBridgeNetfilter, 0u);
    EXPECT_EQ(readGood("bridge = \"br0\"\nbridge_netfilter = \"off\"\n" + PORT).keepBridgeNetfilter, 0u);
    EXPECT_EQ(readGood("bridge = \"br0\"\nbridge_netfilter = \"keep\"\n" + PORT).keepBridgeNetfilter, 1u);
    for (const char *value : {"1", "true", "\"on\"", "\"Keep\"", "\"\"", "[\"off\"]"}) {
        expectWrong("bridge = \"br0\"\nbridge_netfilter = " + std::string(value) + "\n" + PORT, 2,
                    "bridge_netfilter must be \"off\" or \"keep\"");
    }
}

TEST(SwitchFile, Xpon) {
    const std::string start = "bridge = \"br0\"\n" + PORT;
    const std::string whole = "xpon must hold pon, onu and serial and nothing else";
    expectWrong(start + "xpon = true\n", 5, whole);
    expectWrong(start + "xpon = { pon = 1, onu = 1 }\n", 5, whole);
    expectWrong(start + "xpon = { pon = 1, onu = 1, cereal = \"ABCD12345678\" }\n", 5, whole);
    expectWrong(start + "xpon = { pon = 1, onu = 1, serial = \"ABCD12345678\", more = 1 }\n", 5, whole);
    expectWrong(start + "xpon = { pon = 256, onu = 1, serial = \"ABCD12345678\" }\n", 5,
                "pon must be a whole number from 0 to 255");
    expectWrong(start + "xpon = { pon = 1, onu = 8192, serial = \"ABCD12345678\" }\n", 5,
                "onu must be a whole number from 0 to 8191");
    for (const char *serial :
         {"\"\"", "\"ABCD1234567\"", "\"ABCD123456789\"", "\"ABCD1234567g\"", "\"AB D12345678\"", "12345678"}) {
        expectWrong(start + "xpon = { pon = 1, onu = 1, serial = " + serial + " }\n", 5,
                    "serial must be a text of 4 letters or digits and 8 hexadecimal digits, such as \"ABCD12345678\"");
    }
}

TEST(SwitchFile, Trunks) {
    const std::string start = "bridge = \"br0\"\n" + PORT;
    const std::string both = "a trunk needs interface, the name of its bond, and id, a number from 0 to 65534";
    expectWrong(start + "[[trunk]]\nid = 1\n", 5, both);
    expectWrong(start + "[[trunk]]\ninterface = \"bond0\"\n", 5, both);
    expectWrong(start + "[[trunk]]\ninterface = \"bond0\"\nid = 65535\n", 7, "id must be a whole number from 0 to 65534");
    expectWrong(start + "[[trunk]]\ninterface = \"bond0\"\nid = 1\n[[trunk]]\ninterface = \"bond1\"\nid = 1\n", 8,
                "trunk id 1 is taken by bond0");
    expectWrong(start + "[[trunk]]\ninterface = \"bond0\"\nid = 1\n[[trunk]]\ninterface = \"bond0\"\nid = 2\n", 8,
                "trunk bond0 is described twice");
    expectWrong(start + "[[trunk]]\ninterface = \"a\"\nid = 1\n", 5,
                "interface a is a port; the ports of a trunk are the members of its bond");
    expectWrong(start + "trunk = 1\n", 5, "unknown key \"trunk\" in a port; known are number, interface, ra_guard and xpon");
    expectWrong("bridge = \"br0\"\ntrunk = 1\n" + PORT, 2, "trunk must be written as [[trunk]], once for each");
}

TEST(SwitchFile, Vlans) {
    const std::string rule = "vlans must be a list of one or more VLAN numbers, such as [1, 10]";
    const std::string number = "a number in vlans must be a whole number from 1 to 4094";
    expectWrong("bridge = \"br0\"\nvlans = 1\n" + PORT, 2, rule);
    expectWrong("bridge = \"br0\"\nvlans = []\n" + PORT, 2, rule);
    expectWrong("bridge = \"br0\"\nvlans = [1,\n0]\n" + PORT, 3, number);
    expectWrong("bridge = \"br0\"\nvlans = [4095]\n" + PORT, 2, number);
    expectWrong("bridge = \"br0\"\nvlans = [\"1\"]\n" + PORT, 2, number);
    const LinuxSwitchConfig config = readGood("bridge = \"br0\"\nvlans = [2, 2]\n" + PORT);
    EXPECT_EQ(config.vlans[0], 0x20); // the default goes when there is a list
}

TEST(SwitchFile, TitleAndEnterprise) {
    const std::string rule = "title must be a text of 1 to 63 bytes without control characters";
    for (const std::string title : {"\"\"", "7", "\"a\\nb\"", "\"a\\u007Fb\"", "\"\\u0085\"", "\"\\u0000\""}) {
        expectWrong("bridge = \"br0\"\ntitle = " + title + "\n" + PORT, 2, rule);
    }
    expectWrong("bridge = \"br0\"\ntitle = \"" + std::string(64, 'x') + "\"\n" + PORT, 2, rule);
    EXPECT_EQ(strlen(readGood("bridge = \"br0\"\ntitle = \"" + std::string(63, 'x') + "\"\n" + PORT).title), 63u);
    for (const char *number : {"0", "-1", "4294967296", "\"47119\""}) {
        expectWrong("bridge = \"br0\"\nenterprise = " + std::string(number) + "\n" + PORT, 2,
                    "enterprise must be a whole number from 1 to 4294967295");
    }
}

// Mistyped lines that the parser must not get to see.
TEST(SwitchFile, NotWorthParsing) {
    const std::string letters = "only A to Z, digits and _ - + = . , [ ] { } may stand outside of \"quotes\" and comments";
    const std::string header = "a line that starts with '[' must name a table, such as [[port]]";
    const std::string lines = "a text must stand on one line, with one quote at each end";
    const std::string middle = "a quote or bracket may not stand in the middle of a word";
    expectWrong("bridge = Bär\n", 1, letters);
    expectWrong("# Büro\ntitle = \"Büro\" # Büro\nü = 1\n", 3, letters);
    expectWrong("title = \"a\\\"ü\" ü\n", 1, letters);
    expectWrong("title = 'a\\' ü\n", 1, letters);
    expectWrong("[\r\r[port]]\n", 1, header);
    expectWrong("bridge = \r0\n", 1, letters);
    expectWrong("enterprise = 07:32:00\n", 1, letters);
    expectWrong(std::string("bridge\0 = 1", 11), 1, letters);
    expectWrong("bridge = \x7F\n", 1, letters);
    expectWrong("[[[port]]]\n", 1, header);
    expectWrong("bridge = \"br0\"\n  [ [port] ]\n", 2, header);
    expectWrong("[[", 1, header);
    expectWrong("[", 1, header);
    expectWrong("[]", 1, header);
    expectWrong("[\n[port]", 1, header);
    expectWrong(std::string(100000, '['), 1, header);
    for (const char *text : {"vlans = [1, }", "vlans = ]", "vlans = [1}", "a = {]", "a = }", "vlans = [[[[[[[[[1]]]]]]]]]"}) {
        expectWrong(text, 1, "the brackets do not match");
    }
    expectWrong("vlans = [1,\n2,\n} # ]\n", 3, "the brackets do not match");
    expectWrong("bridge = 1900-02-ex 1\n", 1, "dates have no place here");
    expectWrong("\ntitle = \"\"\"a\nb\"\"\"\n", 2, lines);
    expectWrong("title = ''\'a''\'\n", 1, lines);
    expectWrong("bridge = 0\"b\"\n", 1, middle);
    expectWrong("bridge = 6.\"b\"\n", 1, middle);
    expectWrong("bridge = \"a\"\"b\"\n", 1, middle);
    expectWrong("bridge = x'b'\n", 1, middle);
    expectWrong("bridge = 0[\"b\"]\n", 1, middle);
    expectWrong("vlans = [1][2]\n", 1, middle);
    expectWrong("xpon = x{ }\n", 1, middle);
    EXPECT_STREQ(
        readGood("\tbridge = 'br0' # \"ü\n\"title\" = \"it's [[fine]] #1 \\\\\"\n[[ port ]]\nnumber=1\ninterface=\"a\"\n")
            .title,
        "it's [[fine]] #1 \\");
}

// The parser's own words; that there are some, and the line, is what matters.
TEST(SwitchFile, NotTomlAtAll) {
    for (const auto &[text, line] : std::vector<std::pair<std::string, uint32_t>>{
             {"bridge = \"br0\"\nbridge = \"br1\"\n", 2},
             {"bridge = \"br0\"\n\n[[port\n", 3},
             {"bridge = br0\n", 1},
             {"title = tr\n", 1},
             {std::string("bridge = \"\xFF\xFE\"\n"), 1},
         }) {
        LinuxSwitchConfig config;
        std::string error;
        EXPECT_FALSE(readText(text, &config, &error));
        const std::string place = path() + ":" + std::to_string(line) + ": ";
        EXPECT_EQ(error.rfind(place, 0), 0u) << error;
        EXPECT_GT(error.size(), place.size());
        EXPECT_EQ(error.find('\n'), std::string::npos);
    }
}

// What only the parser's own checks catch ends the process, in words.
TEST(SwitchFile, NothingTheParserMayGoOnWith) {
    std::ofstream(path(), std::ios::trunc) << "bridge = 0.5d=\"\u019A\"\n";
    std::string said;
    EXPECT_EQ(serverEnd(serverStart("file", path()), &said), 1);
    EXPECT_EQ(said, "snoopd6: " + path() + " is no TOML that can be read; look for misplaced quotes\n");
}

static void expectUnreadable(const std::string &file, const std::string &sentence) {
    LinuxSwitchConfig config;
    char error[512] = "";
    EXPECT_FALSE(linuxSwitchFileRead(file.c_str(), &config, error, sizeof error));
    EXPECT_EQ(error, file + ": " + sentence);
}

TEST(SwitchFile, CannotBeRead) {
    expectUnreadable(testFolder() + "/absent.toml", "No such file or directory");
    expectUnreadable(testFolder(), "is no ordinary file of at most 1 MiB");
    expectUnreadable("/dev/zero", "is no ordinary file of at most 1 MiB");
    const std::string fifo = testFolder() + "/fifo"; // nobody writes: reading it would wait for ever
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    expectUnreadable(fifo, "is no ordinary file of at most 1 MiB");
    const std::string large = testFolder() + "/large.toml";
    std::ofstream(large) << std::string((1 << 20) + 1, '#');
    expectUnreadable(large, "is no ordinary file of at most 1 MiB");
}

TEST(SwitchFile, ErrorStaysInItsBuffer) {
    for (uint32_t size = 1; size < 40; size++) {
        std::vector<char> error(size + 1, 'x');
        LinuxSwitchConfig config;
        EXPECT_FALSE(linuxSwitchFileRead("/absent/switch.toml", &config, error.data(), size));
        EXPECT_NE(memchr(error.data(), 0, size), nullptr);
        EXPECT_EQ(error[size], 'x');
    }
}

TEST(SwitchFile, Path) {
    unsetenv("SNOOPD6_SWITCH");
    EXPECT_STREQ(linuxSwitchFilePath(), "/etc/snoopd6/switch.toml");
    setenv("SNOOPD6_SWITCH", "", 1);
    EXPECT_STREQ(linuxSwitchFilePath(), "/etc/snoopd6/switch.toml");
    setenv("SNOOPD6_SWITCH", "/srv/other.toml", 1);
    EXPECT_STREQ(linuxSwitchFilePath(), "/srv/other.toml");
    unsetenv("SNOOPD6_SWITCH");
}

// ---- What the other libraries make of it ---------------------------------------------------------------------------

TEST(SwitchFile, SellerAndPorts) {
    linuxSwitch = LinuxSwitchConfig{};
    EXPECT_NE(OemInit(), 0);
    linuxSwitch = readGood("bridge = \"absent0\"\nenterprise = 4711\n[[port]]\nnumber = 3\ninterface = \"a\"\n");
    EXPECT_EQ(OemInit(), 0);
    EXPECT_EQ(oemPenGet(), 4711u);
    EXPECT_EQ(oem_type_check("anyone"), 0);
    char text[PORT_TEXT_MAX];
    EXPECT_STREQ(transPort2EtherPort(3, text), "0/3");
    EXPECT_STREQ(transPort2EtherPort(2, text), "");
    EXPECT_STREQ(transPort2EtherPort(4, text), "");
}
