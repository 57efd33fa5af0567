#include "bench/tools/client_frames.h"

#include <cstring>
#include <span>

#include "fuzz/platform/frame.h"
#include "l2/dhcp6snooping/base/option.h"

namespace {

constexpr uint32_t VALID = 86400; // seconds; no bench is that long
constexpr uint8_t SERVER[6] = {0x02, 0x5E, 0, 0, 0, 1};
constexpr uint16_t OPTION_REQUEST = 6;

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

// What the client sends, and to whom.
void fromClient(ClientFrameKind kind, const uint8_t mac[6], uint32_t transaction, FrameMessage *message, FramePlan *plan) {
    static FrameMessage solicit;
    *plan = {.destination = {0x33, 0x33, 0, 1, 0, 2}, .source = {}, .vlan = 0, .tags = 0, .toServer = 1};
    std::memcpy(plan->source, mac, sizeof plan->source);
    frameSolicit(&solicit, mac, transaction);
    if (kind == ClientFrameKind::Solicit) {
        *message = solicit;
        return;
    }
    std::memcpy(plan->destination, SERVER, sizeof SERVER);
    if (kind == ClientFrameKind::RelayForward) {
        frameRelayReply(message, &solicit);
        message->bytes[0] = DHCP6_RELAY_FORW;
    } else {
        const uint8_t request[4] = {0, 23, 0, 24}; // DNS servers and search list
        frameMessage(message, DHCP6_INFORMATION_REQUEST, transaction);
        frameOption(message, OPTION_REQUEST, request);
    }
}

// What the server sends to the client.
void fromServer(ClientFrameKind kind, uint32_t client, const uint8_t mac[6], uint32_t transaction, FrameMessage *message,
                FramePlan *plan) {
    *plan = {.destination = {}, .source = {}, .vlan = 0, .tags = 0, .toServer = 0};
    std::memcpy(plan->destination, mac, sizeof plan->destination);
    std::memcpy(plan->source, SERVER, sizeof SERVER);
    const FrameLease leases[] = {leaseOf(client, 128), leaseOf(client, 48)};
    frameLeaseMessage(message, DHCP6_REPLY, mac, std::span(leases).first(kind == ClientFrameKind::Reply ? 2 : 1));
    const uint8_t id[3] = {static_cast<uint8_t>(transaction >> 16), static_cast<uint8_t>(transaction >> 8),
                           static_cast<uint8_t>(transaction)};
    std::memcpy(&message->bytes[1], id, sizeof id);
}

ClientFrame build(ClientFrameKind kind, uint32_t client, uint32_t transaction) {
    static FrameMessage message;
    FramePlan plan{};
    ClientFrame frame{};
    uint8_t mac[6];
    uint32_t offset = 0;
    clientMac(client, mac);
    if (kind == ClientFrameKind::Reply || kind == ClientFrameKind::Address)
        fromServer(kind, client, mac, transaction, &message, &plan);
    else
        fromClient(kind, mac, transaction, &message, &plan);
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
