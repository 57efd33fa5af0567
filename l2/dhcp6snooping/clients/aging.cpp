#include "l2/dhcp6snooping/clients/aging.h"

#include <cstdio>
#include <cstring>

#include "l2/dhcp6snooping/base/text.h"
#include "l2/dhcp6snooping/base/trace.h"
#include "l2/dhcp6snooping/clients/table.h"
#include "l2/dhcp6snooping/sourceguard/filters.h"
#include "platform/libvos.h"

namespace {

constexpr uint32_t ADDRESS_TEXT_LIMIT = 47; // bytes, NUL included

// Unsigned: a clock that reads less than before gives a huge time, and everything of the record expires.
uint32_t elapsed_since(uint32_t last, uint32_t now) { return last > now ? now - last - 1 : now - last; }

uint32_t count_down(uint32_t seconds, uint32_t elapsed) { return seconds > elapsed ? seconds - elapsed : 0; }

void trace_expired(const Dhcp6SnoopingNode *client, const Dhcp6LeaseAttr *lease) {
    char mac_text[MAC_TEXT_SIZE];
    char lease_text[LEASE_TEXT_SIZE];
    dhcp6snooping_debug_printf("\r\n dhcpv6 snooping timer delete user:mac %s, ipv6 address/prefix : %s",
                               dhcp6snooping_mac_to_str(client->mac, mac_text), dhcp6snooping_lease_to_str(lease, lease_text));
}

struct Aging {
    const Dhcp6SnoopingNode *client;
    uint32_t elapsed; // seconds
};

bool outlives(void *item, void *context) {
    auto *lease = static_cast<Dhcp6LeaseAttr *>(item);
    const auto *aging = static_cast<const Aging *>(context);
    lease->valid_lifetime = count_down(lease->valid_lifetime, aging->elapsed);
    if (lease->valid_lifetime >= DHCP6SNOOPING_EXPIRE_BELOW)
        return true;
    dhcp6snooping_lease_filter_remove(aging->client, lease, aging->client->port - 1);
    trace_expired(aging->client, lease);
    return false;
}

void age_leases(Dhcp6SnoopingNode *client, uint32_t elapsed) {
    Aging aging = {.client = client, .elapsed = elapsed};
    dhcp6snooping_attr_array_keep(&client->leases, outlives, &aging, dhcp6snooping_attr_binding_free);
}

void delete_client(const Dhcp6SnoopingNode *client, const char *kind) {
    char mac_text[MAC_TEXT_SIZE];
    dhcp6snooping_debug_printf("\r\n dhcpv6 snooping timer delete %s user:mac %s.", kind,
                               dhcp6snooping_mac_to_str(client->mac, mac_text));
    dhcp6snooping_delete_avlnode(client->mac);
}

void age_client(Dhcp6SnoopingNode *client) {
    const uint32_t now = vosUpSeconds();
    const uint32_t elapsed = elapsed_since(client->last_update, now);
    client->last_update = now;
    age_leases(client, elapsed);
    if (client->acked == 1 && client->leases.count == 0)
        delete_client(client, "ack");
    // Read again: a record deleted just now is all zeros in the pool, so it gets the second line too, with a zero MAC that
    // finds nothing to delete. Tools that read the trace know the pair.
    if (client->acked != 0)
        return;
    client->unack_timeout = count_down(client->unack_timeout, elapsed);
    if (client->unack_timeout < DHCP6SNOOPING_EXPIRE_BELOW)
        delete_client(client, "unack");
}

} // namespace

uint32_t dhcp6snooping_timer() {
    Dhcp6SnoopingNode *client = dhcp6snooping_first_avlnode();
    while (client != nullptr) {
        Dhcp6SnoopingNode *next = dhcp6snooping_next_avlnode(client->mac);
        age_client(client);
        client = next;
    }
    return 0;
}

char *dhcp6snooping_lease_to_str(const Dhcp6LeaseAttr *lease, char *buf) {
    buf[0] = '\0';
    if (vosInetNtop(VOS_AF_INET6, lease->address, buf, ADDRESS_TEXT_LIMIT) == nullptr)
        buf[0] = '\0';
    if (lease->prefix_len != DHCP6_ADDRESS_PREFIX_LEN) {
        const size_t length = strnlen(buf, ADDRESS_TEXT_LIMIT);
        snprintf(buf + length, LEASE_TEXT_SIZE - length, "/%u", lease->prefix_len);
    }
    return buf;
}
