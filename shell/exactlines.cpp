#include "shell/exactlines.h"

#include <algorithm>
#include <cstring>

#include "shell/escapes.h"
#include "shell/idtemplate.h"
#include "shell/parser.h"

namespace {

// Reads a line as the shell reads it in a file. False and a sentence when it would not run there.
bool readBack(const std::string &line, Arguments *arguments, std::string *error) {
    WordEnd end = WordEnd::plain;
    std::vector<ParsedCommand> parsed;
    const std::vector<std::string_view> words = sessionWords(line, &end);
    if (line.size() > SESSION_LINE_MAX || end == WordEnd::open || end == WordEnd::glued) {
        *error = textQuoted(line) + " is not a line";
        return false;
    }
    if (!parserRead(PLACE_TOP, words, &parsed, error))
        return false;
    *arguments = parsed.back().arguments;
    return parsed.size() == 1;
}

bool bindingsEqual(const Arguments &read, const Binding &binding) {
    return read.address == binding.address && read.mac == binding.mac && read.port == binding.port && read.vlan == binding.vlan;
}

// ---- options 18 and 37 -------------------------------------------------------------------------------------------------

std::string_view stringOf(const InformationOption &option) {
    return textField({reinterpret_cast<const char *>(option.value.data()), option.value.size()});
}

// What may follow the name of the id: the plain form first.
std::vector<std::string> formsOf(const InformationOption &option) {
    const std::span value = option.value;
    switch (option.type) {
    case DHCP6_INFO_IPV4: return {"ipv4-address " + textIpv4(value.first<4>())};
    case DHCP6_INFO_IPV6: return {"ipv6-address " + textIpv6(value.first<16>(), 128)};
    case DHCP6_INFO_STRING: {
        const std::string text(stringOf(option));
        return {"string \"" + text + '"', "escaped-string \"" + escapesWrite(text) + '"'};
    }
    case DHCP6_INFO_USER_DEFINED: {
        const std::string text(textField(option.idTemplate.text));
        return {"user-defined \"" + text + '"', "escaped-user-defined \"" + escapesWrite(text) + '"'};
    }
    default: return {};
    }
}

bool idsEqual(const InformationId &read, const InformationOption &option) {
    if (read.type != option.type)
        return false;
    Dhcp6InfoIdTemplate record = {};
    switch (option.type) {
    case DHCP6_INFO_STRING: {
        const std::string_view text = stringOf(option);
        return read.value.size() == text.size() + 1 && read.value.back() == 0 &&
               std::equal(text.begin(), text.end(), read.value.begin(),
                          [](char character, uint8_t byte) { return static_cast<uint8_t>(character) == byte; });
    }
    case DHCP6_INFO_USER_DEFINED:
        if (read.value.size() != sizeof record)
            return false;
        std::memcpy(&record, read.value.data(), sizeof record);
        return idTemplatesEqual(record, option.idTemplate);
    default: return std::equal(read.value.begin(), read.value.end(), option.value.begin());
    }
}

std::string whyNot(const InformationOption &option) {
    switch (option.type) {
    case DHCP6_INFO_STRING: return "its text is too long";
    case DHCP6_INFO_USER_DEFINED:
        return option.held
                   ? "its template does something else than its text " + textQuoted(textField(option.idTemplate.text)) + " says"
                   : "it is user-defined, and the daemon holds no template for it";
    default: return "its kind " + std::to_string(option.type) + " is not known";
    }
}

} // namespace

ExactLine exactBinding(const Binding &binding) {
    const std::string address = textIpv6(binding.address, 128);
    std::string line = "ipv6-source-guard bind ip " + address;
    line += binding.mac != MacAddress{} ? " mac " + textMac(binding.mac) : "";
    line += binding.port != 0 ? " interface ethernet " + textPort(binding.port) : "";
    line += binding.vlan != 0 ? " vlan " + std::to_string(binding.vlan) : "";
    Arguments read;
    std::string error = "it is not what its line says";
    if (readBack(line, &read, &error) && bindingsEqual(read, binding))
        return {.line = line, .reason = ""};
    return {.line = "",
            .reason = "the binding of " + address + " to " + bindingText(binding) + " has no line, because " + error +
                      "; \"undo ipv6-source-guard bind ip " + address + "\" takes it back"};
}

ExactLine exactInformation(const char *name, const InformationOption &option) {
    if (option.type == DHCP6_INFO_DEFAULT)
        return {};
    const bool missing = option.type == DHCP6_INFO_USER_DEFINED && !option.held;
    const std::string setting = std::string("dhcpv6-snooping information ") + name;
    for (const std::string &form : missing ? std::vector<std::string>() : formsOf(option)) {
        Arguments read;
        std::string ignored;
        std::string line = setting;
        line.append(1, ' ').append(form);
        if (readBack(line, &read, &ignored) && idsEqual(read.id, option))
            return {.line = std::move(line), .reason = ""};
    }
    return {.line = "",
            .reason = std::string("the ") + name + " has no line, because " + whyNot(option) + "; \"undo " + setting +
                      "\" takes it back"};
}
