#include "l2/dhcp6snooping/clients/limits.h"
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
    uint64_t total = 0;
    CallEnd end = clientAll(&session->connection, &clients, &session->error);
    end = end == CallEnd::done ? clientTotal(&session->connection, &total, &session->error) : end;
    if (end != CallEnd::done) {
        return actionEnd(session, end, "the daemon refused to tell its clients");
    }
    Report report;
    reportFact(&report, "acknowledged", "Acknowledged by a server", valueNumber(clients.size()));
    reportFact(&report, "pending", "Pending, without a REPLY", valueNumber(clientsLeft(total, clients.size())));
    reportFact(&report, "room", "Room for more", valueNumber(clientsLeft(DHCP6SNOOPING_LIMIT_MAX, total)));
    reportTable(&report, "clients", "No server has acknowledged a client.",
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
