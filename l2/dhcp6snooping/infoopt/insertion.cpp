#include "l2/dhcp6snooping/infoopt/insertion.h"

#include <cstdlib>
#include <cstring>

#include "l2/dhcp6snooping/base/checksum.h"
#include "l2/dhcp6snooping/base/frame.h"
#include "l2/dhcp6snooping/base/option.h"
#include "l2/dhcp6snooping/base/trace.h"
#include "l2/dhcp6snooping/base/wire.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/infoopt/content.h"
#include "l2/dhcp6snooping/infoopt/policy.h"
#include "platform/libcommon.h"
#include "platform/libl3if.h"
#include "platform/libvos.h"

namespace {

constexpr uint32_t WORK_BUFFER = 2050;
constexpr uint32_t WORK_FRAME_AT = 2; // so that the IPv6 header is word-aligned
constexpr uint32_t WORK_FRAME_MAX = WORK_BUFFER - WORK_FRAME_AT;

constexpr uint32_t HOST_NAME = 128;
constexpr uint32_t IP6_ADDRESS = 16;
constexpr uint32_t XPON = 1;
constexpr uint16_t VLAN_ID_BITS = 0x0FFF;
constexpr uint16_t ONU_ID_BITS = 0x1FFF;

constexpr uint32_t WRAPPER = DHCP6_RELAY_HEADER + DHCP6_OPTION_HEADER;
constexpr uint32_t RELAY_HOP_COUNT = 1;
constexpr uint32_t RELAY_PEER_ADDRESS = 18;
constexpr uint16_t DHCP6_SERVER_PORT = 547;

constexpr uint32_t DUID_TYPE = DHCP6_OPTION_HEADER;
constexpr uint32_t DUID_HARDWARE_TYPE = DUID_TYPE + 2;
constexpr uint16_t DUID_LLT = 1;
constexpr uint16_t DUID_LL = 3;
constexpr uint16_t HARDWARE_ETHERNET = 1;
constexpr uint32_t DUID_LLT_MAC = 12; // from the option's code on
constexpr uint32_t DUID_LL_MAC = 8;
constexpr uint32_t MAC_BYTES = 6;

constexpr uint32_t REPLACED_SIZE_AT = 9; // from the option's code on

uint8_t *workBuffer = nullptr;

// The message while its options change. Places in it are offsets: pointers do not survive the moves.
struct Insertion {
    uint8_t *options;
    uint32_t area;     // bytes of options now
    uint32_t replaced; // bytes that an option which was there counts for; once found, in both passes
    Dhcp6InfoContext *ctx;
    const char *hostName;
};

enum class Verdict { GO_ON, DONE, DROP };

// ---- What is known about the message ------------------------------------------------------------------------------------

void find_client_mac(const Insertion &message) {
    uint32_t length = 0;
    const uint8_t *header =
        dhcp6snooping_msg_option_find(DHCP6_OPTION_CLIENT_ID, &length, message.options, message.area, nullptr, nullptr);
    if (header == nullptr)
        return;
    const std::span<const uint8_t> option{header, DHCP6_OPTION_HEADER + length};
    if (wire_get16(option, DUID_HARDWARE_TYPE) != HARDWARE_ETHERNET)
        return;
    const uint16_t duid = wire_get16(option, DUID_TYPE);
    const uint32_t mac = duid == DUID_LL ? DUID_LL_MAC : DUID_LLT_MAC;
    if ((duid == DUID_LL || duid == DUID_LLT) && wire_holds(option, mac, MAC_BYTES))
        memcpy(message.ctx->clientMac, header + mac, MAC_BYTES);
}

Dhcp6InfoContext context_of(const Dhcp6PacketDescriptor *pkt, uint32_t msgOffset, uint16_t vlan, uint32_t port) {
    Dhcp6InfoContext ctx = {};
    ctx.vlan = vlan;
    ctx.port = static_cast<uint16_t>(port);
    ctx.switchId = getSWByVLAN(vlan);
    if (pkt->info.access == XPON) {
        ctx.isXpon = 1;
        ctx.ponValue = pkt->info.ponValue;
        ctx.ponId = pkt->info.ponId & ONU_ID_BITS;
        memcpy(ctx.serialNumber, pkt->info.serial, sizeof ctx.serialNumber);
    }
    ctx.room = WORK_FRAME_MAX - msgOffset - DHCP6_MESSAGE_HEADER;
    return ctx;
}

// ---- One option ---------------------------------------------------------------------------------------------------------

bool exceeds(const Insertion &message, uint32_t area) { return message.ctx->room != 0 && area > message.ctx->room; }

Verdict refuse_length() {
    dhcp6snooping_debug_printf(
        "\r\n dhcpv6 infomation option 18/37 add failed, the packet too long, greater than 1500 after added ");
    return Verdict::DONE;
}

// An option that is replaced counts for as many bytes as the low byte of the 16-bit value at its offset 8 says, whatever its
// own length is. A position outside the area counts for none.
void remember_replaced(Insertion *message, uint32_t at) {
    message->replaced = wire_get8({message->options, message->area}, at + REPLACED_SIZE_AT);
}

void remove_replaced(Insertion *message, bool found, uint32_t at) {
    const uint32_t end = at + message->replaced;
    if (found && end < message->area)
        memmove(message->options + at, message->options + end, message->area - end);
    message->area -= message->replaced;
}

// The size of an option replaced in the first pass is taken off again in the second, even when that finds nothing of its own.
Verdict add_option(Insertion *message, uint16_t code) {
    const uint8_t *there = dhcp6snooping_msg_option_find(code, nullptr, message->options, message->area, nullptr, nullptr);
    const uint32_t at = there != nullptr ? static_cast<uint32_t>(there - message->options) : 0;
    if (there != nullptr) {
        if (dhcp6InfoOptionPolicy.strategy == DHCP6_INFO_DROP) {
            dhcp6snooping_debug_printf("\r\n infomation option strategy = drop, drop dhcp request message ");
            return Verdict::DROP;
        }
        if (dhcp6InfoOptionPolicy.strategy == DHCP6_INFO_KEEP)
            return Verdict::DONE;
        remember_replaced(message, at);
    }
    Dhcp6InfoOption option;
    if (!dhcp6_info_option_build(code, message->ctx, message->hostName, &option)) {
        dhcp6snooping_debug_printf(code == DHCP6_OPTION_INTERFACE_ID ? "\r\n option InterfaceId format failed, not appeded "
                                                                     : "\r\n option RemoteId format failed, not appeded ");
        return Verdict::DONE;
    }
    if (message->replaced > message->area)
        return refuse_length();
    const uint32_t area = message->area - message->replaced + option.length;
    if (area > DHCP6_INFO_AREA_MAX || exceeds(*message, area))
        return refuse_length();
    remove_replaced(message, there != nullptr, at);
    memcpy(message->options + message->area, option.bytes, option.length);
    message->area = area;
    return Verdict::GO_ON;
}

Verdict add_options(Insertion *message) {
    Verdict verdict = Verdict::GO_ON;
    if (dhcp6InfoOptionPolicy.option18Enable == 1)
        verdict = add_option(message, DHCP6_OPTION_INTERFACE_ID);
    if (verdict == Verdict::GO_ON && dhcp6InfoOptionPolicy.option37Enable == 1)
        verdict = add_option(message, DHCP6_OPTION_REMOTE_ID);
    return verdict;
}

// ---- The relay header ---------------------------------------------------------------------------------------------------

// relayed is the length that goes into the Relay Message option: that of the message as it came, without what was added.
void wrap(Insertion *message, uint8_t msgType, uint32_t relayed, const uint8_t *peerAddr) {
    uint8_t *start = message->options - DHCP6_MESSAGE_HEADER;
    uint8_t header[WRAPPER] = {};
    header[0] = DHCP6_RELAY_FORW;
    header[RELAY_HOP_COUNT] = msgType == DHCP6_RELAY_FORW ? start[RELAY_HOP_COUNT] : uint8_t{0};
    memcpy(header + RELAY_PEER_ADDRESS, peerAddr, IP6_ADDRESS);
    wire_put16(header, DHCP6_RELAY_HEADER, DHCP6_OPTION_RELAY_MSG);
    wire_put16(header, DHCP6_RELAY_HEADER + 2, static_cast<uint16_t>(relayed));
    memmove(start + WRAPPER, start, DHCP6_MESSAGE_HEADER + message->area);
    memcpy(start, header, WRAPPER);
    message->area += WRAPPER;
    wire_put16({start - UDP_HEADER, UDP_HEADER}, 0, DHCP6_SERVER_PORT);
}

bool takes_options(uint8_t msgType) {
    switch (msgType) {
    case DHCP6_SOLICIT:
    case DHCP6_REQUEST:
    case DHCP6_CONFIRM:
    case DHCP6_RENEW:
    case DHCP6_REBIND:
    case DHCP6_INFORMATION_REQUEST:
    case DHCP6_RELAY_FORW: return true;
    default: return false;
    }
}

// ---- The frame ----------------------------------------------------------------------------------------------------------

bool copy_frame(Dhcp6PacketDescriptor *pkt, uint32_t msgOffset) {
    if (workBuffer == nullptr)
        workBuffer = static_cast<uint8_t *>(malloc(WORK_BUFFER));
    if (workBuffer == nullptr) {
        dhcp6snooping_debug_printf("\r\n drop packet due to option82 processing malloc");
        return false;
    }
    const uint32_t headers = FRAME_IP6 + dhcp6snooping_second_tag(pkt) + IP6_HEADER + UDP_HEADER;
    if (pkt->length > DHCP6_INFO_FRAME_MAX || msgOffset < headers || pkt->length < DHCP6_MESSAGE_HEADER ||
        msgOffset > pkt->length - DHCP6_MESSAGE_HEADER) {
        dhcp6snooping_debug_printf("\r\n drop packet due to option82 processing length");
        return false;
    }
    // The frame may lie in the work buffer already.
    memmove(workBuffer + WORK_FRAME_AT, pkt->data, pkt->length);
    pkt->data = workBuffer + WORK_FRAME_AT;
    return true;
}

void grow_field(std::span<uint8_t> frame, uint32_t at, uint32_t delta) {
    wire_put16(frame, at, static_cast<uint16_t>(wire_get16(frame, at) + delta));
}

// Length fields grow by what was added: a field that never agreed with the frame stays as far off as it was. delta wraps when
// the message became shorter.
void grow_frame(Dhcp6PacketDescriptor *pkt, uint32_t msgOffset, uint32_t ip6, uint32_t delta) {
    pkt->length += delta;
    const std::span<uint8_t> frame{pkt->data, pkt->length};
    const uint32_t udp = msgOffset - UDP_HEADER;
    grow_field(frame, udp + UDP_LENGTH, delta);
    grow_field(frame, ip6 + IP6_PAYLOAD_LENGTH, delta);
    dhcp6snooping_udp_checksum_renew(pkt->data + ip6, pkt->data + udp, pkt->length - udp);
}

} // namespace

int32_t dhcp6_info_option_process(uint8_t msgType, uint8_t *options, uint32_t optLen, uint32_t *newLen, Dhcp6InfoContext *ctx,
                                  uint16_t innerVlan, const uint8_t *peerAddr) {
    if (!takes_options(msgType))
        return 0;
    char hostName[HOST_NAME] = {};
    vosHostNameGet(hostName, sizeof hostName);
    hostName[sizeof hostName - 1] = '\0';
    getSysMacAdress(ctx->systemMac);
    Insertion message = {.options = options, .area = optLen, .replaced = 0, .ctx = ctx, .hostName = hostName};
    find_client_mac(message);
    ctx->innerVlan = innerVlan;

    const Verdict verdict = add_options(&message);
    if (verdict == Verdict::GO_ON && dhcp6L2Relay != 0) {
        if (message.area + WRAPPER + DHCP6_OPTION_HEADER > DHCP6_INFO_AREA_MAX || exceeds(message, message.area + WRAPPER))
            refuse_length();
        else
            wrap(&message, msgType, optLen + DHCP6_MESSAGE_HEADER, peerAddr);
    }
    *newLen = message.area;
    return verdict == Verdict::DROP ? -1 : 0;
}

Dhcp6PacketDescriptor *dhcp6snooping_packet_add_info_option(Dhcp6PacketDescriptor *pkt, uint32_t msgOffset, uint16_t vlan,
                                                            uint32_t port) {
    if (pkt == nullptr || pkt->data == nullptr || !copy_frame(pkt, msgOffset))
        return nullptr;
    const uint32_t ip6 = FRAME_IP6 + dhcp6snooping_second_tag(pkt);
    const uint16_t innerVlan = dhcp6snooping_second_tag(pkt) != 0
                                   ? wire_get16({pkt->data, pkt->length}, FRAME_INNER_VLAN) & VLAN_ID_BITS
                                   : uint16_t{0};
    Dhcp6InfoContext ctx = context_of(pkt, msgOffset, vlan, port);
    const uint32_t optLen = pkt->length - msgOffset - DHCP6_MESSAGE_HEADER;
    uint32_t newLen = optLen;
    if (dhcp6_info_option_process(pkt->data[msgOffset], pkt->data + msgOffset + DHCP6_MESSAGE_HEADER, optLen, &newLen, &ctx,
                                  innerVlan, pkt->data + ip6 + IP6_SOURCE) != 0) {
        dhcp6snooping_debug_printf("\r\n infomation option process failed, drop packet.");
        return nullptr;
    }
    grow_frame(pkt, msgOffset, ip6, newLen - optLen);
    return pkt;
}
