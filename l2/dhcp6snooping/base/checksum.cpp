#include "l2/dhcp6snooping/base/checksum.h"

#include <bit>
#include <cstring>

namespace {

constexpr uint32_t ADDRESS_SIZE = 16;
constexpr uint32_t BLOCK = 32; // bytes summed per turn of the main loop
constexpr uint32_t IP6_SOURCE = 8;
constexpr uint32_t IP6_DESTINATION = 24;
constexpr uint32_t UDP_CHECKSUM = 6;
constexpr uint16_t NEXT_HEADER_UDP = 17;

uint16_t to_network(uint16_t value) {
    if constexpr (std::endian::native == std::endian::little)
        return static_cast<uint16_t>((value >> 8) | (value << 8));
    return value;
}

uint32_t word_at(const uint8_t *data) {
    uint16_t word;
    memcpy(&word, data, sizeof word);
    return word;
}

} // namespace

uint32_t dhcp6snooping_ip6_pseudo_header_checksum_update(const uint8_t *src, const uint8_t *dst, uint16_t nextHeader,
                                                         uint16_t length) {
    uint32_t sum = uint32_t{to_network(length)} + to_network(nextHeader);
    for (uint32_t at = 0; at < ADDRESS_SIZE; at += 2)
        sum += word_at(src + at) + word_at(dst + at);
    return sum;
}

uint32_t dhcp6snooping_in_checksum_update(const uint8_t *data, uint32_t len) {
    uint32_t sum = 0;
    uint32_t at = 0;
    for (; len - at >= BLOCK; at += BLOCK)
        for (uint32_t word = 0; word < BLOCK; word += 2)
            sum += word_at(data + at + word);
    for (; len - at >= 2; at += 2)
        sum += word_at(data + at);
    if (at < len)
        sum += to_network(static_cast<uint16_t>(data[at] << 8));
    return sum;
}

uint16_t dhcp6snooping_in_checksum_finish(uint32_t sum) {
    while (sum > 0xFFFF)
        sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<uint16_t>(~sum);
}

void dhcp6snooping_udp_checksum_renew(const uint8_t *ip6, uint8_t *udp, uint32_t udp_len) {
    memset(udp + UDP_CHECKSUM, 0, sizeof(uint16_t));
    // The length enters once, as the last term, so the pseudo header is summed with length 0.
    const uint32_t pseudo =
        dhcp6snooping_ip6_pseudo_header_checksum_update(ip6 + IP6_SOURCE, ip6 + IP6_DESTINATION, NEXT_HEADER_UDP, 0);
    const uint32_t data = dhcp6snooping_in_checksum_update(udp, udp_len);
    uint16_t checksum = dhcp6snooping_in_checksum_finish(data + pseudo + to_network(static_cast<uint16_t>(udp_len)));
    if (checksum == 0)
        checksum = 0xFFFF;
    memcpy(udp + UDP_CHECKSUM, &checksum, sizeof checksum);
}
