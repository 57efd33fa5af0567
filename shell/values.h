#pragma once
// Values as people write and read them: port names, VLAN ids, limits, MAC, IPv4 and IPv6 addresses, texts, durations.
//
// Reading takes a whole word and either fills the output or leaves it alone and says in one sentence what is wrong with the
// word and what is allowed. Writing never fails. Text that comes from outside the shell (a typed word, a name that the daemon
// sent) goes through textPrintable before it reaches a terminal, so that no control character ever does (printable.h).

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "l2/dhcp6snooping/base/vlanlist.h"

using MacAddress = std::array<uint8_t, 6>;
using Ipv4Address = std::array<uint8_t, 4>;  // network order
using Ipv6Address = std::array<uint8_t, 16>; // network order
using VlanList = std::array<uint8_t, VLAN_LIST_SIZE>;

[[nodiscard]] bool valueReadPort(std::string_view word, uint32_t *port, std::string *error);
[[nodiscard]] bool valueReadVlan(std::string_view word, uint32_t *vlan, std::string *error);
[[nodiscard]] bool valueReadSeconds(std::string_view word, uint32_t *seconds, std::string *error);
[[nodiscard]] bool valueReadLimit(std::string_view word, uint32_t *limit, std::string *error);
// Six groups of one or two hexadecimal digits, all separated by ':' or all by '-'. Refuses the all-zero address, which the
// daemon uses for "no client".
[[nodiscard]] bool valueReadMac(std::string_view word, MacAddress *mac, std::string *error);
// "1,3-5", as the running configuration has it, which may end in a comma.
[[nodiscard]] bool valueReadVlans(std::string_view word, VlanList *vlans, std::string *error);
[[nodiscard]] bool valueReadIpv4(std::string_view word, Ipv4Address *address, std::string *error);
[[nodiscard]] bool valueReadIpv6(std::string_view word, Ipv6Address *address, std::string *error);
// An IPv6 address that a packet on a link may come from. Refuses the unspecified and the loopback address, multicast and
// IPv4-mapped addresses.
[[nodiscard]] bool valueReadSource(std::string_view word, Ipv6Address *address, std::string *error);
// A text that is read again as it is printed, between double quotes and without any escape: only printable characters, and
// no double quotes. `what` is how the sentence calls the text: "the string".
[[nodiscard]] bool valueCheckText(const char *what, std::string_view text, std::string *error);

std::string textPort(uint32_t port); // "0/3"
std::string textMac(const MacAddress &mac);
std::string textIpv4(std::span<const uint8_t, 4> address);
std::string textIpv6(std::span<const uint8_t, 16> address, uint32_t prefixLength); // "/n" only where n is not 128
std::string textDuration(uint64_t seconds);                                        // the two largest units: "1h59m"
std::string textPorts(std::span<const uint32_t> ports);                            // ascending ports: "0/1-0/3, 0/7"
std::string textVlans(std::span<const uint32_t> vlans);                            // ascending, as valueReadVlans reads them
std::string textPrintable(std::string_view text);                                  // other characters byte by byte as \xNN
std::string textShortened(std::string_view text);                                  // printable, cut when very long
std::string textQuoted(std::string_view word);                                     // the same in quotes
std::vector<uint32_t> vlansListed(const VlanList &vlans);                          // ascending
// Bytes of a fixed field up to its first NUL.
std::string_view textField(std::span<const char> field);
