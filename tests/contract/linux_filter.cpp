// The socket's filter beside the walk: no frame that the daemon has to see, or to count, may be left in the kernel. A Unix
// socket takes the same filter as a packet socket.

#include "platform/linux/filter.h"

#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "platform/linux/ipv6walk.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr std::array<uint16_t, 2> PORTS = {546, 547};
constexpr uint32_t MACS = 12; // bytes of both addresses

void append(Bytes *frame, const Bytes &more) { frame->insert(frame->end(), more.begin(), more.end()); }

Bytes be16(uint32_t value) { return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)}; }

class LinuxFilter : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, pair.data()), 0);
        ASSERT_EQ(linuxFilterAttach(pair[1], PORTS), 0);
    }

    void TearDown() override {
        for (const int fd : pair)
            close(fd);
    }

    bool passes(const Bytes &frame) const {
        uint8_t byte = 0;
        const ssize_t sent = send(pair[0], frame.data(), frame.size(), 0); // refused when the filter drops it
        return sent == static_cast<ssize_t>(frame.size()) && recv(pair[1], &byte, 1, 0) == 1;
    }

    std::array<int, 2> pair;
};

// The frame as the walk gets it: with a tag in front that is not in the bytes that the filter sees.
uint32_t verdict(const Bytes &frame, uint32_t addedTags) {
    Bytes tagged(frame.begin(), frame.begin() + MACS);
    append(&tagged, {0x81, 0, 0, 1});
    tagged.insert(tagged.end(), frame.begin() + MACS, frame.end());
    return linuxIp6Walk(tagged, addedTags, PORTS).verdict;
}

Bytes snap(uint32_t type) {
    Bytes header = {0xAA, 0xAA, 3, 0, 0, 0};
    append(&header, be16(type));
    return header;
}

// Frames that are likely to be something: tags, SNAP, IPv6 with chains, cut anywhere.
Bytes anyFrame(std::mt19937 *random) {
    const auto pick = [random](uint32_t count) { return static_cast<uint32_t>((*random)() % count); };
    constexpr uint32_t TAGS[] = {0x8100, 0x88A8, 0x9100, 0x8100, 0x88A8};
    constexpr uint8_t NEXT[] = {0, 6, 17, 43, 44, 51, 58, 60, 135, 200};
    constexpr uint32_t UDP_PORTS[] = {546, 547, 53};
    Bytes frame(MACS, 2);
    for (uint32_t tags = pick(6); tags > 0; --tags) {
        append(&frame, be16(TAGS[pick(5)]));
        append(&frame, be16(pick(3)));
    }
    if (pick(4) == 0) {
        append(&frame, be16(pick(0x700)));
        Bytes header = snap(pick(3) == 0 ? pick(0x10000) : (pick(2) == 0 ? 0x86DDu : TAGS[pick(5)]));
        if (pick(4) == 0)
            header[pick(2)] ^= static_cast<uint8_t>(1 << pick(8));
        append(&frame, header);
    } else {
        append(&frame, be16(pick(8) == 0 ? 0x0800 : 0x86DD));
    }
    Bytes ip(40, 0);
    ip[0] = 0x60;
    ip[5] = 40;
    ip[6] = NEXT[pick(10)];
    append(&frame, ip);
    append(&frame, {NEXT[pick(10)], 0});
    append(&frame, be16(UDP_PORTS[pick(3)]));
    append(&frame, Bytes(36, 0));
    if (pick(3) == 0)
        frame.resize(MACS + 2 + pick(static_cast<uint32_t>(frame.size()) - MACS - 2));
    return frame;
}

TEST_F(LinuxFilter, LeavesNothingInTheKernelThatTheWalkWants) {
    std::mt19937 random(6); // the same frames in every run
    uint32_t wanted = 0;
    uint32_t rejected = 0;
    for (uint32_t i = 0; i < 50000; ++i) {
        const Bytes frame = anyFrame(&random);
        const bool passed = passes(frame);
        rejected += passed ? 0 : 1;
        for (const uint32_t added : {0u, 1u}) {
            const bool isWanted = verdict(frame, added) != LINUX_WALK_OTHER;
            wanted += isWanted ? 1 : 0;
            ASSERT_TRUE(passed || !isWanted) << testing::PrintToString(frame) << " added " << added;
        }
    }
    EXPECT_GT(wanted, 1000u);
    EXPECT_GT(rejected, 1000u);
}

TEST_F(LinuxFilter, LeavesOrdinaryTrafficInTheKernel) {
    Bytes tcp(MACS, 2);
    append(&tcp, be16(0x86DD));
    append(&tcp, {0x60, 0, 0, 0, 0, 20, 6});
    tcp.resize(MACS + 2 + 60);
    Bytes bpdu(MACS, 2);
    append(&bpdu, {0, 38, 0x42, 0x42, 3});
    bpdu.resize(60);
    Bytes cdp(MACS, 2);
    append(&cdp, {0, 40, 0xAA, 0xAA, 3, 0, 0, 0xC, 0x20, 0});
    cdp.resize(60);
    for (const Bytes &frame : {tcp, bpdu})
        EXPECT_FALSE(passes(frame));
    EXPECT_TRUE(passes(cdp)); // SNAP is rare: the walk sees what it carries
    EXPECT_EQ(verdict(cdp, 1), LINUX_WALK_OTHER);
    Bytes ip6InSnap(MACS, 2);
    append(&ip6InSnap, be16(60));
    append(&ip6InSnap, snap(0x86DD));
    EXPECT_TRUE(passes(ip6InSnap));
}

} // namespace
