#include "platform/linux/ipv6walk.h"

#include <algorithm>

namespace {

enum : uint8_t {
    NH_HOP_BY_HOP = 0,
    NH_UDP = 17,
    NH_ROUTING = 43,
    NH_FRAGMENT = 44,
    NH_AUTH = 51,
    NH_DEST_OPTIONS = 60,
    NH_MOBILITY = 135,
    NH_HIP = 139,
    NH_SHIM6 = 140,
};

constexpr uint32_t ETHER_TYPE_OFFSET = 12;
constexpr uint32_t TAG_LENGTH = 4;
constexpr uint32_t TAGS_MAX = 2; // the daemon knows an IPv6 header behind one tag or two
constexpr uint32_t IP6_HEADER = 40;
constexpr uint32_t IP6_NEXT_HEADER = 6;
constexpr uint32_t UDP_HEADER = 8;
constexpr uint32_t EXTENSION_MIN = 8;

// Where the walk stands.
struct Cursor {
    std::span<const uint8_t> frame; // up to the end of the IPv6 payload
    uint32_t at;                    // of the header that `next` names
    uint8_t next;                   // kind of that header
    uint32_t headers;               // extension headers passed
    bool fragmentHeader;            // one was passed
    bool firstFragment;             // more fragments follow this one
    bool blind;                     // the kernel's rules read only raw offsets here
    bool lost;                      // the kernel's rules cannot follow to this header
    bool unsearchable;              // the kernel does not find a fragment header here: it stops at an earlier header
};

bool isHarmless(uint8_t next) { return std::ranges::find(LINUX_IP6_HARMLESS, next) != LINUX_IP6_HARMLESS.end(); }

bool isExtension(uint8_t next) {
    switch (next) {
    case NH_HOP_BY_HOP:
    case NH_ROUTING:
    case NH_FRAGMENT:
    case NH_AUTH:
    case NH_DEST_OPTIONS:
    case NH_MOBILITY:
    case NH_HIP:
    case NH_SHIM6: return true;
    default: return false;
    }
}

uint32_t left(const Cursor &c) { return static_cast<uint32_t>(c.frame.size()) - c.at; }

// What a chain that breaks off means: of a first fragment, that the rest, ports perhaps, is in the next one.
uint32_t brokenOff(const Cursor &c) { return c.firstFragment ? LINUX_WALK_FRAGMENT : LINUX_WALK_MALFORMED; }

uint32_t other(const Cursor &c) { return c.lost ? LINUX_WALK_MALFORMED : LINUX_WALK_OTHER; }

// Whether the rules of the trap see what stands behind this extension header. nftrules.cpp holds the rules that this mirrors,
// and filter.cpp passes what either may want; the sweep of encapsulations finds where they differ.
bool kernelFollows(const Cursor &c, uint8_t behind, uint32_t length) {
    if (c.blind) {
        return c.headers == 0 && (isHarmless(behind) ? c.next == NH_HOP_BY_HOP || c.next == NH_FRAGMENT
                                                     : c.next == NH_FRAGMENT && behind == NH_UDP);
    }
    switch (c.next) {
    case NH_AUTH: return isHarmless(behind) || (behind == NH_UDP && (length == 24 || length == 32 || length == 48));
    case NH_MOBILITY:
    case NH_HIP:
    case NH_SHIM6: return isHarmless(behind);
    default: return true;
    }
}

// Steps over one extension header. Returns true to go on; otherwise *verdict is set.
bool stepOver(Cursor *c, uint32_t *verdict) {
    if (left(*c) < EXTENSION_MIN) {
        *verdict = brokenOff(*c);
        return false;
    }
    const uint8_t *header = c->frame.data() + c->at;
    uint32_t length = (header[1] + 1u) * 8u;
    if (c->next == NH_AUTH) {
        length = (header[1] + 2u) * 4u;
    }
    if (c->next == NH_FRAGMENT) {
        uint16_t offsetAndFlags = linuxBe16(header + 2);
        length = EXTENSION_MIN;
        if (c->fragmentHeader) {
            *verdict = LINUX_WALK_MALFORMED;
            return false;
        }
        if ((offsetAndFlags & 0xFFF8u) != 0) { // harmless without the first fragment, which is held back
            const bool hidden = c->blind ? c->headers != 0 : c->unsearchable;
            *verdict = hidden ? LINUX_WALK_MALFORMED : LINUX_WALK_OTHER;
            return false;
        }
        c->fragmentHeader = true;
        c->firstFragment = (offsetAndFlags & 1u) != 0;
    }
    if (length > left(*c)) {
        *verdict = brokenOff(*c);
        return false;
    }
    c->lost = c->lost || !kernelFollows(*c, header[0], length);
    c->unsearchable = c->unsearchable || c->next == NH_MOBILITY || c->next == NH_HIP || c->next == NH_SHIM6;
    c->headers++;
    c->next = header[0];
    c->at += length;
    return true;
}

bool wanted(uint16_t port, std::span<const uint16_t> ports) { return std::ranges::find(ports, port) != ports.end(); }

// The end of the walk: a UDP header, or what is left of it.
void readUdp(const Cursor &c, std::span<const uint16_t> ports, LinuxWalk *walk) {
    if (left(c) < 4) {
        walk->verdict = brokenOff(c);
        return;
    }
    const uint8_t *udp = c.frame.data() + c.at;
    uint16_t port = linuxBe16(udp + 2);
    if (!wanted(port, ports)) {
        walk->verdict = other(c);
        return;
    }
    if (c.firstFragment) {
        walk->verdict = LINUX_WALK_FRAGMENT;
        return;
    }
    walk->verdict = LINUX_WALK_MALFORMED;
    if (left(c) < UDP_HEADER) {
        return;
    }
    uint32_t udpLength = linuxBe16(udp + 4);
    if (udpLength < UDP_HEADER || udpLength > left(c)) {
        return;
    }
    walk->verdict = LINUX_WALK_MESSAGE;
    walk->udpOffset = c.at;
    walk->payloadOffset = c.at + UDP_HEADER;
    walk->udpLength = udpLength;
    walk->udpPort = port;
    walk->length = static_cast<uint32_t>(c.frame.size());
}

// Whether an 802.3 frame carries IPv6 or a tag in LLC/SNAP. `payload` begins with the LLC header.
bool isSnapCarrier(std::span<const uint8_t> payload) {
    return payload.size() >= LINUX_SNAP_TYPE + 2 && (linuxBe16(payload.data()) & LINUX_LLC_MASK) == LINUX_LLC_SNAP &&
           linuxIsCarried(linuxBe16(payload.data() + LINUX_SNAP_TYPE));
}

// Finds the IPv6 header after the tags. False when there is none that is read; the verdict is set then.
bool skipTags(std::span<const uint8_t> frame, uint32_t addedTags, LinuxWalk *walk) {
    const uint32_t size = static_cast<uint32_t>(frame.size());
    uint32_t at = ETHER_TYPE_OFFSET;
    while (size >= at + 2 && linuxIsTag(linuxBe16(frame.data() + at))) {
        at += TAG_LENGTH;
        walk->tags++;
    }
    walk->ipOffset = at + 2;
    walk->verdict = LINUX_WALK_OTHER;
    if (walk->tags > LINUX_TAGS_READ + addedTags)
        walk->verdict = LINUX_WALK_MALFORMED;
    else if (size < at + 2)
        return false;
    else if (linuxBe16(frame.data() + at) == LINUX_ETHER_IP6)
        return true;
    else if (linuxBe16(frame.data() + at) < LINUX_ETHER_MIN && isSnapCarrier(frame.subspan(at + 2)))
        walk->verdict = LINUX_WALK_MALFORMED;
    return false;
}

// What the kernel's rules let through without a look at anything else in the IPv6 header.
bool plainlyOther(std::span<const uint8_t> frame, uint32_t ip, std::span<const uint16_t> ports) {
    if (frame.size() - ip <= IP6_NEXT_HEADER) {
        return false;
    }
    uint8_t next = frame[ip + IP6_NEXT_HEADER];
    if (isHarmless(next)) {
        return true;
    }
    return next == NH_UDP && frame.size() - ip >= IP6_HEADER + 4 &&
           !wanted(linuxBe16(frame.data() + ip + IP6_HEADER + 2), ports);
}

} // namespace

LinuxWalk linuxIp6Walk(std::span<const uint8_t> frame, uint32_t addedTags, std::span<const uint16_t> ports) {
    LinuxWalk walk{};
    if (!skipTags(frame, addedTags, &walk)) {
        return walk;
    }
    uint32_t ip = walk.ipOffset;
    if (plainlyOther(frame, ip, ports)) {
        walk.verdict = LINUX_WALK_OTHER;
        return walk;
    }
    walk.verdict = LINUX_WALK_MALFORMED;
    if (walk.tags < addedTags || walk.tags == 0 || walk.tags > TAGS_MAX || frame.size() - ip < IP6_HEADER ||
        frame[ip] >> 4 != 6) {
        return walk;
    }
    uint32_t end = ip + IP6_HEADER + linuxBe16(frame.data() + ip + 4);
    if (end > frame.size()) {
        return walk;
    }
    Cursor c{};
    c.frame = frame.first(end);
    c.at = ip + IP6_HEADER;
    c.next = frame[ip + IP6_NEXT_HEADER];
    c.blind = walk.tags - addedTags >= TAGS_MAX;
    while (isExtension(c.next)) {
        if (!stepOver(&c, &walk.verdict)) {
            return walk;
        }
    }
    if (c.next == NH_UDP) {
        readUdp(c, ports, &walk);
    } else if (isHarmless(c.next)) {
        walk.verdict = other(c);
    }
    return walk;
}
