#pragma once
// DHCPv6 frames for fuzz targets, benches and the wire generator: a writer of options, and the headers around a message. All
// lengths and the checksum are right; targets that want lies overwrite them afterwards.

#include <array>
#include <cstdint>
#include <span>

#include "platform/libsmd.h"

struct FrameMessage { // a DHCPv6 message while it is written
    std::array<uint8_t, SMD_FRAME_MAX> bytes;
    uint32_t length;
};

// Starts a client or server message; a Relay-Reply starts with frameRelayReply.
void frameMessage(FrameMessage *message, uint8_t type, uint32_t transaction);

// Appends one option. Options that no longer fit are left out.
void frameOption(FrameMessage *message, uint16_t code, std::span<const uint8_t> data);

struct FrameLease {
    uint8_t address[16];
    uint32_t prefixLength; // 128 goes into an IA_NA, anything else into an IA_PD
    uint32_t valid;        // seconds; the preferred lifetime is half of it
};

// Appends an IA_NA with the addresses among `leases` and an IA_PD with the prefixes among them, each if there are any.
void frameLeases(FrameMessage *message, std::span<const FrameLease> leases);

// Makes `outer` a Relay-Reply around `inner`.
void frameRelayReply(FrameMessage *outer, const FrameMessage *inner);

struct FramePlan {
    uint8_t destination[6];
    uint8_t source[6];
    uint16_t vlan;
    uint32_t tags;     // 0, 1 or 2 VLAN tags; the second is VLAN 1
    uint32_t toServer; // 1: UDP port 547, else 546
};

// Writes the frame around a message. Returns its length, or 0 when it does not fit; *offset is where the message starts.
uint32_t frameBuild(const FramePlan *plan, const FrameMessage *message, std::span<uint8_t> out, uint32_t *offset);

// True when the lengths of IPv6 and UDP agree with the frame's and the checksum is right. `offset` is where the message starts,
// directly behind IPv6 and UDP.
[[nodiscard]] bool frameSound(std::span<const uint8_t> frame, uint32_t offset);

// The SOLICIT of a common client: DUID, IA_NA, IA_PD, elapsed time, option request, vendor class. 90 bytes, so that the
// untagged frame has 152.
void frameSolicit(FrameMessage *message, const uint8_t mac[6], uint32_t transaction);

// A REPLY (or, with another type, RELEASE, RENEW ...) about these leases, with client and server DUID.
void frameLeaseMessage(FrameMessage *message, uint8_t type, const uint8_t mac[6], std::span<const FrameLease> leases);
