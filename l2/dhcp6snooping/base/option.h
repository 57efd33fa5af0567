#pragma once
// The options of a DHCPv6 message, walked in place. Pure: a found option is a pointer into the caller's bytes and lives as
// long as they do. An option that claims more bytes than are left ends the walk; nothing behind it is looked at.

#include <cstdint>

inline constexpr uint32_t DHCP6_MESSAGE_HEADER = 4; // type and transaction id, bytes
inline constexpr uint32_t DHCP6_RELAY_HEADER = 34;  // type, hop count, link and peer address, bytes
inline constexpr uint32_t DHCP6_OPTION_HEADER = 4;  // code and length, bytes

enum : uint16_t {
    DHCP6_OPTION_CLIENT_ID = 1,
    DHCP6_OPTION_IA_NA = 3,
    DHCP6_OPTION_IAADDR = 5,
    DHCP6_OPTION_RELAY_MSG = 9,
    DHCP6_OPTION_STATUS_CODE = 13,
    DHCP6_OPTION_INTERFACE_ID = 18,
    DHCP6_OPTION_IA_PD = 25,
    DHCP6_OPTION_IAPREFIX = 26,
    DHCP6_OPTION_REMOTE_ID = 37,
};

enum : uint8_t {
    DHCP6_SOLICIT = 1,
    DHCP6_ADVERTISE = 2,
    DHCP6_REQUEST = 3,
    DHCP6_CONFIRM = 4,
    DHCP6_RENEW = 5,
    DHCP6_REBIND = 6,
    DHCP6_REPLY = 7,
    DHCP6_RELEASE = 8,
    DHCP6_DECLINE = 9,
    DHCP6_RECONFIGURE = 10,
    DHCP6_INFORMATION_REQUEST = 11,
    DHCP6_RELAY_FORW = 12,
    DHCP6_RELAY_REPL = 13,
};

// Finds the next option of this code. With `buf`, the walk starts there; without it, it goes on from the cursor. Returns the
// option's header (its data is DHCP6_OPTION_HEADER further on) and the length of its data in *out_len; null when there is
// none, with *out_len untouched. A cursor (a pointer and the bytes left, both or neither) is set behind the option found,
// and to null and 0 at the end of the walk.
const uint8_t *dhcp6snooping_msg_option_find(uint16_t code, uint32_t *out_len, const uint8_t *buf, uint32_t buf_len,
                                             const uint8_t **cursor, uint32_t *cursor_len);

// The status of an exchange: the first Status Code option's code, or 0 (success) when there is none. *out_msg becomes null.
uint16_t dhcp6snooping_msg_option_status_find(const uint8_t *buf, uint32_t buf_len, const char **out_msg);

// Constant texts.
const char *dhcp6snooping_msg_option_status_desc(uint32_t code);
const char *dhcp6snooping_msgtype_to_str(uint8_t type);

// Frees the block that *ptr_ref points to, if any, and clears the reference.
void dhcp6snooping_util_free(void **ptr_ref);
