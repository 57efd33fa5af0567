#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/infoopt/policy.h"
#include "l2/dhcp6snooping/mib/exemptvlans.h"
#include "l2/dhcp6snooping/mib/handlers.h"
#include "l2/dhcp6snooping/mib/request.h"
#include "l2/dhcp6snooping/mib/text.h"
#include "l2/dhcp6snooping/packet/onoff.h"
#include "platform/libcommon.h"

namespace {

constexpr uint32_t ID_TEXT_MAX = 64; // bytes that a manager may set
constexpr uint32_t WHOLE_ADDRESS = 128;

// ---- Switches -----------------------------------------------------------------------------------------------------------

int32_t test_integer(const CcdVariable *variable, uint32_t low, uint32_t high) {
    const uint32_t value = ulongGet(variable);
    if (value < low || value > high)
        return ccdErrorInvalidRange();
    return variable->length > MIB_INTEGER_SIZE ? ccdErrorInvalidLength() : 0;
}

int32_t test_on_off(const CcdVariable *variable) { return test_integer(variable, MIB_ON, MIB_OFF); }

int32_t get_snooping(CcdVariable *variable) {
    ulongSet(variable, dhcp6SnoopingOn == 1 ? MIB_ON : MIB_OFF);
    return 0;
}

int32_t commit_snooping(const CcdVariable *variable) {
    return ulongGet(variable) == MIB_ON ? dhcp6snooping_start() : dhcp6snooping_stop();
}

int32_t get_port_down_action(CcdVariable *variable) {
    ulongSet(variable, bDhcp6SnoopingFastRemove != 0 ? MIB_ON : MIB_OFF);
    variable->length = MIB_INTEGER_SIZE;
    return 0;
}

int32_t commit_port_down_action(const CcdVariable *variable) {
    bDhcp6SnoopingFastRemove = ulongGet(variable) == MIB_ON ? 1 : 0;
    return 0;
}

int32_t test_exempt_vlans(const CcdVariable *variable) { return variable->length > CCD_OCTETS_MAX ? ccdErrorTooBig() : 0; }

// ---- Options 18 and 37 --------------------------------------------------------------------------------------------------

int32_t test_enable(const CcdVariable *variable) { return test_integer(variable, 0, 1); }

int32_t get_option18(CcdVariable *variable) {
    ulongSet(variable, dhcp6InfoOptionPolicy.option18Enable);
    return 0;
}

int32_t commit_option18(const CcdVariable *variable) {
    dhcp6InfoOptionPolicy.option18Enable = ulongGet(variable);
    return 0;
}

int32_t get_option37(CcdVariable *variable) {
    ulongSet(variable, dhcp6InfoOptionPolicy.option37Enable);
    return 0;
}

int32_t commit_option37(const CcdVariable *variable) {
    dhcp6InfoOptionPolicy.option37Enable = ulongGet(variable);
    return 0;
}

int32_t test_id_type(const CcdVariable *variable) { return test_integer(variable, DHCP6_INFO_IPV4, DHCP6_INFO_STRING); }

int32_t test_id_text(const CcdVariable *variable) { return variable->length > ID_TEXT_MAX ? ccdErrorTooBig() : 0; }

void set_id_text(CcdVariable *variable, uint32_t type, const uint8_t *value) {
    char quad[20] = {};
    const char *text = "";
    switch (type) {
    case DHCP6_INFO_IPV4:
        snprintf(quad, sizeof quad, "%d.%d.%d.%d", value[0], value[1], value[2], value[3]);
        text = quad;
        break;
    case DHCP6_INFO_IPV6: text = dhcp6snooping_prefix_to_str(value, WHOLE_ADDRESS); break;
    case DHCP6_INFO_STRING: text = reinterpret_cast<const char *>(value); break;
    default: break;
    }
    octetSet(variable, text, static_cast<uint32_t>(strnlen(text, DHCP6_INFO_VALUE)));
}

// False when the value is longer than any test lets through.
bool stage_text(const CcdVariable *variable, char *staged) {
    uint32_t length = 0;
    const uint8_t *octets = octetGet(variable, &length);
    if (length > ID_TEXT_MAX)
        return false;
    memset(staged, 0, DHCP6_INFO_STAGED);
    memcpy(staged, octets, length);
    return true;
}

int32_t get_remote_id(CcdVariable *variable) {
    ulongSet(variable, dhcp6InfoOptionPolicy.remoteIdType);
    return 0;
}

int32_t commit_remote_id(const CcdVariable *variable) {
    optionContentType = ulongGet(variable);
    return static_cast<int32_t>(dhcp6_info_remote_id_apply());
}

int32_t get_remote_text(CcdVariable *variable) {
    set_id_text(variable, dhcp6InfoOptionPolicy.remoteIdType, dhcp6InfoOptionPolicy.remoteIdValue);
    return 0;
}

int32_t commit_remote_text(const CcdVariable *variable) {
    return stage_text(variable, optionContent) ? static_cast<int32_t>(dhcp6_info_remote_id_apply()) : ccdErrorTooBig();
}

int32_t get_interface_id(CcdVariable *variable) {
    ulongSet(variable, dhcp6InfoOptionPolicy.interfaceIdType);
    return 0;
}

int32_t commit_interface_id(const CcdVariable *variable) {
    optionInterfaceType = ulongGet(variable);
    return static_cast<int32_t>(dhcp6_info_interface_id_apply());
}

int32_t get_interface_text(CcdVariable *variable) {
    set_id_text(variable, dhcp6InfoOptionPolicy.interfaceIdType, dhcp6InfoOptionPolicy.interfaceIdValue);
    return 0;
}

int32_t commit_interface_text(const CcdVariable *variable) {
    return stage_text(variable, optionInterface) ? static_cast<int32_t>(dhcp6_info_interface_id_apply()) : ccdErrorTooBig();
}

// ---- The handler --------------------------------------------------------------------------------------------------------

struct Scalar {
    uint32_t object;
    int32_t (*get)(CcdVariable *variable);
    int32_t (*test)(const CcdVariable *variable);
    int32_t (*commit)(const CcdVariable *variable);
};

constexpr Scalar SCALARS[] = {
    {MIB_SNOOPING_ON_OFF, get_snooping, test_on_off, commit_snooping},
    {MIB_PORT_DOWN_ACTION, get_port_down_action, test_on_off, commit_port_down_action},
    {MIB_EXEMPT_VLANS, mib_exempt_vlans_get, test_exempt_vlans, mib_exempt_vlans_commit},
    {MIB_OPTION18_ENABLE, get_option18, test_enable, commit_option18},
    {MIB_OPTION37_ENABLE, get_option37, test_enable, commit_option37},
    {MIB_REMOTE_ID, get_remote_id, test_id_type, commit_remote_id},
    {MIB_REMOTE_TEXT, get_remote_text, test_id_text, commit_remote_text},
    {MIB_INTERFACE_ID, get_interface_id, test_id_type, commit_interface_id},
    {MIB_INTERFACE_TEXT, get_interface_text, test_id_text, commit_interface_text},
};

} // namespace

int32_t dhcp6snoopingMibScalarHandler(uint32_t kind, CcdVariable *variable) {
    if (variable == nullptr)
        return ccdErrorNoSuchInstance();
    if (ccdScalarValidate(kind, variable) == -1)
        return ccdErrorRequestMap(kind);
    if (!mib_has_work(kind))
        return 0;
    if (kind == CCD_GETNEXT && ccdNextScalarIndex(variable) != 0)
        return ccdErrorNoNextInstance();
    const uint32_t object = variable->object;
    const Scalar *scalar =
        std::find_if(std::begin(SCALARS), std::end(SCALARS), [object](const Scalar &known) { return known.object == object; });
    if (scalar == std::end(SCALARS))
        return ccdErrorNoSuchInstance();
    if (mib_is_get(kind))
        return scalar->get(variable);
    return kind == CCD_TEST ? scalar->test(variable) : scalar->commit(variable);
}
