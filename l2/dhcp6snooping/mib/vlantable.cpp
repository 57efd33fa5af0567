#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/mib/handlers.h"
#include "l2/dhcp6snooping/mib/request.h"
#include "platform/libcommon.h"
#include "platform/libvlan.h"

namespace {

constexpr uint32_t VLAN_LAST = 4094;

// Moves to the next VLAN that exists.
bool next_vlan(CcdVariable *variable) {
    for (uint32_t vlan = mib_index(variable); vlan < VLAN_LAST;) {
        ++vlan;
        if (vlan_exist(vlan) == 1) {
            mib_set_index(variable, vlan);
            return true;
        }
    }
    return false;
}

int32_t get_vlan(CcdVariable *variable) {
    const uint32_t vlan = mib_index(variable);
    switch (variable->object) {
    case MIB_VLAN_INDEX: ulongSet(variable, vlan); return 0;
    case MIB_VLAN_MAX_NUM: ulongSet(variable, dhcp6SnoopingDhcpVlanMaxIP[vlan]); return 0;
    default: return ccdErrorNoSuchInstance();
    }
}

int32_t test_vlan(const CcdVariable *variable) {
    if (variable->object == MIB_VLAN_INDEX)
        return mib_index_within(variable, VLAN_LAST) ? 0 : ccdErrorNoSuchInstance();
    if (variable->object != MIB_VLAN_MAX_NUM || !mib_index_within(variable, VLAN_LAST) || vlan_exist(mib_index(variable)) == 0)
        return ccdErrorNoSuchInstance();
    return ulongGet(variable) > DHCP6SNOOPING_LIMIT_MAX ? ccdErrorWrongValue() : 0;
}

int32_t commit_vlan(const CcdVariable *variable) {
    switch (variable->object) {
    case MIB_VLAN_INDEX: return 0;
    case MIB_VLAN_MAX_NUM: return static_cast<int32_t>(dhcp6snooping_vlan_maxclients(mib_index(variable), ulongGet(variable)));
    default: return ccdErrorNoSuchInstance();
    }
}

} // namespace

int32_t dhcp6snoopingMibVlanTableHandler(uint32_t kind, CcdVariable *variable) {
    if (variable == nullptr)
        return ccdErrorNoSuchInstance();
    if (!mib_has_work(kind))
        return 0;
    if (kind == CCD_TEST)
        return test_vlan(variable);
    if (kind == CCD_GETNEXT)
        return next_vlan(variable) ? get_vlan(variable) : ccdErrorNoNextInstance();
    if (!mib_index_within(variable, VLAN_LAST))
        return ccdErrorNoSuchInstance();
    return kind == CCD_GET ? get_vlan(variable) : commit_vlan(variable);
}
