#include <algorithm>

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "shell/actions.h"
#include "shell/clients.h"
#include "shell/runningconfig.h"
#include "shell/status.h"

namespace {

// A port of the switch with what snooping knows of it.
struct PortLine {
    LinuxPortStatus platform;
    Dhcp6SnoopingPortInfo snooping;
};

CallEnd readPorts(Session *session, std::vector<PortLine> *lines) {
    std::vector<LinuxPortStatus> ports;
    CallEnd end = statusPorts(&session->connection, &ports, &session->error);
    for (size_t i = 0; i < ports.size() && end == CallEnd::done; i++) {
        PortLine line = {.platform = ports[i], .snooping = {}};
        uint32_t number = ports[i].number;
        end = callRun(&session->connection, DH6S_FUNC_PORT_INFO_GET,
                      {callArgument(&number, sizeof number), callArgument(&line.snooping, sizeof line.snooping)},
                      &session->error);
        lines->push_back(line);
    }
    return end;
}

uint64_t listedOn(const std::vector<ClientRecord> &clients, uint32_t ClientRecord::*place, uint32_t number) {
    return static_cast<uint64_t>(std::ranges::count(clients, number, place));
}

const char *linkText(const LinuxPortStatus &port) {
    if (port.ifindex == 0) {
        return "missing";
    }
    return port.link != 0 ? "up" : "down";
}

} // namespace

Outcome actionShowSnooping(Session *session, const Arguments &) {
    Dhcp6SnoopingGlobalInfo global = {};
    LinuxSwitchStatus platform = {};
    std::vector<PortLine> ports;
    bool relay = false;
    uint32_t debug = 0;
    CallEnd end =
        callRun(&session->connection, DH6S_FUNC_GLOBAL_INFO_GET, {callArgument(&global, sizeof global)}, &session->error);
    end = end == CallEnd::done ? statusSwitch(&session->connection, &platform, &session->error) : end;
    end = end == CallEnd::done ? readPorts(session, &ports) : end;
    end = end == CallEnd::done ? statusDebug(&session->connection, 2, &debug, &session->error) : end;
    end = end == CallEnd::done ? runningConfigL2Relay(&session->connection, &relay, &session->error) : end;
    if (end != CallEnd::done) {
        return actionEnd(session, end, "the daemon refused to tell its settings");
    }
    std::vector<uint32_t> trusted;
    uint64_t clients = 0;
    for (const PortLine &port : ports) {
        clients += port.snooping.clients;
        if (port.snooping.mode == 1) {
            trusted.push_back(port.platform.number);
        }
    }
    Report report;
    reportFact(&report, "snooping", "DHCPv6 snooping", valueOnOff(global.enabled != 0));
    reportFact(&report, "fast_remove", "Fast remove on link down", valueOnOff(global.fastRemove != 0));
    reportFact(&report, "l2_relay", "Layer 2 relay agent", valueOnOff(relay));
    reportFact(&report, "trusted_ports", "Trusted ports", valuePorts(trusted));
    reportFact(&report, "clients", "Clients", valueNumber(clients));
    reportFact(&report, "clients_max", "Room for clients", valueNumber(DHCP6SNOOPING_LIMIT_MAX));
    reportFact(&report, "debug", "Debug lines in the log", valueOnOff(debug != 0));
    reportFact(&report, "bridge", "Bridge", valueText(textField(platform.bridge)));
    reportFact(&report, "filter_rules", "Filter rules loaded", valueYesNo(platform.rules != 0));
    reportFact(&report, "uptime_seconds", "Running for", valueDuration(platform.upSeconds));
    return actionShow(session, report);
}

Outcome actionShowInterfaces(Session *session, const Arguments &) {
    std::vector<PortLine> ports;
    std::vector<ClientRecord> listed;
    CallEnd end = readPorts(session, &ports);
    if (std::ranges::any_of(ports, [](const PortLine &port) { return port.snooping.clients != 0; }) && end == CallEnd::done) {
        end = clientAll(&session->connection, &listed, &session->error);
    }
    if (end != CallEnd::done) {
        return actionEnd(session, end,
                         "the daemon refused to tell the settings of port " +
                             textPort(ports.empty() ? 0 : ports.back().platform.number));
    }
    Report report;
    reportTable(&report, "interfaces", "The switch has no ports.",
                {{"port", "PORT"},
                 {"interface", "INTERFACE"},
                 {"link", "LINK"},
                 {"trusted", "TRUSTED"},
                 {"max_clients", "MAX CLIENTS"},
                 {"clients", "CLIENTS"},
                 {"pending", "PENDING"},
                 {"room", "ROOM"}});
    for (const PortLine &port : ports) {
        const Dhcp6SnoopingPortInfo &info = port.snooping;
        const uint64_t pending = clientsLeft(info.clients, listedOn(listed, &ClientRecord::port, port.platform.number));
        reportRow(&report,
                  {valueText(textPort(port.platform.number)), valueText(textField(port.platform.interface)),
                   valueText(linkText(port.platform)), valueYesNo(info.mode == 1), valueNumber(info.maxClients),
                   valueNumber(info.clients), valueNumber(pending), valueNumber(clientsLeft(info.maxClients, info.clients))});
    }
    return actionShow(session, report);
}

Outcome actionShowVlans(Session *session, const Arguments &) {
    std::vector<LinuxVlanStatus> existing;
    std::vector<ClientRecord> listed;
    CallEnd end = statusVlans(&session->connection, &existing, &session->error);
    end = end == CallEnd::done ? clientAll(&session->connection, &listed, &session->error) : end;
    Report report;
    reportTable(&report, "vlans", "No VLAN exists, and none has a limit of its own.",
                {{"vlan", "VLAN"},
                 {"exists", "EXISTS"},
                 {"max_clients", "MAX CLIENTS"},
                 {"clients", "CLIENTS"},
                 {"pending", "PENDING"},
                 {"room", "ROOM"}});
    for (uint32_t vlan = VLAN_FIRST; vlan <= VLAN_LAST && end == CallEnd::done; vlan++) {
        uint32_t asked = vlan;
        uint32_t limit = 0;
        uint32_t clients = 0;
        end = callRun(
            &session->connection, DH6S_FUNC_VLAN_MAXCLIENTS_GET,
            {callArgument(&asked, sizeof asked), callArgument(&limit, sizeof limit), callArgument(&clients, sizeof clients)},
            &session->error);
        const bool exists = std::any_of(existing.begin(), existing.end(),
                                        [vlan](const LinuxVlanStatus &status) { return status.vlan == vlan; });
        // A VLAN that is no more may still have clients and a limit that waits for it.
        if (exists || limit != DHCP6SNOOPING_LIMIT_MAX || clients != 0) {
            const uint64_t pending = clientsLeft(clients, listedOn(listed, &ClientRecord::vlan, vlan));
            reportRow(&report, {valueNumber(vlan), valueYesNo(exists), valueNumber(limit), valueNumber(clients),
                                valueNumber(pending), valueNumber(clientsLeft(limit, clients))});
        }
    }
    if (end != CallEnd::done) {
        return actionEnd(session, end, "the daemon refused to tell the settings of a VLAN");
    }
    return actionShow(session, report);
}
