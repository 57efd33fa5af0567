// Lengths and checksum of a frame whose options changed.

#include "l2/dhcp6snooping/clients/limits.h"
#include "tests/unit/infoopt.h"

namespace {

struct InsertionLengthTest : InfoTest {
    void SetUp() override {
        InfoTest::SetUp();
        useString(OPTION_18, "N1");
        enableOptions({OPTION_18});
    }
};

uint32_t numberAt(const Bytes &bytes, size_t offset) { return static_cast<uint32_t>(bytes[offset] << 8 | bytes[offset + 1]); }
void putAt(Bytes &bytes, size_t offset, uint32_t value) {
    bytes[offset] = static_cast<uint8_t>(value >> 8);
    bytes[offset + 1] = static_cast<uint8_t>(value);
}
constexpr size_t PAYLOAD_LENGTH = 22, UDP_LENGTH = 62, CHECKSUM = 64;

TEST_F(InsertionLengthTest, AMessageMayBecomeShorter) {
    const Bytes old = hexBytes("0012 0014 71727374 0018 000000000000000000000000 0000"); // 24 bytes
    const Options behind = options().clientId();
    const Inserted made = inserted(fromClient(DHCP6_SOLICIT, Options{together({old, behind.bytes})}));
    EXPECT_EQ(made.bytes, bytesOf(fromClient(DHCP6_SOLICIT, options().clientId().option(18, textBytes("N1")))));
}

TEST_F(InsertionLengthTest, FieldsThatAreOffStayOff) {
    for (const uint32_t field : {0u, 1u, 100u, 0xFFFFu}) {
        Bytes bytes = bytesOf(fromClient(DHCP6_SOLICIT, options().clientId()));
        putAt(bytes, PAYLOAD_LENGTH, field);
        putAt(bytes, UDP_LENGTH, field ^ 0x100);
        const Bytes made = inserted(bytes, 66).bytes;
        EXPECT_EQ(numberAt(made, PAYLOAD_LENGTH), (field + 6) & 0xFFFF);
        EXPECT_EQ(numberAt(made, UDP_LENGTH), ((field ^ 0x100) + 6) & 0xFFFF);
        EXPECT_EQ(made.size(), bytes.size() + 6);
    }
    const Bytes old = hexBytes("0012 0008 71727374 0010 0000 0000 0000");
    Bytes bytes = bytesOf(fromClient(DHCP6_SOLICIT, Options{together({old, {0, 0}})}));
    putAt(bytes, PAYLOAD_LENGTH, 3);
    putAt(bytes, UDP_LENGTH, 9);
    const Bytes made = inserted(bytes, 66).bytes;
    EXPECT_EQ(numberAt(made, PAYLOAD_LENGTH), 0xFFF9u) << "10 bytes less";
    EXPECT_EQ(numberAt(made, UDP_LENGTH), 0xFFFFu);
}

TEST_F(InsertionLengthTest, TheChecksumIsMadeOfWhatIsInTheFrame) {
    const Bytes right = bytesOf(fromClient(DHCP6_SOLICIT, options().clientId().option(18, textBytes("N1"))));
    for (const uint32_t received : {0u, 0xFFFFu, 0x1234u}) {
        Bytes bytes = bytesOf(fromClient(DHCP6_SOLICIT, options().clientId()));
        putAt(bytes, CHECKSUM, received);
        EXPECT_EQ(inserted(bytes, 66).bytes, right) << "whatever it was";
    }
}

TEST_F(InsertionLengthTest, TheChecksumIsRenewedWhenNothingChanged) {
    const auto repaired = [](const Frame &f) {
        Bytes bytes = bytesOf(f);
        const size_t at = CHECKSUM + (f.innerVlan != 0 ? 4 : 0);
        putAt(bytes, at, numberAt(bytes, at) ^ 0x5555);
        Arrival arrival;
        arrival.flags = flagsOf(f);
        return inserted(bytes, messageOffset(f), arrival).bytes == bytesOf(f);
    };
    const Options own = options().option(18, {1, 2, 3});
    for (const uint8_t unhandled : std::initializer_list<uint8_t>{0, 2, 7, 8, 9, 10, 13, 255})
        EXPECT_TRUE(repaired(fromClient(unhandled, own)));
    dhcp6InfoOptionPolicy.strategy = 2;
    EXPECT_TRUE(repaired(fromClient(DHCP6_SOLICIT, own)));
    EXPECT_TRUE(repaired(fromClient(DHCP6_SOLICIT, own).inner(30)));
    useTemplate(OPTION_18, templateOfLength(509));
    EXPECT_TRUE(repaired(fromClient(DHCP6_SOLICIT)));
    enableOptions({});
    EXPECT_TRUE(repaired(fromClient(DHCP6_SOLICIT)));
    dhcp6L2Relay = 1;
    EXPECT_TRUE(repaired(fromClient(DHCP6_RELEASE, own)));
    EXPECT_TRUE(repaired(fromClient(DHCP6_SOLICIT, options().option(9, Bytes(1455, 0)))));
}

// A message whose sum is 0 is sent with 0xFFFF, which means the same.
TEST_F(InsertionLengthTest, AChecksumOfZeroIsWrittenAsOnes) {
    Frame sent = fromClient(DHCP6_SOLICIT, options().option(18, textBytes("N1")));
    putAt(sent.payload, 2, 0);
    putAt(sent.payload, 2, numberAt(bytesOf(sent), CHECKSUM)); // the sum grows to all ones
    ASSERT_EQ(numberAt(bytesOf(sent), CHECKSUM), 0xFFFFu);
    Frame received = sent;
    received.payload.resize(4);
    const Bytes made = inserted(received).bytes;
    EXPECT_EQ(numberAt(made, CHECKSUM), 0xFFFFu);
    EXPECT_EQ(made, bytesOf(sent));
}

TEST_F(InsertionLengthTest, OddAndEvenLengths) {
    for (size_t length = 0; length < 80; length++) {
        useString(OPTION_18, std::string(length, 's'));
        for (uint32_t area = 0; area < 3; area++) {
            const Options content = options().option(8, Bytes(area, 0xC7));
            Options more = content;
            EXPECT_EQ(inserted(fromClient(DHCP6_SOLICIT, content)).bytes,
                      bytesOf(fromClient(DHCP6_SOLICIT, more.option(18, Bytes(length, 's')))));
        }
    }
}

TEST_F(InsertionLengthTest, WhatFollowsThePayloadIsPartOfTheMessage) {
    // The frame's length counts, not the lengths in its headers: padding lies in front of the new option.
    Bytes bytes = bytesOf(fromClient(DHCP6_SOLICIT));
    bytes.insert(bytes.end(), 6, 0);
    const Bytes made = inserted(bytes, 66).bytes;
    EXPECT_EQ(Bytes(made.begin() + 70, made.end()), hexBytes("000000000000 0012 0002 4e31"));
    EXPECT_EQ(numberAt(made, UDP_LENGTH), 8u + 4 + 6);
}

} // namespace
