#include <algorithm>
#include <cstring>
#include <iterator>

#include "l2/dhcp6snooping/clients/queries.h"
#include "l2/dhcp6snooping/mib/handlers.h"
#include "l2/dhcp6snooping/mib/request.h"
#include "l2/dhcp6snooping/mib/text.h"
#include "platform/libcommon.h"

namespace {

constexpr uint32_t MAC_ARCS = MAC_SIZE;
constexpr uint32_t ARC_MAX = 255;
constexpr uint32_t LEASES_OF_FIRST_TEXT = 5;

struct Client {
    uint32_t vlan;
    uint32_t port;
    uint32_t count; // leases
    Dhcp6LeaseLine leases[DHCP6SNOOPING_LEASE_LINES];
    uint32_t seconds[DHCP6SNOOPING_LEASE_LINES]; // that are left
};

bool names_client(const CcdVariable *variable) {
    return variable->indexLength == MAC_ARCS &&
           std::all_of(variable->index, variable->index + MAC_ARCS, [](uint32_t arc) { return arc <= ARC_MAX; });
}

// The MAC address from which a walk goes on. An arc that no octet can hold stands behind every MAC address that begins like
// the arcs before it, so the rest counts as all ones: cut to 8 bits it would lead back.
void walk_from(const CcdVariable *variable, uint8_t *mac) {
    uint32_t arcs[MAC_ARCS] = {};
    const uint32_t given = std::min(variable->indexLength, MAC_ARCS);
    std::copy(variable->index, variable->index + given, arcs);
    uint32_t *beyond = std::find_if(arcs, arcs + MAC_ARCS, [](uint32_t arc) { return arc > ARC_MAX; });
    std::fill(beyond, arcs + MAC_ARCS, ARC_MAX);
    miscMacIndex2OctetString(arcs, mac);
}

bool next_client(CcdVariable *variable) {
    uint8_t mac[MAC_SIZE];
    walk_from(variable, mac);
    Dhcp6SnoopingNode *node = nullptr;
    if (dhcp6snooping_get_nextclients(mac, &node) != 0)
        return false;
    memcpy(mac, node->mac, sizeof mac);
    std::fill(std::begin(variable->index), std::end(variable->index), 0);
    miscOctetString2MacIndex(mac, variable->index);
    variable->indexLength = MAC_ARCS;
    return true;
}

int32_t set_list(CcdVariable *variable, MibList *list) {
    const uint32_t length = mib_list_end(list);
    octetSet(variable, list->text, length);
    return 0;
}

int32_t get_addresses(CcdVariable *variable, const Client &client, uint32_t first, uint32_t end) {
    MibList list = {};
    for (uint32_t lease = first; lease < end; ++lease)
        mib_list_add(&list, dhcp6snooping_prefix_to_str(client.leases[lease].address, client.leases[lease].prefix_len));
    return set_list(variable, &list);
}

int32_t get_lease_times(CcdVariable *variable, const Client &client) {
    MibList list = {};
    char text[32];
    for (uint32_t lease = 0; lease < client.count; ++lease)
        mib_list_add(&list, mib_duration_to_str(client.seconds[lease], text));
    return set_list(variable, &list);
}

// A client without a sixth lease has no second text at all.
int32_t get_client(uint32_t kind, CcdVariable *variable, const Client &client) {
    switch (variable->object) {
    case MIB_CLIENT_VLAN: ulongSet(variable, client.vlan); return 0;
    case MIB_CLIENT_PORT: ulongSet(variable, client.port); return 0;
    case MIB_CLIENT_LEASE_NUM: ulongSet(variable, client.count); return 0;
    case MIB_CLIENT_ADDRESSES: return get_addresses(variable, client, 0, std::min(client.count, LEASES_OF_FIRST_TEXT));
    case MIB_CLIENT_ADDRESSES_2:
        if (client.count <= LEASES_OF_FIRST_TEXT)
            return ccdErrorRequestMap(kind);
        return get_addresses(variable, client, LEASES_OF_FIRST_TEXT, client.count);
    case MIB_CLIENT_LEASE_TIME: return get_lease_times(variable, client);
    default: return ccdErrorNoSuchInstance();
    }
}

} // namespace

int32_t dhcp6snoopingMibClientTableHandler(uint32_t kind, CcdVariable *variable) {
    if (variable == nullptr)
        return ccdErrorNoSuchInstance();
    if (!mib_is_get(kind))
        return 0;
    if (kind == CCD_GETNEXT ? !next_client(variable) : !names_client(variable))
        return kind == CCD_GETNEXT ? ccdErrorNoNextInstance() : ccdErrorNoSuchInstance();
    uint8_t mac[MAC_SIZE];
    miscMacIndex2OctetString(variable->index, mac);
    if (variable->object == MIB_CLIENT_MAC) {
        octetSet(variable, mac, sizeof mac);
        return 0;
    }
    Client client = {};
    const uint32_t found =
        dhcp6snooping_get_currentclients_ext(mac, &client.vlan, &client.port, &client.count, client.leases, client.seconds);
    if (found != 0)
        return static_cast<int32_t>(found);
    client.count = std::min(client.count, DHCP6SNOOPING_LEASE_LINES);
    return get_client(kind, variable, client);
}
