// Settings of the source guard. The daemon answers little more than yes or no; why not is asked afterwards.

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "l2/dhcp6snooping/sourceguard/bindings.h"
#include "l2/dhcp6snooping/sourceguard/exemption.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "shell/actions.h"
#include "shell/bindings.h"
#include "shell/status.h"

namespace {

constexpr int32_t ERRNO_MAX = 4095; // of the kernel's own numbers

// A negative number of an error, as the kernel has them.
std::string kernelText(int32_t status) {
    return status < 0 && status >= -ERRNO_MAX ? std::strerror(-status) : "it answered " + std::to_string(status);
}

// Why the daemon did not guard a port, or open it.
Outcome explainGuard(Session *session, uint32_t port, int32_t status) {
    uint32_t mode = 0;
    std::vector<uint32_t> numbers;
    CallEnd end = callRun(&session->connection, DH6S_FUNC_PORT_MODE_GET,
                          {callArgument(&port, sizeof port), callArgument(&mode, sizeof mode)}, &session->error);
    end = end == CallEnd::done ? statusPortNumbers(&session->connection, &numbers, &session->error) : end;
    if (end == CallEnd::unavailable) {
        return Outcome::unreachable;
    }
    const std::string name = "port " + textPort(port);
    if (end == CallEnd::done && std::find(numbers.begin(), numbers.end(), port) == numbers.end()) {
        session->error = "this switch has no " + name + ": its ports are " + reportValueText(valuePorts(numbers));
    } else if (end == CallEnd::done && mode != 0) {
        session->error =
            name + " is trusted, and a trusted port has no source guard: say \"undo dhcpv6-snooping trust\" there first";
    } else {
        session->error = "the source guard of " + name + " could not be changed: " + kernelText(status);
    }
    return Outcome::refused;
}

std::string standsInTheWay(const std::string &what, const Binding &binding) {
    const std::string address = textIpv6(binding.address, 128);
    return what + " is bound already, " + address + " to " + bindingText(binding) + ": \"undo ipv6-source-guard bind ip " +
           address + "\" takes that back";
}

// Why the daemon did not add a binding.
Outcome explainBind(Session *session, const Binding &wanted) {
    Binding found = {};
    const CallEnd end = bindingFind(&session->connection, wanted.address, &found, &session->error);
    if (end == CallEnd::done) {
        return actionEnd(session, CallEnd::refused, standsInTheWay("the address", found));
    }
    std::vector<Binding> all;
    if (end == CallEnd::unavailable || bindingAll(&session->connection, &all, &session->error) == CallEnd::unavailable) {
        return Outcome::unreachable;
    }
    for (const Binding &binding : all) {
        if (wanted.mac != MacAddress{} && binding.mac == wanted.mac) {
            return actionEnd(session, CallEnd::refused, standsInTheWay("the MAC address", binding));
        }
    }
    return actionEnd(session, CallEnd::refused, "the daemon has no memory for another binding");
}

// Address, MAC and port are bound like this; the VLAN need not be the same, and the daemon does not change it.
Outcome endPresent(Session *session, const Binding &wanted) {
    Binding found = {};
    const CallEnd end = bindingFind(&session->connection, wanted.address, &found, &session->error);
    if (end == CallEnd::done && found.vlan == wanted.vlan) {
        session->output = textIpv6(wanted.address, 128) + " is bound like this already.\n";
        return Outcome::done;
    }
    return actionEnd(session, end == CallEnd::done ? CallEnd::refused : end, standsInTheWay("the address", found));
}

std::string exemptRefusal(bool exempt, const VlanList &failed) {
    const std::vector<uint32_t> vlans = vlansListed(failed);
    if (vlans.empty()) {
        return "the daemon refused the list of VLANs";
    }
    return exempt ? "the kernel refused to exempt VLAN " + textVlans(vlans) + "; the rest of the list is exempt"
                  : "the kernel refused to guard VLAN " + textVlans(vlans) + " again; the rest of the list is guarded";
}

} // namespace

Outcome actionGuard(Session *session, const Arguments &arguments) {
    uint32_t port = session->place.number;
    uint32_t mode = arguments.undo ? IP6_SOURCE_GUARD_OFF : IP6_SOURCE_GUARD_ON;
    int32_t status = 0;
    const CallEnd end = callAsk(&session->connection, DH6S_FUNC_SET_IP6_SOURCE_GUARD_PORT_MODE,
                                {callArgument(&port, sizeof port), callArgument(&mode, sizeof mode)}, &status, &session->error,
                                CALL_FILTERS_TIMEOUT_MS);
    if (end == CallEnd::done && status != 0) {
        return explainGuard(session, port, status);
    }
    return actionPortEnd(session, end, port, "");
}

Outcome actionBind(Session *session, const Arguments &arguments) {
    Binding binding = {.address = arguments.address, .mac = arguments.mac, .port = arguments.port, .vlan = arguments.vlan};
    int32_t result = 0;
    const CallEnd end = callAsk(
        &session->connection, DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_ADD,
        {callArgument(binding.address.data(), binding.address.size()), callArgument(binding.mac.data(), binding.mac.size()),
         callArgument(&binding.port, sizeof binding.port), callArgument(&binding.vlan, sizeof binding.vlan)},
        &result, &session->error, CALL_FILTERS_TIMEOUT_MS);
    if (end == CallEnd::done && result == IP6_BIND_PRESENT) {
        return endPresent(session, binding);
    }
    if (end == CallEnd::done && result != 0) {
        return explainBind(session, binding);
    }
    if (end == CallEnd::done && binding.port == 0 && binding.vlan != 0) {
        session->output = "The VLAN is kept, but it counts only together with a port: " + textIpv6(binding.address, 128) +
                          " may pass in every VLAN.\n";
    }
    return binding.port != 0 ? actionPortEnd(session, end, binding.port, "") : actionEnd(session, end, "");
}

Outcome actionUnbind(Session *session, const Arguments &arguments) {
    Ipv6Address address = arguments.address;
    const CallEnd end = callRun(&session->connection, DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_DELETE,
                                {callArgument(address.data(), address.size())}, &session->error, CALL_FILTERS_TIMEOUT_MS);
    return actionEnd(session, end, textIpv6(address, 128) + " is not bound: \"show ipv6-source-guard bindings\" lists what is");
}

// The call answers how many there were.
Outcome actionUnbindAll(Session *session, const Arguments &) {
    int32_t deleted = 0;
    const CallEnd end = callAsk(&session->connection, DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_DELETE_ALL, {}, &deleted,
                                &session->error, CALL_FILTERS_TIMEOUT_MS);
    return actionEnd(session, end, "");
}

Outcome actionExempt(Session *session, const Arguments &arguments) {
    int32_t operation = arguments.undo ? IP6_EXEMPTION_REMOVE - 1 : IP6_EXEMPTION_REMOVE;
    VlanList vlans = arguments.vlans;
    VlanList failed = {};
    int32_t result = 0;
    const CallEnd end = callAsk(&session->connection, DH6S_FUNC_IP6_SOURCE_GUARD_VLANLIST_CONFIG,
                                {callArgument(&operation, sizeof operation), callArgument(vlans.data(), vlans.size()),
                                 callArgument(failed.data(), failed.size())},
                                &result, &session->error, CALL_FILTERS_TIMEOUT_MS);
    return actionEnd(session, end == CallEnd::done && result != 0 ? CallEnd::refused : end,
                     exemptRefusal(arguments.undo, failed));
}
