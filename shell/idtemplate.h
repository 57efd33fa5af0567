#pragma once
// The language of user-defined ids: text with elements in braces, "{hostname}/{port-name}:{outer-vlan}".
//
// Elements are written with their whole keyword. Anything else stands for itself; "{{" is a "{", and a "}" outside an element
// needs nothing. A template becomes a record of fixed size, which the daemon interprets: 17 elements, 64 bytes of text in
// front of, between and behind them, 128 bytes of template. What does not fit is refused, never cut. The text as it was typed
// goes into the record too, so that the daemon can print it.
//
// One table holds the elements: the reader, its errors and the help come from it.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "l2/dhcp6snooping/infoopt/policy.h"

struct IdElement {
    uint32_t type;     // Dhcp6InfoElement
    const char *shown; // as it is written: "{hostname}"; with a ":" when a VLAN stands behind the keyword
    const char *help;
};

// In the order in which help lists them.
std::span<const IdElement> idElements();

// Fills the record, or leaves it alone and says in one sentence what is wrong and at which column. A typed template has at
// least one character, and printable ones only.
[[nodiscard]] bool idTemplateRead(std::string_view text, Dhcp6InfoIdTemplate *idTemplate, std::string *error);

// The same for any bytes but NUL, and for none at all.
[[nodiscard]] bool idTemplateReadBytes(std::string_view bytes, Dhcp6InfoIdTemplate *idTemplate, std::string *error);

// Whether both records mean the same to the daemon and have the same text. What it does not look at may differ.
bool idTemplatesEqual(const Dhcp6InfoIdTemplate &a, const Dhcp6InfoIdTemplate &b);

// The element that a template breaks off in, from its "{" on; "" when it breaks off outside.
std::string_view idTemplateOpenElement(std::string_view text);
