#include "l2/dhcp6snooping/mib/objects.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>

#include "l2/dhcp6snooping/mib/handlers.h"

static_assert(sizeof(void *) == 8); // the library's records hold pointers

#define MODULE "tqzL2Dhcp6Snooping"

namespace {

constexpr const char *MODULE_NAME = MODULE;

enum : uint32_t { SYNTAX_INTEGER = 1, SYNTAX_TEXT = 2, SYNTAX_MAC = 5, SYNTAX_ROW_STATUS = 13 };
enum : uint32_t { READ_ONLY = 1, READ_WRITE = 3 };
constexpr uint64_t FLAG_OBJECT = 0x1;
constexpr uint64_t FLAG_INDEX = 0x10;
constexpr uint32_t INTEGER_SIZE = 4; // bytes
constexpr uint32_t MAC_SIZE = 6;
constexpr uint32_t TEXT_SIZE = 255;

struct Range {
    uint32_t low;
    uint32_t high;
};
constexpr Range ANY = {0, 0};
constexpr Range TWO_VALUES = {1, 2};
constexpr Range NO_VALUES = {1, 0}; // declared so, although 0 and 1 are accepted
constexpr Range ID_TYPES = {1, 4};
constexpr Range VLANS = {1, 4094};
constexpr Range BYTE = {1, 255};
constexpr Range BIND_INDEXES = {1, 380};
constexpr Range ROW_STATES = {1, 6};

constexpr CcdObjectRecord object(uint32_t number, uint16_t column, uint32_t size, Range range, uint32_t syntax, uint32_t access,
                                 CcdHandler handler, const char *name) {
    return {.number = static_cast<uint16_t>(number),
            .column = column,
            .maxSize = size,
            .low = range.low,
            .high = range.high,
            .syntax = syntax,
            .access = access,
            .flags = FLAG_OBJECT,
            .handler = handler,
            .reserved = 0,
            .name = name};
}

constexpr CcdObjectRecord integer(uint32_t number, uint16_t column, Range range, uint32_t access, CcdHandler handler,
                                  const char *name) {
    return object(number, column, INTEGER_SIZE, range, SYNTAX_INTEGER, access, handler, name);
}

constexpr CcdObjectRecord text(uint32_t number, uint16_t column, uint32_t access, CcdHandler handler, const char *name) {
    return object(number, column, TEXT_SIZE, ANY, SYNTAX_TEXT, access, handler, name);
}

constexpr CcdObjectRecord mac(uint32_t number, uint16_t column, uint32_t access, CcdHandler handler, const char *name) {
    return object(number, column, MAC_SIZE, ANY, SYNTAX_MAC, access, handler, name);
}

constexpr CcdObjectRecord index_of(CcdObjectRecord record) {
    record.flags |= FLAG_INDEX;
    return record;
}

// The library steps back from a group's first record to the module's name, and forward to the all-zero one.
struct ScalarObject {
    const char *module;
    CcdObjectRecord records[2];
};
struct VlanObjects {
    const char *module;
    CcdObjectRecord records[3];
};
struct PortObjects {
    const char *module;
    CcdObjectRecord records[5];
};
struct BindObjects {
    const char *module;
    CcdObjectRecord records[7];
};
struct ClientObjects {
    const char *module;
    CcdObjectRecord records[8];
};

constexpr ScalarObject scalar(const CcdObjectRecord &record) { return {MODULE_NAME, {record, {}}}; }

constexpr CcdHandler SCALAR = dhcp6snoopingMibScalarHandler;
constexpr CcdHandler PORT = dhcp6snoopingMibPortTableHandler;
constexpr CcdHandler VLAN = dhcp6snoopingMibVlanTableHandler;
constexpr CcdHandler CLIENT = dhcp6snoopingMibClientTableHandler;
constexpr CcdHandler BIND = dhcp6snoopingMibBindTableHandler;

constexpr ScalarObject ON_OFF =
    scalar(integer(MIB_SNOOPING_ON_OFF, 1, TWO_VALUES, READ_WRITE, SCALAR, MODULE ":dhcp6snoopingOnOff"));
constexpr ScalarObject DOWN_ACTION =
    scalar(integer(MIB_PORT_DOWN_ACTION, 4, TWO_VALUES, READ_WRITE, SCALAR, MODULE ":dhcp6snoopingPortDownAction"));
constexpr ScalarObject EXEMPT_VLANS =
    scalar(text(MIB_EXEMPT_VLANS, 8, READ_WRITE, SCALAR, MODULE ":ipv6SourceGuardDisabledVlanString"));
constexpr ScalarObject OPTION18 =
    scalar(integer(MIB_OPTION18_ENABLE, 1, NO_VALUES, READ_WRITE, SCALAR, MODULE ":dhcp6snoopingInfoOption18Enable"));
constexpr ScalarObject OPTION37 =
    scalar(integer(MIB_OPTION37_ENABLE, 2, NO_VALUES, READ_WRITE, SCALAR, MODULE ":dhcp6snoopingInfoOption37Enable"));
constexpr ScalarObject REMOTE_ID =
    scalar(integer(MIB_REMOTE_ID, 3, ID_TYPES, READ_WRITE, SCALAR, MODULE ":dhcp6snoopingInfoRemoteId"));
constexpr ScalarObject REMOTE_TEXT = scalar(text(MIB_REMOTE_TEXT, 4, READ_WRITE, SCALAR, MODULE ":dhcp6snoopingInfoRemoteStr"));
constexpr ScalarObject INTERFACE_ID =
    scalar(integer(MIB_INTERFACE_ID, 5, ID_TYPES, READ_WRITE, SCALAR, MODULE ":dhcp6snoopingInfoInterfaceId"));
constexpr ScalarObject INTERFACE_TEXT =
    scalar(text(MIB_INTERFACE_TEXT, 6, READ_WRITE, SCALAR, MODULE ":dhcp6snoopingInfoInterfaceStr"));

constexpr PortObjects PORT_TABLE = {
    MODULE_NAME,
    {index_of(integer(MIB_PORT_INDEX, 1, ANY, READ_ONLY, PORT, MODULE ":portIndex")),
     integer(MIB_PORT_TRUST_MODE, 2, TWO_VALUES, READ_WRITE, PORT, MODULE ":portTrustMode"),
     integer(MIB_PORT_MAX_NUM, 3, ANY, READ_WRITE, PORT, MODULE ":portMaxNum"),
     integer(MIB_PORT_SOURCE_GUARD_MODE, 4, TWO_VALUES, READ_WRITE, PORT, MODULE ":portIpSourceGuardMode"),
     {}}};

constexpr VlanObjects VLAN_TABLE = {MODULE_NAME,
                                    {index_of(integer(MIB_VLAN_INDEX, 1, VLANS, READ_ONLY, VLAN, MODULE ":vlanIndex")),
                                     integer(MIB_VLAN_MAX_NUM, 2, ANY, READ_WRITE, VLAN, MODULE ":vlanMaxNum"),
                                     {}}};

constexpr ClientObjects CLIENT_TABLE = {MODULE_NAME,
                                        {index_of(mac(MIB_CLIENT_MAC, 1, READ_ONLY, CLIENT, MODULE ":client6MacAddr")),
                                         integer(MIB_CLIENT_VLAN, 2, VLANS, READ_ONLY, CLIENT, MODULE ":client6VlanId"),
                                         integer(MIB_CLIENT_PORT, 3, BYTE, READ_ONLY, CLIENT, MODULE ":client6PortId"),
                                         integer(MIB_CLIENT_LEASE_NUM, 4, BYTE, READ_ONLY, CLIENT, MODULE ":client6LeaseNum"),
                                         text(MIB_CLIENT_ADDRESSES, 5, READ_ONLY, CLIENT, MODULE ":client6IpAddrStr"),
                                         text(MIB_CLIENT_ADDRESSES_2, 6, READ_ONLY, CLIENT, MODULE ":client6IpAddrStr2"),
                                         text(MIB_CLIENT_LEASE_TIME, 7, READ_ONLY, CLIENT, MODULE ":client6LeaseTime"),
                                         {}}};

constexpr BindObjects BIND_TABLE = {
    MODULE_NAME,
    {index_of(integer(MIB_BIND_INDEX, 1, BIND_INDEXES, READ_WRITE, BIND, MODULE ":ip6BindIndex")),
     text(MIB_BIND_ADDRESS, 2, READ_WRITE, BIND, MODULE ":ip6BindIpAddr"),
     mac(MIB_BIND_MAC, 3, READ_WRITE, BIND, MODULE ":ip6BindMacAddr"),
     integer(MIB_BIND_PORT, 4, BYTE, READ_WRITE, BIND, MODULE ":ip6BindPortId"),
     integer(MIB_BIND_VLAN, 5, VLANS, READ_WRITE, BIND, MODULE ":ip6BindVlanId"),
     object(MIB_BIND_ROW_STATUS, 6, INTEGER_SIZE, ROW_STATES, SYNTAX_ROW_STATUS, READ_WRITE, BIND,
            MODULE ":ip6SourceGuardBindRowstatus"),
     {}}};

// ---- Groups -------------------------------------------------------------------------------------------------------------

constexpr uint32_t MODULE_ARCS[] = {1, 1, 3, 6, 1, 4, 1, 47119, 1, 2, 4, 9}; // the first one is the library's

constexpr CcdGroup group(std::initializer_list<uint32_t> arcs, const CcdObjectRecord *objects, uint32_t indexLength = 0) {
    const bool table = indexLength != 0;
    CcdGroup out = {.arcs = {},
                    .reserved0 = 0,
                    .arcCount = static_cast<uint32_t>(std::size(MODULE_ARCS) + arcs.size()),
                    .indexColumns = table ? 1u : 0u,
                    .indexLength = table ? indexLength : 1u,
                    .indexName = table ? objects->name : nullptr,
                    .reserved1 = {},
                    .objects = objects};
    std::copy(arcs.begin(), arcs.end(), std::copy(std::begin(MODULE_ARCS), std::end(MODULE_ARCS), out.arcs));
    return out;
}

constexpr CcdGroup ON_OFF_GROUP = group({}, ON_OFF.records);
constexpr CcdGroup DOWN_ACTION_GROUP = group({}, DOWN_ACTION.records);
constexpr CcdGroup EXEMPT_VLANS_GROUP = group({}, EXEMPT_VLANS.records);
constexpr CcdGroup PORT_GROUP = group({2, 1}, PORT_TABLE.records, 1);
constexpr CcdGroup VLAN_GROUP = group({3, 1}, VLAN_TABLE.records, 1);
constexpr CcdGroup CLIENT_GROUP = group({6, 1}, CLIENT_TABLE.records, MAC_SIZE);
constexpr CcdGroup BIND_GROUP = group({7, 1}, BIND_TABLE.records, 1);
constexpr CcdGroup OPTION18_GROUP = group({20}, OPTION18.records);
constexpr CcdGroup OPTION37_GROUP = group({20}, OPTION37.records);
constexpr CcdGroup REMOTE_ID_GROUP = group({20}, REMOTE_ID.records);
constexpr CcdGroup REMOTE_TEXT_GROUP = group({20}, REMOTE_TEXT.records);
constexpr CcdGroup INTERFACE_ID_GROUP = group({20}, INTERFACE_ID.records);
constexpr CcdGroup INTERFACE_TEXT_GROUP = group({20}, INTERFACE_TEXT.records);

} // namespace

const CcdRegEntry tqzL2Dhcp6SnoopingObjects[] = {
    {&ON_OFF_GROUP, &ON_OFF.records[0]},
    {&PORT_GROUP, &PORT_TABLE.records[0]},
    {&PORT_GROUP, &PORT_TABLE.records[1]},
    {&PORT_GROUP, &PORT_TABLE.records[2]},
    {&PORT_GROUP, &PORT_TABLE.records[3]},
    {&VLAN_GROUP, &VLAN_TABLE.records[0]},
    {&VLAN_GROUP, &VLAN_TABLE.records[1]},
    {&DOWN_ACTION_GROUP, &DOWN_ACTION.records[0]},
    {&CLIENT_GROUP, &CLIENT_TABLE.records[0]},
    {&CLIENT_GROUP, &CLIENT_TABLE.records[1]},
    {&CLIENT_GROUP, &CLIENT_TABLE.records[2]},
    {&CLIENT_GROUP, &CLIENT_TABLE.records[3]},
    {&CLIENT_GROUP, &CLIENT_TABLE.records[4]},
    {&CLIENT_GROUP, &CLIENT_TABLE.records[5]},
    {&CLIENT_GROUP, &CLIENT_TABLE.records[6]},
    {&BIND_GROUP, &BIND_TABLE.records[0]},
    {&BIND_GROUP, &BIND_TABLE.records[1]},
    {&BIND_GROUP, &BIND_TABLE.records[2]},
    {&BIND_GROUP, &BIND_TABLE.records[3]},
    {&BIND_GROUP, &BIND_TABLE.records[4]},
    {&BIND_GROUP, &BIND_TABLE.records[5]},
    {&EXEMPT_VLANS_GROUP, &EXEMPT_VLANS.records[0]},
    {&OPTION18_GROUP, &OPTION18.records[0]},
    {&OPTION37_GROUP, &OPTION37.records[0]},
    {&REMOTE_ID_GROUP, &REMOTE_ID.records[0]},
    {&REMOTE_TEXT_GROUP, &REMOTE_TEXT.records[0]},
    {&INTERFACE_ID_GROUP, &INTERFACE_ID.records[0]},
    {&INTERFACE_TEXT_GROUP, &INTERFACE_TEXT.records[0]},
    {nullptr, nullptr},
};
static_assert(std::size(tqzL2Dhcp6SnoopingObjects) == MIB_OBJECTS + 1);

int32_t tqzL2Dhcp6SnoopingInit(uint32_t, uint32_t) {
    ccdModuleRegister(MODULE_NAME, tqzL2Dhcp6SnoopingObjects);
    return 0;
}

int32_t tqzL2Dhcp6SnoopingTerminate(uint32_t, uint32_t) {
    ccdModuleDeRegister(MODULE_NAME);
    return 0;
}
