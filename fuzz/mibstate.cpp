#include "fuzz/mibstate.h"

#include <cstring>
#include <iterator>

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/clients/table.h"
#include "l2/dhcp6snooping/infoopt/policy.h"
#include "l2/dhcp6snooping/sourceguard/exemption.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "l2/dhcp6snooping/sourceguard/snmprows.h"

struct Part {
    const void *at;
    size_t size;
};

static const Part PARTS[] = {
    {&dhcp6SnoopingOn, sizeof dhcp6SnoopingOn},
    {&bDhcp6SnoopingFastRemove, sizeof bDhcp6SnoopingFastRemove},
    {dhcp6SnoopingTrustPort, sizeof dhcp6SnoopingTrustPort},
    {dhcp6SnoopingPortMaxIP, sizeof dhcp6SnoopingPortMaxIP},
    {dhcp6SnoopingDhcpVlanMaxIP, sizeof dhcp6SnoopingDhcpVlanMaxIP},
    {Ip6SourceGuardPort, sizeof Ip6SourceGuardPort},
    {no_ip6_source_guard_vlan, sizeof no_ip6_source_guard_vlan},
    {&gIp6SourceGuardBindNum, sizeof gIp6SourceGuardBindNum},
    {&Ip6SourceGuardBindListHead, sizeof Ip6SourceGuardBindListHead},
    {ip6SourceGuardBindForSnmp, sizeof ip6SourceGuardBindForSnmp},
    {&snmpIp6Bind, sizeof snmpIp6Bind},
    {&dhcp6InfoOptionPolicy, sizeof dhcp6InfoOptionPolicy},
    {optionContent, sizeof optionContent},
    {&optionContentType, sizeof optionContentType},
    {optionInterface, sizeof optionInterface},
    {&optionInterfaceType, sizeof optionInterfaceType},
    {&listDhcp6SnoopingAvlNode, sizeof listDhcp6SnoopingAvlNode},
};

static uint8_t copies[64 * 1024];

void mibStateReset() {
    ip6_source_guard_bind_for_snmp_delete_all();
    snmpIp6Bind = {};
    std::memset(optionContent, 0, sizeof optionContent);
    std::memset(optionInterface, 0, sizeof optionInterface);
    optionContentType = 0;
    optionInterfaceType = 0;
}

void mibStateRemember() {
    uint8_t *copy = copies;
    for (const Part &part : PARTS) {
        std::memcpy(copy, part.at, part.size);
        copy += part.size;
    }
}

bool mibStateIsSame() {
    const uint8_t *copy = copies;
    for (const Part &part : PARTS) {
        if (std::memcmp(copy, part.at, part.size) != 0)
            return false;
        copy += part.size;
    }
    return true;
}
