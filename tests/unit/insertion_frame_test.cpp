// Options 18 and 37 in whole frames: the work buffer, what is refused, what the context is told, lengths and checksum.

#include "l2/dhcp6snooping/clients/limits.h"
#include "tests/unit/infoopt.h"

#include <cstdlib>
#include <cstring>

namespace {

const Bytes NEW_18 = hexBytes("0012 0002 4e31");

struct InsertionFrameTest : InfoTest {
    void SetUp() override {
        InfoTest::SetUp();
        useString(OPTION_18, "N1");
        enableOptions({OPTION_18});
        recordingTake();
    }
    Arrival twoTags() const {
        Arrival arrival;
        arrival.flags = SMD_CTL_DOUBLE_TAGGED;
        return arrival;
    }
    // What option 18 says of a frame when its text is made of these elements.
    std::string seen(const std::vector<uint32_t> &elements, const Frame &f, const Arrival &arrival) {
        TemplateWords words;
        for (const uint32_t element : elements)
            words.element(element).literal("|");
        useTemplate(OPTION_18, words.made);
        const Inserted made = inserted(bytesOf(f), messageOffset(f), arrival);
        EXPECT_TRUE(made.forwarded);
        const size_t start = bytesOf(f).size() + 4;
        return start <= made.bytes.size() ? std::string(made.bytes.begin() + static_cast<long>(start), made.bytes.end())
                                          : "none";
    }
};

// Three frames as an independent implementation made them, checksums included.
TEST_F(InsertionFrameTest, ByteForByte) {
    EXPECT_EQ(dhcp6_info_id_set(1, 3, nullptr), 0u);
    const Inserted solicit = inserted(fromClient(DHCP6_SOLICIT, options().clientId()));
    EXPECT_EQ(solicit.bytes,
              hexBytes("333300010002 02000000000a 8100000a 86dd"
                       "60000000 0026 11 40 fe80000000000000000000000000000a ff020000000000000000000000010002"
                       "0222 0223 0026 85dc 01 123456 0001000a 00030001 02000000000a 00120008 0001 737769746368"));
    useString(OPTION_18, "ge-0/3");
    const uint8_t ip4[] = {192, 0, 2, 1};
    EXPECT_EQ(dhcp6_info_id_set(0, 1, ip4), 0u);
    enableOptions({OPTION_18, OPTION_37});
    dhcp6L2Relay = 1;
    const Inserted relayed = inserted(fromClient(DHCP6_REQUEST, options().clientId()).inner(30));
    EXPECT_EQ(relayed.bytes,
              hexBytes("333300010002 02000000000a 8100000a 8100001e 86dd"
                       "60000000 0056 11 40 fe80000000000000000000000000000a ff020000000000000000000000010002"
                       "0223 0223 0056 7b25 0c 00 00000000000000000000000000000000"
                       "fe80000000000000000000000000000a 0009 0012"
                       "03 123456 0001000a 00030001 02000000000a 00120006 67652d302f33 00250008 0000b80f c0000201"));
    dhcp6L2Relay = 0;
    enableOptions({OPTION_37});
    useTemplate(OPTION_37, TemplateWords().element(3).literal(":").element(11).made);
    Arrival third;
    third.port0 = 2;
    const Frame renew = fromClient(DHCP6_RENEW, options().option(1, hexBytes("0001 0001 11223344 02000000000a")));
    EXPECT_EQ(inserted(bytesOf(renew), 66, third).bytes,
              hexBytes("333300010002 02000000000a 8100000a 86dd"
                       "60000000 002e 11 40 fe80000000000000000000000000000a ff020000000000000000000000010002"
                       "0222 0223 002e 00c9 05 123456 0001000e 00010001 11223344 02000000000a"
                       "0025000c 0000b80f 302f333a30303130"));
}

TEST_F(InsertionFrameTest, WithoutAFrameThereIsNone) {
    recordingShowQuiet(true);
    EXPECT_EQ(dhcp6snooping_packet_add_info_option(nullptr, 66, 10, 0), nullptr);
    Dhcp6PacketDescriptor packet = {};
    packet.length = 100;
    EXPECT_EQ(dhcp6snooping_packet_add_info_option(&packet, 66, 10, 0), nullptr);
    EXPECT_EQ(recordingTake(), Lines{});
}

// In a process of its own, because the buffer is allocated once.
TEST_F(InsertionFrameTest, TheWorkBufferIsAllocatedOnceAndTriedAgain) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto works = []() {
        const Bytes bytes = bytesOf(fromClient(DHCP6_SOLICIT));
        auto *data = const_cast<uint8_t *>(bytes.data());
        for (const uint32_t length : {static_cast<uint32_t>(bytes.size()), 1899u}) {
            Dhcp6PacketDescriptor packet = {.data = data, .length = length, .info = {}, .ctl = {}};
            recordingTraces.clear();
            recordingAllocationsBegin(1);
            const bool refused = dhcp6snooping_packet_add_info_option(&packet, 66, 10, 0) == nullptr;
            if (recordingAllocationsEnd() != 1 || !refused || recordingTraces != Lines{SAID_NO_MEMORY})
                return false;
        }
        for (uint32_t round = 0; round < 3; round++) {
            Dhcp6PacketDescriptor packet = {.data = data, .length = 70, .info = {}, .ctl = {}};
            recordingAllocationsBegin(0);
            const bool made = dhcp6snooping_packet_add_info_option(&packet, 66, 10, 0) == &packet;
            if (recordingAllocationsEnd() != (round == 0 ? 1 : 0) || !made || packet.length != 76)
                return false;
        }
        return true;
    };
    EXPECT_EXIT(exit(works() ? 0 : 1), testing::ExitedWithCode(0), "");
    GTEST_FLAG_SET(death_test_style, "fast");
}

TEST_F(InsertionFrameTest, TheFrameLiesWhereItsHeaderIsAligned) {
    const Inserted first = inserted(fromClient(DHCP6_SOLICIT));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(first.data) % 8, SMD_FRAME_ALIGN);
    EXPECT_EQ(inserted(fromClient(DHCP6_RENEW).inner(30)).data, first.data) << "one buffer for all";
}

TEST_F(InsertionFrameTest, FramesOfUpTo1898Bytes) {
    enableOptions({});
    const auto framed = [](uint32_t length) { return fromClient(DHCP6_SOLICIT, options().option(9, Bytes(length - 74, 1))); };
    const Inserted longest = inserted(framed(1898));
    EXPECT_EQ(longest.bytes, bytesOf(framed(1898)));
    EXPECT_EQ(recordingTraces, Lines{});
    EXPECT_FALSE(inserted(framed(1899)).forwarded);
    EXPECT_FALSE(inserted(framed(9216)).forwarded);
    EXPECT_EQ(recordingTraces, Lines(2, SAID_LENGTH));
    uint8_t bytes[100] = {};
    for (const uint32_t length : {0x80000000u, 0xFFFFFF69u, 0xFFFFFF6Au, 0xFFFFFFFFu}) {
        Dhcp6PacketDescriptor packet = {.data = bytes, .length = length, .info = {}, .ctl = {}};
        recordingTraces.clear();
        EXPECT_EQ(dhcp6snooping_packet_add_info_option(&packet, 66, 10, 0), nullptr);
        EXPECT_EQ(recordingTraces, Lines{SAID_LENGTH}) << length;
    }
}

TEST_F(InsertionFrameTest, TheMessageHasToLieBehindItsHeadersAndInTheFrame) {
    const Bytes one = bytesOf(fromClient(DHCP6_SOLICIT)), two = bytesOf(fromClient(DHCP6_SOLICIT).inner(30));
    for (const uint32_t offset : {0u, 4u, 58u, 65u, 67u, 70u, 0x7FFFFFFFu, 0xFFFFFFBEu, 0xFFFFFFFCu, 0xFFFFFFFFu}) {
        recordingTraces.clear();
        EXPECT_FALSE(inserted(one, offset).forwarded) << offset;
        EXPECT_EQ(recordingTraces, Lines{SAID_LENGTH});
    }
    EXPECT_TRUE(inserted(one, 66).forwarded);
    for (const uint32_t offset : {65u, 66u, 69u, 71u, 74u}) {
        recordingTraces.clear();
        EXPECT_FALSE(inserted(two, offset, twoTags()).forwarded) << offset;
        EXPECT_EQ(recordingTraces, Lines{SAID_LENGTH});
    }
    EXPECT_TRUE(inserted(two, 70, twoTags()).forwarded);
    for (uint32_t length = 0; length < 70; length++)
        EXPECT_FALSE(inserted(Bytes(one.begin(), one.begin() + length), 66).forwarded) << length;
}

TEST_F(InsertionFrameTest, TheFrameMayLieInTheWorkBufferAlready) {
    const Bytes plain = bytesOf(fromClient(DHCP6_SOLICIT, options().clientId()));
    const Inserted first = inserted(plain, 66);
    for (const uint32_t shift : {0u, 1u, 8u, 300u}) {
        auto *place = const_cast<uint8_t *>(first.data) + shift;
        memcpy(place, plain.data(), plain.size());
        Dhcp6PacketDescriptor packet = {.data = place, .length = static_cast<uint32_t>(plain.size()), .info = {}, .ctl = {}};
        ASSERT_EQ(dhcp6snooping_packet_add_info_option(&packet, 66, 10, 0), &packet);
        EXPECT_EQ(packet.data, first.data);
        EXPECT_EQ(Bytes(packet.data, packet.data + packet.length), first.bytes);
    }
}

TEST_F(InsertionFrameTest, TheSwitchInterfaceOfTheVlanIsAskedFor) {
    recordingAddress(7, 10, 0xC0A80A01);
    EXPECT_EQ(seen({1}, fromClient(DHCP6_SOLICIT), {}), "192.168.10.1|");
    EXPECT_EQ(recordingTake(), (Lines{"getSWByVLAN vlan=10", "vosHostNameGet size=128", "getSysMacAdress",
                                      "smdVDPortSnmpToUser port=1", "l3ifSwPrimIpGet switch=7"}));
    inserted(fromClient(DHCP6_RELEASE));
    EXPECT_EQ(recordingTake(), Lines{"getSWByVLAN vlan=10"});
}

TEST_F(InsertionFrameTest, TheInnerVlanIsReadOfTwoTagsOnly) {
    const Frame one = fromClient(DHCP6_SOLICIT), two = fromClient(DHCP6_SOLICIT).inner(0xE12C);
    Arrival arrival = twoTags();
    EXPECT_EQ(seen({10, 11}, two, arrival), "0010|0300|") << "priority bits are no part of it";
    arrival.vlan = 4094;
    EXPECT_EQ(seen({10, 11}, two, arrival), "4094|0300|");
    arrival.flags = ~SMD_CTL_DOUBLE_TAGGED;
    EXPECT_EQ(seen({10, 11}, one, arrival), "0000|4094|");
    arrival.flags = 0xFFFFFFFF;
    EXPECT_EQ(seen({10, 11}, fromClient(DHCP6_SOLICIT).inner(0xF000), arrival), "0000|4094|") << "an inner VLAN of 0 is none";
}

TEST_F(InsertionFrameTest, WithOneTagTheTrafficClassIsNoVlan) {
    useTemplate(OPTION_18, TemplateWords().element(10).element(11).made);
    Bytes bytes = bytesOf(fromClient(DHCP6_SOLICIT));
    bytes[18] = 0x6B; // traffic class 0xB8: here the second tag of another frame would stand
    bytes[19] = 0x80;
    const Bytes made = inserted(bytes, 66).bytes;
    EXPECT_EQ(Bytes(made.begin() + 74, made.end()), textBytes("00000010"));
    EXPECT_EQ(Bytes(made.begin() + 18, made.begin() + 20), (Bytes{0x6B, 0x80}));
}

TEST_F(InsertionFrameTest, XponDataComeFromTheArrival) {
    Arrival arrival;
    arrival.port0 = 4;
    arrival.info.access = 1;
    arrival.info.ponValue = 200;
    arrival.info.ponId = 0xFFFE;
    memcpy(arrival.info.serial, "ABCD\x01\x02\xFE\xFF", 8);
    const Frame f = fromClient(DHCP6_SOLICIT);
    const std::vector<uint32_t> elements = {4, 14, 15, 16, 17, 10, 11, 3};
    EXPECT_EQ(seen(elements, f, arrival), "xpon|200|8190|ABCD0102feff|8190|0010|0000|0/5|");
    for (const uint32_t access : {0u, 2u, 0x101u, 0xFFFFFFFFu}) {
        arrival.info.access = access;
        EXPECT_EQ(seen(elements, f, arrival), "ethernet|0000|0010|0/5|");
    }
}

TEST_F(InsertionFrameTest, NothingOfOneFrameIsLeftForTheNext) {
    Arrival xpon = twoTags();
    xpon.info.access = 1;
    xpon.info.ponValue = 9;
    const Frame first = fromClient(DHCP6_SOLICIT, options().clientId()).inner(30);
    EXPECT_EQ(seen({12, 14, 11}, first, xpon), "02000000000A|9|0030|");
    recordingOddities.failuresLeaveOuts = true;
    recordingFailAlways("getSysMacAdress");
    EXPECT_EQ(seen({12, 14, 11, 5}, fromClient(DHCP6_SOLICIT), {}), "000000000000|0010|000000000000|");
}

TEST_F(InsertionFrameTest, PortsBeyondTheSwitchHaveNoTemplate) {
    Arrival arrival;
    for (const uint32_t port0 : {28u, 256u, 65535u, 0xFFFFu + 28 + 1, 0xFFFFFFFFu}) {
        arrival.port0 = port0;
        EXPECT_EQ(seen({3}, fromClient(DHCP6_SOLICIT), arrival), "none") << port0;
    }
    EXPECT_EQ(recordingTraces, Lines(5, SAID_NO_INTERFACE_ID));
    arrival.vlan = 0x1000 | 10;
    arrival.port0 = 0;
    EXPECT_EQ(seen({3}, fromClient(DHCP6_SOLICIT), arrival), "none") << "all 16 bits of the VLAN count";
    arrival.port0 = 0xFFFFFFFF;
    EXPECT_EQ(dhcp6_info_id_set(1, 3, nullptr), 0u);
    EXPECT_EQ(inserted(bytesOf(fromClient(DHCP6_SOLICIT)), 66, arrival).bytes[75], 0) << "the byte of port 0xFFFFFFFF";
}

TEST_F(InsertionFrameTest, TheDropStrategyDropsTheFrame) {
    dhcp6InfoOptionPolicy.strategy = 1;
    EXPECT_FALSE(inserted(fromClient(DHCP6_SOLICIT, options().option(18, {1}))).forwarded);
    EXPECT_EQ(recordingTraces, (Lines{SAID_STRATEGY, SAID_DROPPED}));
}

TEST_F(InsertionFrameTest, ExtensionHeadersStayWhereTheyAre) {
    // A destination options header of 8 bytes between the IPv6 header and the UDP header.
    Bytes bytes = bytesOf(fromClient(DHCP6_SOLICIT));
    const Bytes extension = {17, 0, 1, 4, 0, 0, 0, 0};
    bytes.insert(bytes.begin() + 58, extension.begin(), extension.end());
    bytes[18 + 6] = 60;
    bytes[18 + 5] = static_cast<uint8_t>(bytes[18 + 5] + 8);
    Bytes expected = bytesOf(fromClient(DHCP6_SOLICIT, options().option(18, textBytes("N1"))));
    expected.insert(expected.begin() + 58, extension.begin(), extension.end());
    expected[18 + 6] = 60;
    expected[18 + 5] = static_cast<uint8_t>(expected[18 + 5] + 8);
    EXPECT_EQ(inserted(bytes, 74).bytes, expected);
    dhcp6L2Relay = 1;
    const Inserted relayed = inserted(bytes, 74);
    EXPECT_EQ(Bytes(relayed.bytes.begin() + 66, relayed.bytes.begin() + 70), hexBytes("0223 0223"));
    EXPECT_EQ(relayed.bytes[74], 12);
    EXPECT_EQ(Bytes(relayed.bytes.begin() + 92, relayed.bytes.begin() + 108), addressBytes("fe80::a"));
}

TEST_F(InsertionFrameTest, FarBehindManyHeadersTheBufferIsTheLimit) {
    enableOptions({});
    dhcp6L2Relay = 1;
    // 2048 bytes of buffer: behind offset 1600 and the message header, 444 are left for options and relay header.
    const auto far = [](uint32_t area) {
        Bytes bytes = bytesOf(fromClient(DHCP6_SOLICIT));
        bytes.insert(bytes.begin() + 58, 1534, 0);
        return together({bytes, Bytes(area, 0)});
    };
    EXPECT_EQ(inserted(far(294), 1600).bytes.size(), 1898u + 38);
    EXPECT_EQ(recordingTraces, Lines{});
    enableOptions({OPTION_18});
    dhcp6L2Relay = 0;
    const uint32_t texts[] = {146, 147}; // 294 + 4 + 146 = 444
    for (const uint32_t length : texts) {
        useTemplate(OPTION_18, templateOfLength(length));
        recordingTraces.clear();
        const Inserted made = inserted(far(294), 1600);
        EXPECT_EQ(made.bytes.size(), length == 146 ? 2048u : 1898u);
        EXPECT_EQ(recordingTraces, length == 146 ? Lines{} : Lines{SAID_TOO_LONG});
    }
    dhcp6L2Relay = 1;
    for (const uint32_t length : {108u, 109u}) {
        useTemplate(OPTION_18, templateOfLength(length));
        recordingTraces.clear();
        const Inserted made = inserted(far(294), 1600);
        EXPECT_EQ(made.bytes.size(), length == 108 ? 2048u : 1898u + 113);
        EXPECT_EQ(recordingTraces, length == 108 ? Lines{} : Lines{SAID_TOO_LONG});
    }
}

} // namespace
