#include "l2/dhcp6snooping/packet/snooping.h"

#include <algorithm>
#include <functional>

#include "l2/dhcp6snooping/base/frame.h"
#include "l2/dhcp6snooping/base/lease.h"
#include "l2/dhcp6snooping/base/option.h"
#include "l2/dhcp6snooping/base/text.h"
#include "l2/dhcp6snooping/base/trace.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/clients/table.h"
#include "l2/dhcp6snooping/packet/forward.h"
#include "l2/dhcp6snooping/packet/relay.h"
#include "l2/dhcp6snooping/sourceguard/filters.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "platform/libcommon.h"
#include "platform/libvos.h"

namespace {

// A frame on its way through this file.
struct SnoopedMessage {
    Dhcp6PacketDescriptor *packet;
    uint32_t offset; // of the message in the frame
    uint16_t vlan;
    uint32_t port; // receiving port index, from 0
    uint8_t type;
    const char *type_name;  // for traces
    const uint8_t *options; // behind the message header
    uint32_t options_len;
};

// Everything that later steps read at fixed places is inside the frame: headers, message type and transaction id.
bool frame_is_whole(const Dhcp6PacketDescriptor *packet, uint32_t offset) {
    const uint32_t headers = FRAME_IP6 + dhcp6snooping_second_tag(packet) + IP6_HEADER + UDP_HEADER;
    return offset >= headers && packet->length >= DHCP6_MESSAGE_HEADER && offset <= packet->length - DHCP6_MESSAGE_HEADER;
}

SnoopedMessage message_of(Dhcp6PacketDescriptor *packet, uint32_t offset, uint16_t vlan, uint32_t port) {
    const uint8_t type = packet->data[offset];
    return {.packet = packet,
            .offset = offset,
            .vlan = vlan,
            .port = port,
            .type = type,
            .type_name = dhcp6snooping_msgtype_to_str(type),
            .options = packet->data + offset + DHCP6_MESSAGE_HEADER,
            .options_len = packet->length - offset - DHCP6_MESSAGE_HEADER};
}

void to_servers(const SnoopedMessage &message) {
    dhcp6snooping_send_packet_to_sever(message.packet, message.vlan, message.port, message.offset);
}

void to_clients(const SnoopedMessage &message) {
    dhcp6snooping_send_packet_to_client(message.packet, message.vlan, message.port);
}

bool refuse_zero_mac(const SnoopedMessage &message, const uint8_t *mac) {
    if (!dhcp6snooping_mac_is_zero(mac))
        return false;
    dhcp6snooping_debug_printf("\r\n client mac = 0, drop dhcpv6 %s msg", message.type_name);
    return true;
}

bool refuse_untrusted(const SnoopedMessage &message) {
    if (dhcp6snooping_port_trusted(message.port))
        return false;
    dhcp6snooping_debug_printf("\r\n dhcpv6 %s msg comes from untrust port, drop msg.", message.type_name);
    return true;
}

// ---- SOLICIT, REQUEST, CONFIRM, RENEW, REBIND ------------------------------------------------------------------------

// A full port or VLAN lets only those through that are recorded right there.
bool within_limits(const SnoopedMessage &message, const Dhcp6SnoopingNode *client) {
    const bool port_full = dhcp6snooping_port_full(message.port);
    const bool vlan_full = dhcp6snooping_vlan_full(message.vlan);
    if (!port_full && !vlan_full)
        return true;
    if (client == nullptr)
        return false;
    if (port_full && client->port != message.port + 1)
        return false;
    return !vlan_full || client->vlan == message.vlan;
}

// client is the record that there is, or null.
void record_client(const SnoopedMessage &message, const uint8_t *mac, Dhcp6SnoopingNode *client) {
    const uint32_t port = message.port + 1;
    if (client != nullptr && (client->vlan != message.vlan || client->port != port)) {
        dhcp6snooping_delete_avlnode(mac);
        client = nullptr;
    }
    if (client == nullptr)
        client = dhcp6snooping_add_avlnode(mac);
    if (client == nullptr)
        return;
    client->vlan = message.vlan;
    client->port = port;
    if (client->counted == 0) {
        client->counted = 1;
        dhcp6snooping_count_client(message.port, message.vlan);
    }
    if (client->acked == 0) {
        client->unack_timeout = DHCP6SNOOPING_UNACK_TIMEOUT;
        client->last_update = vosUpSeconds();
    }
    if (!dhcp6snooping_debug_on())
        return;
    char mac_text[MAC_TEXT_SIZE];
    char port_text[PORT_TEXT_MAX] = {};
    dhcp6snooping_debug_printf("\r\n receive dhcpv6 %s msg, record user: mac %s, vlan %d, port %s", message.type_name,
                               dhcp6snooping_mac_to_str(mac, mac_text), message.vlan,
                               transPort2EtherPort(client->port, port_text));
}

void handle_client_message(const SnoopedMessage &message) {
    const uint8_t *mac = message.packet->data + FRAME_SOURCE_MAC;
    if (refuse_zero_mac(message, mac))
        return;
    Dhcp6SnoopingNode *client = dhcp6snooping_get_avlnode(mac);
    // Trusted ports meet the limits too, although nothing is recorded there.
    if (!within_limits(message, client)) {
        dhcp6snooping_debug_printf("\r\n user number reaches max of port or vlan, drop dhcpv6 %s msg", message.type_name);
        return;
    }
    if (!dhcp6snooping_port_trusted(message.port))
        record_client(message, mac, client);
    to_servers(message);
}

// ---- RELEASE, DECLINE ------------------------------------------------------------------------------------------------

void give_back(const SnoopedMessage &message, const Dhcp6SnoopingNode *client, const Dhcp6LeaseAttr *held) {
    // The receiving port decides here, where a REPLY asks the port of the record.
    dhcp6snooping_lease_filter_remove(client, held, message.port);
    char mac_text[MAC_TEXT_SIZE];
    dhcp6snooping_debug_printf("\r\n receive dhcpv6 %s msg, delete user: mac %s", message.type_name,
                               dhcp6snooping_mac_to_str(client->mac, mac_text));
}

bool is_kept(void *item, void *context) {
    const auto *given_back = static_cast<const Dhcp6AttrArray *>(context);
    return !std::binary_search(given_back->items, given_back->items + given_back->count, item, std::less<>{});
}

// The message's list becomes that of the record's leases that it names, so that these are removed in one pass.
void forget_leases(const SnoopedMessage &message, Dhcp6SnoopingNode *client) {
    Dhcp6IaResult parsed{};
    dhcp6snooping_parse_addr_and_prefix_option(&parsed, message.options, message.options_len, 0);
    Dhcp6AttrArray given_back = {.count = 0, .capacity = parsed.leases.capacity, .items = parsed.leases.items};
    for (uint32_t index = 0; index < parsed.leases.count; ++index) {
        Dhcp6LeaseAttr *held = dhcp6snooping_lease_find(&client->leases, dhcp6snooping_lease_at(&parsed.leases, index));
        dhcp6snooping_attr_binding_free(&parsed.leases.items[index]);
        if (held == nullptr)
            continue;
        give_back(message, client, held);
        given_back.items[given_back.count++] = held;
    }
    std::sort(given_back.items, given_back.items + given_back.count, std::less<>{});
    if (given_back.count != 0)
        dhcp6snooping_attr_array_keep(&client->leases, is_kept, &given_back, dhcp6snooping_attr_binding_free);
    dhcp6snooping_attr_array_free(&given_back, nullptr);
}

void handle_release(const SnoopedMessage &message) {
    const uint8_t *mac = message.packet->data + FRAME_SOURCE_MAC;
    if (refuse_zero_mac(message, mac))
        return;
    Dhcp6SnoopingNode *client = dhcp6snooping_get_avlnode(mac);
    if (client != nullptr) {
        forget_leases(message, client);
        // A client that no server has answered yet stays: it may be asking for its first address right now.
        if (client->acked != 0 && client->leases.count == 0)
            dhcp6snooping_delete_avlnode(mac);
    }
    to_servers(message);
}

// ---- REPLY -----------------------------------------------------------------------------------------------------------

void learn_lease(Dhcp6SnoopingNode *client, const Dhcp6LeaseAttr *granted) {
    Dhcp6LeaseAttr *held = dhcp6snooping_lease_find(&client->leases, granted);
    if (held != nullptr)
        *held = *granted;
    else
        dhcp6snooping_attr_array_add(&client->leases, granted, sizeof *granted);
}

// All of them, old and new: a filter that was refused is asked for again with every renewal. One that the platform has already
// costs a look into its memory.
void open_leases(const Dhcp6SnoopingNode *client) {
    if (!ip6_source_guard_port_on(client->port - 1)) // of an open port none has a filter
        return;
    for (uint32_t slot = 0; slot < client->leases.count; ++slot) {
        const Dhcp6LeaseAttr *lease = dhcp6snooping_lease_at(&client->leases, slot);
        if (lease != nullptr)
            dhcp6snooping_lease_filter_install(client, lease);
    }
}

void learn_leases(const SnoopedMessage &message, Dhcp6SnoopingNode *client, const char *mac_text) {
    Dhcp6IaResult parsed{};
    if (dhcp6snooping_parse_addr_and_prefix_option(&parsed, message.options, message.options_len, 1) != 0) {
        for (uint32_t index = 0; index < parsed.leases.count; ++index)
            learn_lease(client, dhcp6snooping_lease_at(&parsed.leases, index));
        client->last_update = vosUpSeconds();
        client->acked = 1;
        dhcp6snooping_debug_printf("\r\n dhcpv6 %s msg to user: mac %s", message.type_name, mac_text);
        open_leases(client);
    }
    dhcp6snooping_attr_array_free(&parsed.leases, dhcp6snooping_attr_binding_free);
}

void handle_reply(const SnoopedMessage &message) {
    const uint8_t *mac = message.packet->data + FRAME_DESTINATION_MAC;
    if (refuse_zero_mac(message, mac) || refuse_untrusted(message))
        return;
    char mac_text[MAC_TEXT_SIZE] = {}; // only traces read it
    if (dhcp6snooping_debug_on())
        dhcp6snooping_mac_to_str(mac, mac_text);

    Dhcp6SnoopingNode *client = dhcp6snooping_get_avlnode(mac);
    if (client == nullptr) {
        dhcp6snooping_debug_printf("\r\n receive dhcpv6 %s msg but found no record of user: mac %s", message.type_name,
                                   mac_text);
        to_clients(message);
        return;
    }
    // A client on the port that its servers are behind is no client of ours, and needs no help with its REPLY.
    if (client->port == message.port + 1) {
        dhcp6snooping_debug_printf("\r\n dhcpv6 %s msg port same as request msg port, delete user: mac %s", message.type_name,
                                   mac_text);
        dhcp6snooping_delete_avlnode(mac);
        return;
    }
    learn_leases(message, client, mac_text);
    if (dhcp6snooping_port_trusted(client->port - 1)) {
        dhcp6snooping_debug_printf("\r\n user in trust port, do not record user: mac %s", mac_text);
        dhcp6snooping_delete_avlnode(mac);
    }
    to_clients(message);
}

// ---- ADVERTISE, RECONFIGURE, RELAY-REPL --------------------------------------------------------------------------------

void handle_server_message(const SnoopedMessage &message) {
    if (!refuse_untrusted(message))
        to_clients(message);
}

} // namespace

int32_t dhcp6snooping_packet_process(Dhcp6PacketDescriptor *packet, uint32_t offset, uint16_t vlan, uint32_t port) {
    if (packet == nullptr || packet->data == nullptr)
        return -1;
    if (!frame_is_whole(packet, offset))
        return 0;
    if (dhcp6L2Relay != 0 && packet->data[offset] == DHCP6_RELAY_REPL)
        dhcp6snooping_relay_reply_unwrap(packet, offset);

    const SnoopedMessage message = message_of(packet, offset, vlan, port);
    switch (message.type) {
    case DHCP6_SOLICIT:
    case DHCP6_REQUEST:
    case DHCP6_CONFIRM:
    case DHCP6_RENEW:
    case DHCP6_REBIND: handle_client_message(message); break;
    case DHCP6_RELEASE:
    case DHCP6_DECLINE: handle_release(message); break;
    case DHCP6_INFORMATION_REQUEST:
    case DHCP6_RELAY_FORW: to_servers(message); break;
    case DHCP6_REPLY: handle_reply(message); break;
    case DHCP6_ADVERTISE:
    case DHCP6_RECONFIGURE:
    case DHCP6_RELAY_REPL: handle_server_message(message); break;
    default: break;
    }
    return 0;
}
