#include "bench/core/load.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz/platform/frame.h"
#include "fuzz/platform/lean.h"
#include "l2/dhcp6snooping/base/option.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/clients/table.h"
#include "l2/dhcp6snooping/main/Dhcp6Snooping.h"
#include "l2/dhcp6snooping/packet/onoff.h"

namespace {

constexpr uint32_t SERVER_PORT = 4;

struct LoadFrame {
    std::vector<uint64_t> memory; // 8-aligned; the frame starts SMD_FRAME_ALIGN bytes in
    uint32_t length;
    uint32_t offset;
};

std::vector<LoadFrame> frames[LOAD_KINDS];

void clientMac(uint32_t client, uint8_t mac[6]) {
    // Neighbours in time are not neighbours in the tree, as with real clients.
    const uint32_t spread = client * 2654435761u;
    const uint8_t bytes[6] = {0x02,
                              static_cast<uint8_t>(spread >> 24),
                              static_cast<uint8_t>(spread >> 16),
                              static_cast<uint8_t>(spread >> 8),
                              static_cast<uint8_t>(client >> 8),
                              static_cast<uint8_t>(client)};
    std::memcpy(mac, bytes, sizeof bytes);
}

uint32_t clientPort(uint32_t client) { return client % 3 + 1; }

LoadFrame place(const FramePlan *plan, const FrameMessage *message) {
    static std::array<uint8_t, SMD_FRAME_MAX> bytes;
    LoadFrame frame{};
    frame.length = frameBuild(plan, message, bytes, &frame.offset);
    frame.memory.resize((SMD_FRAME_ALIGN + frame.length + SMD_FRAME_TAIL + 7) / 8);
    std::memcpy(reinterpret_cast<uint8_t *>(frame.memory.data()) + SMD_FRAME_ALIGN, bytes.data(), frame.length);
    return frame;
}

void buildClient(uint32_t client, uint32_t leases) {
    static FrameMessage message;
    static FrameMessage wrapped;
    std::vector<FrameLease> held(leases + 1);
    for (uint32_t i = 0; i <= leases; i++) {
        const uint8_t address[16] = {0x20,
                                     0x01,
                                     0x0D,
                                     0xB8,
                                     0,
                                     static_cast<uint8_t>(i),
                                     0,
                                     0,
                                     0,
                                     0,
                                     0,
                                     0,
                                     0,
                                     0,
                                     static_cast<uint8_t>(client >> 8),
                                     static_cast<uint8_t>(client)};
        std::memcpy(held[i].address, address, sizeof address);
        held[i].prefixLength = i == leases ? 56 : 128;
        held[i].valid = 4000000000;
    }
    FramePlan toServer{.destination = {0x33, 0x33, 0, 1, 0, 2}, .source = {}, .vlan = 1, .tags = 1, .toServer = 1};
    FramePlan toClient{.destination = {}, .source = {0x02, 0x5E, 0, 0, 0, 1}, .vlan = 1, .tags = 1, .toServer = 0};
    clientMac(client, toServer.source);
    clientMac(client, toClient.destination);
    frameSolicit(&message, toServer.source, client);
    frames[LOAD_SOLICIT].push_back(place(&toServer, &message));
    frameLeaseMessage(&message, DHCP6_REPLY, toServer.source, held);
    frames[LOAD_REPLY].push_back(place(&toClient, &message));
    frameRelayReply(&wrapped, &message);
    frames[LOAD_RELAY_REPLY].push_back(place(&toClient, &wrapped));
    frameLeaseMessage(&message, DHCP6_ADVERTISE, toServer.source, held);
    frames[LOAD_ADVERTISE].push_back(place(&toClient, &message));
    frameLeaseMessage(&message, DHCP6_REQUEST, toServer.source, held);
    frames[LOAD_REQUEST].push_back(place(&toServer, &message));
    frameLeaseMessage(&message, DHCP6_RELEASE, toServer.source, held);
    frames[LOAD_RELEASE].push_back(place(&toServer, &message));
}

bool fromServer(LoadKind kind) { return kind == LOAD_REPLY || kind == LOAD_ADVERTISE || kind == LOAD_RELAY_REPLY; }

} // namespace

void loadBegin() {
    uint32_t queueId = 0;
    leanReset();
    dhcp6snooping_startup("bench", &queueId);
    dhcp6snooping_start();
    dhcp6snooping_port_mode(SERVER_PORT, 1);
    // Every client is found on port 1 or 2, never on the server's.
    for (uint32_t i = 0; i < LEAN_PLACES; i++)
        leanSwitch.macs[i].port = i % 2 + 1;
}

void loadBuild(uint32_t clients, uint32_t leases) {
    dhcp6snooping_delete_allavlnode();
    for (std::vector<LoadFrame> &kind : frames)
        kind.clear();
    for (uint32_t client = 0; client < clients; client++)
        buildClient(client, leases);
}

void loadDeliver(LoadKind kind, uint32_t client) {
    LoadFrame *frame = &frames[kind][client];
    SmdPktRecvInfo info{};
    info.vlan = 1;
    info.port = fromServer(kind) ? SERVER_PORT : clientPort(client);
    SmdPktCtl ctl{};
    ctl.payloadOffset = static_cast<uint16_t>(frame->offset);
    leanSwitch.receive(reinterpret_cast<uint8_t *>(frame->memory.data()) + SMD_FRAME_ALIGN, frame->length, &info, &ctl);
}

void loadDeliverAll(LoadKind kind) {
    for (uint32_t client = 0; client < frames[kind].size(); client++)
        loadDeliver(kind, client);
}

void loadExpectClients(uint32_t clients) {
    const uint32_t held = DHCP6SNOOPING_CLIENTS_MAX - listDhcp6SnoopingAvlNode.count;
    if (held == clients)
        return;
    std::fprintf(stderr, "the table holds %u clients where the bench needs %u\n", held, clients);
    std::exit(1);
}
