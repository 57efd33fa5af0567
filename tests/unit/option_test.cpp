// The walk over the options of a message.

#include "l2/dhcp6snooping/base/option.h"
#include "tests/unit/frames.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <random>

namespace {

// Bytes in a heap block that ends with them, `shift` bytes behind an even address.
struct Area {
    uint8_t *block;
    uint8_t *data;
    uint32_t length;

    explicit Area(const Bytes &bytes, uint32_t shift = 0)
        : block(static_cast<uint8_t *>(malloc(bytes.size() + shift + 1))), data(block + shift + 1),
          length(static_cast<uint32_t>(bytes.size())) {
        std::copy(bytes.begin(), bytes.end(), data);
    }
    ~Area() { free(block); }
    Area(const Area &) = delete;
    Area &operator=(const Area &) = delete;
};

// Where an option of this code is found from the area's start, or -1; its length goes to *length.
int64_t findFirst(const Area &area, uint16_t code, uint32_t *length) {
    const uint8_t *found = dhcp6snooping_msg_option_find(code, length, area.data, area.length, nullptr, nullptr);
    return found == nullptr ? -1 : found - area.data;
}

TEST(OptionTest, FindsAnOptionAndItsLength) {
    const Area area(options().clientId().option(14, {}).iaNa(1, 2).bytes);
    uint32_t length = 99;
    EXPECT_EQ(findFirst(area, 1, &length), 0);
    EXPECT_EQ(length, 10u);
    EXPECT_EQ(findFirst(area, 14, &length), 14);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(findFirst(area, 3, &length), 18);
    EXPECT_EQ(length, 12u);
}

TEST(OptionTest, CodesAndLengthsAreBigEndian) {
    const Area area(options().option(0x0102, Bytes(0x0102, 7)).option(0x0201, {5}).bytes);
    uint32_t length = 0;
    EXPECT_EQ(findFirst(area, 0x0102, &length), 0);
    EXPECT_EQ(length, 0x0102u);
    EXPECT_EQ(findFirst(area, 0x0201, &length), 4 + 0x0102);
    EXPECT_EQ(length, 1u);
}

TEST(OptionTest, FourBytesCanHoldAnOptionThreeCannot) {
    uint32_t length = 99;
    EXPECT_EQ(findFirst(Area({0, 13, 0, 0}), 13, &length), 0);
    EXPECT_EQ(length, 0u);
    length = 99;
    for (uint32_t size = 0; size < 4; size++)
        EXPECT_EQ(findFirst(Area(Bytes(size, 0)), 0, &length), -1);
    EXPECT_EQ(length, 99u);
}

TEST(OptionTest, ATruncatedOptionEndsTheWalk) {
    Bytes bytes = options().option(7, {1, 2, 3}).bytes;
    bytes[3] = 4; // one more than there is
    const Area alone(bytes);
    uint32_t length = 99;
    EXPECT_EQ(findFirst(alone, 7, &length), -1);
    const Bytes behind = options().option(13, {0, 1}).bytes;
    bytes[3] = 200;
    bytes.insert(bytes.end(), behind.begin(), behind.end());
    const Area area(bytes);
    EXPECT_EQ(findFirst(area, 13, &length), -1);
    EXPECT_EQ(length, 99u);
    const uint8_t *cursor = area.data;
    uint32_t left = 5;
    EXPECT_EQ(dhcp6snooping_msg_option_find(13, &length, area.data, area.length, &cursor, &left), nullptr);
    EXPECT_EQ(cursor, nullptr);
    EXPECT_EQ(left, 0u);
    EXPECT_EQ(length, 99u);
}

TEST(OptionTest, TheCursorVisitsEveryOccurrenceInOrder) {
    const Area area(options().option(5, {1}).option(6, {9, 9}).option(5, {2, 2}).option(5, {}).option(1, {0}).bytes);
    const uint8_t *cursor = nullptr;
    uint32_t left = 0, length = 0;
    EXPECT_EQ(dhcp6snooping_msg_option_find(5, &length, area.data, area.length, &cursor, &left), area.data);
    EXPECT_EQ(length, 1u);
    EXPECT_EQ(cursor, area.data + 5);
    EXPECT_EQ(left, area.length - 5);
    EXPECT_EQ(dhcp6snooping_msg_option_find(5, &length, nullptr, 0, &cursor, &left), area.data + 11);
    EXPECT_EQ(length, 2u);
    EXPECT_EQ(dhcp6snooping_msg_option_find(5, &length, nullptr, 0, &cursor, &left), area.data + 17);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(left, 5u);
    length = 99;
    EXPECT_EQ(dhcp6snooping_msg_option_find(5, &length, nullptr, 0, &cursor, &left), nullptr);
    EXPECT_EQ(cursor, nullptr);
    EXPECT_EQ(left, 0u);
    EXPECT_EQ(length, 99u);
}

TEST(OptionTest, AGivenAreaWinsOverTheCursor) {
    const Area first(options().option(5, {1}).bytes), second(options().option(6, {1}).bytes);
    const uint8_t *cursor = second.data;
    uint32_t left = second.length, length = 0;
    EXPECT_EQ(dhcp6snooping_msg_option_find(5, &length, first.data, first.length, &cursor, &left), first.data);
    EXPECT_EQ(cursor, first.data + 5);
    EXPECT_EQ(left, 0u);
}

TEST(OptionTest, AnExhaustedOrMissingCursorFindsNothing) {
    uint32_t length = 99, left = 17;
    const uint8_t *cursor = nullptr;
    EXPECT_EQ(dhcp6snooping_msg_option_find(5, &length, nullptr, 40, &cursor, &left), nullptr);
    EXPECT_EQ(left, 17u); // left as it is
    EXPECT_EQ(dhcp6snooping_msg_option_find(5, &length, nullptr, 40, nullptr, nullptr), nullptr);
    EXPECT_EQ(length, 99u);
}

TEST(OptionTest, HalfACursorIsNone) {
    const Area area(options().option(5, {1}).bytes);
    const uint8_t *cursor = area.data;
    uint32_t left = area.length, length = 0;
    EXPECT_EQ(dhcp6snooping_msg_option_find(5, &length, area.data, area.length, &cursor, nullptr), area.data);
    EXPECT_EQ(cursor, area.data);
    EXPECT_EQ(dhcp6snooping_msg_option_find(5, &length, area.data, area.length, nullptr, &left), area.data);
    EXPECT_EQ(left, area.length);
    EXPECT_EQ(dhcp6snooping_msg_option_find(5, &length, nullptr, 0, &cursor, nullptr), nullptr);
    EXPECT_EQ(dhcp6snooping_msg_option_find(5, nullptr, area.data, area.length, nullptr, nullptr), area.data);
}

// A whole message cut at every byte, at every alignment: each option is found exactly when all of it is there.
TEST(OptionTest, TruncatedAtEveryByteAtEveryAlignment) {
    const Bytes whole = options()
                            .clientId()
                            .serverId()
                            .iaNa(10, 20, options().address("2001:db8::1", 30, 40))
                            .iaPd(10, 20, options().prefix("2001:db8:1::", 48, 30, 40))
                            .status(0, "ok")
                            .bytes;
    const struct {
        uint16_t code;
        uint32_t start, end;
    } parts[] = {{1, 0, 14}, {2, 14, 28}, {3, 28, 72}, {25, 72, 117}, {13, 117, 125}};
    ASSERT_EQ(whole.size(), 125u);
    for (uint32_t cut = 0; cut <= whole.size(); cut++) {
        for (uint32_t shift = 0; shift < 8; shift++) {
            const Area area(Bytes(whole.begin(), whole.begin() + cut), shift);
            for (const auto &part : parts) {
                uint32_t length = 99;
                const int64_t expected = cut >= part.end ? int64_t{part.start} : -1;
                ASSERT_EQ(findFirst(area, part.code, &length), expected) << cut << " " << part.code;
                ASSERT_EQ(length, cut >= part.end ? part.end - part.start - 4 : 99u);
            }
        }
    }
}

// Any bytes: the same answers as a walk written another way.
TEST(OptionTest, AgreesWithASlowWalkOnAnyBytes) {
    std::mt19937 random(4);
    for (int round = 0; round < 20000; round++) {
        Bytes bytes(random() % 60);
        for (uint8_t &byte : bytes)
            byte = static_cast<uint8_t>(random() % 4);
        std::vector<int64_t> expected;
        for (size_t at = 0; at + 4 <= bytes.size();) {
            const size_t end = at + 4 + static_cast<size_t>(bytes[at + 2] * 256 + bytes[at + 3]);
            if (end > bytes.size())
                break;
            if (bytes[at] == 0 && bytes[at + 1] == 1)
                expected.push_back(static_cast<int64_t>(at));
            at = end;
        }
        const Area area(bytes, random() % 8);
        std::vector<int64_t> found;
        const uint8_t *cursor = nullptr;
        uint32_t left = 0, length = 0;
        const uint8_t *option = dhcp6snooping_msg_option_find(1, &length, area.data, area.length, &cursor, &left);
        for (; option != nullptr; option = dhcp6snooping_msg_option_find(1, &length, nullptr, 0, &cursor, &left))
            found.push_back(option - area.data);
        ASSERT_EQ(found, expected);
    }
}

uint16_t statusOf(const Bytes &bytes) {
    const Area area(bytes);
    return dhcp6snooping_msg_option_status_find(area.data, area.length, nullptr);
}

TEST(StatusTest, IsTheFirstStatusOptionsCode) {
    EXPECT_EQ(statusOf(options().clientId().status(2, "none").status(5).bytes), 2);
    EXPECT_EQ(statusOf(options().status(0x0102).bytes), 0x0102);
}

TEST(StatusTest, MissingOrShortMeansSuccess) {
    EXPECT_EQ(statusOf({}), 0);
    EXPECT_EQ(statusOf(options().clientId().bytes), 0);
    EXPECT_EQ(statusOf(options().option(13, {}).status(3).bytes), 0);
    EXPECT_EQ(statusOf(options().option(13, {9}).status(3).bytes), 0);
}

TEST(StatusTest, TheMessageIsSetToNullAndNeverFilled) {
    const Bytes bytes = options().status(2, "no addresses").bytes;
    const char *text = "x";
    EXPECT_EQ(dhcp6snooping_msg_option_status_find(bytes.data(), static_cast<uint32_t>(bytes.size()), &text), 2);
    EXPECT_EQ(text, nullptr);
    text = "x";
    EXPECT_EQ(dhcp6snooping_msg_option_status_find(bytes.data(), 0, &text), 0);
    EXPECT_EQ(text, nullptr);
}

TEST(OptionTextTest, StatusCodes) {
    const char *const texts[] = {"success",    "unspecified failure", "no addresses available",
                                 "no binding", "not on link",         "use multicast"};
    for (uint32_t code = 0; code < 6; code++)
        EXPECT_STREQ(dhcp6snooping_msg_option_status_desc(code), texts[code]);
    for (const uint32_t code : {6u, 7u, 255u, 65535u, 65536u, 0xFFFFFFFFu})
        EXPECT_STREQ(dhcp6snooping_msg_option_status_desc(code), "unknown status code");
}

TEST(OptionTextTest, MessageTypes) {
    const char *const texts[] = {"UNKNOWN",       "SOLICIT",    "ADVERTISE", "REQUEST", "CONFIRM",     "RENEW",
                                 "REBIND",        "REPLY",      "RELEASE",   "DECLINE", "RECONFIGURE", "INFORMATION_REQUEST",
                                 "RELAY_FORWARD", "RELAY_REPLY"};
    for (uint32_t type = 0; type < 256; type++)
        EXPECT_STREQ(dhcp6snooping_msgtype_to_str(static_cast<uint8_t>(type)), type < 14 ? texts[type] : "UNKNOWN");
}

TEST(UtilFreeTest, FreesAndClears) {
    void *block = malloc(10); // the address sanitizer reports it when it is not freed
    dhcp6snooping_util_free(&block);
    EXPECT_EQ(block, nullptr);
    dhcp6snooping_util_free(&block);
    EXPECT_EQ(block, nullptr);
    dhcp6snooping_util_free(nullptr);
}

} // namespace
