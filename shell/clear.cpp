#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "shell/actions.h"

namespace {

Outcome clearClients(Session *session, uint32_t id, std::initializer_list<CallArgument> arguments, const std::string &which) {
    const CallEnd end = callRun(&session->connection, id, arguments, &session->error, CALL_FILTERS_TIMEOUT_MS);
    return actionEnd(session, end, "the daemon refused to clear " + which);
}

} // namespace

Outcome actionClearAll(Session *session, const Arguments &) {
    return clearClients(session, DH6S_FUNC_DELETE_ALL, {}, "all clients");
}

Outcome actionClearPort(Session *session, const Arguments &arguments) {
    uint32_t port = arguments.port;
    return clearClients(session, DH6S_FUNC_DELETE_BY_PORT, {callArgument(&port, sizeof port)},
                        "the clients of port " + textPort(port));
}

Outcome actionClearVlan(Session *session, const Arguments &arguments) {
    uint32_t vlan = arguments.vlan;
    return clearClients(session, DH6S_FUNC_DELETE_BY_VLAN, {callArgument(&vlan, sizeof vlan)},
                        "the clients of VLAN " + std::to_string(vlan));
}

Outcome actionClearMac(Session *session, const Arguments &arguments) {
    MacAddress mac = arguments.mac;
    return clearClients(session, DH6S_FUNC_DELETE_BY_MAC, {callArgument(mac.data(), mac.size())}, "client " + textMac(mac));
}

Outcome actionClearAddress(Session *session, const Arguments &arguments) {
    Ipv6Address address = arguments.address;
    return clearClients(session, DH6S_FUNC_DELETE_BY_IP, {callArgument(address.data(), address.size())},
                        "address " + textIpv6(address, 128));
}
