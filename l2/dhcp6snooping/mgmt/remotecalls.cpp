#include "l2/dhcp6snooping/mgmt/remotecalls.h"

#include <cstring>

#include "l2/dhcp6snooping/clients/bulk.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/clients/queries.h"
#include "l2/dhcp6snooping/infoopt/policy.h"
#include "l2/dhcp6snooping/packet/onoff.h"
#include "l2/dhcp6snooping/sourceguard/bindings.h"
#include "l2/dhcp6snooping/sourceguard/exemption.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "l2/dhcp6snooping/sourceguard/snmprows.h"
#include "platform/libsmd.h"

namespace {

constexpr uint32_t DEBUG_REGISTER = 4;
constexpr uint32_t DEBUG_CALL = 0x400;
constexpr uint32_t DEBUG_ARGUMENTS = 0x800;

// True when the call came with the number of arguments that it takes.
bool begin_call(const char *name, const SmdRmArg *argv, uint32_t argc, uint32_t expected) {
    smdDebugPrintf(DEBUG_CALL, "%s:start", name);
    if (argc != expected) {
        smdDebugPrintf(DEBUG_ARGUMENTS, "%s:ulArgsNum %u error", name, argc);
        return false;
    }
    return expected == 0 || argv != nullptr;
}

// A number that the wrapper reads itself. False when the argument has no data. Buffers, in contrast, are passed on as they
// are, and the function called judges them.
bool take_u32(const SmdRmArg &argument, uint32_t *number) {
    if (argument.data == nullptr)
        return false;
    memcpy(number, argument.data, sizeof *number);
    return true;
}

bool take_address(const SmdRmArg &argument, Ip6Address *address) {
    if (argument.data == nullptr)
        return false;
    memcpy(address->bytes, argument.data, sizeof address->bytes);
    return true;
}

int32_t dhcp6snoopingWrap_start(void *, SmdRmArg *argv, uint32_t argc) {
    if (!begin_call("dhcp6snoopingWrap_start", argv, argc, 0))
        return DH6S_BAD_ARGUMENTS;
    return dhcp6snooping_start();
}

int32_t dhcp6snoopingWrap_stop(void *, SmdRmArg *argv, uint32_t argc) {
    if (!begin_call("dhcp6snoopingWrap_stop", argv, argc, 0))
        return DH6S_BAD_ARGUMENTS;
    return dhcp6snooping_stop();
}

int32_t dhcp6snoopingWrap_port_mode(void *, SmdRmArg *argv, uint32_t argc) {
    uint32_t port = 0;
    uint32_t mode = 0;
    if (!begin_call("dhcp6snoopingWrap_port_mode", argv, argc, 2) || !take_u32(argv[0], &port) || !take_u32(argv[1], &mode))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(dhcp6snooping_port_mode(port, static_cast<int32_t>(mode)));
}

int32_t dhcp6snoopingWrap_port_mode_get(void *, SmdRmArg *argv, uint32_t argc) {
    uint32_t port = 0;
    if (!begin_call("dhcp6snoopingWrap_port_mode_get", argv, argc, 2) || !take_u32(argv[0], &port))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(dhcp6snooping_port_mode_get(port, static_cast<uint32_t *>(argv[1].data)));
}

int32_t dhcp6snoopingWrap_set_ip6_source_guard_port_mode(void *, SmdRmArg *argv, uint32_t argc) {
    uint32_t port = 0;
    uint32_t mode = 0;
    if (!begin_call("dhcp6snoopingWrap_set_ip6_source_guard_port_mode", argv, argc, 2) || !take_u32(argv[0], &port) ||
        !take_u32(argv[1], &mode))
        return DH6S_BAD_ARGUMENTS;
    return set_ip6_source_guard_port_mode(port, mode);
}

int32_t dhcp6snoopingWrap_get_ip6_source_guard_port_mode(void *, SmdRmArg *argv, uint32_t argc) {
    uint32_t port = 0;
    if (!begin_call("dhcp6snoopingWrap_get_ip6_source_guard_port_mode", argv, argc, 2) || !take_u32(argv[0], &port))
        return DH6S_BAD_ARGUMENTS;
    return get_ip6_source_guard_port_mode(port, static_cast<uint32_t *>(argv[1].data));
}

int32_t dhcp6snoopingWrap_port_maxclients(void *, SmdRmArg *argv, uint32_t argc) {
    uint32_t port = 0;
    uint32_t maximum = 0;
    if (!begin_call("dhcp6snoopingWrap_port_maxclients", argv, argc, 2) || !take_u32(argv[0], &port) ||
        !take_u32(argv[1], &maximum))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(dhcp6snooping_port_maxclients(port, maximum));
}

int32_t dhcp6snoopingWrap_port_maxclients_get(void *, SmdRmArg *argv, uint32_t argc) {
    uint32_t port = 0;
    if (!begin_call("dhcp6snoopingWrap_port_maxclients_get", argv, argc, 3) || !take_u32(argv[0], &port))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(
        dhcp6snooping_port_maxclients_get(port, static_cast<uint32_t *>(argv[1].data), static_cast<uint32_t *>(argv[2].data)));
}

int32_t dhcp6snoopingWrap_vlanlist_maxclients(void *, SmdRmArg *argv, uint32_t argc) {
    uint32_t maximum = 0;
    if (!begin_call("dhcp6snoopingWrap_vlanlist_maxclients", argv, argc, 2) || !take_u32(argv[0], &maximum))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(dhcp6snooping_vlanlist_maxclients(maximum, static_cast<uint8_t *>(argv[1].data)));
}

int32_t dhcp6snoopingWrap_get_nextclients_ext(void *, SmdRmArg *argv, uint32_t argc) {
    if (!begin_call("dhcp6snoopingWrap_get_nextclients_ext", argv, argc, 6))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(
        dhcp6snooping_get_nextclients_ext(static_cast<uint8_t *>(argv[0].data), static_cast<uint32_t *>(argv[1].data),
                                          static_cast<uint32_t *>(argv[2].data), static_cast<uint32_t *>(argv[3].data),
                                          static_cast<Dhcp6LeaseLine *>(argv[4].data), static_cast<uint32_t *>(argv[5].data)));
}

int32_t dhcp6snoopingWrap_GlobalInfoGet(void *, SmdRmArg *argv, uint32_t argc) {
    if (!begin_call("dhcp6snoopingWrap_GlobalInfoGet", argv, argc, 1))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(dhcp6snoopingGlobalInfoGet(static_cast<Dhcp6SnoopingGlobalInfo *>(argv[0].data)));
}

int32_t dhcp6snoopingWrap_PortInfoGet(void *, SmdRmArg *argv, uint32_t argc) {
    uint32_t port = 0;
    if (!begin_call("dhcp6snoopingWrap_PortInfoGet", argv, argc, 2) || !take_u32(argv[0], &port))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(dhcp6snoopingPortInfoGet(port, static_cast<Dhcp6SnoopingPortInfo *>(argv[1].data)));
}

int32_t dhcp6snoopingWrap_vlan_maxclients_get(void *, SmdRmArg *argv, uint32_t argc) {
    uint32_t vlan = 0;
    if (!begin_call("dhcp6snoopingWrap_vlan_maxclients_get", argv, argc, 3) || !take_u32(argv[0], &vlan))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(
        dhcp6snooping_vlan_maxclients_get(vlan, static_cast<uint32_t *>(argv[1].data), static_cast<uint32_t *>(argv[2].data)));
}

// The number is the call's answer in the buffer, not its result.
int32_t dhcp6snoopingWrap_ip6_source_guard_bind_entry_num_get(void *, SmdRmArg *argv, uint32_t argc) {
    if (!begin_call("dhcp6snoopingWrap_ip6_source_guard_bind_entry_num_get", argv, argc, 1) || argv[0].data == nullptr)
        return DH6S_BAD_ARGUMENTS;
    const uint32_t number = ip6_source_guard_bind_entry_num_get();
    memcpy(argv[0].data, &number, sizeof number);
    return 0;
}

int32_t dhcp6snoopingWrap_ip6_source_guard_bind_node_add(void *, SmdRmArg *argv, uint32_t argc) {
    Ip6Address address;
    uint32_t port = 0;
    uint32_t vlan = 0;
    if (!begin_call("dhcp6snoopingWrap_ip6_source_guard_bind_node_add", argv, argc, 4) || !take_address(argv[0], &address) ||
        !take_u32(argv[2], &port) || !take_u32(argv[3], &vlan))
        return DH6S_BAD_ARGUMENTS;
    return ip6_source_guard_bind_node_add(address, static_cast<uint8_t *>(argv[1].data), port, vlan);
}

int32_t dhcp6snoopingWrap_ip6_source_guard_bind_node_check(void *, SmdRmArg *argv, uint32_t argc) {
    Ip6Address address;
    uint32_t port = 0;
    if (!begin_call("dhcp6snoopingWrap_ip6_source_guard_bind_node_check", argv, argc, 3) || !take_address(argv[0], &address) ||
        !take_u32(argv[2], &port))
        return DH6S_BAD_ARGUMENTS;
    return ip6_source_guard_bind_node_check(address, static_cast<uint8_t *>(argv[1].data), port);
}

int32_t dhcp6snoopingWrap_ip6_source_guard_bind_node_delete(void *, SmdRmArg *argv, uint32_t argc) {
    Ip6Address address;
    if (!begin_call("dhcp6snoopingWrap_ip6_source_guard_bind_node_delete", argv, argc, 1) || !take_address(argv[0], &address))
        return DH6S_BAD_ARGUMENTS;
    return ip6_source_guard_bind_node_delete(address);
}

int32_t dhcp6snoopingWrap_ip6_source_guard_bind_node_delete_all(void *, SmdRmArg *argv, uint32_t argc) {
    if (!begin_call("dhcp6snoopingWrap_ip6_source_guard_bind_node_delete_all", argv, argc, 0))
        return DH6S_BAD_ARGUMENTS;
    return ip6_source_guard_bind_node_delete_all();
}

int32_t dhcp6snoopingWrap_ip6_source_guard_bind_node_get(void *, SmdRmArg *argv, uint32_t argc) {
    uint32_t start = 0;
    if (!begin_call("dhcp6snoopingWrap_ip6_source_guard_bind_node_get", argv, argc, 4) || !take_u32(argv[0], &start))
        return DH6S_BAD_ARGUMENTS;
    return ip6_source_guard_bind_node_get(static_cast<uint16_t>(start), static_cast<uint16_t *>(argv[1].data),
                                          static_cast<uint16_t *>(argv[2].data),
                                          static_cast<Ip6SourceGuardBindNode *>(argv[3].data));
}

int32_t dhcp6snoopingWrap_ip6_source_guard_bind_node_get_by_ip(void *, SmdRmArg *argv, uint32_t argc) {
    Ip6Address address;
    if (!begin_call("dhcp6snoopingWrap_ip6_source_guard_bind_node_get_by_ip", argv, argc, 2) ||
        !take_address(argv[0], &address))
        return DH6S_BAD_ARGUMENTS;
    return ip6_source_guard_bind_node_get_by_ip(address, static_cast<Ip6SourceGuardBindNode *>(argv[1].data));
}

int32_t dhcp6snoopingWrap_ip6_source_guard_bind_for_snmp_add(void *, SmdRmArg *argv, uint32_t argc) {
    uint32_t first = 0;
    Ip6Address address;
    uint32_t port = 0;
    uint32_t vlan = 0;
    if (!begin_call("dhcp6snoopingWrap_ip6_source_guard_bind_for_snmp_add", argv, argc, 5) || !take_u32(argv[0], &first) ||
        !take_address(argv[1], &address) || !take_u32(argv[3], &port) || !take_u32(argv[4], &vlan))
        return DH6S_BAD_ARGUMENTS;
    return ip6_source_guard_bind_for_snmp_add(static_cast<int32_t>(first), address, static_cast<uint8_t *>(argv[2].data), port,
                                              vlan);
}

int32_t dhcp6snoopingWrap_ip6_source_guard_bind_for_snmp_delete(void *, SmdRmArg *argv, uint32_t argc) {
    Ip6Address address;
    if (!begin_call("dhcp6snoopingWrap_ip6_source_guard_bind_for_snmp_delete", argv, argc, 1) ||
        !take_address(argv[0], &address))
        return DH6S_BAD_ARGUMENTS;
    return ip6_source_guard_bind_for_snmp_delete(address);
}

int32_t dhcp6snoopingWrap_ip6_source_guard_bind_for_snmp_delete_all(void *, SmdRmArg *argv, uint32_t argc) {
    if (!begin_call("dhcp6snoopingWrap_ip6_source_guard_bind_for_snmp_delete_all", argv, argc, 0))
        return DH6S_BAD_ARGUMENTS;
    return ip6_source_guard_bind_for_snmp_delete_all();
}

int32_t dhcp6snoopingWrap_ip6_source_guard_vlanlist_config(void *, SmdRmArg *argv, uint32_t argc) {
    uint32_t operation = 0;
    if (!begin_call("dhcp6snoopingWrap_ip6_source_guard_vlanlist_config", argv, argc, 3) || !take_u32(argv[0], &operation))
        return DH6S_BAD_ARGUMENTS;
    return ip6_source_guard_vlanlist_config(static_cast<int32_t>(operation), static_cast<uint8_t *>(argv[1].data),
                                            static_cast<uint8_t *>(argv[2].data));
}

int32_t dhcp6snoopingWrap_no_ip6_source_guard_vlanlist_get(void *, SmdRmArg *argv, uint32_t argc) {
    if (!begin_call("dhcp6snoopingWrap_no_ip6_source_guard_vlanlist_get", argv, argc, 1))
        return DH6S_BAD_ARGUMENTS;
    return no_ip6_source_guard_vlanlist_get(static_cast<uint8_t *>(argv[0].data));
}

int32_t dhcp6snoopingWrap_delete_by_port(void *, SmdRmArg *argv, uint32_t argc) {
    uint32_t port = 0;
    if (!begin_call("dhcp6snoopingWrap_delete_by_port", argv, argc, 1) || !take_u32(argv[0], &port))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(dhcp6snooping_delete_by_port(port));
}

int32_t dhcp6snoopingWrap_delete_by_ip(void *, SmdRmArg *argv, uint32_t argc) {
    if (!begin_call("dhcp6snoopingWrap_delete_by_ip", argv, argc, 1))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(dhcp6snooping_delete_by_ip(static_cast<uint8_t *>(argv[0].data)));
}

int32_t dhcp6snoopingWrap_delete_by_mac(void *, SmdRmArg *argv, uint32_t argc) {
    if (!begin_call("dhcp6snoopingWrap_delete_by_mac", argv, argc, 1))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(dhcp6snooping_delete_by_mac(static_cast<uint8_t *>(argv[0].data)));
}

int32_t dhcp6snoopingWrap_delete_by_vlan(void *, SmdRmArg *argv, uint32_t argc) {
    uint32_t vlan = 0;
    if (!begin_call("dhcp6snoopingWrap_delete_by_vlan", argv, argc, 1) || !take_u32(argv[0], &vlan))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(dhcp6snooping_delete_by_vlan(vlan));
}

int32_t dhcp6snoopingWrap_delete_all(void *, SmdRmArg *argv, uint32_t argc) {
    if (!begin_call("dhcp6snoopingWrap_delete_all", argv, argc, 0))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(dhcp6snooping_delete_all());
}

int32_t dhcp6snoopingWrap_info_option18_enable(void *, SmdRmArg *argv, uint32_t argc) {
    uint32_t enable = 0;
    if (!begin_call("dhcp6snoopingWrap_info_option18_enable", argv, argc, 1) || !take_u32(argv[0], &enable))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(dhcp6_info_option18_enable(enable));
}

int32_t dhcp6snoopingWrap_info_option37_enable(void *, SmdRmArg *argv, uint32_t argc) {
    uint32_t enable = 0;
    if (!begin_call("dhcp6snoopingWrap_info_option37_enable", argv, argc, 1) || !take_u32(argv[0], &enable))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(dhcp6_info_option37_enable(enable));
}

int32_t dhcp6snoopingWrap_info_id_set(void *, SmdRmArg *argv, uint32_t argc) {
    uint32_t which = 0;
    uint32_t type = 0;
    if (!begin_call("dhcp6snoopingWrap_info_id_set", argv, argc, 3) || !take_u32(argv[0], &which) || !take_u32(argv[1], &type))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(dhcp6_info_id_set(static_cast<int32_t>(which), type, argv[2].data));
}

int32_t dhcp6snoopingWrap_info_get(void *, SmdRmArg *argv, uint32_t argc) {
    if (!begin_call("dhcp6snoopingWrap_info_get", argv, argc, 3))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(dhcp6_info_get(static_cast<Dhcp6InfoOptionPolicy *>(argv[0].data),
                                               static_cast<Dhcp6InfoIdTemplate *>(argv[1].data),
                                               static_cast<Dhcp6InfoIdTemplate *>(argv[2].data)));
}

int32_t dhcp6snoopingWrap_fastRemove_enable(void *, SmdRmArg *argv, uint32_t argc) {
    uint32_t enable = 0;
    if (!begin_call("dhcp6snoopingWrap_fastRemove_enable", argv, argc, 1) || !take_u32(argv[0], &enable))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(dhcp6snooping_fastRemove_enable(enable));
}

int32_t dhcp6snoopingWrap_l2Relay_enable(void *, SmdRmArg *argv, uint32_t argc) {
    uint32_t enable = 0;
    if (!begin_call("dhcp6snoopingWrap_l2Relay_enable", argv, argc, 1) || !take_u32(argv[0], &enable))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(dhcp6snooping_l2Relay_enable(enable));
}

int32_t dhcp6snoopingWrap_vlan_reset(void *, SmdRmArg *argv, uint32_t argc) {
    if (!begin_call("dhcp6snoopingWrap_vlan_reset", argv, argc, 1))
        return DH6S_BAD_ARGUMENTS;
    return static_cast<int32_t>(dhcp6snooping_vlan_reset(static_cast<uint8_t *>(argv[0].data)));
}

struct RemoteCall {
    uint32_t id;
    SmdWrapFn wrapper;
    const char *idName;
    const char *wrapperName;
};

// The names are registered as they are spelled.
#define REMOTE_CALL(id, wrapper)                                                                                               \
    { id, wrapper, #id, #wrapper }

// In the order of the identifiers, which is the order of registration.
constexpr RemoteCall REMOTE_CALLS[] = {
    REMOTE_CALL(DH6S_FUNC_START, dhcp6snoopingWrap_start),
    REMOTE_CALL(DH6S_FUNC_STOP, dhcp6snoopingWrap_stop),
    REMOTE_CALL(DH6S_FUNC_PORT_MODE_SET, dhcp6snoopingWrap_port_mode),
    REMOTE_CALL(DH6S_FUNC_PORT_MODE_GET, dhcp6snoopingWrap_port_mode_get),
    REMOTE_CALL(DH6S_FUNC_SET_IP6_SOURCE_GUARD_PORT_MODE, dhcp6snoopingWrap_set_ip6_source_guard_port_mode),
    REMOTE_CALL(DH6S_FUNC_GET_IP6_SOURCE_GUARD_PORT_MODE, dhcp6snoopingWrap_get_ip6_source_guard_port_mode),
    REMOTE_CALL(DH6S_FUNC_PORT_MAX_CLIENTS_SET, dhcp6snoopingWrap_port_maxclients),
    REMOTE_CALL(DH6S_FUNC_PORT_MAX_CLIENTS_GET, dhcp6snoopingWrap_port_maxclients_get),
    REMOTE_CALL(DH6S_FUNC_VLANLIST_MAX_CLIENTS_SET, dhcp6snoopingWrap_vlanlist_maxclients),
    REMOTE_CALL(DH6S_FUNC_GET_NEXTCLIENTS_EXT, dhcp6snoopingWrap_get_nextclients_ext),
    REMOTE_CALL(DH6S_FUNC_GLOBAL_INFO_GET, dhcp6snoopingWrap_GlobalInfoGet),
    REMOTE_CALL(DH6S_FUNC_PORT_INFO_GET, dhcp6snoopingWrap_PortInfoGet),
    REMOTE_CALL(DH6S_FUNC_VLAN_MAXCLIENTS_GET, dhcp6snoopingWrap_vlan_maxclients_get),
    REMOTE_CALL(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_ENTRY_NUM_GET, dhcp6snoopingWrap_ip6_source_guard_bind_entry_num_get),
    REMOTE_CALL(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_ADD, dhcp6snoopingWrap_ip6_source_guard_bind_node_add),
    REMOTE_CALL(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_CHECK, dhcp6snoopingWrap_ip6_source_guard_bind_node_check),
    REMOTE_CALL(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_DELETE, dhcp6snoopingWrap_ip6_source_guard_bind_node_delete),
    REMOTE_CALL(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_DELETE_ALL, dhcp6snoopingWrap_ip6_source_guard_bind_node_delete_all),
    REMOTE_CALL(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET, dhcp6snoopingWrap_ip6_source_guard_bind_node_get),
    REMOTE_CALL(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET_BY_IP, dhcp6snoopingWrap_ip6_source_guard_bind_node_get_by_ip),
    REMOTE_CALL(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_ADD, dhcp6snoopingWrap_ip6_source_guard_bind_for_snmp_add),
    REMOTE_CALL(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_DELETE, dhcp6snoopingWrap_ip6_source_guard_bind_for_snmp_delete),
    REMOTE_CALL(DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_DELETE_ALL,
                dhcp6snoopingWrap_ip6_source_guard_bind_for_snmp_delete_all),
    REMOTE_CALL(DH6S_FUNC_IP6_SOURCE_GUARD_VLANLIST_CONFIG, dhcp6snoopingWrap_ip6_source_guard_vlanlist_config),
    REMOTE_CALL(DH6S_FUNC_IP6_SOURCE_GUARD_VLANLIST_GET, dhcp6snoopingWrap_no_ip6_source_guard_vlanlist_get),
    REMOTE_CALL(DH6S_FUNC_DELETE_BY_PORT, dhcp6snoopingWrap_delete_by_port),
    REMOTE_CALL(DH6S_FUNC_DELETE_BY_IP, dhcp6snoopingWrap_delete_by_ip),
    REMOTE_CALL(DH6S_FUNC_DELETE_BY_MAC, dhcp6snoopingWrap_delete_by_mac),
    REMOTE_CALL(DH6S_FUNC_DELETE_BY_VLAN, dhcp6snoopingWrap_delete_by_vlan),
    REMOTE_CALL(DH6S_FUNC_DELETE_ALL, dhcp6snoopingWrap_delete_all),
    REMOTE_CALL(DH6S_FUNC_INFO_OPTION18_ENALBE, dhcp6snoopingWrap_info_option18_enable),
    REMOTE_CALL(DH6S_FUNC_INFO_OPTION37_ENALBE, dhcp6snoopingWrap_info_option37_enable),
    REMOTE_CALL(DH6S_FUNC_INFO_ID_SET, dhcp6snoopingWrap_info_id_set),
    REMOTE_CALL(DH6S_FUNC_INFO_GET, dhcp6snoopingWrap_info_get),
    REMOTE_CALL(DH6S_FUNC_FASTREMOVE_ENABLE, dhcp6snoopingWrap_fastRemove_enable),
    REMOTE_CALL(DH6S_FUNC_L2RELAY_ENABLE, dhcp6snoopingWrap_l2Relay_enable),
    REMOTE_CALL(DH6S_FUNC_VLAN_RESET, dhcp6snoopingWrap_vlan_reset),
};

} // namespace

int32_t dhcp6snoopingRmWrapFunction() {
    const int32_t prepared = smdRMWrapInit(DH6S_FUNC_COUNT);
    if (prepared != 0) {
        smdDebugPrintf(DEBUG_REGISTER, "%s:smdRMWrapInit failed", "dhcp6snoopingRmWrapFunction");
        return prepared;
    }
    uint32_t failures = 0; // sum of the answers, wrapping
    for (const RemoteCall &call : REMOTE_CALLS)
        failures += static_cast<uint32_t>(__smdRmWrapRegister(call.id, 0, call.wrapper, call.idName, call.wrapperName));
    if (failures != 0)
        smdDebugPrintf(DEBUG_REGISTER, "%s:register failed", "dhcp6snoopingRmWrapFunction");
    return static_cast<int32_t>(failures);
}
