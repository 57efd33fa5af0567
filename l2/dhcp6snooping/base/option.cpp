#include "l2/dhcp6snooping/base/option.h"

#include <cstdlib>

#include "l2/dhcp6snooping/base/wire.h"

const uint8_t *dhcp6snooping_msg_option_find(uint16_t code, uint32_t *out_len, const uint8_t *buf, uint32_t buf_len,
                                             const uint8_t **cursor, uint32_t *cursor_len) {
    const bool has_cursor = cursor != nullptr && cursor_len != nullptr;
    const uint8_t *at = buf;
    uint32_t left = buf_len;
    if (buf == nullptr) {
        if (!has_cursor || *cursor == nullptr)
            return nullptr;
        at = *cursor;
        left = *cursor_len;
    }
    while (left >= DHCP6_OPTION_HEADER) {
        const uint8_t *header = at;
        const uint32_t code_and_length = wire_get32({at, left}, 0);
        const uint32_t length = code_and_length & 0xFFFF;
        if (length > left - DHCP6_OPTION_HEADER)
            break;
        at += DHCP6_OPTION_HEADER + length;
        left -= DHCP6_OPTION_HEADER + length;
        if (code_and_length >> 16 != code)
            continue;
        if (out_len != nullptr)
            *out_len = length;
        if (has_cursor) {
            *cursor = at;
            *cursor_len = left;
        }
        return header;
    }
    if (has_cursor) {
        *cursor = nullptr;
        *cursor_len = 0;
    }
    return nullptr;
}

uint16_t dhcp6snooping_msg_option_status_find(const uint8_t *buf, uint32_t buf_len, const char **out_msg) {
    if (out_msg != nullptr)
        *out_msg = nullptr;
    uint32_t length = 0;
    const uint8_t *option = dhcp6snooping_msg_option_find(DHCP6_OPTION_STATUS_CODE, &length, buf, buf_len, nullptr, nullptr);
    if (option == nullptr || length < 2)
        return 0;
    return wire_get16({option + DHCP6_OPTION_HEADER, length}, 0);
}

const char *dhcp6snooping_msg_option_status_desc(uint32_t code) {
    switch (code) {
    case 0: return "success";
    case 1: return "unspecified failure";
    case 2: return "no addresses available";
    case 3: return "no binding";
    case 4: return "not on link";
    case 5: return "use multicast";
    default: return "unknown status code";
    }
}

const char *dhcp6snooping_msgtype_to_str(uint8_t type) {
    switch (type) {
    case DHCP6_SOLICIT: return "SOLICIT";
    case DHCP6_ADVERTISE: return "ADVERTISE";
    case DHCP6_REQUEST: return "REQUEST";
    case DHCP6_CONFIRM: return "CONFIRM";
    case DHCP6_RENEW: return "RENEW";
    case DHCP6_REBIND: return "REBIND";
    case DHCP6_REPLY: return "REPLY";
    case DHCP6_RELEASE: return "RELEASE";
    case DHCP6_DECLINE: return "DECLINE";
    case DHCP6_RECONFIGURE: return "RECONFIGURE";
    case DHCP6_INFORMATION_REQUEST: return "INFORMATION_REQUEST";
    case DHCP6_RELAY_FORW: return "RELAY_FORWARD";
    case DHCP6_RELAY_REPL: return "RELAY_REPLY";
    default: return "UNKNOWN";
    }
}

void dhcp6snooping_util_free(void **ptr_ref) {
    if (ptr_ref == nullptr)
        return;
    free(*ptr_ref);
    *ptr_ref = nullptr;
}
