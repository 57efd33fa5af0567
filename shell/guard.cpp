#include "shell/guard.h"

#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "shell/status.h"

CallEnd guardPorts(Connection *connection, std::vector<GuardPort> *ports, std::string *error) {
    std::vector<LinuxGuardPortStatus> platform;
    CallEnd end = statusGuard(connection, &platform, error);
    for (size_t i = 0; i < platform.size() && end == CallEnd::done; i++) {
        uint32_t number = platform[i].port;
        uint32_t mode = IP6_SOURCE_GUARD_OFF;
        end = callRun(connection, DH6S_FUNC_GET_IP6_SOURCE_GUARD_PORT_MODE,
                      {callArgument(&number, sizeof number), callArgument(&mode, sizeof mode)}, error);
        ports->push_back({.number = platform[i].port,
                          .guarded = mode == IP6_SOURCE_GUARD_ON,
                          .installed = platform[i].installed != 0,
                          .blocked = platform[i].blocked,
                          .blockedLocal = platform[i].blockedLocal,
                          .blockedDiscovery = platform[i].blockedDiscovery});
    }
    return end;
}

CallEnd guardExemptVlans(Connection *connection, std::vector<uint32_t> *vlans, std::string *error) {
    VlanList list = {};
    const CallEnd end =
        callRun(connection, DH6S_FUNC_IP6_SOURCE_GUARD_VLANLIST_GET, {callArgument(list.data(), list.size())}, error);
    *vlans = vlansListed(list);
    return end;
}
