#pragma once
// Reads the headers of one frame, from Ethernet to UDP, and says what libsmd does with it. Pure: bytes in, verdict out.
//
// The whole chain of extension headers is walked, because a DHCPv6 message hidden behind one must not slip past the daemon.
// Every header is at least 8 bytes long, so the frame's length bounds the walk.
//
// Three readers look at a frame: the socket's filter, this walk, and the kernel's rules of the trap. They must agree. A frame
// that the trap lets through is never delivered, since it would arrive twice; a frame that the trap holds back is delivered
// or counted as dropped, never just ignored. So the walk also knows how far the kernel's rules can follow a chain: not past
// an authentication, mobility, HIP or shim6 header, and hardly at all behind two VLAN tags. Where they lose the way the trap
// holds the frame back, and the verdict here is LINUX_WALK_MALFORMED unless it turns out to be a message after all. The same
// verdict ends more tags than the rules read, whatever they carry, and IPv6 or tags inside 802.3 LLC/SNAP.

#include <array>
#include <cstdint>
#include <span>

// Next headers that end a chain and cannot hide a DHCPv6 message: transports, tunnels, routing protocols, ESP and "none".
// A number that is neither here nor an extension header is not known to anyone, and a frame with it counts as unreadable.
inline constexpr std::array<uint8_t, 26> LINUX_IP6_HARMLESS = {
    4,  6,  8,  9,  33,  41,  46,  47,  50,  58,  59,  88,  89,  // IPv4, TCP, EGP, IGP, DCCP, IPv6, RSVP, GRE, ESP, ICMPv6, ...
    92, 94, 97, 98, 103, 108, 112, 115, 124, 132, 136, 137, 143, // ..., PIM, IPComp, VRRP, L2TP, IS-IS, SCTP, UDP-Lite, ...
};

inline constexpr uint8_t LINUX_IP6_ICMP = 58;

inline constexpr uint16_t LINUX_TPID_8021Q = 0x8100;
inline constexpr uint16_t LINUX_TPID_8021AD = 0x88A8;
inline constexpr uint16_t LINUX_TPID_9100 = 0x9100; // a tag to some equipment, payload to the bridge and to hosts
inline constexpr uint16_t LINUX_ETHER_IP6 = 0x86DD;
inline constexpr uint16_t LINUX_ETHER_MIN = 0x0600; // below it the field is a length, and LLC follows
inline constexpr uint16_t LINUX_LLC_MASK = 0xFEFE;  // the bits of the two LLC addresses that name a protocol
inline constexpr uint16_t LINUX_LLC_SNAP = 0xAAAA;
inline constexpr uint32_t LINUX_SNAP_TYPE = 6; // bytes from the LLC header to the type in the SNAP header
inline constexpr uint32_t LINUX_TAGS_READ = 3; // tags on the wire that the rules read; with more a frame is held back

[[nodiscard]] constexpr bool linuxIsTag(uint32_t etherType) {
    return etherType == LINUX_TPID_8021Q || etherType == LINUX_TPID_8021AD;
}

// Whether a LLC/SNAP header with this type carries what must not pass unread.
[[nodiscard]] constexpr bool linuxIsCarried(uint32_t snapType) {
    return snapType == LINUX_ETHER_IP6 || snapType == LINUX_TPID_9100 || linuxIsTag(snapType);
}

[[nodiscard]] constexpr uint16_t linuxBe16(const uint8_t *bytes) { return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]); }

enum : uint32_t {
    LINUX_WALK_MESSAGE = 0,   // a whole UDP datagram to one of the wanted ports
    LINUX_WALK_OTHER = 1,     // something else; the kernel forwards it
    LINUX_WALK_MALFORMED = 2, // cannot be read to its end; held back
    LINUX_WALK_FRAGMENT = 3,  // first fragment of a datagram to a wanted port, or of one whose ports are not in it; held back
};

struct LinuxWalk {
    uint32_t verdict;
    uint32_t tags;          // VLAN tags in front of the IPv6 header
    uint32_t ipOffset;      // of the IPv6 header, bytes from the start of the frame
    uint32_t udpOffset;     // of the UDP header; with LINUX_WALK_MESSAGE
    uint32_t payloadOffset; // of the UDP payload; with LINUX_WALK_MESSAGE
    uint32_t udpLength;     // of the UDP header's length field; with LINUX_WALK_MESSAGE
    uint32_t length;        // of the frame without what pads it behind the IPv6 payload; with LINUX_WALK_MESSAGE
    uint16_t udpPort;       // destination port; with LINUX_WALK_MESSAGE
};

// Walks a frame that starts with the destination MAC and carries one tag or more. `addedTags` of them were put in by libsmd,
// where the kernel does not see them. `ports` are the wanted UDP destination ports.
[[nodiscard]] LinuxWalk linuxIp6Walk(std::span<const uint8_t> frame, uint32_t addedTags, std::span<const uint16_t> ports);
