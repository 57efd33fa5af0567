#include "l2/dhcp6snooping/packet/forward.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "l2/dhcp6snooping/base/frame.h"
#include "l2/dhcp6snooping/base/trace.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/infoopt/insertion.h"
#include "l2/dhcp6snooping/infoopt/policy.h"
#include "platform/liblacp.h"
#include "platform/libsmd.h"
#include "platform/libvlan.h"

namespace {

constexpr uint32_t NO_PORT = 65535;
constexpr int32_t NO_TRUNK = -1;
constexpr uint32_t LIST_BITS = 64; // ports that a port list can hold
constexpr uint32_t MAC_BYTES = 6;
constexpr uint32_t SEND = 1;

uint8_t port_bit(uint32_t port) { return static_cast<uint8_t>(0x80 >> (port % 8)); }

void list_clear(SmdPortList *list, uint32_t port) {
    if (port < LIST_BITS)
        list->bits[port / 8] &= static_cast<uint8_t>(~port_bit(port));
}

// Port index by which a trunk is addressed.
uint32_t trunk_port(int32_t trunk) { return (static_cast<uint32_t>(trunk) | SMD_PORT_TRUNK) - 1; }

bool is_sendable(const Dhcp6PacketDescriptor *packet) {
    return packet != nullptr && packet->data != nullptr && packet->length >= FRAME_ETHERNET_HEADER;
}

bool is_broadcast(const uint8_t *mac) {
    constexpr uint8_t BROADCAST[MAC_BYTES] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    return memcmp(mac, BROADCAST, MAC_BYTES) == 0;
}

// Where the frame's destination was last seen. Broadcast is never looked up.
bool find_destination(const Dhcp6PacketDescriptor *packet, uint16_t vlan, SmdMacQuery *query) {
    const uint8_t *mac = packet->data + FRAME_DESTINATION_MAC;
    if (is_broadcast(mac))
        return false;
    query->vlan = vlan;
    memcpy(query->mac, mac, MAC_BYTES);
    return smdVDMacGet(query) == 0;
}

bool came_by_trunk(uint32_t port, int32_t trunk) {
    if (lac_channel_get_from_port(port + 1) != trunk)
        return false;
    dhcp6snooping_debug_printf("\r\n Send packet failed, send tgid equal to receiver tgid");
    return true;
}

bool came_by_port(uint32_t port, uint32_t out) {
    if (port != out)
        return false;
    dhcp6snooping_debug_printf("\r\n Send packet failed, send port equal to receiver port");
    return true;
}

int32_t send_to_port(Dhcp6PacketDescriptor *packet, uint16_t vlan, uint32_t out) {
    return smdVDPktSendPort(packet->data, packet->length, &packet->ctl, vlan, out + 1, SEND) == 0 ? 0 : -1;
}

int32_t send_to_list(Dhcp6PacketDescriptor *packet, uint16_t vlan, const SmdPortList *list) {
    if (vd_portlist_plnull(list) != 0) {
        dhcp6snooping_debug_printf("\r\n Send packet failed, can't find any send port");
        return 0;
    }
    return smdVDPktSendPortlist(packet->data, packet->length, &packet->ctl, vlan, list, SEND) == 0 ? 0 : -1;
}

// Ports of the VLAN with trunks taken together, without the receiving port and its trunk.
SmdPortList other_ports(uint16_t vlan, uint32_t port) {
    SmdPortList members{};
    SmdPortList sendable{};
    VLAN_Api_PortList_Get(vlan, &members, 0);
    lac_ap_2_ag_hi_hi_excpt_cur(&members, &sendable, port);
    list_clear(&sendable, port);
    return sendable;
}

// Ports that the device does not have are left as they are.
void keep_trusted(SmdPortList *list) {
    const uint32_t ports = std::min(gul_max_port_num, LIST_BITS);
    const uint64_t beyond = ports < LIST_BITS ? ~uint64_t{0} >> ports : 0;
    uint64_t kept = dhcp6snooping_trusted_ports() | beyond;
    if constexpr (std::endian::native == std::endian::little)
        kept = __builtin_bswap64(kept);
    uint64_t ports_wanted;
    memcpy(&ports_wanted, list->bits, sizeof ports_wanted);
    ports_wanted &= kept;
    memcpy(list->bits, &ports_wanted, sizeof ports_wanted);
}

} // namespace

int32_t dhcp6snooping_send_packet_to_sever(Dhcp6PacketDescriptor *packet, uint16_t vlan, uint32_t port, uint32_t offset) {
    if (dhcp6_info_option_wanted())
        packet = dhcp6snooping_packet_add_info_option(packet, offset, vlan, port);
    if (!is_sendable(packet))
        return -1;
    uint32_t out = NO_PORT;
    int32_t trunk = NO_TRUNK;
    SmdMacQuery query{};
    if (find_destination(packet, vlan, &query)) {
        if ((query.flags & SMD_MAC_ON_TRUNK) != 0) {
            trunk = query.trunk;
            if (lac_get_channel_ag(query.trunk, &out) == -1 && out == 0)
                out = trunk_port(trunk);
        } else {
            out = query.port - 1;
        }
    }
    if (out != NO_PORT && out < gul_max_port_num && dhcp6snooping_port_trusted(out)) {
        if (came_by_port(port, out))
            return 0;
        if (trunk != NO_TRUNK) {
            out = trunk_port(trunk);
            if (came_by_trunk(port, trunk))
                return 0;
        }
        return send_to_port(packet, vlan, out);
    }
    // Unknown, or known on an untrusted port, where no server may be.
    SmdPortList list = other_ports(vlan, port);
    keep_trusted(&list);
    return send_to_list(packet, vlan, &list);
}

int32_t dhcp6snooping_send_packet_to_client(Dhcp6PacketDescriptor *packet, uint16_t vlan, uint32_t port) {
    if (!is_sendable(packet))
        return -1;
    uint32_t out = NO_PORT;
    int32_t trunk = NO_TRUNK;
    SmdMacQuery query{};
    if (find_destination(packet, vlan, &query)) {
        if ((query.flags & SMD_MAC_ON_TRUNK) != 0) {
            trunk = query.trunk;
            out = trunk_port(trunk);
        } else {
            out = query.port - 1;
        }
    }
    if (out == NO_PORT) {
        const SmdPortList list = other_ports(vlan, port);
        return send_to_list(packet, vlan, &list);
    }
    if (came_by_port(port, out))
        return 0;
    if (trunk != NO_TRUNK && came_by_trunk(port, trunk))
        return 0;
    return send_to_port(packet, vlan, out);
}
