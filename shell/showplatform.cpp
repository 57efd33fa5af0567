#include <algorithm>
#include <array>
#include <iterator>

#include "l2/dhcp6snooping/sourceguard/filters.h"
#include "shell/actions.h"
#include "shell/status.h"

namespace {

constexpr uint32_t PORT_TYPE_XPON = 2;
constexpr uint32_t SNOOPING_ON = 1;

// Numbers that stand for "none" are shown as nothing.
Value numberUnless(uint32_t number, uint32_t none) { return number == none ? valueNothing() : valueNumber(number); }

Value portUnlessNone(uint32_t port) { return port == 0 ? valueNothing() : valueText(textPort(port)); }

Value portsOf(std::span<const uint8_t, 8> bits) {
    std::vector<uint32_t> ports;
    for (uint32_t port = 1; port <= 8 * bits.size(); port++) {
        if ((bits[(port - 1) / 8] & (0x80u >> ((port - 1) % 8))) != 0) {
            ports.push_back(port);
        }
    }
    return valuePorts(std::move(ports));
}

MacAddress macOf(std::span<const uint8_t, 6> bytes) {
    MacAddress mac = {};
    std::copy(bytes.begin(), bytes.end(), mac.begin());
    return mac;
}

std::string filterKindText(uint32_t kind) {
    switch (kind) {
    case IP6_FILTER_ADDRESS: return "address";
    case IP6_FILTER_MAC_ADDRESS: return "mac";
    case IP6_FILTER_PORT: return "port";
    case IP6_FILTER_PORT_VLAN: return "vlan";
    default: return std::to_string(kind);
    }
}

std::string startupText(uint32_t state) {
    constexpr std::array WORDS = {"replaying", "none", "complete", "by-hand", "last-good", "partly", "open", "closed"};
    return state < WORDS.size() ? WORDS[state] : std::to_string(state);
}

std::string policyText(uint32_t policy) {
    return policy < std::size(LINUX_STARTUP_POLICIES) ? std::string(LINUX_STARTUP_POLICIES[policy]) : std::to_string(policy);
}

void addStartup(Report *report, const LinuxStartupStatus &startup) {
    const std::string reason(textField(startup.reason));
    reportFact(report, "startup", "Startup file", valueText(startupText(startup.state)));
    if (!reason.empty())
        reportFact(report, "startup_reason", "Startup failure", valueText(reason));
    reportFact(report, "on_startup_failure", "On startup failure", valueText(policyText(startup.policy)));
    if (startup.state == LINUX_STARTUP_CLOSED)
        reportFact(report, "startup_dropped", "Dropped since", valueNumber(startup.dropped));
}

} // namespace

Outcome actionShowPlatform(Session *session, const Arguments &) {
    LinuxSwitchStatus status = {};
    std::vector<LinuxUnlistedStatus> strangers;
    LinuxStartupStatus startup = {};
    CallEnd end = statusSwitch(&session->connection, &status, &session->error);
    end = end == CallEnd::done ? statusUnlisted(&session->connection, &strangers, &session->error) : end;
    end = end == CallEnd::done ? statusStartup(&session->connection, &startup, &session->error) : end;
    if (end != CallEnd::done) {
        return actionEnd(session, end, "the daemon refused to tell about the switch");
    }
    std::vector<std::string> unlisted;
    for (const LinuxUnlistedStatus &stranger : strangers) {
        unlisted.emplace_back(textField(stranger.interface));
    }
    Report report;
    reportFact(&report, "version", "snoopd6", valueText(textField(status.version)));
    reportFact(&report, "pid", "Process", valueNumber(status.pid));
    reportFact(&report, "uptime_seconds", "Running for", valueDuration(status.upSeconds));
    reportFact(&report, "bridge", "Bridge", valueText(textField(status.bridge)));
    reportFact(&report, "mac", "MAC address", valueText(textMac(macOf(status.mac))));
    reportFact(&report, "ports", "Highest port", valueText(textPort(status.ports)));
    reportFact(&report, "vlan_filtering", "VLAN filtering", valueOnOff(status.vlanFiltering != 0));
    reportFact(&report, "snooping", "DHCPv6 snooping", valueOnOff(status.snooping == SNOOPING_ON));
    reportFact(&report, "dhcpv6_forwarded_by", "DHCPv6 is forwarded by",
               valueText(status.trap != 0 ? "snoopd6" : "the kernel"));
    reportFact(&report, "filter_rules", "Filter rules loaded", valueYesNo(status.rules != 0));
    reportFact(&report, "unlisted_interfaces", "Not in the switch file", valueTexts(std::move(unlisted)));
    addStartup(&report, startup);
    return actionShow(session, report);
}

Outcome actionShowPlatformPorts(Session *session, const Arguments &) {
    std::vector<LinuxPortStatus> ports;
    const CallEnd end = statusPorts(&session->connection, &ports, &session->error);
    if (end != CallEnd::done) {
        return actionEnd(session, end, "the daemon refused to tell about its ports");
    }
    Report report;
    reportTable(&report, "ports", "The switch has no ports.",
                {{"port", "PORT"},
                 {"interface", "INTERFACE"},
                 {"type", "TYPE"},
                 {"ifindex", "IFINDEX"},
                 {"link", "LINK"},
                 {"forwarding", "FORWARDING"},
                 {"native_vlan", "NATIVE VLAN"},
                 {"trunk", "TRUNK"}});
    for (const LinuxPortStatus &port : ports) {
        reportRow(&report, {valueText(textPort(port.number)), valueText(textField(port.interface)),
                            valueText(port.type == PORT_TYPE_XPON ? "xpon" : "ethernet"), numberUnless(port.ifindex, 0),
                            valueText(port.link != 0 ? "up" : "down"), valueYesNo(port.forwarding != 0),
                            numberUnless(port.nativeVlan, 0), numberUnless(port.trunk, LINUX_NO_TRUNK)});
    }
    return actionShow(session, report);
}

Outcome actionShowPlatformVlans(Session *session, const Arguments &) {
    std::vector<LinuxVlanStatus> vlans;
    const CallEnd end = statusVlans(&session->connection, &vlans, &session->error);
    if (end != CallEnd::done) {
        return actionEnd(session, end, "the daemon refused to tell about its VLANs");
    }
    Report report;
    reportTable(&report, "vlans", "The bridge has no VLANs.",
                {{"vlan", "VLAN"}, {"members", "MEMBERS"}, {"untagged", "UNTAGGED"}});
    for (const LinuxVlanStatus &vlan : vlans) {
        reportRow(&report, {valueNumber(vlan.vlan), portsOf(vlan.members), portsOf(vlan.untagged)});
    }
    return actionShow(session, report);
}

Outcome actionShowPlatformMacs(Session *session, const Arguments &) {
    std::vector<LinuxMacStatus> macs;
    const CallEnd end = statusMacs(&session->connection, &macs, &session->error);
    if (end != CallEnd::done) {
        return actionEnd(session, end, "the daemon refused to tell its MAC addresses");
    }
    Report report;
    reportTable(&report, "macs", "The bridge has learned no MAC address.",
                {{"vlan", "VLAN"}, {"mac", "MAC ADDRESS"}, {"port", "PORT"}, {"trunk", "TRUNK"}, {"own", "OWN"}});
    for (const LinuxMacStatus &mac : macs) {
        reportRow(&report, {numberUnless(mac.vlan, 0), valueText(textMac(macOf(mac.mac))), portUnlessNone(mac.port),
                            numberUnless(mac.trunk, LINUX_NO_TRUNK), valueYesNo(mac.local != 0)});
    }
    return actionShow(session, report);
}

Outcome actionShowPlatformCounters(Session *session, const Arguments &) {
    std::vector<LinuxPortCounters> ports;
    const CallEnd end = statusCounters(&session->connection, &ports, &session->error);
    if (end != CallEnd::done) {
        return actionEnd(session, end, "the daemon refused to tell its counters");
    }
    Report report;
    reportTable(&report, "counters", "The switch has no ports.",
                {{"port", "PORT"},
                 {"received", "RECEIVED"},
                 {"delivered", "DELIVERED"},
                 {"sent", "SENT"},
                 {"send_failed", "NOT SENT"},
                 {"not_dhcpv6", "NOT DHCPV6"},
                 {"drop_malformed", "MALFORMED"},
                 {"drop_fragment", "FRAGMENT"},
                 {"drop_vlan", "WRONG VLAN"},
                 {"drop_state", "BLOCKED"},
                 {"drop_sender", "NO SENDER"},
                 {"drop_source", "UNBOUND"},
                 {"drop_oversize", "TOO LONG"},
                 {"kernel_dropped", "LOST"}});
    for (const LinuxPortCounters &port : ports) {
        reportRow(&report, {valueText(textPort(port.number)), valueNumber(port.received), valueNumber(port.delivered),
                            valueNumber(port.sent), valueNumber(port.sendFailed), valueNumber(port.notDhcpv6),
                            valueNumber(port.dropMalformed), valueNumber(port.dropFragment), valueNumber(port.dropVlan),
                            valueNumber(port.dropState), valueNumber(port.dropSender), valueNumber(port.dropSource),
                            valueNumber(port.dropOversize), valueNumber(port.kernelDropped)});
    }
    return actionShow(session, report);
}

Outcome actionShowPlatformFilters(Session *session, const Arguments &) {
    std::vector<LinuxFilterStatus> filters;
    const CallEnd end = statusFilters(&session->connection, &filters, &session->error);
    if (end != CallEnd::done) {
        return actionEnd(session, end, "the daemon refused to tell its filters");
    }
    Report report;
    reportTable(&report, "filters", "No source has a filter.",
                {{"kind", "KIND"},
                 {"port", "PORT"},
                 {"vlan", "VLAN"},
                 {"mac", "MAC ADDRESS"},
                 {"address", "ADDRESS"},
                 {"installed", "INSTALLED"}});
    for (const LinuxFilterStatus &filter : filters) {
        const MacAddress mac = macOf(filter.mac);
        reportRow(&report,
                  {valueText(filterKindText(filter.kind)), filter.port != 0 ? valueText(textPort(filter.port)) : valueAny(),
                   filter.vlan != 0 ? valueNumber(filter.vlan) : valueAny(),
                   mac != MacAddress{} ? valueText(textMac(mac)) : valueAny(), valueText(textIpv6(filter.address, 128)),
                   valueYesNo(filter.installed != 0)});
    }
    return actionShow(session, report);
}
