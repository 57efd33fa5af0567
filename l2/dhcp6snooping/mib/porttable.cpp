#include <algorithm>

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/mib/handlers.h"
#include "l2/dhcp6snooping/mib/request.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "platform/libcommon.h"
#include "platform/libsmd.h"

namespace {

uint32_t last_port() { return std::min(gul_max_port_num, DHCP6SNOOPING_PORTS); }

int32_t get_port(CcdVariable *variable) {
    const uint32_t port = mib_index(variable);
    switch (variable->object) {
    case MIB_PORT_INDEX: ulongSet(variable, port); return 0;
    case MIB_PORT_TRUST_MODE: ulongSet(variable, dhcp6SnoopingTrustPort[port - 1] == 1 ? MIB_ON : MIB_OFF); return 0;
    case MIB_PORT_MAX_NUM: ulongSet(variable, dhcp6SnoopingPortMaxIP[port - 1]); return 0;
    case MIB_PORT_SOURCE_GUARD_MODE:
        ulongSet(variable, Ip6SourceGuardPort[port - 1] == IP6_SOURCE_GUARD_ON ? MIB_ON : MIB_OFF);
        return 0;
    default: return ccdErrorNoSuchInstance();
    }
}

// A wrong value counts for more than a wrong port.
int32_t test_port(const CcdVariable *variable) {
    const uint32_t value = ulongGet(variable);
    switch (variable->object) {
    case MIB_PORT_INDEX: break;
    case MIB_PORT_TRUST_MODE:
    case MIB_PORT_SOURCE_GUARD_MODE:
        if (value != MIB_ON && value != MIB_OFF)
            return ccdErrorWrongValue();
        break;
    case MIB_PORT_MAX_NUM:
        if (value > DHCP6SNOOPING_LIMIT_MAX)
            return ccdErrorWrongValue();
        break;
    default: return ccdErrorNoSuchInstance();
    }
    return mib_index_within(variable, last_port()) ? 0 : ccdErrorNoSuchInstance();
}

int32_t commit_port(const CcdVariable *variable) {
    const uint32_t port = mib_index(variable);
    const uint32_t value = ulongGet(variable);
    switch (variable->object) {
    case MIB_PORT_INDEX: return 0;
    case MIB_PORT_TRUST_MODE: return static_cast<int32_t>(dhcp6snooping_port_mode(port, value == MIB_ON ? 1 : 0));
    case MIB_PORT_MAX_NUM: return static_cast<int32_t>(dhcp6snooping_port_maxclients(port, value));
    case MIB_PORT_SOURCE_GUARD_MODE:
        return set_ip6_source_guard_port_mode(port, value == MIB_ON ? IP6_SOURCE_GUARD_ON : IP6_SOURCE_GUARD_OFF);
    default: return ccdErrorNoSuchInstance();
    }
}

} // namespace

int32_t dhcp6snoopingMibPortTableHandler(uint32_t kind, CcdVariable *variable) {
    if (variable == nullptr)
        return ccdErrorNoSuchInstance();
    if (!mib_has_work(kind))
        return 0;
    if (kind == CCD_TEST)
        return test_port(variable);
    if (kind == CCD_GETNEXT) {
        // Asked before moving on, because an index at the end of its range would wrap, and once more behind the move: where
        // that leads is the library's business.
        if (mib_index(variable) >= last_port() || ccdNextSimpleIndex(variable) != 0 || !mib_index_within(variable, last_port()))
            return ccdErrorNoNextInstance();
        return get_port(variable);
    }
    if (!mib_index_within(variable, last_port()))
        return ccdErrorNoSuchInstance();
    return kind == CCD_GET ? get_port(variable) : commit_port(variable);
}
