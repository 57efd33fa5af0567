#include "l2/dhcp6snooping/packet/relay.h"

#include <cstring>

#include "l2/dhcp6snooping/base/checksum.h"
#include "l2/dhcp6snooping/base/frame.h"
#include "l2/dhcp6snooping/base/option.h"
#include "l2/dhcp6snooping/base/wire.h"

namespace {

constexpr uint16_t DHCP6_CLIENT_PORT = 546;

// The relayed message, or null. The search is bounded by the length of the whole message although it starts behind the relay
// header, so it may look at up to 34 bytes behind the frame; those are readable zeros by the contract of capture.
const uint8_t *find_relayed(const Dhcp6PacketDescriptor *packet, uint32_t offset, uint32_t *length) {
    const uint32_t message_length = packet->length - offset;
    if (message_length < DHCP6_RELAY_HEADER + DHCP6_OPTION_HEADER)
        return nullptr;
    const uint8_t *option = dhcp6snooping_msg_option_find(
        DHCP6_OPTION_RELAY_MSG, length, packet->data + offset + DHCP6_RELAY_HEADER, message_length, nullptr, nullptr);
    // A message without a whole header of its own is none.
    if (option == nullptr || *length < DHCP6_MESSAGE_HEADER)
        return nullptr;
    return option + DHCP6_OPTION_HEADER;
}

// Length fields are shrunk, not recomputed: a field that never agreed with the frame stays as far off as it was.
void shrink_field(std::span<uint8_t> frame, uint32_t at, uint32_t bytes) {
    wire_put16(frame, at, static_cast<uint16_t>(wire_get16(frame, at) - bytes));
}

} // namespace

void dhcp6snooping_relay_reply_unwrap(Dhcp6PacketDescriptor *packet, uint32_t offset) {
    uint32_t inner_length = 0;
    const uint8_t *inner = find_relayed(packet, offset, &inner_length);
    if (inner == nullptr)
        return;
    const std::span<uint8_t> frame{packet->data, packet->length};
    const uint32_t removed = packet->length - offset - inner_length;
    const uint32_t ip6 = FRAME_IP6 + dhcp6snooping_second_tag(packet);
    const uint32_t udp = offset - UDP_HEADER;

    memmove(packet->data + offset, inner, inner_length);
    if (packet->data[offset] != DHCP6_RELAY_REPL)
        wire_put16(frame, udp + UDP_DESTINATION_PORT, DHCP6_CLIENT_PORT);
    packet->length -= removed;
    shrink_field(frame, udp + UDP_LENGTH, removed);
    shrink_field(frame, ip6 + IP6_PAYLOAD_LENGTH, removed);
    dhcp6snooping_udp_checksum_renew(packet->data + ip6, packet->data + udp, packet->length - udp);
}
