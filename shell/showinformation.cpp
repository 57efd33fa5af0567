#include <algorithm>

#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "shell/actions.h"
#include "shell/runningconfig.h"
#include "shell/values.h"

namespace {

// One option's part of the policy.
struct OptionPolicy {
    uint32_t number;
    const char *name;
    uint32_t enable;
    uint32_t type;
    std::span<const uint8_t, DHCP6_INFO_VALUE> value;
    const Dhcp6InfoIdTemplate *idTemplate; // null = none
};

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

Value contentOf(const OptionPolicy &option) {
    std::array<char, DHCP6_INFO_VALUE> text = {};
    std::ranges::copy(option.value, text.begin());
    switch (option.type) {
    case DHCP6_INFO_IPV4: return valueText(textIpv4(option.value.first<4>()));
    case DHCP6_INFO_IPV6: return valueText(textIpv6(option.value.first<16>(), 128));
    case DHCP6_INFO_STRING: return valueText(textField(text));
    case DHCP6_INFO_USER_DEFINED:
        return option.idTemplate != nullptr ? valueText(textField(option.idTemplate->text)) : valueNothing();
    default: return valueNothing();
    }
}

} // namespace

Outcome actionShowInformation(Session *session, const Arguments &) {
    Dhcp6InfoOptionPolicy policy = {};
    Dhcp6InfoIdTemplate interfaceId = {};
    Dhcp6InfoIdTemplate remoteId = {};
    std::vector<std::string> running;
    CallEnd end = callRun(&session->connection, DH6S_FUNC_INFO_GET,
                          {callArgument(&policy, sizeof policy), callArgument(&interfaceId, sizeof interfaceId),
                           callArgument(&remoteId, sizeof remoteId)},
                          &session->error);
    end = end == CallEnd::done ? runningConfigRead(&session->connection, &running, &session->error) : end;
    if (end != CallEnd::done) {
        return actionEnd(session, end, "the daemon refused to tell about options 18 and 37");
    }
    // The pointers are the daemon's own: here they only say whether it holds a template.
    const OptionPolicy options[] = {
        {18, "interface-id", policy.option18Enable, policy.interfaceIdType, policy.interfaceIdValue,
         policy.interfaceIdTemplate != nullptr ? &interfaceId : nullptr},
        {37, "remote-id", policy.option37Enable, policy.remoteIdType, policy.remoteIdValue,
         policy.remoteIdTemplate != nullptr ? &remoteId : nullptr},
    };
    Report report;
    reportFact(&report, "l2_relay", "Layer 2 relay agent", valueOnOff(runningConfigHas(running, CONFIG_L2_RELAY)));
    reportFact(&report, "strategy", "If a message has the option already", valueText(strategyText(policy.strategy)));
    reportTable(&report, "options", "There are no options.",
                {{"option", "OPTION"}, {"name", "NAME"}, {"enabled", "ADDED"}, {"kind", "KIND"}, {"content", "CONTENT"}});
    for (const OptionPolicy &option : options) {
        reportRow(&report, {valueNumber(option.number), valueText(option.name), valueOnOff(option.enable == 1),
                            valueText(kindText(option.type)), contentOf(option)});
    }
    return actionShow(session, report);
}
