#include "l2/dhcp6snooping/base/text.h"

#include <cstdio>

namespace {

constexpr int32_t GROUPS = 8;
constexpr int32_t SEPARATORS = GROUPS - 1;

// Where the "::" of a text stands, in groups. The count can shrink below zero for texts with too many groups.
struct ZeroRun {
    bool present;
    int32_t before; // groups written before it
    int32_t zeros;  // groups that it stands for
};

// Value of a hexadecimal digit, or -1. By ASCII range: a table would be indexed by bytes from the network.
int32_t hex_digit(char ch) {
    if (ch >= '0' && ch <= '9')
        return ch - '0';
    if (ch >= 'a' && ch <= 'f')
        return ch - 'a' + 10;
    if (ch >= 'A' && ch <= 'F')
        return ch - 'A' + 10;
    return -1;
}

// Counts the separators of a text and finds its "::". False when the text is refused.
bool scan_groups(const char *text, ZeroRun *run) {
    *run = {.present = false, .before = 0, .zeros = SEPARATORS};
    int32_t colons = 0;
    const char *at = text;
    for (;;) {
        while (hex_digit(*at) >= 0)
            ++at;
        if (*at != ':')
            break;
        if (at == text) {
            if (at[1] != ':')
                return false;
        } else if (run->present) {
            --run->zeros;
        } else {
            ++run->before;
        }
        if (at[1] == ':') {
            if (run->present)
                return false;
            run->present = true;
            run->zeros -= run->before;
            ++at;
        }
        // The scan stops on the last separator, not behind it: what follows is one more group, written or empty.
        if (++colons == SEPARATORS)
            break;
        ++at;
    }
    if (colons == 0)
        return false;
    if (at[-1] == ':')
        ++run->zeros;
    return true;
}

// Reads the next group, or 0 where no digit follows; never moves past the end of the text.
uint16_t take_group(const char **at) {
    while (**at == ':')
        ++*at;
    uint32_t value = 0;
    for (int32_t digit = hex_digit(**at); digit >= 0; digit = hex_digit(**at)) {
        value = value * 16 + static_cast<uint32_t>(digit);
        ++*at;
    }
    return static_cast<uint16_t>(value);
}

int32_t append_group(uint16_t group, char **cursor, uint32_t *remaining) {
    char digits[5];
    snprintf(digits, sizeof digits, "%X", group);
    for (const char *digit = digits; *digit != '\0'; ++digit)
        if (dhcp6snooping_char_append(*digit, cursor, remaining) == 0)
            return 0;
    return 1;
}

} // namespace

int32_t dhcp6snooping_inet_pton(int32_t family, const char *text, uint8_t *out) {
    ZeroRun run;
    if (family != DHCP6SNOOPING_FAMILY_INET6 || text == nullptr || out == nullptr || !scan_groups(text, &run))
        return 0;
    const char *at = text;
    for (int32_t group = 0; group < GROUPS; ++group) {
        uint16_t value = 0;
        if (!run.present || group < run.before || group >= run.before + run.zeros)
            value = take_group(&at);
        out[2 * group] = static_cast<uint8_t>(value >> 8);
        out[2 * group + 1] = static_cast<uint8_t>(value);
    }
    return 1;
}

char *dhcp6snooping_inet_ntop(int32_t family, const uint8_t *address, char *out, uint32_t out_size) {
    if (family != DHCP6SNOOPING_FAMILY_INET6 || address == nullptr || out == nullptr)
        return nullptr;
    char *cursor = out;
    uint32_t remaining = out_size;
    bool in_run = false;
    bool closed = false;
    for (int32_t group = 0; group < GROUPS; ++group) {
        const uint16_t value = static_cast<uint16_t>((address[2 * group] << 8) | address[2 * group + 1]);
        if (value == 0 && !closed) {
            in_run = true;
            if (group == 0 && dhcp6snooping_char_append(':', &cursor, &remaining) == 0)
                return nullptr;
            continue;
        }
        if (in_run && !closed) {
            if (dhcp6snooping_char_append(':', &cursor, &remaining) == 0)
                return nullptr;
            closed = true;
        }
        if (append_group(value, &cursor, &remaining) == 0)
            return nullptr;
        if (group != GROUPS - 1 && dhcp6snooping_char_append(':', &cursor, &remaining) == 0)
            return nullptr;
    }
    if (in_run && !closed && dhcp6snooping_char_append(':', &cursor, &remaining) == 0)
        return nullptr;
    return out;
}

int32_t dhcp6snooping_char_append(char ch, char **cursor, uint32_t *remaining) {
    if (*remaining < 2)
        return 0;
    (*cursor)[0] = ch;
    (*cursor)[1] = '\0';
    ++*cursor;
    --*remaining;
    return 1;
}

// By hand: this is the one text that is made for every frame.
char *dhcp6snooping_mac_to_str(const uint8_t *mac, char *out) {
    constexpr char DIGITS[] = "0123456789abcdef";
    char *at = out;
    for (int32_t octet = 0; octet < 6; ++octet) {
        *at++ = DIGITS[mac[octet] >> 4];
        *at++ = DIGITS[mac[octet] & 0x0F];
        *at++ = octet < 5 ? ':' : '\0';
    }
    return out;
}
