#include <algorithm>

#include "shell/actions.h"
#include "shell/bindings.h"
#include "shell/guard.h"
#include "shell/status.h"

namespace {

constexpr const char *REFUSED = "the daemon refused to tell about the source guard";

} // namespace

Outcome actionShowGuard(Session *session, const Arguments &) {
    std::vector<GuardPort> ports;
    std::vector<uint32_t> exempt;
    uint32_t bindings = 0;
    CallEnd end = guardPorts(&session->connection, &ports, &session->error);
    end = end == CallEnd::done ? bindingCount(&session->connection, &bindings, &session->error) : end;
    end = end == CallEnd::done ? guardExemptVlans(&session->connection, &exempt, &session->error) : end;
    if (end != CallEnd::done) {
        return actionEnd(session, end, REFUSED);
    }
    std::vector<uint32_t> guarded;
    for (const GuardPort &port : ports) {
        if (port.guarded) {
            guarded.push_back(port.number);
        }
    }
    Report report;
    reportFact(&report, "guarded_ports", "Guarded ports", valuePorts(guarded));
    reportFact(&report, "bindings", "Configured bindings", valueNumber(bindings));
    reportFact(&report, "exempt_vlans", "Exempt VLANs", valueVlans(exempt));
    return actionShow(session, report);
}

Outcome actionShowGuardInterfaces(Session *session, const Arguments &) {
    std::vector<GuardPort> ports;
    const CallEnd end = guardPorts(&session->connection, &ports, &session->error);
    if (end != CallEnd::done) {
        return actionEnd(session, end, REFUSED);
    }
    Report report;
    reportTable(&report, "interfaces", "The switch has no ports.",
                {{"port", "PORT"},
                 {"guarded", "GUARDED"},
                 {"installed", "INSTALLED"},
                 {"blocked", "BLOCKED"},
                 {"blocked_link_local", "BLOCKED LINK-LOCAL"},
                 {"blocked_discovery", "BLOCKED DISCOVERY"}});
    for (const GuardPort &port : ports) {
        reportRow(&report, {valueText(textPort(port.number)), valueYesNo(port.guarded), valueYesNo(port.installed),
                            valueNumber(port.blocked), valueNumber(port.blockedLocal), valueNumber(port.blockedDiscovery)});
    }
    return actionShow(session, report);
}

Outcome actionShowGuardVlans(Session *session, const Arguments &) {
    std::vector<uint32_t> exempt;
    std::vector<LinuxVlanStatus> existing;
    CallEnd end = guardExemptVlans(&session->connection, &exempt, &session->error);
    end = end == CallEnd::done ? statusVlans(&session->connection, &existing, &session->error) : end;
    if (end != CallEnd::done) {
        return actionEnd(session, end, REFUSED);
    }
    Report report;
    reportTable(&report, "vlans", "No VLAN is exempt.", {{"vlan", "EXEMPT VLAN"}, {"exists", "EXISTS"}});
    for (const uint32_t vlan : exempt) {
        const bool exists = std::any_of(existing.begin(), existing.end(),
                                        [vlan](const LinuxVlanStatus &status) { return status.vlan == vlan; });
        reportRow(&report, {valueNumber(vlan), valueYesNo(exists)});
    }
    return actionShow(session, report);
}
