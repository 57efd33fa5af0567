#include "bench/tools/client_frames.h"

#include <cstring>
#include <span>

#include "fuzz/platform/frame.h"
#include "l2/dhcp6snooping/base/option.h"

namespace {

constexpr uint32_t VALID = 86400; // seconds; no bench is that long

void clientMac(uint32_t client, uint8_t mac[6]) {
    const uint8_t bytes[6] = {0x02, 0x10, 0, 0, static_cast<uint8_t>(client >> 8), static_cast<uint8_t>(client)};
    std::memcpy(mac, bytes, sizeof bytes);
}

// 2001:db8:N::, which is both the client's address and its prefix.
FrameLease leaseOf(uint32_t client, uint32_t prefixLength) {
    const uint8_t head[6] = {0x20, 0x01, 0x0D, 0xB8, static_cast<uint8_t>(client >> 8), static_cast<uint8_t>(client)};
    FrameLease lease{.address = {}, .prefixLength = prefixLength, .valid = VALID};
    std::memcpy(lease.address, head, sizeof head);
    return lease;
}

ClientFrame build(ClientFrameKind kind, uint32_t client, uint32_t transaction) {
    static FrameMessage message;
    ClientFrame frame{};
    uint8_t mac[6];
    uint32_t offset = 0;
    clientMac(client, mac);
    FramePlan plan{.destination = {0x33, 0x33, 0, 1, 0, 2}, .source = {}, .vlan = 0, .tags = 0, .toServer = 1};
    if (kind == ClientFrameKind::Solicit) {
        std::memcpy(plan.source, mac, sizeof mac);
        frameSolicit(&message, mac, transaction);
    } else {
        plan = {.destination = {}, .source = {0x02, 0x5E, 0, 0, 0, 1}, .vlan = 0, .tags = 0, .toServer = 0};
        std::memcpy(plan.destination, mac, sizeof mac);
        const FrameLease leases[] = {leaseOf(client, 128), leaseOf(client, 48)};
        frameLeaseMessage(&message, DHCP6_REPLY, mac, std::span(leases).first(kind == ClientFrameKind::Reply ? 2 : 1));
        const uint8_t id[3] = {static_cast<uint8_t>(transaction >> 16), static_cast<uint8_t>(transaction >> 8),
                               static_cast<uint8_t>(transaction)};
        std::memcpy(&message.bytes[1], id, sizeof id);
    }
    frame.length = frameBuild(&plan, &message, frame.bytes, &offset);
    return frame;
}

} // namespace

std::vector<ClientFrame> clientFrames(ClientFrameKind kind, uint32_t count, uint32_t clients) {
    std::vector<ClientFrame> frames;
    frames.reserve(count);
    for (uint32_t i = 0; i < count; i++)
        frames.push_back(build(kind, i % clients, i));
    return frames;
}
