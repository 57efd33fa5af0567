#pragma once
// Texts of the MIB: addresses, and lists that fit one text value.

#include <cstdint>

inline constexpr uint32_t MIB_TEXT_SIZE = 256; // bytes, NUL included: the longest text value

// Text of an address, with "/length" unless the length is 128. The result stays valid until four further calls.
char *dhcp6snooping_prefix_to_str(const uint8_t *address, uint32_t prefix_len);

// Items joined with ",". An item that no longer fits is left out, a shorter one behind it is still taken.
struct MibList {
    char text[MIB_TEXT_SIZE];
    uint32_t length;
};

void mib_list_add(MibList *list, const char *item);
// Ends the list. Returns its length, in bytes.
uint32_t mib_list_end(MibList *list);

// Seconds as "1d2h3m4s", from the first unit that is not 0 on. `out` has 32 bytes. Returns out.
char *mib_duration_to_str(uint32_t seconds, char *out);
