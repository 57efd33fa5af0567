#include "shell/actions.h"
#include "shell/clients.h"

namespace {

// Far above the size of the client table; only a peer that makes clients up gets here.
constexpr size_t CLIENTS_MAX = 65536;

constexpr std::initializer_list<Column> LEASE_COLUMNS = {
    {"kind", "KIND"}, {"address", "ADDRESS OR PREFIX"}, {"remaining_seconds", "REMAINING"}};

std::vector<Value> leaseCells(const ClientRecord &client, size_t index) {
    const Dhcp6LeaseLine &lease = client.leases[index];
    return {valueText(lease.prefix_len == 128 ? "address" : "prefix"), valueText(textIpv6(lease.address, lease.prefix_len)),
            valueDuration(client.remaining[index])};
}

} // namespace

Outcome actionShowClients(Session *session, const Arguments &) {
    Report report;
    reportTable(&report, "clients", "No client has been learned.",
                {{"mac", "MAC ADDRESS"}, {"vlan", "VLAN"}, {"port", "PORT"}});
    reportSubTable(&report, "leases", LEASE_COLUMNS);
    ClientRecord client = {};
    for (;;) {
        const CallEnd end = clientNext(&session->connection, client.mac, &client, &session->error);
        if (end == CallEnd::refused) {
            return actionShow(session, report);
        }
        if (end != CallEnd::done) {
            return actionEnd(session, end, "");
        }
        if (report.table.rows.size() == CLIENTS_MAX) {
            session->error = "the daemon's answer is damaged: it lists more than " + std::to_string(CLIENTS_MAX) + " clients";
            return Outcome::unreachable;
        }
        reportRow(&report, {valueText(textMac(client.mac)), valueNumber(client.vlan), valueText(textPort(client.port))});
        for (size_t i = 0; i < client.leaseCount; i++) {
            reportSubRow(&report, leaseCells(client, i));
        }
    }
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
