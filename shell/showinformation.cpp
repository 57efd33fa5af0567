#include "shell/actions.h"
#include "shell/information.h"
#include "shell/runningconfig.h"
#include "shell/values.h"

namespace {

std::string strategyText(uint32_t strategy) {
    switch (strategy) {
    case DHCP6_INFO_DROP: return "drop";
    case DHCP6_INFO_KEEP: return "keep";
    case DHCP6_INFO_REPLACE: return "replace";
    default: return std::to_string(strategy);
    }
}

std::string kindText(uint32_t type) {
    switch (type) {
    case DHCP6_INFO_IPV4: return "ipv4-address";
    case DHCP6_INFO_IPV6: return "ipv6-address";
    case DHCP6_INFO_DEFAULT: return "default";
    case DHCP6_INFO_STRING: return "string";
    case DHCP6_INFO_USER_DEFINED: return "user-defined";
    default: return std::to_string(type);
    }
}

Value contentOf(const InformationOption &option) {
    const std::span value = option.value;
    switch (option.type) {
    case DHCP6_INFO_IPV4: return valueText(textIpv4(value.first<4>()));
    case DHCP6_INFO_IPV6: return valueText(textIpv6(value.first<16>(), 128));
    case DHCP6_INFO_STRING: return valueText(textField({reinterpret_cast<const char *>(value.data()), value.size()}));
    case DHCP6_INFO_USER_DEFINED: return option.held ? valueText(textField(option.idTemplate.text)) : valueNothing();
    default: return valueNothing();
    }
}

void addOption(Report *report, uint32_t number, const char *name, const InformationOption &option) {
    reportRow(report, {valueNumber(number), valueText(name), valueOnOff(option.enable == 1), valueText(kindText(option.type)),
                       contentOf(option)});
}

} // namespace

Outcome actionShowInformation(Session *session, const Arguments &) {
    InformationSettings settings = {};
    bool relay = false;
    CallEnd end = informationRead(&session->connection, &settings, &session->error);
    end = end == CallEnd::done ? runningConfigL2Relay(&session->connection, &relay, &session->error) : end;
    if (end != CallEnd::done) {
        return actionEnd(session, end, "the daemon refused to tell about options 18 and 37");
    }
    Report report;
    reportFact(&report, "l2_relay", "Layer 2 relay agent", valueOnOff(relay));
    reportFact(&report, "strategy", "If a message has the option already", valueText(strategyText(settings.strategy)));
    reportTable(&report, "options", "There are no options.",
                {{"option", "OPTION"}, {"name", "NAME"}, {"enabled", "ADDED"}, {"kind", "KIND"}, {"content", "CONTENT"}});
    addOption(&report, 18, "interface-id", settings.interfaceId);
    addOption(&report, 37, "remote-id", settings.remoteId);
    return actionShow(session, report);
}
