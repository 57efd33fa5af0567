#include "fuzz/scriptframe.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "fuzz/check.h"
#include "fuzz/platform/lean.h"
#include "l2/dhcp6snooping/base/option.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/infoopt/content.h"
#include "l2/dhcp6snooping/infoopt/policy.h"

void scriptClientMac(uint32_t client, uint8_t mac[6]) {
    const uint8_t bytes[6] = {
        static_cast<uint8_t>(client == 0 ? 0 : 2), 0, 0, 0, static_cast<uint8_t>(client >> 8), static_cast<uint8_t>(client)};
    std::memcpy(mac, bytes, sizeof bytes);
}

void scriptAddress(uint8_t number, uint8_t address[16]) {
    const uint8_t bytes[16] = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, number};
    std::memcpy(address, bytes, sizeof bytes);
}

void scriptOptionMessage(FrameMessage *message, uint8_t type, FuzzInput *input) {
    frameMessage(message, type, 1);
    const std::span<const uint8_t> options = fuzzTake(input, fuzzU8(input));
    if (!options.empty())
        std::memcpy(&message->bytes[message->length], options.data(), options.size());
    message->length += static_cast<uint32_t>(options.size());
}

void scriptLeaseMessage(FrameMessage *message, uint8_t type, const ScriptWho *who, FuzzInput *input) {
    FrameLease leases[32];
    const uint32_t count = fuzzU8(input) % 32;
    for (uint32_t i = 0; i < count; i++) {
        const uint8_t number = fuzzU8(input);
        scriptAddress(number, leases[i].address);
        leases[i].prefixLength = (number & 0x80) != 0 ? 56 : 128;
        leases[i].valid = fuzzU8(input) * 4u;
    }
    uint8_t mac[6];
    scriptClientMac(who->client, mac);
    frameLeaseMessage(message, type, mac, {leases, count});
}

static uint32_t portOf(const ScriptWho *who) {
    static constexpr uint32_t UNUSUAL[8] = {0, 28, 29, 32, 64, 65, 0x80000001, 0xFFFFFFFF};
    const uint32_t choice = who->where & 7u;
    return (who->where & 0x40) != 0 ? UNUSUAL[choice] : choice + 1;
}

static uint16_t vlanOf(const ScriptWho *who) {
    static constexpr uint16_t UNUSUAL[8] = {0, 4094, 4095, 4096, 4097, 0x7FFF, 0x8000, 0xFFFF};
    const uint32_t choice = who->where >> 3 & 7u;
    return (who->where & 0x80) != 0 ? UNUSUAL[choice] : static_cast<uint16_t>(choice + 1);
}

// A frame is sent once at most, never back out of the port it came in by, and never longer than it came: but
// for the two options and the relay header that may be added to a message toward the servers.
static void checkSend(const ScriptPlace *place, uint32_t sendsBefore, uint32_t length) {
    const uint32_t sends = leanSwitch.sends - sendsBefore;
    fuzzCheck(sends <= 1, "a frame is sent on once");
    if (sends == 0)
        return;
    fuzzCheck(!leanSentTo(place->port), "a frame is not sent back");
    constexpr uint32_t ADDED_MAX = 2 * DHCP6_INFO_OPTION_MAX + DHCP6_RELAY_HEADER + DHCP6_OPTION_HEADER;
    const uint32_t added = dhcp6_info_option_wanted() ? ADDED_MAX : 0;
    fuzzCheck(leanSwitch.sentLength <= length + added && leanSwitch.sentFlags == place->flags, "a frame is sent on as it came");
}

void scriptDeliver(const ScriptPlace *place, uint32_t offset, std::span<const uint8_t> frame) {
    const size_t size = SMD_FRAME_ALIGN + frame.size() + SMD_FRAME_TAIL;
    auto *block = static_cast<uint8_t *>(std::calloc(1, size));
    uint8_t *at = block + SMD_FRAME_ALIGN;
    if (!frame.empty())
        std::memcpy(at, frame.data(), frame.size());
    SmdPktRecvInfo info{};
    info.vlan = place->vlan;
    info.port = place->port;
    SmdPktCtl ctl{};
    ctl.flags = place->flags;
    ctl.skip = (place->flags & 0x80) != 0 ? 1 : 0;
    ctl.payloadOffset = static_cast<uint16_t>(offset);
    const uint32_t sendsBefore = leanSwitch.sends;
    leanSwitch.receive(at, static_cast<uint32_t>(frame.size()), &info, &ctl);
    fuzzCheck(std::all_of(at + frame.size(), block + size, [](uint8_t byte) { return byte == 0; }),
              "nothing is written behind the frame");
    checkSend(place, sendsBefore, static_cast<uint32_t>(frame.size()));
    std::free(block);
}

static void checkServer(const ScriptPlace *place, uint8_t type, uint32_t sendsBefore) {
    const bool server = type == DHCP6_ADVERTISE || type == DHCP6_REPLY || type == DHCP6_RECONFIGURE ||
                        (type == DHCP6_RELAY_REPL && dhcp6L2Relay == 0);
    const uint32_t port0 = place->port - 1;
    const bool trusted = port0 < DHCP6SNOOPING_PORTS && dhcp6SnoopingTrustPort[port0] == 1;
    fuzzCheck(!server || trusted || leanSwitch.sends == sendsBefore, "a server on an untrusted port is not heard");
}

// A client's message reaches trusted ports only. Ports beyond the switch's number are the platform's own business.
static void checkClient(uint8_t type, uint32_t sendsBefore) {
    const bool client = type >= DHCP6_SOLICIT && type <= DHCP6_RELAY_FORW && type != DHCP6_ADVERTISE && type != DHCP6_REPLY &&
                        type != DHCP6_RECONFIGURE;
    if (!client || leanSwitch.sends == sendsBefore || (leanSwitch.sentPort & SMD_PORT_TRUNK) != 0)
        return;
    for (uint32_t port = 1; port <= std::min(gul_max_port_num, 64u); port++)
        fuzzCheck(!leanSentTo(port) || (port <= DHCP6SNOOPING_PORTS && dhcp6SnoopingTrustPort[port - 1] == 1),
                  "a client's message reaches trusted ports only");
}

// Bytes that the headers promise but the frame does not hold, and the reverse.
static void lieAboutLengths(std::span<uint8_t> frame, uint32_t offset) {
    const uint32_t ip = offset - 48;
    frame[ip + 4] = 0xFF;
    frame[ip + 5] = 0xFF;
    frame[offset - 4] = 0;
    frame[offset - 3] = 1;
}

static FramePlan planOf(const ScriptWho *who, uint8_t type) {
    FramePlan plan{};
    plan.vlan = vlanOf(who);
    plan.tags = (who->how & 1) != 0 ? 2 : 1;
    const uint8_t server[6] = {0x02, 0x5E, 0, 0, 0, static_cast<uint8_t>(who->how >> 5)};
    const uint8_t multicast[6] = {0x33, 0x33, 0, 1, 0, 2};
    plan.toServer =
        type == DHCP6_ADVERTISE || type == DHCP6_REPLY || type == DHCP6_RECONFIGURE || type == DHCP6_RELAY_REPL ? 0 : 1;
    uint8_t *client = plan.toServer == 1 ? plan.source : plan.destination;
    uint8_t *other = plan.toServer == 1 ? plan.destination : plan.source;
    scriptClientMac(who->client, client);
    std::memcpy(other, plan.toServer == 1 && (who->how & 8) == 0 ? multicast : server, 6);
    if ((who->how & 4) != 0)
        std::memset(plan.destination, 0xFF, 6);
    return plan;
}

void scriptDeliverMessage(const ScriptWho *who, const FrameMessage *message) {
    static FrameMessage wrapped;
    static std::array<uint8_t, SMD_FRAME_MAX> frame;
    const bool relayed = (who->how & 2) != 0;
    if (relayed)
        frameRelayReply(&wrapped, message);
    const FrameMessage *sent = relayed ? &wrapped : message;
    const FramePlan plan = planOf(who, message->bytes[0]);
    uint32_t offset = 0;
    const uint32_t length = frameBuild(&plan, sent, frame, &offset);
    if (length == 0)
        return;
    if ((who->how & 16) != 0)
        lieAboutLengths({frame.data(), length}, offset);
    const ScriptPlace place{.port = portOf(who), .vlan = plan.vlan, .flags = plan.tags == 2 ? SMD_CTL_DOUBLE_TAGGED : 0};
    const uint32_t sendsBefore = leanSwitch.sends;
    const uint32_t port0 = place.port - 1;
    const uint32_t clientsBefore = port0 < DHCP6SNOOPING_PORTS ? dhcp6SnoopingPortIpNum[port0] : 0;
    scriptDeliver(&place, offset, {frame.data(), length});
    checkServer(&place, sent->bytes[0], sendsBefore);
    checkClient(sent->bytes[0], sendsBefore);
    if (leanSwitch.sends != sendsBefore && (who->how & 16) == 0)
        fuzzCheck(frameSound({leanSent, leanSwitch.sentLength}, offset), "a sound frame is sent on sound");
    if (port0 < DHCP6SNOOPING_PORTS)
        fuzzCheck(dhcp6SnoopingPortIpNum[port0] <= std::max<uint32_t>(clientsBefore, dhcp6SnoopingPortMaxIP[port0]),
                  "a port's limit admits no client too many");
}
