// Takes the whole configuration back, by the same lines and calls that take single settings back.

#include <array>

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "shell/actions.h"
#include "shell/status.h"

namespace {

// Ports first: while one is guarded, taking bindings away would cut off who is bound. Trust in front of the guard: of a trusted
// port's guard the daemon does not want to hear, not even that it is off.
constexpr std::array PORT_LINES = {"undo dhcpv6-snooping trust", "undo ipv6-source-guard", "undo dhcpv6-snooping max-clients"};
constexpr std::array LINES = {
    "undo ipv6-source-guard bind all",
    "ipv6-source-guard vlan 1-4094",
    "undo dhcpv6-snooping",
    "dhcpv6-snooping port-down-action fast-remove",
    "undo dhcpv6-snooping l2-relay",
    "undo dhcpv6-snooping information option 18",
    "undo dhcpv6-snooping information option 37",
    "undo dhcpv6-snooping information interface-id",
    "undo dhcpv6-snooping information remote-id",
};

constexpr const char *QUESTION =
    "Every setting goes back to its default, and all configured bindings are forgotten. Go on? [y/N] ";

Outcome runLine(Session *session, const std::string &line) {
    const bool batch = session->batch;
    session->batch = true; // all lines are run, also where the kernel has lost the rules
    const Outcome outcome = sessionRun(session, line);
    session->batch = batch;
    session->output.clear();
    if (outcome != Outcome::done) {
        session->error = "stopped at \"" + line + "\": " + session->error;
    }
    return outcome;
}

// All at once, whether a VLAN exists or not.
Outcome resetVlanLimits(Session *session) {
    uint32_t limit = DHCP6SNOOPING_LIMIT_MAX;
    VlanList vlans = {};
    for (uint32_t vlan = VLAN_FIRST; vlan <= VLAN_LAST; vlan++) {
        vlan_list_add(vlans.data(), vlan);
    }
    const CallEnd end =
        callRun(&session->connection, DH6S_FUNC_VLANLIST_MAX_CLIENTS_SET,
                {callArgument(&limit, sizeof limit), callArgument(vlans.data(), vlans.size())}, &session->error);
    return actionEnd(session, end, "the daemon refused to take the limits of the VLANs back");
}

} // namespace

Outcome actionUndoAll(Session *session, const Arguments &) {
    if (session->confirm != nullptr && !session->confirm(QUESTION)) {
        session->output = "Nothing was changed.\n";
        return Outcome::done;
    }
    std::vector<uint32_t> ports;
    const CallEnd end = statusPortNumbers(&session->connection, &ports, &session->error);
    Outcome outcome = actionEnd(session, end, "the daemon refused to tell its ports");
    for (const uint32_t port : ports) {
        for (size_t i = 0; i < PORT_LINES.size() && outcome == Outcome::done; i++) {
            outcome = runLine(session, "interface ethernet " + textPort(port) + " " + PORT_LINES[i]);
        }
    }
    for (size_t i = 0; i < LINES.size() && outcome == Outcome::done; i++) {
        outcome = runLine(session, LINES[i]);
    }
    return outcome == Outcome::done ? resetVlanLimits(session) : outcome;
}
