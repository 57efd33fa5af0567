#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "shell/actions.h"
#include "shell/status.h"

namespace {

// Gives one number to a remote call that takes nothing else.
CallEnd setNumber(Session *session, uint32_t id, uint32_t number) {
    return callRun(&session->connection, id, {callArgument(&number, sizeof number)}, &session->error);
}

std::string limitRefusal(uint32_t limit, const std::string &place) {
    return "the daemon refused " + std::to_string(limit) + " as the most clients of " + place + ": allowed are 0 to " +
           std::to_string(DHCP6SNOOPING_LIMIT_MAX);
}

} // namespace

Outcome actionSnooping(Session *session, const Arguments &arguments) {
    const CallEnd end = callRun(&session->connection, arguments.undo ? DH6S_FUNC_STOP : DH6S_FUNC_START, {}, &session->error);
    return actionEnd(session, end,
                     std::string("the daemon could not turn DHCPv6 snooping ") + (arguments.undo ? "off" : "on") +
                         ": its log says why");
}

Outcome actionFastRemove(Session *session, const Arguments &arguments) {
    return actionEnd(session, setNumber(session, DH6S_FUNC_FASTREMOVE_ENABLE, arguments.undo ? 0 : 1),
                     "the daemon refused to change what happens when a link goes down");
}

Outcome actionL2Relay(Session *session, const Arguments &arguments) {
    return actionEnd(session, setNumber(session, DH6S_FUNC_L2RELAY_ENABLE, arguments.undo ? 0 : 1),
                     "the daemon refused to change l2-relay");
}

Outcome actionTrust(Session *session, const Arguments &arguments) {
    uint32_t port = session->place.number;
    int32_t mode = arguments.undo ? 0 : 1;
    const CallEnd end = callRun(&session->connection, DH6S_FUNC_PORT_MODE_SET,
                                {callArgument(&port, sizeof port), callArgument(&mode, sizeof mode)}, &session->error);
    return actionPortEnd(session, end, port,
                         "the daemon refused " + textPort(port) + " as " + (arguments.undo ? "an untrusted" : "a trusted") +
                             " port: allowed are 0/1 to " + textPort(DHCP6SNOOPING_PORTS) +
                             ", and only a port without IPv6 source guard can be trusted");
}

Outcome actionPortLimit(Session *session, const Arguments &arguments) {
    uint32_t port = session->place.number;
    uint32_t limit = arguments.undo ? DHCP6SNOOPING_LIMIT_MAX : arguments.limit;
    const CallEnd end = callRun(&session->connection, DH6S_FUNC_PORT_MAX_CLIENTS_SET,
                                {callArgument(&port, sizeof port), callArgument(&limit, sizeof limit)}, &session->error);
    return actionPortEnd(session, end, port, limitRefusal(limit, "port " + textPort(port)));
}

// Undo sets the default limit rather than resetting the VLAN: a reset would also forget how many clients it has.
Outcome actionVlanLimit(Session *session, const Arguments &arguments) {
    const uint32_t vlan = session->place.number;
    uint32_t limit = arguments.undo ? DHCP6SNOOPING_LIMIT_MAX : arguments.limit;
    VlanList vlans = {};
    vlan_list_add(vlans.data(), vlan);
    const CallEnd end =
        callRun(&session->connection, DH6S_FUNC_VLANLIST_MAX_CLIENTS_SET,
                {callArgument(&limit, sizeof limit), callArgument(vlans.data(), vlans.size())}, &session->error);
    return actionEnd(session, end, limitRefusal(limit, "VLAN " + std::to_string(vlan)));
}

Outcome actionDebug(Session *session, const Arguments &arguments) {
    const uint32_t wanted = arguments.undo ? 0 : 1;
    uint32_t inForce = 0;
    const CallEnd end = statusDebug(&session->connection, wanted, &inForce, &session->error);
    const std::string refusal = std::string("the daemon refused to turn its debug lines ") + (arguments.undo ? "off" : "on");
    return actionEnd(session, end == CallEnd::done && inForce != wanted ? CallEnd::refused : end, refusal);
}
