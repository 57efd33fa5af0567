#pragma once
// Addresses as text. Pure: no state, no allocation, nothing known of the rest of the daemon.
//
// The reader is lenient in fixed ways that callers rely on: missing groups at the end are zero, a group of more than four
// digits keeps its last four, anything behind the address is ignored; a dotted IPv4 tail is not understood. The writer uses
// upper case and compresses the first run of zero groups, however short.

#include <cstdint>

// The family code of both IPv6 routines; the daemon's own, not the host's AF_INET6.
inline constexpr int32_t DHCP6SNOOPING_FAMILY_INET6 = 28;

inline constexpr uint32_t MAC_TEXT_SIZE = 18; // bytes, NUL included

// Text to 16 bytes in network order. 1 on success; 0 leaves out untouched.
int32_t dhcp6snooping_inet_pton(int32_t family, const char *text, uint8_t *out);

// 16 bytes to text. Returns out, or null when the family is not 28 or out_size is too small; what fitted stays written.
char *dhcp6snooping_inet_ntop(int32_t family, const uint8_t *address, char *out, uint32_t out_size);

// Appends one character and a NUL at *cursor. 0 when fewer than 2 bytes remain, and nothing is written then.
int32_t dhcp6snooping_char_append(char ch, char **cursor, uint32_t *remaining);

// "00:1a:2b:3c:4d:5e" into out, MAC_TEXT_SIZE bytes. Returns out.
char *dhcp6snooping_mac_to_str(const uint8_t *mac, char *out);
