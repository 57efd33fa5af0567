// Addresses and MACs as text.

#include "l2/dhcp6snooping/base/text.h"

#include <arpa/inet.h>
#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>

namespace {

using Groups = std::array<uint16_t, 8>;

std::array<uint8_t, 16> wire(const Groups &groups) {
    std::array<uint8_t, 16> bytes;
    for (size_t i = 0; i < 8; i++) {
        bytes[2 * i] = static_cast<uint8_t>(groups[i] >> 8);
        bytes[2 * i + 1] = static_cast<uint8_t>(groups[i]);
    }
    return bytes;
}

void reads(const std::string &text, const Groups &groups) {
    // An exactly-sized copy: one character too far is outside.
    std::vector<char> exact(text.c_str(), text.c_str() + text.size() + 1);
    std::array<uint8_t, 16> out;
    out.fill(0xEE);
    EXPECT_EQ(dhcp6snooping_inet_pton(28, exact.data(), out.data()), 1) << text;
    EXPECT_EQ(out, wire(groups)) << text;
}

void refuses(const std::string &text, int32_t family = 28) {
    std::vector<char> exact(text.c_str(), text.c_str() + text.size() + 1);
    std::array<uint8_t, 16> out;
    out.fill(0xEE);
    EXPECT_EQ(dhcp6snooping_inet_pton(family, exact.data(), out.data()), 0) << text;
    for (const uint8_t byte : out)
        ASSERT_EQ(byte, 0xEE) << text;
}

TEST(PtonTest, ReadsWholeAddresses) {
    reads("1:2:3:4:5:6:7:8", {1, 2, 3, 4, 5, 6, 7, 8});
    reads("2001:db8:0:0:0:0:0:1", {0x2001, 0xDB8, 0, 0, 0, 0, 0, 1});
    reads("FFFF:aBcD:0001:0:0:0:0:fffe", {0xFFFF, 0xABCD, 1, 0, 0, 0, 0, 0xFFFE});
}

TEST(PtonTest, ReadsCompressedAddresses) {
    reads("::", {});
    reads("::1", {0, 0, 0, 0, 0, 0, 0, 1});
    reads("1::", {1});
    reads("fe80::1", {0xFE80, 0, 0, 0, 0, 0, 0, 1});
    reads("1:2::7:8", {1, 2, 0, 0, 0, 0, 7, 8});
    reads("1:2:3:4:5:6:7::", {1, 2, 3, 4, 5, 6, 7, 0});
    reads("::2:3:4:5:6:7:8", {0, 2, 3, 4, 5, 6, 7, 8});
    reads("1::3:4:5:6:7:8", {1, 0, 3, 4, 5, 6, 7, 8});
    reads("1:2:3:4:5:6::8", {1, 2, 3, 4, 5, 6, 0, 8});
}

TEST(PtonTest, FillsMissingGroupsWithZeros) {
    reads("1:2:3", {1, 2, 3});
    reads("1:", {1});
    reads("a:b", {0xA, 0xB});
}

TEST(PtonTest, KeepsTheLastFourDigitsOfAGroup) {
    reads("12345::1", {0x2345, 0, 0, 0, 0, 0, 0, 1});
    reads("fffffffffffff::", {0xFFFF});
    reads("1:123456789abcdef01:2", {1, 0xEF01, 2});
}

TEST(PtonTest, IgnoresWhatFollowsTheAddress) {
    reads("fe80::1%eth0", {0xFE80, 0, 0, 0, 0, 0, 0, 1});
    reads("fe80::1/64", {0xFE80, 0, 0, 0, 0, 0, 0, 1});
    reads("1:2:3:4:5:6:7:8:9", {1, 2, 3, 4, 5, 6, 7, 8});
    reads("1:2:3:4:5:6:7:8 and more", {1, 2, 3, 4, 5, 6, 7, 8});
    reads("1:g", {1});
    reads("1:2:x:4", {1, 2});
}

TEST(PtonTest, DoesNotUnderstandDottedTails) {
    reads("::ffff:1.2.3.4", {0, 0, 0, 0, 0, 0, 0xFFFF, 1});
    refuses("1.2.3.4");
    refuses(".1:2");
    refuses("1.2");
}

// The seventh separator is the last one that is looked at, and a "::" there stands for the eighth group.
TEST(PtonTest, LooksAtSevenSeparators) {
    reads("::1:2:3:4:5:6:7:8", {0, 1, 2, 3, 4, 5, 6, 7});
    reads("1:2:3:4:5:6:7:8::1::2", {1, 2, 3, 4, 5, 6, 7, 8});
    reads("1:2:3:4:5:6:7::8", {1, 2, 3, 4, 5, 6, 7, 0});
}

TEST(PtonTest, TakesAThirdColonAsALeniency) { reads("1:::2", {1, 0, 0, 0, 0, 0, 2, 0}); }

TEST(PtonTest, Refuses) {
    refuses("");
    refuses("1");
    refuses("abc");
    refuses(":");
    refuses(":1");
    refuses(":1::2");
    refuses("1::2::3");
    refuses("g::1");
    refuses("\xC3\xA9::1");
    refuses("\xFF:1");
}

TEST(PtonTest, RefusesOtherFamilies) {
    for (const int32_t family : {0, 2, 10, 27, 29, -28})
        refuses("fe80::1", family);
}

TEST(PtonTest, RefusesNull) {
    uint8_t out[16];
    EXPECT_EQ(dhcp6snooping_inet_pton(28, nullptr, out), 0);
    EXPECT_EQ(dhcp6snooping_inet_pton(28, "::1", nullptr), 0);
}

// Every legal form of an address: written out in full, and with any run of zero groups compressed.
TEST(PtonTest, ReadsEveryLegalForm) {
    std::mt19937 random(1);
    for (int round = 0; round < 3000; round++) {
        Groups groups;
        for (uint16_t &group : groups)
            group = random() % 3 == 0 ? static_cast<uint16_t>(random()) : static_cast<uint16_t>(random() % 2);
        for (size_t from = 0; from < 8; from++) {
            for (size_t to = from; to <= 8; to++) { // to == from: nothing compressed
                bool zeros = true;
                for (size_t i = from; i < to; i++)
                    zeros = zeros && groups[i] == 0;
                if (!zeros)
                    break;
                std::string text;
                for (size_t i = 0; i < 8; i++) {
                    if (i >= from && i < to) {
                        text += i == from ? "::" : "";
                        continue;
                    }
                    char digits[8];
                    snprintf(digits, sizeof digits, "%x", groups[i]);
                    text += (i != 0 && i != to ? ":" : "") + std::string(digits);
                    if (to == from && i == to && i != 0)
                        text.insert(text.size() - strlen(digits), ":");
                }
                uint8_t legal[16];
                ASSERT_EQ(inet_pton(AF_INET6, text.c_str(), legal), 1) << text;
                reads(text, groups);
            }
        }
    }
}

// No text makes it read outside; whatever it answers, a refusal writes nothing.
TEST(PtonTest, AnyTextIsSafe) {
    std::mt19937 random(2);
    const char alphabet[] = ":::::0123abF.gx\x80";
    for (int round = 0; round < 20000; round++) {
        std::vector<char> text(random() % 24 + 1);
        for (char &ch : text)
            ch = alphabet[random() % (sizeof alphabet - 1)];
        text.back() = 0;
        std::array<uint8_t, 16> out;
        out.fill(0xEE);
        if (dhcp6snooping_inet_pton(28, text.data(), out.data()) != 0)
            continue;
        for (const uint8_t byte : out)
            ASSERT_EQ(byte, 0xEE) << text.data();
    }
}

std::string written(const Groups &groups) {
    char text[64];
    memset(text, 'x', sizeof text);
    EXPECT_EQ(dhcp6snooping_inet_ntop(28, wire(groups).data(), text, 40), text);
    return text;
}

TEST(NtopTest, CompressesTheFirstZeroRun) {
    EXPECT_EQ(written({0x2001, 0x0DB8, 0, 0, 0, 0, 0, 1}), "2001:DB8::1");
    EXPECT_EQ(written({}), "::");
    EXPECT_EQ(written({0, 0, 0, 0, 0, 0, 0, 1}), "::1");
    EXPECT_EQ(written({1, 0, 2, 0, 0, 0, 0, 3}), "1::2:0:0:0:0:3");
    EXPECT_EQ(written({1}), "1::");
    EXPECT_EQ(written({1, 2, 3, 4, 5, 6, 7, 0}), "1:2:3:4:5:6:7::");
    EXPECT_EQ(written({0, 1, 2, 3, 4, 5, 6, 7}), "::1:2:3:4:5:6:7");
    EXPECT_EQ(written({0, 1, 0, 1, 0, 1, 0, 0}), "::1:0:1:0:1:0:0");
}

TEST(NtopTest, WritesUpperCaseWithoutLeadingZeros) {
    EXPECT_EQ(written({0xABCD, 0x0EF0, 0x00A, 0xB, 1, 2, 3, 4}), "ABCD:EF0:A:B:1:2:3:4");
    EXPECT_EQ(written({0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF}),
              "FFFF:FFFF:FFFF:FFFF:FFFF:FFFF:FFFF:FFFF");
}

TEST(NtopTest, StaysInsideTheBuffer) {
    const auto address = wire({0x2001, 0xDB8, 0, 0, 0, 0, 0, 1});
    const std::string whole = "2001:DB8::1";
    for (uint32_t size = 0; size <= 20; size++) {
        SCOPED_TRACE(size);
        std::vector<char> out(size + 1, 'x');
        char *result = dhcp6snooping_inet_ntop(28, address.data(), out.data(), size);
        EXPECT_EQ(out[size], 'x');
        EXPECT_EQ(result, size > whole.size() ? out.data() : nullptr);
        if (size >= 2)
            EXPECT_EQ(std::string(out.data()), whole.substr(0, size - 1));
        else
            EXPECT_EQ(out[0], 'x');
    }
}

TEST(NtopTest, RefusesOtherFamiliesAndNull) {
    const auto address = wire({1});
    char out[40] = "x";
    for (const int32_t family : {0, 2, 10, 27})
        EXPECT_EQ(dhcp6snooping_inet_ntop(family, address.data(), out, sizeof out), nullptr);
    EXPECT_EQ(dhcp6snooping_inet_ntop(28, nullptr, out, sizeof out), nullptr);
    EXPECT_STREQ(out, "x");
    EXPECT_EQ(dhcp6snooping_inet_ntop(28, address.data(), nullptr, 40), nullptr);
}

TEST(NtopTest, WhatItWritesIsReadBack) {
    std::mt19937 random(3);
    for (int round = 0; round < 5000; round++) {
        Groups groups;
        for (uint16_t &group : groups)
            group = random() % 2 == 0 ? uint16_t{0} : static_cast<uint16_t>(random());
        reads(written(groups), groups);
        uint8_t other[16];
        ASSERT_EQ(inet_pton(AF_INET6, written(groups).c_str(), other), 1);
        EXPECT_EQ(memcmp(other, wire(groups).data(), 16), 0);
    }
}

TEST(CharAppendTest, AppendsWhileTwoBytesRemain) {
    char out[4] = {'x', 'x', 'x', 'x'};
    char *cursor = out;
    uint32_t remaining = 3;
    EXPECT_EQ(dhcp6snooping_char_append('a', &cursor, &remaining), 1);
    EXPECT_EQ(std::string(out), "a");
    EXPECT_EQ(remaining, 2u);
    EXPECT_EQ(dhcp6snooping_char_append('b', &cursor, &remaining), 1);
    EXPECT_EQ(std::string(out), "ab");
    EXPECT_EQ(cursor, out + 2);
    for (remaining = 0; remaining < 2; remaining++) {
        const uint32_t before = remaining;
        EXPECT_EQ(dhcp6snooping_char_append('c', &cursor, &remaining), 0);
        EXPECT_EQ(remaining, before);
    }
    EXPECT_EQ(std::string(out), "ab");
    EXPECT_EQ(cursor, out + 2);
    EXPECT_EQ(out[3], 'x');
}

TEST(MacTextTest, IsLowerCaseWithColons) {
    const uint8_t mac[6] = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
    char text[18];
    EXPECT_EQ(dhcp6snooping_mac_to_str(mac, text), text);
    EXPECT_STREQ(text, "00:1a:2b:3c:4d:5e");
    const uint8_t high[6] = {0xFF, 0xFE, 0x80, 0x7F, 0x0A, 0x00};
    EXPECT_STREQ(dhcp6snooping_mac_to_str(high, text), "ff:fe:80:7f:0a:00");
}

} // namespace
