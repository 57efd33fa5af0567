#include "l2/dhcp6snooping/base/lease.h"

#include <cstring>

#include "l2/dhcp6snooping/base/attrindex.h"
#include "l2/dhcp6snooping/base/option.h"
#include "l2/dhcp6snooping/base/trace.h"
#include "l2/dhcp6snooping/base/wire.h"
#include "platform/libvos.h"

namespace {

constexpr uint32_t IA_HEADER = 12;      // IAID, T1, T2
constexpr uint32_t IAADDR_FIXED = 24;   // address, preferred and valid lifetime
constexpr uint32_t IAPREFIX_FIXED = 25; // preferred and valid lifetime, prefix length, prefix
// The options of a prefix are searched from its last byte on, one byte earlier than they start.
constexpr uint32_t IAPREFIX_OPTIONS_AT = 24;

// The first IA of this code that is long enough; shorter ones are stepped over.
const uint8_t *find_ia(uint16_t code, const uint8_t *area, uint32_t area_len, uint32_t *length) {
    const uint8_t *cursor = nullptr;
    uint32_t cursor_len = 0;
    const uint8_t *ia = dhcp6snooping_msg_option_find(code, length, area, area_len, &cursor, &cursor_len);
    while (ia != nullptr && *length < IA_HEADER)
        ia = dhcp6snooping_msg_option_find(code, length, nullptr, 0, &cursor, &cursor_len);
    return ia;
}

// Takes T1, T2 and the status of an IA; its own options are the rest of `data`. False when the IA is refused.
bool take_ia(Dhcp6IaResult *result, std::span<const uint8_t> data) {
    const uint32_t t1 = wire_get32(data, 4);
    const uint32_t t2 = wire_get32(data, 8);
    if (t2 != 0 && t1 > t2) {
        dhcp6snooping_debug_printf("\r\n Discarding message, since T1 (%u) > T2 (%u)", t1, t2);
        return false;
    }
    const std::span<const uint8_t> options = data.subspan(IA_HEADER);
    result->t1 = t1;
    result->t2 = t2;
    result->status = dhcp6snooping_msg_option_status_find(options.data(), static_cast<uint32_t>(options.size()), nullptr);
    return true;
}

// A lease that the list holds already is overwritten whole; the later option of a message wins.
void store_lease(Dhcp6AttrArray *leases, const Dhcp6LeaseAttr *lease) {
    Dhcp6LeaseAttr *held = dhcp6snooping_lease_find(leases, lease);
    if (held != nullptr)
        *held = *lease;
    else
        dhcp6snooping_attr_array_add(leases, lease, sizeof *lease);
}

void collect_address(Dhcp6IaResult *result, std::span<const uint8_t> data, uint32_t now) {
    if (data.size() < IAADDR_FIXED)
        return;
    Dhcp6LeaseAttr lease{};
    memcpy(lease.address, data.data(), DHCP6_ADDRESS_SIZE);
    lease.prefix_len = DHCP6_ADDRESS_PREFIX_LEN;
    lease.preferred_lifetime = wire_get32(data, 16);
    lease.valid_lifetime = wire_get32(data, 20);
    lease.learned_at = now;
    if (lease.valid_lifetime < lease.preferred_lifetime)
        return;
    const std::span<const uint8_t> options = data.subspan(IAADDR_FIXED);
    lease.status = dhcp6snooping_msg_option_status_find(options.data(), static_cast<uint32_t>(options.size()), nullptr);
    store_lease(&result->leases, &lease);
}

void collect_prefix(Dhcp6IaResult *result, std::span<const uint8_t> data, uint32_t now) {
    if (data.size() < IAPREFIX_FIXED)
        return;
    Dhcp6LeaseAttr lease{};
    lease.preferred_lifetime = wire_get32(data, 0);
    lease.valid_lifetime = wire_get32(data, 4);
    lease.prefix_len = wire_get8(data, 8);
    memcpy(lease.address, data.data() + 9, DHCP6_ADDRESS_SIZE);
    lease.learned_at = now;
    if (lease.valid_lifetime < lease.preferred_lifetime)
        return;
    const std::span<const uint8_t> options = data.subspan(IAPREFIX_OPTIONS_AT);
    lease.status = dhcp6snooping_msg_option_status_find(options.data(), static_cast<uint32_t>(options.size()), nullptr);
    store_lease(&result->leases, &lease);
}

typedef void (*CollectFn)(Dhcp6IaResult *result, std::span<const uint8_t> data, uint32_t now);

void collect_all(Dhcp6IaResult *result, uint16_t code, const uint8_t *ia_options, uint32_t len, CollectFn collect) {
    const uint32_t now = vosUpSeconds();
    const uint8_t *cursor = nullptr;
    uint32_t cursor_len = 0;
    uint32_t length = 0;
    const uint8_t *option = dhcp6snooping_msg_option_find(code, &length, ia_options, len, &cursor, &cursor_len);
    while (option != nullptr) {
        collect(result, {option + DHCP6_OPTION_HEADER, length}, now);
        option = dhcp6snooping_msg_option_find(code, &length, nullptr, 0, &cursor, &cursor_len);
    }
}

bool is_usable(void *item, void *drop_zero_valid) {
    const auto *lease = static_cast<const Dhcp6LeaseAttr *>(item);
    return lease->status == 0 && (lease->valid_lifetime != 0 || !*static_cast<const bool *>(drop_zero_valid));
}

// Judges the leases after one IA was taken. True when some are left.
bool keep_usable(Dhcp6IaResult *result, const char *kind, bool drop_zero_valid) {
    if (result->status != 0) {
        dhcp6snooping_debug_printf("\r\n Discarding settings %s, since status %s", kind,
                                   dhcp6snooping_msg_option_status_desc(result->status));
        dhcp6snooping_attr_array_free(&result->leases, dhcp6snooping_attr_binding_free);
        return false;
    }
    dhcp6snooping_attr_array_keep(&result->leases, is_usable, &drop_zero_valid, dhcp6snooping_attr_binding_free);
    if (result->leases.count != 0)
        return true;
    dhcp6snooping_debug_printf("\r\n Discarding settings %s, since no usable bindings", kind);
    dhcp6snooping_attr_array_free(&result->leases, dhcp6snooping_attr_binding_free);
    return false;
}

} // namespace

Dhcp6LeaseAttr *dhcp6snooping_lease_at(const Dhcp6AttrArray *leases, uint32_t index) {
    return index < leases->count ? static_cast<Dhcp6LeaseAttr *>(leases->items[index]) : nullptr;
}

Dhcp6LeaseAttr *dhcp6snooping_lease_find(const Dhcp6AttrArray *leases, const Dhcp6LeaseAttr *wanted) {
    static_assert(offsetof(Dhcp6LeaseAttr, address) == 0);
    static_assert(offsetof(Dhcp6LeaseAttr, prefix_len) + sizeof wanted->prefix_len == DHCP6_ATTR_IDENTITY);
    return static_cast<Dhcp6LeaseAttr *>(dhcp6snooping_attr_array_find(leases, wanted));
}

void dhcp6snooping_attr_binding_free(void **slot_ref) { dhcp6snooping_util_free(slot_ref); }

void dhcp6snooping_ia_parse_iaaddr(Dhcp6IaResult *result, const uint8_t *ia_options, uint32_t len) {
    collect_all(result, DHCP6_OPTION_IAADDR, ia_options, len, collect_address);
}

void dhcp6snooping_ia_parse_iaprefix(Dhcp6IaResult *result, const uint8_t *ia_options, uint32_t len) {
    collect_all(result, DHCP6_OPTION_IAPREFIX, ia_options, len, collect_prefix);
}

uint32_t dhcp6snooping_ia_na_parse_options(Dhcp6IaResult *result, const uint8_t *area, uint32_t area_len) {
    uint32_t length = 0;
    const uint8_t *ia = find_ia(DHCP6_OPTION_IA_NA, area, area_len, &length);
    if (ia == nullptr || !take_ia(result, {ia + DHCP6_OPTION_HEADER, length}))
        return 0;
    dhcp6snooping_ia_parse_iaaddr(result, ia + DHCP6_OPTION_HEADER + IA_HEADER, length - IA_HEADER);
    return 1;
}

uint32_t dhcp6snooping_ia_pd_parse_options(Dhcp6IaResult *result, const uint8_t *area, uint32_t area_len) {
    uint32_t length = 0;
    const uint8_t *ia = find_ia(DHCP6_OPTION_IA_PD, area, area_len, &length);
    if (ia == nullptr || !take_ia(result, {ia + DHCP6_OPTION_HEADER, length}))
        return 0;
    dhcp6snooping_ia_parse_iaprefix(result, ia + DHCP6_OPTION_HEADER + IA_HEADER, length - IA_HEADER);
    return 1;
}

uint32_t dhcp6snooping_parse_addr_and_prefix_option(Dhcp6IaResult *result, const uint8_t *area, uint32_t area_len,
                                                    uint32_t drop_zero_valid) {
    if (result == nullptr || area == nullptr)
        return 0;
    uint32_t usable = 0;
    if (dhcp6snooping_ia_na_parse_options(result, area, area_len) != 0 && keep_usable(result, "na", drop_zero_valid == 1))
        usable = 1;
    // The IA_PD judges the whole list once more, addresses included, and never keeps a lifetime of 0. When it discards
    // everything, the answer that the IA_NA gave stands.
    if (dhcp6snooping_ia_pd_parse_options(result, area, area_len) != 0 && keep_usable(result, "pd", true))
        usable = 1;
    return usable;
}
