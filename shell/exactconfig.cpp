#include "shell/exactconfig.h"

#include <algorithm>

#include "shell/exactlines.h"
#include "shell/guard.h"
#include "shell/runningconfig.h"

namespace {

constexpr std::string_view LINE_END = "\r\n"; // of the daemon
constexpr std::string_view EXEMPTION = "undo ipv6-source-guard vlan ";

// ---- what the daemon prints --------------------------------------------------------------------------------------------

std::string printedId(const char *name, const InformationOption &option) {
    const std::span value = option.value;
    const std::string setting = std::string("dhcpv6-snooping information ") + name;
    const auto quoted = [](std::span<const char> field) { return '"' + std::string(textField(field)) + '"'; };
    switch (option.type) {
    case DHCP6_INFO_IPV4: return setting + " ipv4-address " + textIpv4(value.first<4>()) + std::string(LINE_END);
    case DHCP6_INFO_IPV6: return setting + " ipv6-address " + textIpv6(value.first<16>(), 128) + std::string(LINE_END);
    case DHCP6_INFO_STRING:
        return setting + " string " + quoted({reinterpret_cast<const char *>(value.data()), value.size()}) +
               std::string(LINE_END);
    case DHCP6_INFO_USER_DEFINED:
        return option.held ? setting + " user-defined " + quoted(option.idTemplate.text) + std::string(LINE_END) : "";
    default: return "";
    }
}

std::string printedOption(const char *number, const InformationOption &option) {
    return option.enable != 0 ? std::string("dhcpv6-snooping information option ") + number + std::string(LINE_END) : "";
}

// A port that the switch does not have has no name.
std::string printedBinding(const Binding &binding, const std::string &port) {
    std::string line = "ipv6-source-guard bind ip " + textIpv6(binding.address, 128);
    if (binding.mac != MacAddress{}) {
        line += " mac " + textMac(binding.mac);
        line += binding.port != 0 ? " interface ethernet " + port : "";
        line += binding.port != 0 && binding.vlan != 0 ? " vlan " + std::to_string(binding.vlan) : "";
    }
    return line + std::string(LINE_END);
}

// ---- what is made of it ------------------------------------------------------------------------------------------------

// The text from where it has not been accounted for.
using Rest = std::string_view;

// Whether the text goes on with this, which is then accounted for.
bool take(Rest *rest, std::string_view printed) {
    const bool found = rest->starts_with(printed);
    rest->remove_prefix(found ? printed.size() : 0);
    return found;
}

void add(std::vector<std::string> *lines, std::vector<std::string> *missing, ExactLine exact) {
    if (!exact.reason.empty()) {
        lines->push_back("! " + exact.reason);
        missing->push_back(std::move(exact.reason));
    } else if (!exact.line.empty()) {
        lines->push_back(std::move(exact.line));
    }
}

bool takeOption(Rest *rest, const char *number, const char *name, const InformationOption &option, ExactConfig *config) {
    if (!take(rest, printedOption(number, option) + printedId(name, option)))
        return false;
    // Numbers beside 0 and 1 are printed as on, and mean off.
    if (option.enable == 1)
        config->settings.push_back(std::string("dhcpv6-snooping information option ") + number);
    add(&config->settings, &config->missing, exactInformation(name, option));
    return true;
}

// The lists may part anywhere; together they must be the VLANs that are exempt.
bool takeExemptions(Rest *rest, const std::vector<uint32_t> &exempt, ExactConfig *config) {
    std::vector<uint32_t> printed;
    while (rest->starts_with(EXEMPTION)) {
        const std::string_view line = rest->substr(0, rest->find(LINE_END));
        VlanList list = {};
        std::string ignored;
        if (!take(rest, line) || !take(rest, LINE_END) || !valueReadVlans(line.substr(EXEMPTION.size()), &list, &ignored))
            return false;
        std::ranges::copy(vlansListed(list), std::back_inserter(printed));
        config->settings.emplace_back(line);
    }
    return printed == exempt;
}

bool takeBindings(Rest *rest, const std::vector<Binding> &bindings, ExactConfig *config) {
    for (const Binding &binding : bindings) {
        if (!take(rest, printedBinding(binding, textPort(binding.port))) && !take(rest, printedBinding(binding, "")))
            return false;
        add(&config->bindings, &config->missing, exactBinding(binding));
    }
    return true;
}

// ---- reading -----------------------------------------------------------------------------------------------------------

CallEnd readValues(Connection *connection, ConfigValues *values, std::string *error) {
    *values = {};
    CallEnd end = informationRead(connection, &values->information, error);
    end = end == CallEnd::done ? guardExemptVlans(connection, &values->exempt, error) : end;
    end = end == CallEnd::done ? bindingAll(connection, &values->bindings, error) : end;
    if (end == CallEnd::refused) {
        *error = "the daemon refused to tell its settings";
        return CallEnd::unavailable;
    }
    return end;
}

// Why text and values never agreed.
std::string disagreement(bool changed, size_t bindings) {
    if (bindings >= BINDINGS_LISTED_MAX)
        return "the daemon has more bindings than it can list, which are about " + std::to_string(BINDINGS_LISTED_MAX) +
               ": take some back";
    return changed ? runningConfigUnsteady()
                   : "the daemon's running configuration does not agree with its settings: install snoopd6 and snoopctl from "
                     "the same release";
}

} // namespace

bool exactConfigMake(std::string_view text, const ConfigValues &values, ExactConfig *config) {
    const InformationSettings &information = values.information;
    const std::string_view head = runningConfigHead(text);
    Rest rest = text.substr(head.size());
    *config = {.settings = runningConfigLines(head), .bindings = {}, .missing = {}};
    return takeOption(&rest, "18", "interface-id", information.interfaceId, config) &&
           takeOption(&rest, "37", "remote-id", information.remoteId, config) && takeExemptions(&rest, values.exempt, config) &&
           takeBindings(&rest, values.bindings, config) && rest.empty();
}

CallEnd exactConfigRead(Connection *connection, ExactConfig *config, std::string *error) {
    std::string former;
    ConfigValues values = {};
    bool changed = false;
    for (uint32_t attempt = 0; attempt < CONFIG_ATTEMPTS && values.bindings.size() < BINDINGS_LISTED_MAX; ++attempt) {
        std::string text;
        CallEnd end = runningConfigRead(connection, &text, error);
        end = end == CallEnd::done ? readValues(connection, &values, error) : end;
        if (end != CallEnd::done || exactConfigMake(text, values, config))
            return end;
        changed = changed || (attempt > 0 && text != former);
        former = std::move(text);
    }
    *config = {};
    *error = disagreement(changed, values.bindings.size());
    return CallEnd::unavailable;
}

std::vector<std::string> exactConfigShown(const ExactConfig &config) {
    std::vector<std::string> lines = config.settings;
    lines.insert(lines.end(), config.bindings.begin(), config.bindings.end());
    return lines;
}

std::vector<std::string> exactConfigForReplay(const ExactConfig &config) {
    std::vector<std::string> lines = config.settings;
    lines.insert(lines.end(), config.bindings.rbegin(), config.bindings.rend());
    return lines;
}
