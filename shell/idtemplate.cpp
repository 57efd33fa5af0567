#include "shell/idtemplate.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <vector>

#include "shell/printable.h"
#include "shell/values.h"

namespace {

constexpr std::array ELEMENTS = {
    IdElement{DHCP6_INFO_SWITCH_ADDRESS, "{switch-address}", "IPv4 address of the switch in the client's VLAN, like 10.0.0.1"},
    IdElement{DHCP6_INFO_HOST_NAME, "{hostname}", "host name of the switch"},
    IdElement{DHCP6_INFO_PORT_NAME, "{port-name}", "name of the client's port"},
    IdElement{DHCP6_INFO_PORT_KIND, "{port-kind}", "xpon or ethernet"},
    IdElement{DHCP6_INFO_SYSTEM_MAC, "{system-mac}", "MAC address of the switch, 12 lower-case digits"},
    IdElement{DHCP6_INFO_CHASSIS, "{chassis}", "first number of the client's port"},
    IdElement{DHCP6_INFO_SLOT, "{slot}", "second number of the client's port"},
    IdElement{DHCP6_INFO_SUBSLOT, "{subslot}", "always 0"},
    IdElement{DHCP6_INFO_PORT, "{port}", "third number of the client's port"},
    IdElement{DHCP6_INFO_OUTER_VLAN, "{outer-vlan}", "outer VLAN, 4 digits; 0000 for one tag on an Ethernet port"},
    IdElement{DHCP6_INFO_INNER_VLAN, "{inner-vlan}", "inner VLAN, 4 digits; the only VLAN for one tag on an Ethernet port"},
    IdElement{DHCP6_INFO_CLIENT_MAC, "{client-mac}", "MAC address from the client's DUID, 12 upper-case digits"},
    IdElement{DHCP6_INFO_VLAN_ADDRESS, "{vlan-address:10}", "IPv4 address of the switch in that VLAN, 8 hexadecimal digits"},
    IdElement{DHCP6_INFO_PON, "{pon}", "PON number, on xPON ports only"},
    IdElement{DHCP6_INFO_ONU, "{onu}", "ONU number, on xPON ports only"},
    IdElement{DHCP6_INFO_SERIAL, "{serial}", "serial number of the ONU, on xPON ports only"},
    IdElement{DHCP6_INFO_ONU_WIDE, "{onu-id}", "ONU number once more, on xPON ports only"},
};

constexpr uint32_t ELEMENTS_MAX = DHCP6_INFO_ELEMENTS - 1;
constexpr size_t LITERAL_MAX = sizeof Dhcp6InfoIdTemplate::literal[0] - 1;
constexpr size_t TEXT_MAX = sizeof Dhcp6InfoIdTemplate::text - 1;
constexpr const char *BRACE_HINT = "; a { that shall stand for itself is written {{";

// A template on its way into the record.
struct Reading {
    std::string_view text;
    Dhcp6InfoIdTemplate record;
    uint32_t elements;   // read so far
    std::string literal; // being read
    size_t literalAt;    // where it starts
    std::string *error;
};

// A piece of the template and where it stands, as errors begin.
std::string placeOf(const Reading &reading, std::string_view piece) {
    const std::string_view before(reading.text.data(), static_cast<size_t>(piece.data() - reading.text.data()));
    return textQuoted(piece) + " at column " + std::to_string(printableCount(before) + 1) + " of the template ";
}

std::string_view keywordOf(std::string_view shown) { return shown.substr(1, shown.find_first_of(":}") - 1); }

bool takesVlan(const IdElement &element) { return std::string_view(element.shown).find(':') != std::string_view::npos; }

// How many letters must be changed, added or left out to make one word from the other.
size_t wordDistance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); j++) {
        row[j] = j;
    }
    for (size_t i = 1; i <= a.size(); i++) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); j++) {
            const size_t change = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j - 1] + 1, row[j] + 1, change});
        }
    }
    return row.back();
}

// The elements that somebody may have meant: those that start so, else the most similar ones, else all.
std::string meantElements(std::string_view typed) {
    std::vector<std::string_view> meant;
    size_t best = typed.size() / 2; // what differs more is not similar
    for (const IdElement &element : ELEMENTS) {
        best = std::min(best, wordDistance(typed, keywordOf(element.shown)));
        if (!typed.empty() && keywordOf(element.shown).starts_with(typed)) {
            meant.emplace_back(element.shown);
        }
    }
    const bool known = !meant.empty();
    const auto similar = [best, typed](std::string_view keyword) { return wordDistance(typed, keyword) == best; };
    const bool any = std::any_of(ELEMENTS.begin(), ELEMENTS.end(),
                                 [similar](const IdElement &element) { return similar(keywordOf(element.shown)); });
    for (const IdElement &element : ELEMENTS) {
        if (!known && (!any || similar(keywordOf(element.shown)))) {
            meant.emplace_back(element.shown);
        }
    }
    std::string text = !known && !any ? "allowed are " : meant.size() == 1 ? "nearest is " : "nearest are ";
    for (size_t i = 0; i < meant.size(); i++) {
        text += (i == 0 ? "" : i + 1 == meant.size() ? " and " : ", ") + std::string(meant[i]);
    }
    return text;
}

// Puts the literal that has been read where the elements have got to.
bool endLiteral(Reading *reading, size_t end) {
    if (reading->literal.size() > LITERAL_MAX) {
        const std::string_view piece = reading->text.substr(reading->literalAt, end - reading->literalAt);
        *reading->error = placeOf(*reading, piece) + "is too long: it stands for " + std::to_string(reading->literal.size()) +
                          " bytes, allowed are " + std::to_string(LITERAL_MAX) + " in one piece";
        return false;
    }
    std::ranges::copy(reading->literal, reading->record.literal[reading->elements]);
    reading->literal.clear();
    return true;
}

// `piece` is the element with its braces.
bool takeElement(Reading *reading, std::string_view piece) {
    const std::string_view keyword = keywordOf(piece);
    const auto *element = std::find_if(ELEMENTS.begin(), ELEMENTS.end(),
                                       [keyword](const IdElement &known) { return keywordOf(known.shown) == keyword; });
    if (element == ELEMENTS.end()) {
        *reading->error = placeOf(*reading, piece) + "is not an element: " + meantElements(keyword) + BRACE_HINT;
        return false;
    }
    const bool bare = piece.size() == keyword.size() + 2;
    if (!takesVlan(*element) && !bare) {
        *reading->error = placeOf(*reading, piece) + "is not an element: it is written " + element->shown;
        return false;
    }
    uint32_t vlan = 0;
    std::string ignored;
    if (takesVlan(*element) &&
        (bare || !valueReadVlan(piece.substr(keyword.size() + 2, piece.size() - keyword.size() - 3), &vlan, &ignored))) {
        *reading->error =
            placeOf(*reading, piece) + "names no VLAN: it is written like " + element->shown + ", and allowed are 1 to 4094";
        return false;
    }
    if (reading->elements == ELEMENTS_MAX) {
        *reading->error = placeOf(*reading, piece) + "is one element too many: allowed are " + std::to_string(ELEMENTS_MAX);
        return false;
    }
    reading->elements++;
    reading->record.elementType[reading->elements] = element->type;
    if (takesVlan(*element)) {
        std::ranges::copy(std::to_string(vlan), reading->record.elementVlan[reading->elements]);
    }
    return true;
}

// Reads the "{" at `*at` with what belongs to it.
bool takeBrace(Reading *reading, size_t *at) {
    const std::string_view rest = reading->text.substr(*at);
    if (rest.starts_with("{{")) {
        reading->literal += '{';
        *at += 2;
        return true;
    }
    const size_t end = std::min(rest.find_first_of("{}", 1), rest.size());
    if (end == rest.size() || rest[end] == '{') {
        const std::string_view piece = rest.substr(0, end);
        *reading->error = placeOf(*reading, piece) +
                          "is not closed with a }: " + meantElements(piece.substr(1, piece.find(':') - 1)) + BRACE_HINT;
        return false;
    }
    if (!endLiteral(reading, *at) || !takeElement(reading, rest.substr(0, end + 1))) {
        return false;
    }
    *at += end + 1;
    reading->literalAt = *at;
    return true;
}

bool lengthIsGood(const Reading &reading) {
    const std::string_view text = reading.text;
    const auto next = [text](size_t at) { return std::max<size_t>(printableLength(text.substr(at)), 1); };
    size_t fits = 0;
    while (fits < text.size() && fits + next(fits) <= TEXT_MAX) {
        fits += next(fits);
    }
    if (fits < text.size()) {
        *reading.error = placeOf(reading, text.substr(fits)) + "is too much: the template has " + std::to_string(text.size()) +
                         " bytes, allowed are " + std::to_string(TEXT_MAX);
        return false;
    }
    return true;
}

} // namespace

std::span<const IdElement> idElements() { return ELEMENTS; }

bool idTemplateRead(std::string_view text, Dhcp6InfoIdTemplate *idTemplate, std::string *error) {
    if (text.empty()) {
        *error = "the template is empty: it takes at least one character";
        return false;
    }
    return valueCheckText("the template", text, error) && idTemplateReadBytes(text, idTemplate, error);
}

bool idTemplateReadBytes(std::string_view text, Dhcp6InfoIdTemplate *idTemplate, std::string *error) {
    Reading reading = {.text = text, .record = {}, .elements = 0, .literal = {}, .literalAt = 0, .error = error};
    if (!lengthIsGood(reading)) {
        return false;
    }
    for (size_t at = 0; at < text.size();) {
        if (text[at] != '{') {
            reading.literal += text[at++];
        } else if (!takeBrace(&reading, &at)) {
            return false;
        }
    }
    if (!endLiteral(&reading, text.size())) {
        return false;
    }
    std::ranges::copy(text, reading.record.text);
    *idTemplate = reading.record;
    return true;
}

bool idTemplatesEqual(const Dhcp6InfoIdTemplate &a, const Dhcp6InfoIdTemplate &b) {
    if (textField(a.text) != textField(b.text) || textField(a.literal[0]) != textField(b.literal[0])) {
        return false;
    }
    for (uint32_t k = 1; k < DHCP6_INFO_ELEMENTS && (a.elementType[k] != 0 || b.elementType[k] != 0); k++) {
        const bool sameVlan =
            a.elementType[k] != DHCP6_INFO_VLAN_ADDRESS || textField(a.elementVlan[k]) == textField(b.elementVlan[k]);
        if (a.elementType[k] != b.elementType[k] || !sameVlan || textField(a.literal[k]) != textField(b.literal[k])) {
            return false;
        }
    }
    return true;
}

std::string_view idTemplateOpenElement(std::string_view text) {
    for (size_t at = text.find('{'); at != std::string_view::npos; at = text.find('{', at)) {
        if (text.substr(at).starts_with("{{")) {
            at += 2;
            continue;
        }
        const size_t end = text.find('}', at);
        if (end == std::string_view::npos) {
            return text.substr(at);
        }
        at = end + 1;
    }
    return "";
}
