#pragma once
// The remote calls by which the command shell drives the daemon. The identifiers are wire values: they never change.

#include <cstdint>

inline constexpr uint32_t DH6S_FUNC_COUNT = 37;
inline constexpr int32_t DH6S_BAD_ARGUMENTS = -1001;

enum : uint32_t {
    DH6S_FUNC_START = 0,
    DH6S_FUNC_STOP = 1,
    DH6S_FUNC_PORT_MODE_SET = 2,                  // u32 port, i32 mode
    DH6S_FUNC_PORT_MODE_GET = 3,                  // u32 port, out u32 mode
    DH6S_FUNC_SET_IP6_SOURCE_GUARD_PORT_MODE = 4, // u32 port, u32 mode (0 = on)
    DH6S_FUNC_GET_IP6_SOURCE_GUARD_PORT_MODE = 5, // u32 port, out u32 mode
    DH6S_FUNC_PORT_MAX_CLIENTS_SET = 6,           // u32 port, u32 maximum
    DH6S_FUNC_PORT_MAX_CLIENTS_GET = 7,           // u32 port, out u32 maximum, out u32 clients
    DH6S_FUNC_VLANLIST_MAX_CLIENTS_SET = 8,       // u32 maximum, VLAN list of 512 bytes
    DH6S_FUNC_GET_NEXTCLIENTS_EXT = 9,            // MAC in and out, out u32 VLAN, port, count, 10 lease lines, 10 u32 seconds
    DH6S_FUNC_GLOBAL_INFO_GET = 10,               // out Dhcp6SnoopingGlobalInfo
    DH6S_FUNC_PORT_INFO_GET = 11,                 // u32 port, out Dhcp6SnoopingPortInfo
    DH6S_FUNC_VLAN_MAXCLIENTS_GET = 12,           // u32 VLAN, out u32 maximum, out u32 clients
    DH6S_FUNC_IP6_SOURCE_GUARD_BIND_ENTRY_NUM_GET = 13, // out u32
    DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_ADD = 14,      // address, MAC, u32 port, u32 VLAN
    DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_CHECK = 15,    // address, MAC, i32 port
    DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_DELETE = 16,   // address
    DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_DELETE_ALL = 17,
    DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET = 18,        // u32 start, out u16 next, out u16 count, 64 Ip6SourceGuardBindNode
    DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET_BY_IP = 19,  // address, out Ip6SourceGuardBindNode
    DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_ADD = 20,    // i32 first row number, address, MAC, u32 port, u32 VLAN
    DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_DELETE = 21, // address
    DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_DELETE_ALL = 22,
    DH6S_FUNC_IP6_SOURCE_GUARD_VLANLIST_CONFIG = 23, // i32 operation, VLAN list, out VLAN list of failures
    DH6S_FUNC_IP6_SOURCE_GUARD_VLANLIST_GET = 24,    // out VLAN list
    DH6S_FUNC_DELETE_BY_PORT = 25,                   // u32 port
    DH6S_FUNC_DELETE_BY_IP = 26,                     // address of 16 bytes
    DH6S_FUNC_DELETE_BY_MAC = 27,                    // MAC of 6 bytes
    DH6S_FUNC_DELETE_BY_VLAN = 28,                   // u32 VLAN
    DH6S_FUNC_DELETE_ALL = 29,
    DH6S_FUNC_INFO_OPTION18_ENALBE = 30, // u32
    DH6S_FUNC_INFO_OPTION37_ENALBE = 31, // u32
    DH6S_FUNC_INFO_ID_SET = 32,          // u32 which (0 = option 37, 1 = option 18), u32 id type, value or Dhcp6InfoIdTemplate
    DH6S_FUNC_INFO_GET = 33,             // out Dhcp6InfoOptionPolicy, out template of option 18, out template of option 37
    DH6S_FUNC_FASTREMOVE_ENABLE = 34,    // u32
    DH6S_FUNC_L2RELAY_ENABLE = 35,       // u32
    DH6S_FUNC_VLAN_RESET = 36,           // VLAN list of 512 bytes
};

// Registers every remote call with the platform. 0, or non-zero when one of them could not be registered.
int32_t dhcp6snoopingRmWrapFunction();
