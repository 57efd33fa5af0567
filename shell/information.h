#pragma once
// Contents of options 18 and 37 as a line says them: what kind, and the bytes that the daemon takes for that kind.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "l2/dhcp6snooping/infoopt/policy.h"

struct InformationId {
    uint32_t type = DHCP6_INFO_DEFAULT;
    std::vector<uint8_t> value =
        std::vector<uint8_t>(4); // the default content has no value; something must be sent all the same
};

[[nodiscard]] bool informationReadIpv4(std::string_view word, InformationId *id, std::string *error);
[[nodiscard]] bool informationReadIpv6(std::string_view word, InformationId *id, std::string *error);
[[nodiscard]] bool informationReadString(std::string_view word, InformationId *id, std::string *error);
[[nodiscard]] bool informationReadTemplate(std::string_view word, InformationId *id, std::string *error);
// The same for texts with escapes (escapes.h), which may also be empty.
[[nodiscard]] bool informationReadEscapedString(std::string_view word, InformationId *id, std::string *error);
[[nodiscard]] bool informationReadEscapedTemplate(std::string_view word, InformationId *id, std::string *error);
