#pragma once
// Contents of options 18 and 37: as a line says them, which is what kind and the bytes that the daemon takes for that kind, and
// as the daemon holds them.

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "l2/dhcp6snooping/infoopt/policy.h"
#include "shell/remotecall.h"

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

struct InformationOption {
    uint32_t enable; // 1 = added, anything else = not
    uint32_t type;   // Dhcp6InfoIdType
    std::array<uint8_t, DHCP6_INFO_VALUE> value;
    bool held; // whether there is a template
    Dhcp6InfoIdTemplate idTemplate;
};

struct InformationSettings {
    uint32_t strategy; // Dhcp6InfoStrategy
    InformationOption interfaceId;
    InformationOption remoteId;
};

[[nodiscard]] CallEnd informationRead(Connection *connection, InformationSettings *settings, std::string *error);
