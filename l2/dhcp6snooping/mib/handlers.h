#pragma once
// The five handlers behind the objects of the MIB module. Each takes a request kind and the variable of the request, and
// answers 0 or one of the library's errors. A kind without work answers 0; nothing of a request is kept.

#include <cstdint>

#include "platform/libccd.h"

// Object numbers: an object's place in the registration list.
enum : uint32_t {
    MIB_SNOOPING_ON_OFF = 0,
    MIB_PORT_INDEX = 1,
    MIB_PORT_TRUST_MODE = 2,
    MIB_PORT_MAX_NUM = 3,
    MIB_PORT_SOURCE_GUARD_MODE = 4,
    MIB_VLAN_INDEX = 5,
    MIB_VLAN_MAX_NUM = 6,
    MIB_PORT_DOWN_ACTION = 7,
    MIB_CLIENT_MAC = 8,
    MIB_CLIENT_VLAN = 9,
    MIB_CLIENT_PORT = 10,
    MIB_CLIENT_LEASE_NUM = 11,
    MIB_CLIENT_ADDRESSES = 12,
    MIB_CLIENT_ADDRESSES_2 = 13,
    MIB_CLIENT_LEASE_TIME = 14,
    MIB_BIND_INDEX = 15,
    MIB_BIND_ADDRESS = 16,
    MIB_BIND_MAC = 17,
    MIB_BIND_PORT = 18,
    MIB_BIND_VLAN = 19,
    MIB_BIND_ROW_STATUS = 20,
    MIB_EXEMPT_VLANS = 21,
    MIB_OPTION18_ENABLE = 22,
    MIB_OPTION37_ENABLE = 23,
    MIB_REMOTE_ID = 24,
    MIB_REMOTE_TEXT = 25,
    MIB_INTERFACE_ID = 26,
    MIB_INTERFACE_TEXT = 27,
    MIB_OBJECTS = 28,
};

int32_t dhcp6snoopingMibScalarHandler(uint32_t kind, CcdVariable *variable);
int32_t dhcp6snoopingMibPortTableHandler(uint32_t kind, CcdVariable *variable);
int32_t dhcp6snoopingMibVlanTableHandler(uint32_t kind, CcdVariable *variable);
int32_t dhcp6snoopingMibClientTableHandler(uint32_t kind, CcdVariable *variable);
int32_t dhcp6snoopingMibBindTableHandler(uint32_t kind, CcdVariable *variable);
