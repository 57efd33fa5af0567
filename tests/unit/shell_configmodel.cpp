#include "shell_configmodel.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>

#include "shell/idtemplate.h"
#include "shell/parser.h"
#include "shell/runningconfig.h"

namespace {

// ---- a daemon's text ---------------------------------------------------------------------------------------------------

std::string fieldText(const char *field, size_t size) { return {field, strnlen(field, size)}; }

std::string printId(const std::string &name, const InformationOption &option) {
    const std::string setting = "dhcpv6-snooping information " + name + " ";
    const auto *value = reinterpret_cast<const char *>(option.value.data());
    switch (option.type) {
    case DHCP6_INFO_IPV4: return setting + "ipv4-address " + textIpv4(std::span(option.value).first<4>()) + "\r\n";
    case DHCP6_INFO_IPV6: return setting + "ipv6-address " + textIpv6(std::span(option.value).first<16>(), 128) + "\r\n";
    case DHCP6_INFO_STRING: return setting + "string \"" + fieldText(value, option.value.size()) + "\"\r\n";
    case DHCP6_INFO_USER_DEFINED:
        return option.held
                   ? setting + "user-defined \"" + fieldText(option.idTemplate.text, sizeof option.idTemplate.text) + "\"\r\n"
                   : "";
    default: return "";
    }
}

// Ports from 0/5 on have no name.
std::string printBinding(const Binding &binding) {
    const std::string address = "ipv6-source-guard bind ip " + textIpv6(binding.address, 128);
    const std::string mac = " mac " + textMac(binding.mac);
    const std::string port = " interface ethernet " + (binding.port <= 4 ? textPort(binding.port) : "");
    if (binding.mac == MacAddress{}) {
        return address + "\r\n";
    }
    if (binding.port == 0) {
        return address + mac + "\r\n";
    }
    return address + mac + port + (binding.vlan != 0 ? " vlan " + std::to_string(binding.vlan) : "") + "\r\n";
}

std::string printExemptions(const std::vector<uint32_t> &vlans) {
    std::string text;
    for (size_t at = 0; at < vlans.size(); at += 20) {
        const auto part = std::span(vlans).subspan(at, std::min<size_t>(20, vlans.size() - at));
        text += "undo ipv6-source-guard vlan " + textVlans(part) + (at + 20 < vlans.size() ? ",\r\n" : "\r\n");
    }
    return text;
}

// ---- what lines make ---------------------------------------------------------------------------------------------------

void applyCommand(const ParsedCommand &parsed, const std::string &line, ModelMade *made) {
    const std::string_view form = parsed.command->form;
    const Arguments &arguments = parsed.arguments;
    if (form == "dhcpv6-snooping information option 18") {
        made->option18 = 1;
    } else if (form == "dhcpv6-snooping information option 37") {
        made->option37 = 1;
    } else if (form.starts_with("dhcpv6-snooping information interface-id ")) {
        made->interfaceId = arguments.id;
    } else if (form.starts_with("dhcpv6-snooping information remote-id ")) {
        made->remoteId = arguments.id;
    } else if (form == "undo ipv6-source-guard vlan <vlans>") {
        std::ranges::copy(vlansListed(arguments.vlans), std::back_inserter(made->exempt));
    } else if (form.starts_with("ipv6-source-guard bind ip ")) {
        made->bindings.insert(made->bindings.begin(), {arguments.address, arguments.mac, arguments.port, arguments.vlan});
    } else {
        made->others.push_back(line);
    }
}

bool bindingEqual(const Binding &a, const Binding &b) {
    return a.address == b.address && a.mac == b.mac && a.port == b.port && a.vlan == b.vlan;
}

void expectId(const InformationId &made, const InformationOption &option, const char *name) {
    ASSERT_EQ(made.type, option.type) << name;
    const auto *value = reinterpret_cast<const char *>(option.value.data());
    const std::string bytes(made.value.begin(), made.value.end());
    switch (option.type) {
    case DHCP6_INFO_IPV4: EXPECT_EQ(bytes, std::string(value, 4)) << name; break;
    case DHCP6_INFO_IPV6: EXPECT_EQ(bytes, std::string(value, 16)) << name; break;
    case DHCP6_INFO_STRING: EXPECT_EQ(bytes, fieldText(value, option.value.size()) + '\0') << name; break;
    case DHCP6_INFO_USER_DEFINED:
        EXPECT_EQ(bytes, std::string(reinterpret_cast<const char *>(&option.idTemplate), sizeof option.idTemplate)) << name;
        break;
    default: break;
    }
}

} // namespace

InformationOption modelOption(uint32_t type, std::string_view value, uint32_t enable) {
    InformationOption option = {.enable = enable, .type = type, .value = {}, .held = false, .idTemplate = {}};
    std::copy_n(value.begin(), std::min(value.size(), option.value.size()), option.value.begin());
    return option;
}

InformationOption modelTemplate(std::string_view text, uint32_t enable) {
    InformationOption option = modelOption(DHCP6_INFO_USER_DEFINED, "", enable);
    std::string error;
    EXPECT_TRUE(idTemplateReadBytes(text, &option.idTemplate, &error)) << error;
    option.held = true;
    return option;
}

Ipv6Address modelAddress(const char *word) {
    Ipv6Address address = {};
    std::string error;
    EXPECT_TRUE(valueReadIpv6(word, &address, &error)) << error;
    return address;
}

ConfigValues modelValues(const InformationOption &interfaceId, const InformationOption &remoteId) {
    return {.information = {.strategy = DHCP6_INFO_REPLACE, .interfaceId = interfaceId, .remoteId = remoteId},
            .exempt = {},
            .bindings = {}};
}

std::string modelPrint(const std::string &head, const ConfigValues &values) {
    const InformationSettings &information = values.information;
    std::string text = head;
    text += information.interfaceId.enable != 0 ? "dhcpv6-snooping information option 18\r\n" : "";
    text += printId("interface-id", information.interfaceId);
    text += information.remoteId.enable != 0 ? "dhcpv6-snooping information option 37\r\n" : "";
    text += printId("remote-id", information.remoteId) + printExemptions(values.exempt);
    for (const Binding &binding : values.bindings) {
        text += printBinding(binding);
    }
    return text;
}

ModelMade modelReplay(const std::vector<std::string> &lines) {
    ModelMade made;
    uint32_t place = PLACE_TOP;
    std::string file;
    for (const std::string &line : lines) {
        file += line + '\n';
    }
    for (size_t at = 0; at < file.size(); at = file.find('\n', at) + 1) {
        const std::string line = file.substr(at, file.find('\n', at) - at);
        WordEnd end = WordEnd::plain;
        std::vector<ParsedCommand> parsed;
        std::string error;
        const std::vector<std::string_view> words = sessionWords(line, &end);
        EXPECT_LE(line.size(), SESSION_LINE_MAX);
        EXPECT_TRUE(end == WordEnd::plain || end == WordEnd::quoted) << line;
        if (words.empty()) {
            made.others.push_back(line);
            continue;
        }
        EXPECT_TRUE(parserRead(place, words, &parsed, &error)) << line << ": " << error;
        for (const ParsedCommand &command : parsed) {
            applyCommand(command, line, &made);
            place = command.command->enters != 0                        ? command.command->enters
                    : std::string_view(command.command->form) == "quit" ? PLACE_TOP
                                                                        : place;
        }
    }
    EXPECT_EQ(place, PLACE_TOP);
    return made;
}

void modelExpect(const ModelMade &made, const std::string &head, const ConfigValues &values) {
    const InformationSettings &information = values.information;
    EXPECT_EQ(made.option18, information.interfaceId.enable == 1 ? 1u : 0u);
    EXPECT_EQ(made.option37, information.remoteId.enable == 1 ? 1u : 0u);
    expectId(made.interfaceId, information.interfaceId, "interface-id");
    expectId(made.remoteId, information.remoteId, "remote-id");
    EXPECT_EQ(made.exempt, values.exempt);
    EXPECT_TRUE(std::ranges::equal(made.bindings, values.bindings, bindingEqual));
    EXPECT_EQ(made.others, runningConfigLines(head));
}
