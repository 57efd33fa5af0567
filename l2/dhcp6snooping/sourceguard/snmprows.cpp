#include "l2/dhcp6snooping/sourceguard/snmprows.h"

#include <algorithm>
#include <cstring>

Ip6BindSnmpRow ip6SourceGuardBindForSnmp[IP6_SNMP_ROWS] = {};
Ip6BindSnmpRow snmpIp6Bind = {};

int32_t ip6_source_guard_bind_for_snmp_add(int32_t first, Ip6Address address, const uint8_t *mac, uint32_t port,
                                           uint32_t vlan) {
    if (mac == nullptr)
        return 0;
    for (uint32_t number = static_cast<uint32_t>(std::max(first, 0)); number < IP6_SNMP_ROWS; ++number) {
        Ip6BindSnmpRow *row = &ip6SourceGuardBindForSnmp[number];
        if (row->status != 0)
            continue;
        *row = {.status = 1, .address = address, .mac = {}, .port = port, .vlan = vlan};
        memcpy(row->mac, mac, sizeof row->mac);
        return 0;
    }
    return 0;
}

int32_t ip6_source_guard_bind_for_snmp_delete(Ip6Address address) {
    for (Ip6BindSnmpRow &row : ip6SourceGuardBindForSnmp) {
        if (memcmp(&row.address, &address, sizeof address) != 0)
            continue;
        row = {};
        return 0;
    }
    return -1;
}

int32_t ip6_source_guard_bind_for_snmp_delete_all() {
    for (Ip6BindSnmpRow &row : ip6SourceGuardBindForSnmp)
        row = {};
    return 0;
}
