#include "shell/values.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>

#include "l2/dhcp6snooping/clients/limits.h"
#include "shell/printable.h"

namespace {

constexpr size_t SHORTENED_MAX = 64; // characters of a text that an error repeats
constexpr uint32_t SECONDS_MAX = 3600;

bool readDecimal(std::string_view word, uint32_t *number) {
    uint32_t value = 0;
    const auto [end, code] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (word.empty() || code != std::errc() || end != word.data() + word.size()) {
        return false;
    }
    *number = value;
    return true;
}

bool readRange(std::string_view word, uint32_t low, uint32_t high, uint32_t *number) {
    uint32_t value = 0;
    if (!readDecimal(word, &value) || value < low || value > high) {
        return false;
    }
    *number = value;
    return true;
}

bool readHexGroup(std::string_view group, uint8_t *byte) {
    uint32_t value = 0;
    const auto [end, code] = std::from_chars(group.data(), group.data() + group.size(), value, 16);
    if (group.empty() || group.size() > 2 || code != std::errc() || end != group.data() + group.size()) {
        return false;
    }
    *byte = static_cast<uint8_t>(value);
    return true;
}

// "3" or "3-5"
bool readVlanRange(std::string_view item, VlanList *vlans) {
    const size_t dash = item.find('-');
    uint32_t first = 0;
    uint32_t last = 0;
    if (!readRange(item.substr(0, dash), VLAN_FIRST, VLAN_LAST, &first) ||
        !readRange(dash == std::string_view::npos ? item : item.substr(dash + 1), first, VLAN_LAST, &last)) {
        return false;
    }
    for (uint32_t vlan = first; vlan <= last; vlan++) {
        vlan_list_add(vlans->data(), vlan);
    }
    return true;
}

// Joins neighbours: each run of `numbers`, which ascend, becomes one item.
std::string textRuns(std::span<const uint32_t> numbers, const char *separator, std::string (*text)(uint32_t)) {
    std::string out;
    for (size_t i = 0; i < numbers.size(); i++) {
        const uint32_t first = numbers[i];
        while (i + 1 < numbers.size() && numbers[i + 1] == numbers[i] + 1) {
            i++;
        }
        out += (out.empty() ? "" : separator) + text(first) + (numbers[i] > first ? "-" + text(numbers[i]) : "");
    }
    return out;
}

// Addresses that no packet on a link comes from.
struct NoSource {
    Ipv6Address prefix;
    uint32_t length; // bits of the prefix, 8 to 128
    const char *why;
};

constexpr std::array NO_SOURCES = {
    NoSource{{}, 128, "it is the unspecified address, which names no host"},
    NoSource{{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 128, "it is the loopback address, which never leaves a host"},
    NoSource{{0xff}, 8, "it is a multicast address, which names receivers and no sender"},
    NoSource{{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff}, 96, "it is an IPv4-mapped address, which no packet carries"},
};

bool startsWith(const Ipv6Address &address, const NoSource &range) {
    return std::equal(address.begin(), address.begin() + range.length / 8, range.prefix.begin());
}

} // namespace

bool valueReadPort(std::string_view word, uint32_t *port, std::string *error) {
    if (word.starts_with("0/") && readRange(word.substr(2), 1, DHCP6SNOOPING_PORTS, port)) {
        return true;
    }
    *error = textQuoted(word) + " is not a port: allowed are 0/1 to 0/" + std::to_string(DHCP6SNOOPING_PORTS);
    return false;
}

bool valueReadVlan(std::string_view word, uint32_t *vlan, std::string *error) {
    if (readRange(word, VLAN_FIRST, VLAN_LAST, vlan)) {
        return true;
    }
    *error = textQuoted(word) + " is not a VLAN: allowed are 1 to 4094";
    return false;
}

bool valueReadVlans(std::string_view word, VlanList *vlans, std::string *error) {
    VlanList read = {};
    std::string_view rest = word;
    bool good = true;
    do {
        const size_t end = std::min(rest.find(','), rest.size());
        good = readVlanRange(rest.substr(0, end), &read);
        rest.remove_prefix(std::min(end + 1, rest.size()));
    } while (good && !rest.empty());
    if (!good) {
        *error = textQuoted(word) + " is not a list of VLANs: it is written like 1,3-5, and allowed are 1 to 4094";
        return false;
    }
    *vlans = read;
    return true;
}

bool valueReadLimit(std::string_view word, uint32_t *limit, std::string *error) {
    if (readRange(word, 0, DHCP6SNOOPING_LIMIT_MAX, limit)) {
        return true;
    }
    *error = textQuoted(word) + " is not a number of clients: allowed are 0 to " + std::to_string(DHCP6SNOOPING_LIMIT_MAX);
    return false;
}

bool valueReadSeconds(std::string_view word, uint32_t *seconds, std::string *error) {
    if (readRange(word, 1, SECONDS_MAX, seconds)) {
        return true;
    }
    *error = textQuoted(word) + " is not a number of seconds: allowed are 1 to " + std::to_string(SECONDS_MAX);
    return false;
}

bool valueReadMac(std::string_view word, MacAddress *mac, std::string *error) {
    MacAddress read = {};
    const char separator = word.find('-') != std::string_view::npos ? '-' : ':';
    std::string_view rest = word;
    bool good = true;
    for (size_t i = 0; i < read.size() && good; i++) {
        const size_t end = i + 1 < read.size() ? rest.find(separator) : rest.size();
        good = end != std::string_view::npos && readHexGroup(rest.substr(0, end), &read[i]);
        rest = good && end < rest.size() ? rest.substr(end + 1) : std::string_view();
    }
    if (!good) {
        *error = textQuoted(word) + " is not a MAC address: it is written as six hexadecimal numbers, like 02:00:5e:10:00:01";
        return false;
    }
    if (read == MacAddress{}) {
        *error = textQuoted(word) + " belongs to no client: the all-zero MAC address is not allowed";
        return false;
    }
    *mac = read;
    return true;
}

bool valueReadIpv4(std::string_view word, Ipv4Address *address, std::string *error) {
    if (word.find('\0') != std::string_view::npos || inet_pton(AF_INET, std::string(word).c_str(), address->data()) != 1) {
        *error = textQuoted(word) + " is not an IPv4 address: it is written like 10.0.0.1, as four numbers from 0 to 255";
        return false;
    }
    return true;
}

bool valueReadIpv6(std::string_view word, Ipv6Address *address, std::string *error) {
    // A NUL inside the word would end it early for inet_pton.
    if (word.find('\0') != std::string_view::npos || inet_pton(AF_INET6, std::string(word).c_str(), address->data()) != 1) {
        *error = textQuoted(word) + " is not an IPv6 address: it is written like 2001:db8::1, without a prefix length";
        return false;
    }
    return true;
}

bool valueReadSource(std::string_view word, Ipv6Address *address, std::string *error) {
    Ipv6Address read = {};
    if (!valueReadIpv6(word, &read, error)) {
        return false;
    }
    for (const NoSource &range : NO_SOURCES) {
        if (startsWith(read, range)) {
            *error = textQuoted(word) + " cannot be bound: " + range.why;
            return false;
        }
    }
    *address = read;
    return true;
}

bool valueCheckText(const char *what, std::string_view text, std::string *error) {
    size_t at = 0;
    while (at < text.size() && text[at] != '"' && printableLength(text.substr(at)) != 0) {
        at += printableLength(text.substr(at));
    }
    if (at == text.size()) {
        return true;
    }
    *error = std::string(what) + " cannot be kept with " +
             (text[at] == '"' ? "the double quote" : textQuoted(text.substr(at, 1))) + " at column " +
             std::to_string(printableCount(text.substr(0, at)) + 1) +
             ": allowed are printable characters other than double quotes";
    return false;
}

std::string textPort(uint32_t port) { return "0/" + std::to_string(port); }

std::string textMac(const MacAddress &mac) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : mac) {
        text += text.empty() ? "" : ":";
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

std::string textIpv4(std::span<const uint8_t, 4> address) {
    std::array<char, INET_ADDRSTRLEN> buffer = {};
    return inet_ntop(AF_INET, address.data(), buffer.data(), buffer.size());
}

std::string textIpv6(std::span<const uint8_t, 16> address, uint32_t prefixLength) {
    std::array<char, INET6_ADDRSTRLEN> buffer = {};
    std::string text = inet_ntop(AF_INET6, address.data(), buffer.data(), buffer.size());
    if (prefixLength != 128) {
        text += "/" + std::to_string(prefixLength);
    }
    return text;
}

std::string textDuration(uint64_t seconds) {
    struct Unit {
        uint64_t seconds;
        char letter;
    };
    constexpr std::array<Unit, 5> units = {{{31536000, 'y'}, {86400, 'd'}, {3600, 'h'}, {60, 'm'}, {1, 's'}}};
    for (size_t i = 0; i + 1 < units.size(); i++) {
        if (seconds < units[i].seconds) {
            continue;
        }
        const uint64_t minor = seconds % units[i].seconds / units[i + 1].seconds;
        std::string text = std::to_string(seconds / units[i].seconds) + units[i].letter;
        return minor == 0 ? text : text + std::to_string(minor) + units[i + 1].letter;
    }
    return std::to_string(seconds) + 's';
}

std::string textPorts(std::span<const uint32_t> ports) { return textRuns(ports, ", ", textPort); }

std::string textVlans(std::span<const uint32_t> vlans) {
    return textRuns(vlans, ",", [](uint32_t vlan) { return std::to_string(vlan); });
}

std::vector<uint32_t> vlansListed(const VlanList &vlans) {
    std::vector<uint32_t> listed;
    for (uint32_t vlan = VLAN_FIRST; vlan <= VLAN_LAST; vlan++) {
        if (vlan_listed(vlans.data(), vlan)) {
            listed.push_back(vlan);
        }
    }
    return listed;
}

std::string textPrintable(std::string_view text) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string clean;
    while (!text.empty()) {
        const auto byte = static_cast<uint8_t>(text[0]);
        const size_t length = printableLength(text);
        if (length != 0) {
            clean += text.substr(0, length);
        } else {
            clean += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
        }
        text.remove_prefix(std::max<size_t>(length, 1));
    }
    return clean;
}

std::string textShortened(std::string_view text) {
    size_t shown = 0;
    for (size_t i = 0; i < SHORTENED_MAX && shown < text.size(); i++) {
        shown += std::max<size_t>(printableLength(text.substr(shown)), 1);
    }
    return textPrintable(text.substr(0, shown)) + (shown < text.size() ? "..." : "");
}

std::string textQuoted(std::string_view word) { return '"' + textShortened(word) + '"'; }

std::string_view textField(std::span<const char> field) {
    return {field.data(), static_cast<size_t>(std::find(field.begin(), field.end(), '\0') - field.begin())};
}
