// Texts and values of libcommon, and the address text of libvos.

#include <algorithm>
#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "platform/libcommon.h"
#include "platform/libvos.h"
#include "tests/contract/setup.h"

using Numbers = std::vector<uint16_t>;

// ---- VLAN lists ----------------------------------------------------------------------------------------------------

struct ReadList {
    int32_t result;
    Numbers numbers; // up to the first 0
    bool restIsZero;
};

static ReadList readList(const std::string &text, uint32_t max = 4094, uint32_t low = 1, uint32_t high = 4094) {
    Numbers out(max, 0xA5A5);
    ReadList read = {.result = Str2ShortArray(text.c_str(), out.data(), max, low, high), .numbers = {}, .restIsZero = true};
    const auto end = std::find(out.begin(), out.end(), 0);
    read.numbers.assign(out.begin(), end);
    read.restIsZero = std::all_of(end, out.end(), [](uint16_t n) { return n == 0; });
    return read;
}

static void expectList(const std::string &text, const Numbers &numbers) {
    const ReadList read = readList(text);
    EXPECT_EQ(read.result, 0) << text;
    EXPECT_EQ(read.numbers, numbers) << text;
    EXPECT_TRUE(read.restIsZero) << text;
}

static void expectRefused(const std::string &text, uint32_t max = 4094) {
    const ReadList read = readList(text, max);
    EXPECT_NE(read.result, 0) << text;
    EXPECT_EQ(read.numbers, Numbers{}) << text;
    EXPECT_TRUE(read.restIsZero) << text;
}

TEST(VlanText, Reads) {
    expectList("1", {1});
    expectList("1,3-5", {1, 3, 4, 5});
    expectList("1,3-5,", {1, 3, 4, 5});
    expectList("4094", {4094});
    expectList("7-7", {7});
    expectList("9,2,5", {9, 2, 5});
    expectList("3-5,4-6,3", {3, 4, 5, 6});
    expectList("", {});
}

TEST(VlanText, RefusesWhatIsNoList) {
    for (const char *text : {",", ",1", "1,,2", "1,2,,", "1-", "-1", "1--2", "1-2-3", "5-3", "a", "1a", "1 ", " 1", "1, 2",
                             "+1", "0x1", "1.2", "1;2"}) {
        expectRefused(text);
    }
}

TEST(VlanText, RefusesNumbersOutOfRange) {
    for (const char *text : {"0", "4095", "1-4095", "0-3", "65535", "65536", "65537", "131073", "4294967297",
                             "18446744073709551617", "99999999999999999999999999999999"}) {
        expectRefused(text);
    }
    EXPECT_NE(readList("9", 10, 10, 20).result, 0);
    EXPECT_EQ(readList("10,20", 10, 10, 20).result, 0);
    EXPECT_NE(readList("21", 10, 10, 20).result, 0);
    EXPECT_EQ(readList("65535", 1, 1, 0xFFFFFFFF).numbers, Numbers{65535});
    EXPECT_NE(readList("65536", 1, 1, 0xFFFFFFFF).result, 0);
}

TEST(VlanText, RefusesMoreThanThereIsRoomFor) {
    EXPECT_EQ(readList("1-3", 3).result, 0);
    EXPECT_EQ(readList("1-3,2", 3).result, 0);
    expectRefused("1-4", 3);
    expectRefused("1-4094", 4093);
    EXPECT_EQ(readList("1-4094", 4094).numbers.size(), 4094u);
    expectRefused("1", 0);
}

static std::vector<std::string> writeList(const Numbers &vlans, uint32_t chunk) {
    Numbers array = {static_cast<uint16_t>(vlans.size())};
    array.insert(array.end(), vlans.begin(), vlans.end());
    array.push_back(0);
    std::vector<std::array<char, VLAN_TEXT_MAX>> area(VLAN_TEXTS_MAX);
    const uint32_t count = vidArray2vlanList(array.data(), reinterpret_cast<char(*)[VLAN_TEXT_MAX]>(area.data()), chunk, 0);
    EXPECT_LE(count, VLAN_TEXTS_MAX);
    std::vector<std::string> texts;
    for (uint32_t i = 0; i < count; i++) {
        texts.emplace_back(area[i].data(), strnlen(area[i].data(), VLAN_TEXT_MAX));
    }
    return texts;
}

// Each text is a list by itself, no longer than asked for, and together they are the list again.
static void expectRoundTrip(const Numbers &vlans, uint32_t chunk) {
    const std::vector<std::string> texts = writeList(vlans, chunk);
    std::string joined;
    Numbers single;
    for (uint32_t i = 0; i < texts.size(); i++) {
        ASSERT_LE(texts[i].size(), std::min(chunk, 110u));
        ASSERT_FALSE(texts[i].empty());
        ASSERT_EQ(texts[i].back() == ',', i + 1 < texts.size());
        const ReadList read = readList(texts[i]);
        ASSERT_EQ(read.result, 0);
        single.insert(single.end(), read.numbers.begin(), read.numbers.end());
        joined += texts[i];
    }
    ASSERT_EQ(single, vlans);
    ASSERT_EQ(readList(joined).numbers, vlans);
}

TEST(VlanText, Writes) {
    EXPECT_EQ(writeList({}, 110), std::vector<std::string>{});
    EXPECT_EQ(writeList({1}, 110), std::vector<std::string>{"1"});
    EXPECT_EQ(writeList({1, 3, 4, 5}, 110), std::vector<std::string>{"1,3-5"});
    EXPECT_EQ(writeList({4093, 4094}, 110), std::vector<std::string>{"4093-4094"});
}

static uint32_t pick(std::mt19937 *random, uint32_t choices) { return static_cast<uint32_t>((*random)() % choices); }

TEST(VlanText, WhatIsWrittenCanBeRead) {
    Numbers all;
    Numbers everySecond;
    Numbers pairs;
    for (uint16_t vlan = 1; vlan <= 4094; vlan++) {
        all.push_back(vlan);
        if (vlan % 2 == 0) {
            everySecond.push_back(vlan);
        }
        if (vlan % 3 != 0) {
            pairs.push_back(vlan);
        }
    }
    for (const uint32_t chunk : {110u, 111u, 4000u, 60u}) {
        expectRoundTrip({}, chunk);
        expectRoundTrip(all, chunk);
        expectRoundTrip(everySecond, chunk);
        expectRoundTrip(pairs, chunk);
    }
    std::mt19937 random(4094);
    for (uint32_t round = 0; round < 200; round++) {
        Numbers some;
        const uint32_t density = 1 + pick(&random, 100);
        for (uint16_t vlan = 1; vlan <= 4094; vlan++) {
            if (pick(&random, 100) < density) {
                some.push_back(vlan);
            }
        }
        expectRoundTrip(some, 60 + pick(&random, 51));
    }
}

TEST(VlanText, NeverMoreTextsThanTheArea) {
    Numbers everySecond;
    for (uint16_t vlan = 1000; vlan <= 4094; vlan = static_cast<uint16_t>(vlan + 2)) {
        everySecond.push_back(vlan);
    }
    const std::vector<std::string> texts = writeList(everySecond, 10);
    EXPECT_EQ(texts.size(), VLAN_TEXTS_MAX);
    for (const std::string &text : texts) {
        EXPECT_LE(text.size(), 10u);
    }
}

// ---- Addresses -----------------------------------------------------------------------------------------------------

TEST(Ipv4Text, StrictDottedQuad) {
    uint32_t address = 0;
    EXPECT_EQ(strtoipAddr("192.0.2.1", &address), 0);
    EXPECT_EQ(address, 0xC0000201);
    EXPECT_EQ(strtoipAddr("0.0.0.0", &address), 0);
    EXPECT_EQ(address, 0u);
    EXPECT_EQ(strtoipAddr("255.255.255.255", &address), 0);
    EXPECT_EQ(address, 0xFFFFFFFF);
    for (const char *text : {"",          "1",          "1.2.3",     "1.2.3.",   ".1.2.3",   "1.2.3.4.",        "1.2.3.4.5",
                             "1.2.3.256", "1.2.3.1000", "01.2.3.4",  "1.2.3.00", "1.2.3.4 ", " 1.2.3.4",        "1..3.4",
                             "1.2.3.-4",  "1.2.3.+4",   "1.2.3.0x4", "a.b.c.d",  "1,2,3,4",  "1.2.3.4294967300"}) {
        EXPECT_NE(strtoipAddr(text, &address), 0) << text;
    }
}

TEST(MacText, EighteenBytes) {
    const uint8_t mac[6] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0xfe};
    char text[20];
    memset(text, 'x', sizeof text);
    EXPECT_EQ(macToStr(mac, text), text);
    EXPECT_STREQ(text, "00:1a:2b:3c:4d:fe");
    EXPECT_EQ(text[18], 'x');
}

TEST(MacText, IndexArcs) {
    const uint32_t arcs[6] = {0, 1, 255, 256, 0x1234, 0xFFFFFFFF};
    uint8_t mac[6] = {};
    EXPECT_EQ(miscMacIndex2OctetString(arcs, mac), 0);
    const uint8_t expected[6] = {0, 1, 255, 0, 0x34, 0xFF};
    EXPECT_EQ(memcmp(mac, expected, sizeof mac), 0);
    uint32_t back[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(miscOctetString2MacIndex(mac, back), 0);
    for (uint32_t i = 0; i < 6; i++) {
        EXPECT_EQ(back[i], expected[i]);
    }
}

TEST(Ipv6Text, ShortestForm) {
    const uint8_t address[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xAB, 0x01};
    char text[47];
    EXPECT_EQ(vosInetNtop(VOS_AF_INET6, address, text, sizeof text), text);
    EXPECT_STREQ(text, "2001:db8::ab01");
}

TEST(Ipv6Text, NeverBehindTheLimit) {
    uint8_t address[16];
    memset(address, 0xFE, sizeof address);
    const std::string longest = "fefe:fefe:fefe:fefe:fefe:fefe:fefe:fefe";
    for (uint32_t limit = 0; limit <= 47; limit++) {
        char text[64];
        memset(text, 'x', sizeof text);
        const char *answer = vosInetNtop(VOS_AF_INET6, address, text, limit);
        if (limit > longest.size()) {
            EXPECT_EQ(answer, text);
            EXPECT_EQ(text, longest);
        } else {
            EXPECT_EQ(answer, nullptr);
        }
        if (limit == 0) {
            EXPECT_EQ(text[0], 'x');
        } else {
            EXPECT_NE(memchr(text, 0, limit), nullptr) << limit;
        }
        for (uint32_t i = limit; i < sizeof text; i++) {
            ASSERT_EQ(text[i], 'x') << limit;
        }
    }
}

TEST(Ipv6Text, OtherFamiliesAreRefused) {
    const uint8_t address[16] = {};
    char text[47] = "x";
    EXPECT_EQ(vosInetNtop(28, address, text, sizeof text), nullptr);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(vosInetNtop(2, address, text, sizeof text), nullptr);
}

TEST(HostName, TerminatesInsideTheSize) {
    char whole[128];
    ASSERT_EQ(vosHostNameGet(whole, sizeof whole), 0);
    ASSERT_NE(memchr(whole, 0, sizeof whole), nullptr);
    for (uint32_t size = 1; size < 8; size++) {
        char text[16];
        memset(text, 'x', sizeof text);
        vosHostNameGet(text, size);
        EXPECT_NE(memchr(text, 0, size), nullptr);
        EXPECT_EQ(std::string(whole).rfind(text, 0), 0u);
        for (uint32_t i = size; i < sizeof text; i++) {
            EXPECT_EQ(text[i], 'x');
        }
    }
}

// ---- Ports ---------------------------------------------------------------------------------------------------------

TEST(PortText, OfEveryPort) {
    contractSetup();
    char text[PORT_TEXT_MAX];
    char description[PORT_DESC_MAX];
    for (uint32_t port = 1; port <= 28; port++) {
        const std::string name = "0/" + std::to_string(port);
        EXPECT_EQ(transPort2EtherPort(port, text), text);
        EXPECT_EQ(text, name);
        EXPECT_EQ(transPort2String(port, text), text);
        EXPECT_EQ(text, name);
        EXPECT_EQ(transPort2InterfaceDesc(port, description), description);
        EXPECT_EQ(description, "interface ethernet " + name);
    }
}

TEST(PortText, EmptyForPortsThatDoNotExist) {
    contractSetup();
    for (const uint32_t port : {0u, 29u, 64u, 65535u, 0x80000001u, 0xFFFFFFFFu}) {
        char text[PORT_TEXT_MAX] = "x";
        char description[PORT_DESC_MAX] = "x";
        EXPECT_STREQ(transPort2EtherPort(port, text), "");
        strcpy(text, "x");
        EXPECT_STREQ(transPort2String(port, text), "");
        EXPECT_STREQ(transPort2InterfaceDesc(port, description), "");
    }
}

// ---- Values of a variable ------------------------------------------------------------------------------------------

TEST(Value, Integer) {
    CcdVariable variable = {};
    ulongSet(&variable, 0xFEDCBA98);
    EXPECT_EQ(ulongGet(&variable), 0xFEDCBA98);
    EXPECT_EQ(variable.length, 4u);
}

TEST(Value, OctetsStayInsideTheVariable) {
    std::array<uint8_t, 1024> bytes;
    bytes.fill(0x5A);
    for (const uint32_t length : {0u, 1u, 254u, 255u, 256u, 1024u}) {
        struct {
            CcdVariable variable;
            uint8_t behind;
        } guarded;
        memset(&guarded, 0xA5, sizeof guarded);
        octetSet(&guarded.variable, bytes.data(), length);
        uint32_t stored = 0;
        const uint8_t *octets = octetGet(&guarded.variable, &stored);
        EXPECT_EQ(stored, std::min(length, CCD_OCTETS_MAX));
        EXPECT_EQ(octets, guarded.variable.octets);
        EXPECT_EQ(memcmp(octets, bytes.data(), stored), 0);
        EXPECT_EQ(octets[stored], 0);
        EXPECT_EQ(guarded.behind, 0xA5);
    }
}

TEST(Value, LengthThatLiesIsCut) {
    CcdVariable variable = {};
    variable.length = 0xFFFFFFFF;
    uint32_t stored = 0;
    octetGet(&variable, &stored);
    EXPECT_EQ(stored, CCD_OCTETS_MAX);
}
