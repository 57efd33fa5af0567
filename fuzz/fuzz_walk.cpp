// Frames as they come from the wire: the walk over their headers, and behind it, for what the walk calls a message, the whole
// daemon.

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "fuzz/check.h"
#include "fuzz/framescript.h"
#include "fuzz/scriptframe.h"
#include "l2/dhcp6snooping/main/Dhcp6Snooping.h"
#include "platform/linux/ipv6walk.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr uint16_t PORTS[] = {546, 547};
constexpr uint32_t IP6_HEADER = 40;
constexpr uint32_t UDP_HEADER = 8;

// The claims of a verdict "message", checked against the bytes.
void checkMessage(std::span<const uint8_t> frame, const LinuxWalk *walk) {
    const auto size = static_cast<uint32_t>(frame.size());
    fuzzCheck((walk->tags == 1 || walk->tags == 2) && walk->ipOffset == 14 + 4 * walk->tags, "the IPv6 header is at 18 or 22");
    fuzzCheck(walk->length <= size && walk->length == walk->ipOffset + IP6_HEADER + linuxBe16(&frame[walk->ipOffset + 4]),
              "the frame ends with its IPv6 payload");
    fuzzCheck(walk->udpOffset >= walk->ipOffset + IP6_HEADER && walk->payloadOffset == walk->udpOffset + UDP_HEADER &&
                  walk->payloadOffset <= walk->length,
              "the UDP header is inside");
    fuzzCheck(walk->udpLength >= UDP_HEADER && walk->udpLength <= walk->length - walk->udpOffset &&
                  walk->udpLength == linuxBe16(&frame[walk->udpOffset + 4]),
              "the datagram is inside");
    fuzzCheck(walk->udpPort == linuxBe16(&frame[walk->udpOffset + 2]) &&
                  std::find(std::begin(PORTS), std::end(PORTS), walk->udpPort) != std::end(PORTS),
              "it goes to a wanted port");
}

// A message without extension headers, told by fixed offsets.
bool plainMessage(std::span<const uint8_t> frame, uint32_t addedTags) {
    uint32_t tags = 0;
    while (tags <= 2 && frame.size() >= 14 + 4 * tags && linuxIsTag(linuxBe16(&frame[12 + 4 * tags])))
        tags++;
    const uint32_t ip = 14 + 4 * tags;
    if (tags == 0 || tags > 2 || tags < addedTags || frame.size() < ip + IP6_HEADER + UDP_HEADER ||
        linuxBe16(&frame[ip - 2]) != LINUX_ETHER_IP6)
        return false;
    const uint32_t payload = linuxBe16(&frame[ip + 4]);
    const uint8_t *udp = &frame[ip + IP6_HEADER];
    return frame[ip] >> 4 == 6 && frame[ip + 6] == 17 && payload <= frame.size() - ip - IP6_HEADER && payload >= UDP_HEADER &&
           linuxBe16(udp + 4) >= UDP_HEADER && linuxBe16(udp + 4) <= payload &&
           (linuxBe16(udp + 2) == PORTS[0] || linuxBe16(udp + 2) == PORTS[1]);
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***argv) {
    uint32_t queueId = 0;
    return dhcp6snooping_startup((*argv)[0], &queueId);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzInput input{{data, size}};
    const uint32_t addedTags = fuzzU8(&input) % 3;
    const uint32_t port = fuzzU8(&input);
    const std::span<const uint8_t> bytes = fuzzTake(&input, SMD_FRAME_MAX);
    auto *block = static_cast<uint8_t *>(std::malloc(bytes.empty() ? 1 : bytes.size()));
    if (!bytes.empty())
        std::memcpy(block, bytes.data(), bytes.size());
    const std::span<const uint8_t> frame{block, bytes.size()};
    const LinuxWalk walk = linuxIp6Walk(frame, addedTags, PORTS);
    fuzzCheck(walk.verdict <= LINUX_WALK_FRAGMENT, "a walk ends with one of the verdicts");
    fuzzCheck(walk.verdict == LINUX_WALK_MESSAGE || !plainMessage(frame, addedTags), "a plain message is taken for one");
    if (walk.verdict == LINUX_WALK_MESSAGE) {
        checkMessage(frame, &walk);
        for (uint32_t added = 0; added <= walk.tags; added++) {
            const LinuxWalk again = linuxIp6Walk(frame.first(walk.length), added, PORTS);
            fuzzCheck(std::memcmp(&walk, &again, sizeof walk) == 0,
                      "neither what pads a message nor who put its tags in matters");
        }
        scriptBegin();
        const ScriptPlace place{
            .port = port, .vlan = linuxBe16(&frame[14]) & 0xFFFu, .flags = walk.tags == 2 ? SMD_CTL_DOUBLE_TAGGED : 0};
        scriptDeliver(&place, walk.payloadOffset, frame.first(walk.length));
        scriptEnd();
    }
    std::free(block);
    return 0;
}
