#include "shell/actions.h"
#include "shell/clients.h"

namespace {

constexpr std::initializer_list<Column> LEASE_COLUMNS = {
    {"kind", "KIND"}, {"address", "ADDRESS OR PREFIX"}, {"remaining_seconds", "REMAINING"}};

std::vector<Value> leaseCells(const ClientRecord &client, size_t index) {
    const Dhcp6LeaseLine &lease = client.leases[index];
    return {valueText(lease.prefix_len == 128 ? "address" : "prefix"), valueText(textIpv6(lease.address, lease.prefix_len)),
            valueDuration(client.remaining[index])};
}

} // namespace

Outcome actionShowClients(Session *session, const Arguments &) {
    std::vector<ClientRecord> clients;
    const CallEnd end = clientAll(&session->connection, &clients, &session->error);
    if (end != CallEnd::done) {
        return actionEnd(session, end, "");
    }
    Report report;
    reportTable(&report, "clients", "No client has been learned.",
                {{"mac", "MAC ADDRESS"}, {"vlan", "VLAN"}, {"port", "PORT"}});
    reportSubTable(&report, "leases", LEASE_COLUMNS);
    for (const ClientRecord &client : clients) {
        reportRow(&report, {valueText(textMac(client.mac)), valueNumber(client.vlan), valueText(textPort(client.port))});
        for (size_t i = 0; i < client.leaseCount; i++) {
            reportSubRow(&report, leaseCells(client, i));
        }
    }
    return actionShow(session, report);
}

Outcome actionShowClient(Session *session, const Arguments &arguments) {
    ClientRecord client = {};
    const CallEnd end = clientFind(&session->connection, arguments.mac, &client, &session->error);
    if (end != CallEnd::done) {
        return actionEnd(session, end, "no client " + textMac(arguments.mac) + " has been learned");
    }
    Report report;
    reportFact(&report, "mac", "MAC address", valueText(textMac(client.mac)));
    reportFact(&report, "vlan", "VLAN", valueNumber(client.vlan));
    reportFact(&report, "port", "Port", valueText(textPort(client.port)));
    reportTable(&report, "leases", "It has no lease.", LEASE_COLUMNS);
    for (size_t i = 0; i < client.leaseCount; i++) {
        reportRow(&report, leaseCells(client, i));
    }
    return actionShow(session, report);
}
