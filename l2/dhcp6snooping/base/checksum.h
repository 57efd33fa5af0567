#pragma once
// The Internet checksum of UDP over IPv6, in three steps: pseudo header, data, fold; and the three together. Pure. Words are
// added as they lie in memory; a one's-complement sum does not care about byte order as long as all terms agree, so the
// result is stored as it is.

#include <cstdint>

// Sums two 16-byte addresses, a length and a next header.
uint32_t dhcp6snooping_ip6_pseudo_header_checksum_update(const uint8_t *src, const uint8_t *dst, uint16_t nextHeader,
                                                         uint16_t length);

// Sums len bytes; an odd last byte counts as the high byte of a word. Nothing is folded: len stays below 65536.
uint32_t dhcp6snooping_in_checksum_update(const uint8_t *data, uint32_t len);

// Folds a sum to 16 bits and complements it.
uint16_t dhcp6snooping_in_checksum_finish(uint32_t sum);

// Computes the UDP checksum of a frame anew and stores it: ip6 is the IPv6 header, udp the UDP header, udp_len the bytes from
// there to the end of the frame (8 at least), which all must be inside the frame. A sum of 0 is stored as 0xFFFF, since 0
// means "none" and is not allowed over IPv6.
void dhcp6snooping_udp_checksum_renew(const uint8_t *ip6, uint8_t *udp, uint32_t udp_len);
