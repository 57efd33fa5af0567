#include "fuzz/platform/frame.h"

#include <cstring>

#include "l2/dhcp6snooping/base/option.h"

// Options that only these frames need; the daemon does not look at them.
enum : uint16_t { OPTION_CLIENTID = 1, OPTION_SERVERID = 2, OPTION_ORO = 6, OPTION_ELAPSED = 8, OPTION_VENDOR_CLASS = 16 };

static void put(FrameMessage *message, uint64_t value, uint32_t size) {
    for (uint32_t i = size; i > 0; i--)
        message->bytes[message->length++] = static_cast<uint8_t>(value >> (8 * (i - 1)));
}

static void put16(uint8_t *at, uint32_t value) {
    at[0] = static_cast<uint8_t>(value >> 8);
    at[1] = static_cast<uint8_t>(value);
}

void frameMessage(FrameMessage *message, uint8_t type, uint32_t transaction) {
    message->length = 0;
    put(message, type, 1);
    put(message, transaction, 3);
}

void frameOption(FrameMessage *message, uint16_t code, std::span<const uint8_t> data) {
    if (data.size() + DHCP6_OPTION_HEADER > message->bytes.size() - message->length)
        return;
    put(message, code, 2);
    put(message, data.size(), 2);
    if (!data.empty())
        std::memcpy(&message->bytes[message->length], data.data(), data.size());
    message->length += static_cast<uint32_t>(data.size());
}

static void putLease(FrameMessage *ia, const FrameLease *lease) {
    FrameMessage body;
    body.length = 0;
    if (lease->prefixLength == 128) {
        std::memcpy(body.bytes.data(), lease->address, sizeof lease->address);
        body.length = sizeof lease->address;
        put(&body, lease->valid / 2, 4);
        put(&body, lease->valid, 4);
    } else {
        put(&body, lease->valid / 2, 4);
        put(&body, lease->valid, 4);
        put(&body, lease->prefixLength, 1);
        std::memcpy(&body.bytes[body.length], lease->address, sizeof lease->address);
        body.length += static_cast<uint32_t>(sizeof lease->address);
    }
    frameOption(ia, lease->prefixLength == 128 ? DHCP6_OPTION_IAADDR : DHCP6_OPTION_IAPREFIX, {body.bytes.data(), body.length});
}

void frameLeases(FrameMessage *message, std::span<const FrameLease> leases) {
    for (const uint16_t code : {DHCP6_OPTION_IA_NA, DHCP6_OPTION_IA_PD}) {
        FrameMessage ia;
        ia.length = 0;
        put(&ia, 1, 4);
        put(&ia, 1800, 4);
        put(&ia, 2880, 4);
        const uint32_t empty = ia.length;
        for (const FrameLease &lease : leases)
            if ((lease.prefixLength == 128) == (code == DHCP6_OPTION_IA_NA))
                putLease(&ia, &lease);
        if (ia.length > empty)
            frameOption(message, code, {ia.bytes.data(), ia.length});
    }
}

void frameRelayReply(FrameMessage *outer, const FrameMessage *inner) {
    outer->bytes.fill(0);
    outer->bytes[0] = DHCP6_RELAY_REPL;
    outer->length = DHCP6_RELAY_HEADER;
    frameOption(outer, DHCP6_OPTION_RELAY_MSG, {inner->bytes.data(), inner->length});
}

// One's-complement sum of big-endian words, RFC 1071; written apart from the daemon's own so that the two can disagree.
static uint32_t sumBytes(std::span<const uint8_t> bytes, uint32_t sum) {
    for (size_t i = 0; i < bytes.size(); i++)
        sum += i % 2 == 0 ? static_cast<uint32_t>(bytes[i]) << 8 : bytes[i];
    return sum;
}

static uint16_t udpChecksum(std::span<const uint8_t> addresses, std::span<const uint8_t> udp) {
    uint32_t sum = sumBytes(udp, sumBytes(addresses, static_cast<uint32_t>(udp.size()) + 17));
    while (sum > 0xFFFF)
        sum = (sum & 0xFFFF) + (sum >> 16);
    return sum == 0xFFFF ? uint16_t{0xFFFF} : static_cast<uint16_t>(~sum);
}

// Link-local address made from a MAC.
static void putLinkLocal(uint8_t *at, const uint8_t mac[6]) {
    const uint8_t address[16] = {0xFE, 0x80, 0, 0, 0, 0, 0, 0, mac[0], mac[1], mac[2], 0xFF, 0xFE, mac[3], mac[4], mac[5]};
    std::memcpy(at, address, sizeof address);
}

uint32_t frameBuild(const FramePlan *plan, const FrameMessage *message, std::span<uint8_t> out, uint32_t *offset) {
    const uint32_t ip = 14 + 4 * plan->tags;
    const uint32_t udp = ip + 40;
    *offset = udp + 8;
    if (message->length > out.size() || *offset > out.size() - message->length)
        return 0;
    std::memcpy(&out[0], plan->destination, 6);
    std::memcpy(&out[6], plan->source, 6);
    for (uint32_t tag = 0; tag < plan->tags; tag++) {
        put16(&out[12 + 4 * tag], tag == 0 && plan->tags == 2 ? 0x88A8 : 0x8100);
        put16(&out[14 + 4 * tag], tag == 0 ? plan->vlan : 1);
    }
    put16(&out[ip - 2], 0x86DD);
    const uint32_t udpLength = message->length + 8;
    std::memset(&out[ip], 0, 40);
    out[ip] = 0x60;
    put16(&out[ip + 4], udpLength);
    out[ip + 6] = 17;
    out[ip + 7] = 64;
    putLinkLocal(&out[ip + 8], plan->source);
    const uint8_t allServers[16] = {0xFF, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 2};
    if ((plan->destination[0] & 1) != 0)
        std::memcpy(&out[ip + 24], allServers, sizeof allServers);
    else
        putLinkLocal(&out[ip + 24], plan->destination);
    put16(&out[udp], plan->toServer == 1 ? 546 : 547);
    put16(&out[udp + 2], plan->toServer == 1 ? 547 : 546);
    put16(&out[udp + 4], udpLength);
    put16(&out[udp + 6], 0);
    std::memcpy(&out[*offset], message->bytes.data(), message->length);
    put16(&out[udp + 6], udpChecksum(out.subspan(ip + 8, 32), out.subspan(udp, udpLength)));
    return *offset + message->length;
}

bool frameSound(std::span<const uint8_t> frame, uint32_t offset) {
    const uint32_t udp = offset - 8;
    const uint32_t ip = udp - 40;
    const auto length = static_cast<uint32_t>(frame.size()) - udp;
    const auto get16 = [&](uint32_t at) { return frame[at] * 256u + frame[at + 1]; };
    uint32_t sum = sumBytes(frame.subspan(udp), sumBytes(frame.subspan(ip + 8, 32), length + 17));
    while (sum > 0xFFFF)
        sum = (sum & 0xFFFF) + (sum >> 16);
    return get16(ip + 4) == length && get16(udp + 4) == length && get16(udp + 6) != 0 && sum == 0xFFFF;
}

static void putDuid(FrameMessage *message, uint16_t code, const uint8_t mac[6]) {
    const uint8_t duid[14] = {0, 1, 0, 1, 0x2B, 0, 0, 0, mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]};
    frameOption(message, code, duid);
}

void frameSolicit(FrameMessage *message, const uint8_t mac[6], uint32_t transaction) {
    const uint8_t ia[12] = {0, 0, 0, 1};
    const uint8_t elapsed[2] = {};
    const uint8_t request[8] = {0, 23, 0, 24, 0, 31, 0, 59};
    const uint8_t vendor[14] = {0, 0, 0xB8, 0x0F, 0, 8, 't', 'e', 's', 't', '-', 'c', 'p', 'e'};
    frameMessage(message, DHCP6_SOLICIT, transaction);
    putDuid(message, OPTION_CLIENTID, mac);
    frameOption(message, DHCP6_OPTION_IA_NA, ia);
    frameOption(message, DHCP6_OPTION_IA_PD, ia);
    frameOption(message, OPTION_ELAPSED, elapsed);
    frameOption(message, OPTION_ORO, request);
    frameOption(message, OPTION_VENDOR_CLASS, vendor);
}

void frameLeaseMessage(FrameMessage *message, uint8_t type, const uint8_t mac[6], std::span<const FrameLease> leases) {
    const uint8_t server[6] = {0x02, 0x5E, 0, 0, 0, 1};
    frameMessage(message, type, 0x123456);
    putDuid(message, OPTION_CLIENTID, mac);
    putDuid(message, OPTION_SERVERID, server);
    frameLeases(message, leases);
}
