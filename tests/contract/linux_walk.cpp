// The walk over a frame's headers: what is a message, what the kernel forwards, what is held back. Frames are built by hand,
// and each lies in a block of exactly its size, so that a read behind its end is caught.

#include "platform/linux/ipv6walk.h"

#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

static constexpr std::array<uint16_t, 2> PORTS = {546, 547};
static constexpr uint32_t IP = 18; // of the IPv6 header behind one tag

static Bytes operator+(Bytes left, const Bytes &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

static Bytes be16(uint32_t value) { return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)}; }

static Bytes zeros(size_t count) { return Bytes(count, 0); }

static Bytes tag(uint32_t tpid, uint32_t tci) { return be16(tpid) + be16(tci); }

static Bytes ethernet(const Bytes &tags = tag(0x8100, 10)) {
    return Bytes{0x33, 0x33, 0, 1, 0, 2} + Bytes{2, 0, 0, 0, 0, 1} + tags + be16(0x86DD);
}

static Bytes ip6(uint8_t next, const Bytes &payload) {
    return Bytes{0x60, 0, 0, 0} + be16(static_cast<uint32_t>(payload.size())) + Bytes{next, 1} + zeros(32) + payload;
}

// A DHCPv6 SOLICIT: type and transaction id.
static Bytes udp(uint32_t port = 547, int lengthError = 0) {
    Bytes payload = {1, 0x12, 0x34, 0x56};
    return be16(546) + be16(port) + be16(static_cast<uint32_t>(12 + lengthError)) + be16(0) + payload;
}

static Bytes tcp() { return zeros(20); }

// A header whose length field counts 8-byte units behind the first one.
static Bytes options(uint8_t next, uint8_t units = 0) { return Bytes{next, units} + zeros(6 + 8u * units); }

static Bytes fragment(uint8_t next, uint32_t offset, bool more) {
    return Bytes{next, 0} + be16(offset << 3 | (more ? 1u : 0u)) + zeros(4);
}

static Bytes authentication(uint8_t next, uint8_t length) { // bytes
    return Bytes{next, static_cast<uint8_t>(length / 4 - 2)} + zeros(length - 2u);
}

static LinuxWalk walk(const Bytes &frame, uint32_t addedTags = 0) {
    std::unique_ptr<uint8_t[]> exact(new uint8_t[frame.size()]);
    std::copy(frame.begin(), frame.end(), exact.get());
    return linuxIp6Walk({exact.get(), frame.size()}, addedTags, PORTS);
}

static uint32_t verdict(const Bytes &packet, const Bytes &tags = tag(0x8100, 10)) {
    return walk(ethernet(tags) + packet).verdict;
}

static const Bytes TWO_TAGS = tag(0x88A8, 20) + tag(0x8100, 30);

TEST(LinuxWalk, FindsAPlainMessage) {
    LinuxWalk w = walk(ethernet() + ip6(17, udp()));
    EXPECT_EQ(w.verdict, LINUX_WALK_MESSAGE);
    EXPECT_EQ(w.tags, 1u);
    EXPECT_EQ(w.ipOffset, IP);
    EXPECT_EQ(w.udpOffset, IP + 40);
    EXPECT_EQ(w.payloadOffset, IP + 48);
    EXPECT_EQ(w.udpLength, 12u);
    EXPECT_EQ(w.udpPort, 547);
    EXPECT_EQ(w.length, IP + 40 + 12);
}

TEST(LinuxWalk, FindsAMessageBehindTwoTags) {
    LinuxWalk w = walk(ethernet(TWO_TAGS) + ip6(17, udp(546)));
    EXPECT_EQ(w.verdict, LINUX_WALK_MESSAGE);
    EXPECT_EQ(w.tags, 2u);
    EXPECT_EQ(w.ipOffset, 22u);
    EXPECT_EQ(w.payloadOffset, 70u);
    EXPECT_EQ(w.udpPort, 546);
}

TEST(LinuxWalk, LeavesPaddingOut) {
    Bytes frame = ethernet() + ip6(17, udp());
    size_t length = frame.size();
    LinuxWalk w = walk(frame + zeros(18));
    EXPECT_EQ(w.verdict, LINUX_WALK_MESSAGE);
    EXPECT_EQ(w.length, length);
}

TEST(LinuxWalk, NeedsATag) {
    EXPECT_EQ(verdict(ip6(17, udp()), {}), LINUX_WALK_MALFORMED);
    EXPECT_EQ(verdict(ip6(17, udp()), TWO_TAGS + tag(0x8100, 5)), LINUX_WALK_MALFORMED);
    EXPECT_EQ(verdict(ip6(6, tcp()), TWO_TAGS + tag(0x8100, 5)), LINUX_WALK_OTHER);
}

// Three tags on the wire are read; what lies deeper is held back, whatever it is.
TEST(LinuxWalk, HoldsBackWhatLiesDeeperThanTheRulesRead) {
    const Bytes three = TWO_TAGS + tag(0x8100, 0);
    const Bytes unknown = be16(0x1234) + zeros(46);
    const Bytes addresses(12, 2);
    EXPECT_EQ(verdict(ip6(6, tcp()), three + tag(0x88A8, 0)), LINUX_WALK_MALFORMED);
    EXPECT_EQ(walk(ethernet(three + tag(0x8100, 0)) + ip6(6, tcp()), 1).verdict, LINUX_WALK_OTHER);
    EXPECT_EQ(walk(addresses + three + unknown).verdict, LINUX_WALK_OTHER);
    EXPECT_EQ(walk(addresses + three + tag(0x8100, 0) + unknown).verdict, LINUX_WALK_MALFORMED);
    EXPECT_EQ(walk(addresses + three + tag(0x8100, 0)).verdict, LINUX_WALK_MALFORMED);
    EXPECT_EQ(walk(addresses + three + tag(0x8100, 0) + unknown, 1).verdict, LINUX_WALK_OTHER);
}

TEST(LinuxWalk, HoldsBackIp6AndTagsInSnap) {
    const auto snap = [](uint32_t type, uint32_t addresses = 0xAAAA) {
        return be16(60) + be16(addresses) + Bytes{3, 0, 0, 0xF8} + be16(type);
    };
    const Bytes packet = ip6(17, udp());
    for (const Bytes &tags : {tag(0x8100, 10), TWO_TAGS, TWO_TAGS + tag(0x8100, 0)}) {
        const Bytes start = Bytes(12, 2) + tags;
        for (const uint32_t type : {0x86DDu, 0x8100u, 0x88A8u, 0x9100u})
            EXPECT_EQ(walk(start + snap(type) + packet).verdict, LINUX_WALK_MALFORMED) << type;
        for (const uint32_t addresses : {0xABAAu, 0xAAABu, 0xABABu})
            EXPECT_EQ(walk(start + snap(0x86DD, addresses) + packet).verdict, LINUX_WALK_MALFORMED) << addresses;
        EXPECT_EQ(walk(start + snap(0x0800) + packet).verdict, LINUX_WALK_OTHER);
        EXPECT_EQ(walk(start + snap(0x86DD, 0x4242) + packet).verdict, LINUX_WALK_OTHER);
        Bytes type2 = snap(0x86DD); // 0x0600: a type, and not a length
        type2[0] = 6;
        type2[1] = 0;
        EXPECT_EQ(walk(start + type2 + packet).verdict, LINUX_WALK_OTHER);
        const Bytes whole = start + snap(0x86DD);
        for (size_t length = 0; length < whole.size(); ++length)
            EXPECT_EQ(walk(Bytes(whole.begin(), whole.begin() + static_cast<long>(length))).verdict, LINUX_WALK_OTHER)
                << length;
    }
}

TEST(LinuxWalk, IgnoresWhatIsNotIp6) {
    Bytes frame = ethernet() + ip6(17, udp());
    frame[16] = 0x08;
    frame[17] = 0x00;
    EXPECT_EQ(walk(frame).verdict, LINUX_WALK_OTHER);
}

// Every extension header in front of a message, alone and behind each other one.
TEST(LinuxWalk, FindsAMessageBehindEveryChain) {
    struct Header {
        uint8_t number;
        Bytes (*make)(uint8_t next);
        uint32_t length;
    };
    const std::vector<Header> headers = {
        {0, [](uint8_t next) { return options(next); }, 8},
        {43, [](uint8_t next) { return options(next, 2); }, 24},
        {44, [](uint8_t next) { return fragment(next, 0, false); }, 8},
        {51, [](uint8_t next) { return authentication(next, 28); }, 28},
        {60, [](uint8_t next) { return options(next, 31); }, 256},
        {135, [](uint8_t next) { return options(next); }, 8},
        {139, [](uint8_t next) { return options(next, 4); }, 40},
        {140, [](uint8_t next) { return options(next); }, 8},
    };
    for (const Header &outer : headers) {
        for (const Bytes &tags : {tag(0x8100, 10), TWO_TAGS}) {
            uint32_t start = static_cast<uint32_t>(14 + tags.size() + 40);
            LinuxWalk w = walk(ethernet(tags) + ip6(outer.number, outer.make(17) + udp()));
            EXPECT_EQ(w.verdict, LINUX_WALK_MESSAGE) << int{outer.number};
            EXPECT_EQ(w.udpOffset, start + outer.length) << int{outer.number};
            for (const Header &inner : headers) {
                Bytes chain = outer.make(inner.number) + inner.make(17) + udp();
                w = walk(ethernet(tags) + ip6(outer.number, chain));
                bool twoFragmentHeaders = outer.number == 44 && inner.number == 44;
                EXPECT_EQ(w.verdict, twoFragmentHeaders ? LINUX_WALK_MALFORMED : LINUX_WALK_MESSAGE)
                    << int{outer.number} << " " << int{inner.number};
                EXPECT_EQ(w.payloadOffset, twoFragmentHeaders ? 0 : start + outer.length + inner.length + 8);
            }
        }
    }
}

// Cut at every byte, with the length field as it was and with one that fits: never a message, never a read outside.
TEST(LinuxWalk, NeverTakesACutFrameForAMessage) {
    const std::vector<Bytes> packets = {
        ip6(17, udp()),
        ip6(0, options(43) + options(44, 1) + fragment(60, 0, false) + options(17) + udp()),
        ip6(51, authentication(135, 24) + options(139) + options(140) + options(17) + udp()),
    };
    for (const Bytes &packet : packets) {
        for (const Bytes &tags : {tag(0x8100, 10), TWO_TAGS}) {
            Bytes whole = ethernet(tags) + packet;
            uint32_t ip = static_cast<uint32_t>(14 + tags.size());
            ASSERT_EQ(walk(whole).verdict, LINUX_WALK_MESSAGE);
            for (size_t length = 0; length < whole.size(); length++) {
                Bytes cut(whole.begin(), whole.begin() + static_cast<long>(length));
                EXPECT_NE(walk(cut).verdict, LINUX_WALK_MESSAGE) << length;
                if (length >= ip + 40) {
                    Bytes fits = be16(static_cast<uint32_t>(length - ip - 40));
                    std::copy(fits.begin(), fits.end(), cut.begin() + ip + 4);
                    EXPECT_EQ(walk(cut).verdict, LINUX_WALK_MALFORMED) << length;
                }
            }
        }
    }
}

TEST(LinuxWalk, RefusesLengthsThatLie) {
    EXPECT_EQ(verdict(ip6(17, udp(547, 1))), LINUX_WALK_MALFORMED);
    EXPECT_EQ(verdict(ip6(17, udp(547, -5))), LINUX_WALK_MALFORMED); // 7: less than its own header
    EXPECT_EQ(verdict(ip6(17, udp(547, -4))), LINUX_WALK_MESSAGE);   // 8: an empty message is the daemon's to refuse
    EXPECT_EQ(verdict(ip6(60, options(17, 255) + udp())), LINUX_WALK_MESSAGE);
    Bytes lies = options(17) + udp();
    lies[1] = 200; // a header longer than the packet
    EXPECT_EQ(verdict(ip6(60, lies)), LINUX_WALK_MALFORMED);
    Bytes long6 = ip6(17, udp());
    long6[5]++;
    EXPECT_EQ(verdict(long6), LINUX_WALK_MALFORMED);
    Bytes version4 = ip6(17, udp());
    version4[0] = 0x40;
    EXPECT_EQ(verdict(version4), LINUX_WALK_MALFORMED);
}

TEST(LinuxWalk, HoldsBackFirstFragmentsOfMessages) {
    EXPECT_EQ(verdict(ip6(44, fragment(17, 0, true) + udp())), LINUX_WALK_FRAGMENT);
    EXPECT_EQ(verdict(ip6(44, fragment(17, 0, true) + udp(547, 900))), LINUX_WALK_FRAGMENT);
    EXPECT_EQ(verdict(ip6(44, fragment(17, 0, true) + be16(546))), LINUX_WALK_FRAGMENT); // the port is in the next one
    EXPECT_EQ(verdict(ip6(44, fragment(17, 0, true))), LINUX_WALK_FRAGMENT);
    EXPECT_EQ(verdict(ip6(44, fragment(60, 0, true) + Bytes{17, 40} + zeros(6))), LINUX_WALK_FRAGMENT);
    EXPECT_EQ(verdict(ip6(0, options(44) + fragment(60, 0, true) + options(17) + udp())), LINUX_WALK_FRAGMENT);
    EXPECT_EQ(verdict(ip6(44, fragment(17, 0, true) + udp()), TWO_TAGS), LINUX_WALK_FRAGMENT);
}

TEST(LinuxWalk, LetsOtherFragmentsGo) {
    EXPECT_EQ(verdict(ip6(44, fragment(17, 0, true) + udp(53))), LINUX_WALK_OTHER);
    EXPECT_EQ(verdict(ip6(44, fragment(6, 0, true) + tcp())), LINUX_WALK_OTHER);
    EXPECT_EQ(verdict(ip6(44, fragment(17, 1, true) + udp())), LINUX_WALK_OTHER);
    EXPECT_EQ(verdict(ip6(44, fragment(60, 185, false) + zeros(8))), LINUX_WALK_OTHER);
    EXPECT_EQ(verdict(ip6(44, fragment(17, 1, false) + udp()), TWO_TAGS), LINUX_WALK_OTHER);
    EXPECT_EQ(verdict(ip6(44, fragment(17, 0, true) + udp(53)), TWO_TAGS), LINUX_WALK_OTHER);
}

TEST(LinuxWalk, LetsEverythingElseGo) {
    for (uint32_t next = 0; next < 256; next++) {
        bool harmless = std::find(LINUX_IP6_HARMLESS.begin(), LINUX_IP6_HARMLESS.end(), next) != LINUX_IP6_HARMLESS.end();
        uint8_t number = static_cast<uint8_t>(next);
        bool other = harmless || next == 17 || next == 44; // 0xFF everywhere: another port, a later fragment
        uint32_t expected = other ? LINUX_WALK_OTHER : LINUX_WALK_MALFORMED;
        EXPECT_EQ(verdict(ip6(number, Bytes(30, 0xFF))), expected) << next;
        EXPECT_EQ(verdict(ip6(number, Bytes(30, 0xFF)), TWO_TAGS), expected) << next;
        if (harmless) {
            EXPECT_EQ(verdict(ip6(60, options(number) + zeros(30))), LINUX_WALK_OTHER) << next;
            EXPECT_EQ(verdict(ip6(0, options(number) + zeros(30)), TWO_TAGS), LINUX_WALK_OTHER) << next;
        }
    }
    EXPECT_EQ(verdict(ip6(17, udp(53))), LINUX_WALK_OTHER);
    EXPECT_EQ(verdict(ip6(60, options(17) + udp(53))), LINUX_WALK_OTHER);
}

// Where the kernel's rules lose the way, the trap holds the frame back: it must be counted as dropped, not as someone else's.
TEST(LinuxWalk, CountsWhatTheTrapCannotFollow) {
    EXPECT_EQ(verdict(ip6(51, authentication(6, 24) + tcp())), LINUX_WALK_OTHER);
    EXPECT_EQ(verdict(ip6(51, authentication(17, 24) + udp(53))), LINUX_WALK_OTHER);
    EXPECT_EQ(verdict(ip6(51, authentication(17, 32) + udp(53))), LINUX_WALK_OTHER);
    EXPECT_EQ(verdict(ip6(51, authentication(17, 48) + udp(53))), LINUX_WALK_OTHER);
    EXPECT_EQ(verdict(ip6(51, authentication(17, 28) + udp(53))), LINUX_WALK_MALFORMED);
    EXPECT_EQ(verdict(ip6(51, authentication(60, 24) + options(6) + tcp())), LINUX_WALK_MALFORMED);
    for (uint8_t next : Bytes{135, 139, 140}) {
        EXPECT_EQ(verdict(ip6(next, options(59))), LINUX_WALK_OTHER) << int{next};
        EXPECT_EQ(verdict(ip6(next, options(17) + udp(53))), LINUX_WALK_MALFORMED) << int{next};
        EXPECT_EQ(verdict(ip6(next, options(60) + options(6) + tcp())), LINUX_WALK_MALFORMED) << int{next};
    }
    // A later fragment passes wherever the kernel finds its fragment header: it steps over authentication, not over these.
    EXPECT_EQ(verdict(ip6(51, authentication(44, 24) + fragment(17, 9, true) + zeros(8))), LINUX_WALK_OTHER);
    for (uint8_t next : Bytes{135, 139, 140})
        EXPECT_EQ(verdict(ip6(next, options(44) + fragment(17, 9, true) + zeros(8))), LINUX_WALK_MALFORMED) << int{next};
    EXPECT_EQ(verdict(ip6(0, options(17) + udp(53)), TWO_TAGS), LINUX_WALK_MALFORMED);
    EXPECT_EQ(verdict(ip6(60, options(6) + tcp()), TWO_TAGS), LINUX_WALK_MALFORMED);
    EXPECT_EQ(verdict(ip6(0, options(44) + fragment(17, 9, true) + zeros(8)), TWO_TAGS), LINUX_WALK_MALFORMED);
}

// A tag that libsmd put in does not hide anything from the kernel.
TEST(LinuxWalk, DoesNotCountAddedTagsAgainstTheKernel) {
    Bytes frame = ethernet(TWO_TAGS) + ip6(60, options(6) + tcp());
    EXPECT_EQ(walk(frame, 0).verdict, LINUX_WALK_MALFORMED);
    EXPECT_EQ(walk(frame, 1).verdict, LINUX_WALK_OTHER);
}

TEST(LinuxWalk, WantsOnlyTheGivenPorts) {
    Bytes frame = ethernet() + ip6(17, udp(547));
    constexpr std::array<uint16_t, 1> CLIENT = {546};
    EXPECT_EQ(linuxIp6Walk(frame, 0, CLIENT).verdict, LINUX_WALK_OTHER);
    EXPECT_EQ(linuxIp6Walk(frame, 0, {}).verdict, LINUX_WALK_OTHER);
}
