#include "shell/clients.h"

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "shell/status.h"

namespace {

// Far above the size of the client table; only a peer that makes clients up gets here.
constexpr size_t CLIENTS_MAX = 65536;

MacAddress macBefore(MacAddress mac) {
    for (size_t i = mac.size(); i-- > 0;) {
        if (mac[i]-- != 0) {
            break;
        }
    }
    return mac;
}

} // namespace

CallEnd clientNext(Connection *connection, MacAddress mac, ClientRecord *client, std::string *error) {
    *client = {};
    client->mac = mac;
    const CallEnd end =
        callRun(connection, DH6S_FUNC_GET_NEXTCLIENTS_EXT,
                {callArgument(client->mac.data(), client->mac.size()), callArgument(&client->vlan, sizeof client->vlan),
                 callArgument(&client->port, sizeof client->port), callArgument(&client->leaseCount, sizeof client->leaseCount),
                 callArgument(client->leases.data(), sizeof client->leases),
                 callArgument(client->remaining.data(), sizeof client->remaining)},
                error);
    // A walk that does not go forward would never end.
    if (end == CallEnd::done && (client->mac <= mac || client->leaseCount > client->leases.size())) {
        *error = "the daemon's answer is damaged: behind client " + textMac(mac) + " it names " + textMac(client->mac) +
                 " with " + std::to_string(client->leaseCount) + " leases";
        connectionClose(connection);
        return CallEnd::unavailable;
    }
    return end;
}

CallEnd clientAll(Connection *connection, std::vector<ClientRecord> *clients, std::string *error) {
    ClientRecord client = {};
    CallEnd end = CallEnd::done;
    while ((end = clientNext(connection, client.mac, &client, error)) == CallEnd::done) {
        if (clients->size() == CLIENTS_MAX) {
            *error = "the daemon's answer is damaged: it lists more than " + std::to_string(CLIENTS_MAX) + " clients";
            connectionClose(connection);
            return CallEnd::unavailable;
        }
        clients->push_back(client);
    }
    return end == CallEnd::refused ? CallEnd::done : end;
}

CallEnd clientFind(Connection *connection, MacAddress mac, ClientRecord *client, std::string *error) {
    const CallEnd end = clientNext(connection, macBefore(mac), client, error);
    return end == CallEnd::done && client->mac != mac ? CallEnd::refused : end;
}

CallEnd clientTotal(Connection *connection, uint64_t *total, std::string *error) {
    std::vector<uint32_t> ports;
    CallEnd end = statusPortNumbers(connection, &ports, error);
    *total = 0;
    for (size_t i = 0; i < ports.size() && end == CallEnd::done; i++) {
        Dhcp6SnoopingPortInfo info = {};
        end = callRun(connection, DH6S_FUNC_PORT_INFO_GET,
                      {callArgument(&ports[i], sizeof ports[i]), callArgument(&info, sizeof info)}, error);
        *total += info.clients;
    }
    return end;
}
