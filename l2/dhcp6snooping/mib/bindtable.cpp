#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "l2/dhcp6snooping/base/text.h"
#include "l2/dhcp6snooping/mib/handlers.h"
#include "l2/dhcp6snooping/mib/request.h"
#include "l2/dhcp6snooping/mib/text.h"
#include "l2/dhcp6snooping/sourceguard/snmprows.h"
#include "platform/libcommon.h"
#include "platform/libsmd.h"

namespace {

constexpr uint32_t ADDRESS_TEXT_MAX = 39; // characters
constexpr uint32_t MAC_TEXT_LENGTH = MAC_TEXT_SIZE - 1;
constexpr uint32_t VLAN_LAST = 4094;
constexpr uint32_t ROW_ACTIVE = 1;
constexpr uint32_t ROW_CREATE_AND_GO = 4;
constexpr uint32_t ROW_CREATE_AND_WAIT = 5;
constexpr uint32_t ROW_DESTROY = 6;
constexpr uint8_t MULTICAST = 0xFF; // first byte of an address
constexpr uint8_t GROUP_BIT = 1;    // of a MAC address's first byte
constexpr uint32_t WHOLE_ADDRESS = 128;

// ---- Get ----------------------------------------------------------------------------------------------------------------

bool next_row(CcdVariable *variable) {
    for (uint32_t row = mib_index(variable); row < IP6_SNMP_ROWS; ++row) {
        if (ip6SourceGuardBindForSnmp[row].status == 0)
            continue;
        mib_set_index(variable, row + 1);
        return true;
    }
    return false;
}

// Whatever the row holds: one that is free answers zeros.
int32_t get_row(CcdVariable *variable) {
    const Ip6BindSnmpRow &row = ip6SourceGuardBindForSnmp[mib_index(variable) - 1];
    switch (variable->object) {
    case MIB_BIND_INDEX: ulongSet(variable, mib_index(variable)); return 0;
    case MIB_BIND_ADDRESS: {
        const char *text = dhcp6snooping_prefix_to_str(row.address.bytes, WHOLE_ADDRESS);
        octetSet(variable, text, static_cast<uint32_t>(strlen(text)));
        return 0;
    }
    case MIB_BIND_MAC: octetSet(variable, row.mac, sizeof row.mac); return 0;
    case MIB_BIND_PORT: ulongSet(variable, row.port); return 0;
    case MIB_BIND_VLAN: ulongSet(variable, row.vlan); return 0;
    case MIB_BIND_ROW_STATUS: ulongSet(variable, ROW_ACTIVE); return 0;
    default: return ccdErrorNoSuchInstance();
    }
}

// ---- Test ---------------------------------------------------------------------------------------------------------------

int32_t in_range(const CcdVariable *variable, uint32_t low, uint32_t high) {
    const uint32_t value = ulongGet(variable);
    return value < low || value > high ? ccdErrorInvalidRange() : 0;
}

int32_t test_index(const CcdVariable *variable) {
    const int32_t range = in_range(variable, 1, IP6_SNMP_ROWS);
    if (range != 0)
        return range;
    return variable->length > MIB_INTEGER_SIZE ? ccdErrorInvalidLength() : 0;
}

int32_t test_mac(const CcdVariable *variable) {
    uint32_t length = 0;
    const uint8_t *text = octetGet(variable, &length);
    if (length != MAC_TEXT_LENGTH)
        return ccdErrorInvalidRange();
    for (uint32_t colon = 2; colon < MAC_TEXT_LENGTH; colon += 3)
        if (text[colon] != ':')
            return ccdErrorInvalidRange();
    const char first[3] = {static_cast<char>(text[0]), static_cast<char>(text[1]), '\0'};
    return (strtoul(first, nullptr, 16) & GROUP_BIT) != 0 ? ccdErrorInvalidRange() : 0;
}

int32_t test_row(const CcdVariable *variable) {
    switch (variable->object) {
    case MIB_BIND_INDEX: return test_index(variable);
    case MIB_BIND_ADDRESS: return variable->length > ADDRESS_TEXT_MAX ? ccdErrorInvalidLength() : 0;
    case MIB_BIND_MAC: return test_mac(variable);
    case MIB_BIND_PORT: return in_range(variable, 1, gul_max_port_num);
    case MIB_BIND_VLAN: return in_range(variable, 0, VLAN_LAST);
    case MIB_BIND_ROW_STATUS: return in_range(variable, ROW_ACTIVE, ROW_DESTROY);
    default: return ccdErrorNoSuchInstance();
    }
}

// ---- Commit -------------------------------------------------------------------------------------------------------------

int32_t commit_address(const CcdVariable *variable) {
    uint32_t length = 0;
    const uint8_t *octets = octetGet(variable, &length);
    if (length > ADDRESS_TEXT_MAX)
        return ccdErrorInvalidLength();
    char text[ADDRESS_TEXT_MAX + 1] = {};
    memcpy(text, octets, length);
    uint8_t address[sizeof snmpIp6Bind.address];
    if (dhcp6snooping_inet_pton(DHCP6SNOOPING_FAMILY_INET6, text, address) != 1)
        return ccdErrorWrongValue();
    memcpy(snmpIp6Bind.address.bytes, address, sizeof address);
    return 0;
}

// An octet that cannot be read stays as it was.
int32_t commit_mac(const CcdVariable *variable) {
    uint32_t length = 0;
    const uint8_t *octets = octetGet(variable, &length);
    if (length != MAC_TEXT_LENGTH)
        return ccdErrorInvalidLength();
    char text[MAC_TEXT_SIZE] = {};
    memcpy(text, octets, length);
    unsigned bytes[MAC_SIZE];
    std::copy(std::begin(snmpIp6Bind.mac), std::end(snmpIp6Bind.mac), bytes);
    if (sscanf(text, "%02x:%02x:%02x:%02x:%02x:%02x", &bytes[0], &bytes[1], &bytes[2], &bytes[3], &bytes[4], &bytes[5]) > 0)
        for (uint32_t at = 0; at < MAC_SIZE; ++at)
            snmpIp6Bind.mac[at] = static_cast<uint8_t>(bytes[at]);
    return 0;
}

int32_t create_row() {
    const Ip6BindSnmpRow wanted = snmpIp6Bind;
    const Ip6Address none = {};
    if (memcmp(&wanted.address, &none, sizeof none) == 0 || wanted.address.bytes[0] == MULTICAST)
        return ccdErrorWrongValue();
    if (ip6_source_guard_bind_entry_num_get() < IP6_SNMP_ROWS) {
        if (ip6_source_guard_bind_node_add(wanted.address, wanted.mac, wanted.port, wanted.vlan) != 0)
            return ccdErrorCommitFailed();
        ip6_source_guard_bind_for_snmp_add(static_cast<int32_t>(wanted.status), wanted.address, wanted.mac, wanted.port,
                                           wanted.vlan);
    } else if (ip6_source_guard_bind_node_check(wanted.address, wanted.mac, wanted.port) != 0) {
        return ccdErrorResourceUnavail();
    }
    snmpIp6Bind = {};
    return 0;
}

int32_t destroy_row(uint32_t index) {
    if (index == 0 || index > IP6_SNMP_ROWS || ip6SourceGuardBindForSnmp[index - 1].status == 0)
        return ccdErrorResourceUnavail();
    const Ip6Address address = ip6SourceGuardBindForSnmp[index - 1].address; // the row is cleared by it
    if (ip6_source_guard_bind_node_delete(address) == -1)
        return ccdErrorCommitFailed();
    ip6_source_guard_bind_for_snmp_delete(address);
    snmpIp6Bind = {};
    return 0;
}

int32_t commit_row_status(const CcdVariable *variable) {
    switch (ulongGet(variable)) {
    case ROW_CREATE_AND_GO:
    case ROW_CREATE_AND_WAIT: return create_row();
    case ROW_DESTROY: return destroy_row(mib_index(variable));
    default: return 0;
    }
}

int32_t commit_row(const CcdVariable *variable) {
    switch (variable->object) {
    case MIB_BIND_INDEX: snmpIp6Bind.status = ulongGet(variable) - 1; return 0;
    case MIB_BIND_ADDRESS: return commit_address(variable);
    case MIB_BIND_MAC: return commit_mac(variable);
    case MIB_BIND_PORT: snmpIp6Bind.port = ulongGet(variable); return 0;
    case MIB_BIND_VLAN: snmpIp6Bind.vlan = ulongGet(variable); return 0;
    case MIB_BIND_ROW_STATUS: return commit_row_status(variable);
    default: return ccdErrorNoSuchInstance();
    }
}

} // namespace

int32_t dhcp6snoopingMibBindTableHandler(uint32_t kind, CcdVariable *variable) {
    if (variable == nullptr)
        return ccdErrorNoSuchInstance();
    if (!mib_has_work(kind))
        return 0;
    if (kind == CCD_GETNEXT)
        return next_row(variable) ? get_row(variable) : ccdErrorNoNextInstance();
    if (kind == CCD_GET)
        return mib_index_within(variable, IP6_SNMP_ROWS) ? get_row(variable) : ccdErrorNoSuchInstance();
    if (variable->indexLength != 1)
        return ccdErrorNoSuchInstance();
    return kind == CCD_TEST ? test_row(variable) : commit_row(variable);
}
