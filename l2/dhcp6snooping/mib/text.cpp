#include "l2/dhcp6snooping/mib/text.h"

#include <cstdio>
#include <cstring>

#include "platform/libvos.h"

namespace {

constexpr uint32_t BUFFERS = 4;
constexpr uint32_t BUFFER_SIZE = 64;  // bytes
constexpr uint32_t ADDRESS_TEXT = 47; // bytes of it that an address may take
constexpr uint32_t WHOLE_ADDRESS = 128;
constexpr uint32_t DURATION_SIZE = 32;

} // namespace

char *dhcp6snooping_prefix_to_str(const uint8_t *address, uint32_t prefix_len) {
    static char buffers[BUFFERS][BUFFER_SIZE];
    static uint32_t next = 0;
    char *buffer = buffers[next];
    next = (next + 1) % BUFFERS;
    buffer[0] = '\0';
    vosInetNtop(VOS_AF_INET6, address, buffer, ADDRESS_TEXT);
    const size_t length = strnlen(buffer, ADDRESS_TEXT);
    if (prefix_len != WHOLE_ADDRESS)
        snprintf(buffer + length, BUFFER_SIZE - length, "/%u", prefix_len);
    return buffer;
}

void mib_list_add(MibList *list, const char *item) {
    const size_t length = strlen(item);
    if (list->length + length + 2 > MIB_TEXT_SIZE) // its comma and the NUL
        return;
    memcpy(list->text + list->length, item, length);
    list->length += static_cast<uint32_t>(length);
    list->text[list->length++] = ',';
}

uint32_t mib_list_end(MibList *list) {
    if (list->length > 1)
        --list->length;
    list->text[list->length] = '\0';
    return list->length;
}

char *mib_duration_to_str(uint32_t seconds, char *out) {
    const uint32_t minutes = seconds / 60;
    const uint32_t hours = minutes / 60;
    const uint32_t days = hours / 24;
    if (days != 0)
        snprintf(out, DURATION_SIZE, "%ud%uh%um%us", days, hours % 24, minutes % 60, seconds % 60);
    else if (hours != 0)
        snprintf(out, DURATION_SIZE, "%uh%um%us", hours, minutes % 60, seconds % 60);
    else if (minutes != 0)
        snprintf(out, DURATION_SIZE, "%um%us", minutes, seconds % 60);
    else
        snprintf(out, DURATION_SIZE, "%us", seconds);
    return out;
}
