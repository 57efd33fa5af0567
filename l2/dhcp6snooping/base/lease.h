#pragma once
// The addresses and prefixes that a DHCPv6 message speaks of: its first usable IA_NA and its first usable IA_PD, turned into
// lease records. This file turns bytes into records and knows no table.

#include <cstddef>
#include <cstdint>

#include "l2/dhcp6snooping/base/attrarray.h"

inline constexpr uint32_t DHCP6_ADDRESS_SIZE = 16;
inline constexpr uint32_t DHCP6_ADDRESS_PREFIX_LEN = 128; // of a single address; anything else is a delegated prefix

struct Dhcp6LeaseAttr {
    uint8_t address[DHCP6_ADDRESS_SIZE]; // network order
    uint32_t prefix_len;                 // 128 for an IA_NA address
    uint32_t preferred_lifetime;         // seconds, as received
    uint32_t valid_lifetime;             // seconds that remain; counted down by the aging pass
    uint32_t learned_at;                 // seconds since boot
    uint32_t status;                     // status code nested in the option, 0 = success
};
static_assert(sizeof(Dhcp6LeaseAttr) == 36);
static_assert(offsetof(Dhcp6LeaseAttr, prefix_len) == 16);
static_assert(offsetof(Dhcp6LeaseAttr, valid_lifetime) == 24);

// What the extraction found. Zero-filled by the caller, who frees `leases` when done.
struct Dhcp6IaResult {
    uint32_t t1;           // seconds, of the last IA taken
    uint32_t t2;           // seconds, of the last IA taken
    Dhcp6AttrArray leases; // Dhcp6LeaseAttr, addresses and prefixes in one list
    uint32_t status;       // of the last IA taken
};

// The lease in slot `index` of an array, or null (also for an empty slot).
[[nodiscard]] Dhcp6LeaseAttr *dhcp6snooping_lease_at(const Dhcp6AttrArray *leases, uint32_t index);

// The lease of an array that is the same as `wanted`, or null. Two leases are the same when address and prefix length are
// equal, whatever their lifetimes; an array has each once.
[[nodiscard]] Dhcp6LeaseAttr *dhcp6snooping_lease_find(const Dhcp6AttrArray *leases, const Dhcp6LeaseAttr *wanted);

// Release function of lease arrays.
void dhcp6snooping_attr_binding_free(void **slot_ref);

// Extracts the usable leases from an option area (behind the message header). drop_zero_valid is 1 for a server's REPLY and 0
// for a client's RELEASE or DECLINE, which may name leases of lifetime 0. Returns 1 when an IA left usable leases as it was
// taken. The IA_PD comes last and judges all leases again; when it discards them, the answer that the IA_NA gave stands: go by
// result->leases.count, not by the answer alone.
uint32_t dhcp6snooping_parse_addr_and_prefix_option(Dhcp6IaResult *result, const uint8_t *area, uint32_t area_len,
                                                    uint32_t drop_zero_valid);

// Takes the first IA_NA or IA_PD of 12 bytes or more. 1 when taken; 0 when there is none or it is refused (T1 > T2).
uint32_t dhcp6snooping_ia_na_parse_options(Dhcp6IaResult *result, const uint8_t *area, uint32_t area_len);
uint32_t dhcp6snooping_ia_pd_parse_options(Dhcp6IaResult *result, const uint8_t *area, uint32_t area_len);

// Collects the addresses or prefixes among an IA's options.
void dhcp6snooping_ia_parse_iaaddr(Dhcp6IaResult *result, const uint8_t *ia_options, uint32_t len);
void dhcp6snooping_ia_parse_iaprefix(Dhcp6IaResult *result, const uint8_t *ia_options, uint32_t len);
