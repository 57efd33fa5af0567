// The UDP checksum, against one computed another way.

#include "l2/dhcp6snooping/base/checksum.h"
#include "tests/unit/frames.h"

#include <arpa/inet.h>
#include <cstring>
#include <gtest/gtest.h>
#include <random>

namespace {

// One's-complement sum of big-endian words, an odd byte padded behind.
uint16_t slowSum(const Bytes &bytes) {
    uint64_t sum = 0;
    for (size_t i = 0; i < bytes.size(); i++)
        sum += i % 2 == 0 ? static_cast<uint64_t>(bytes[i]) << 8 : bytes[i];
    return static_cast<uint16_t>(sum % 0xFFFF == 0 && sum != 0 ? 0xFFFF : sum % 0xFFFF);
}

Bytes randomBytes(std::mt19937 &random, size_t size) {
    Bytes bytes(size);
    for (uint8_t &byte : bytes)
        byte = static_cast<uint8_t>(random());
    return bytes;
}

TEST(ChecksumTest, SumsEveryLength) {
    std::mt19937 random(5);
    for (uint32_t length = 0; length <= 200; length++) {
        for (uint32_t shift = 0; shift < 2; shift++) {
            const Bytes data = randomBytes(random, length);
            Bytes block(shift); // exactly-sized, at an even and an odd address
            block.insert(block.end(), data.begin(), data.end());
            const uint32_t sum = dhcp6snooping_in_checksum_update(block.data() + shift, length);
            const uint16_t checksum = dhcp6snooping_in_checksum_finish(sum);
            EXPECT_EQ(checksum, static_cast<uint16_t>(~htons(slowSum(data)))) << length;
        }
    }
}

TEST(ChecksumTest, TheLastOddByteIsTheHighOne) {
    const uint8_t one = 0x01;
    EXPECT_EQ(dhcp6snooping_in_checksum_update(&one, 1), htons(0x0100));
    const uint8_t three[] = {0x12, 0x34, 0xAB};
    EXPECT_EQ(dhcp6snooping_in_checksum_update(three, 3), static_cast<uint32_t>(htons(0x1234)) + htons(0xAB00));
}

TEST(ChecksumTest, TheDataSumIsNotFolded) {
    const Bytes ones(33, 0xFF);
    EXPECT_EQ(dhcp6snooping_in_checksum_update(ones.data(), 0), 0u);
    EXPECT_EQ(dhcp6snooping_in_checksum_update(ones.data(), 1), htons(0xFF00));
    EXPECT_EQ(dhcp6snooping_in_checksum_update(ones.data(), 31), 15u * 0xFFFF + htons(0xFF00));
    EXPECT_EQ(dhcp6snooping_in_checksum_update(ones.data(), 32), 16u * 0xFFFF);
    EXPECT_EQ(dhcp6snooping_in_checksum_update(ones.data(), 33), 16u * 0xFFFF + htons(0xFF00));
    EXPECT_EQ(dhcp6snooping_in_checksum_update(nullptr, 0), 0u);
}

TEST(ChecksumTest, TheLongestSegmentFits) {
    const Bytes ones(65535, 0xFF);
    EXPECT_EQ(dhcp6snooping_in_checksum_update(ones.data(), 65535), 32767u * 0xFFFF + htons(0xFF00));
}

TEST(ChecksumTest, ThePseudoHeaderHasAddressesLengthAndNextHeader) {
    const Bytes zero(16, 0), source = addressBytes("1:2:3:4:5:6:7:8"), destination = addressBytes("ff02::1:2");
    EXPECT_EQ(dhcp6snooping_ip6_pseudo_header_checksum_update(zero.data(), zero.data(), 17, 0), htons(17));
    EXPECT_EQ(dhcp6snooping_ip6_pseudo_header_checksum_update(zero.data(), zero.data(), 0, 0x1234), htons(0x1234));
    uint32_t expected = static_cast<uint32_t>(htons(17)) + htons(300);
    for (const uint16_t word : std::initializer_list<uint16_t>{1, 2, 3, 4, 5, 6, 7, 8, 0xFF02, 1, 2})
        expected += htons(word);
    EXPECT_EQ(dhcp6snooping_ip6_pseudo_header_checksum_update(source.data(), destination.data(), 17, 300), expected);
}

TEST(ChecksumTest, FinishFoldsAsOftenAsNeeded) {
    EXPECT_EQ(dhcp6snooping_in_checksum_finish(0), 0xFFFF);
    EXPECT_EQ(dhcp6snooping_in_checksum_finish(0xFFFF), 0);
    EXPECT_EQ(dhcp6snooping_in_checksum_finish(0x10000), 0xFFFE);
    EXPECT_EQ(dhcp6snooping_in_checksum_finish(0x1FFFF), 0xFFFE);
    EXPECT_EQ(dhcp6snooping_in_checksum_finish(0xFFFFFFFF), 0);
    EXPECT_EQ(dhcp6snooping_in_checksum_finish(0xFFFF0001), 0xFFFE);
}

} // namespace
