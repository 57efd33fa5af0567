#include "l2/dhcp6snooping/infoopt/policy.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "l2/dhcp6snooping/base/text.h"
#include "platform/libcommon.h"

Dhcp6InfoOptionPolicy dhcp6InfoOptionPolicy = {
    .strategy = DHCP6_INFO_REPLACE,
    .option37Enable = 0,
    .remoteIdType = DHCP6_INFO_DEFAULT,
    .remoteIdValue = {},
    .remoteIdTemplate = nullptr,
    .option18Enable = 0,
    .interfaceIdType = DHCP6_INFO_DEFAULT,
    .interfaceIdValue = {},
    .interfaceIdTemplate = nullptr,
};

char optionContent[DHCP6_INFO_STAGED] = {};
uint32_t optionContentType = 0;
char optionInterface[DHCP6_INFO_STAGED] = {};
uint32_t optionInterfaceType = 0;

namespace {

constexpr uint32_t REFUSED = 0xFFFFFFFFu;
constexpr uint32_t IP4_ADDRESS = 4;
constexpr uint32_t IP6_ADDRESS = 16;

// The id of one option, wherever it stands in the record.
struct InfoId {
    uint32_t *type;
    uint8_t *value;
    Dhcp6InfoIdTemplate **idTemplate;
};

InfoId remote_id() {
    Dhcp6InfoOptionPolicy *policy = &dhcp6InfoOptionPolicy;
    return {&policy->remoteIdType, policy->remoteIdValue, &policy->remoteIdTemplate};
}

InfoId interface_id() {
    Dhcp6InfoOptionPolicy *policy = &dhcp6InfoOptionPolicy;
    return {&policy->interfaceIdType, policy->interfaceIdValue, &policy->interfaceIdTemplate};
}

void set_value(const InfoId &id, uint32_t type, const void *value, size_t bytes) {
    memcpy(id.value, value, bytes);
    *id.type = type;
}

// A text together with its NUL, when both fit.
bool set_text(const InfoId &id, const char *text) {
    const size_t length = strnlen(text, DHCP6_INFO_VALUE);
    if (length == DHCP6_INFO_VALUE)
        return false;
    set_value(id, DHCP6_INFO_STRING, text, length);
    id.value[length] = 0;
    return true;
}

bool set_template(const InfoId &id, const void *value) {
    void *block = calloc(1, sizeof(Dhcp6InfoIdTemplate));
    if (block == nullptr)
        return false;
    memcpy(block, value, sizeof(Dhcp6InfoIdTemplate));
    *id.idTemplate = static_cast<Dhcp6InfoIdTemplate *>(block);
    *id.type = DHCP6_INFO_USER_DEFINED;
    return true;
}

bool set_id(const InfoId &id, uint32_t type, const void *value) {
    if (type == DHCP6_INFO_DEFAULT) {
        *id.type = type;
        return true;
    }
    if (value == nullptr)
        return false;
    switch (type) {
    case DHCP6_INFO_IPV4: set_value(id, type, value, IP4_ADDRESS); return true;
    case DHCP6_INFO_IPV6: set_value(id, type, value, IP6_ADDRESS); return true;
    case DHCP6_INFO_STRING: return set_text(id, static_cast<const char *>(value));
    case DHCP6_INFO_USER_DEFINED: return set_template(id, value);
    default: return false;
    }
}

void apply_ip4(const InfoId &id, const char *text) {
    uint32_t checked = 0;
    int octets[IP4_ADDRESS] = {};
    if (strtoipAddr(text, &checked) != 0 ||
        sscanf(text, "%d.%d.%d.%d", &octets[0], &octets[1], &octets[2], &octets[3]) != static_cast<int>(IP4_ADDRESS))
        return;
    uint8_t address[IP4_ADDRESS];
    for (uint32_t octet = 0; octet < IP4_ADDRESS; ++octet)
        address[octet] = static_cast<uint8_t>(octets[octet]);
    set_value(id, DHCP6_INFO_IPV4, address, sizeof address);
}

void apply_ip6(const InfoId &id, const char *text) {
    uint8_t address[IP6_ADDRESS];
    if (dhcp6snooping_inet_pton(DHCP6SNOOPING_FAMILY_INET6, text, address) == 1)
        set_value(id, DHCP6_INFO_IPV6, address, sizeof address);
}

// Unlike setting an id, this never touches the template.
void apply(const InfoId &id, uint32_t type, const char *staged) {
    char text[DHCP6_INFO_STAGED] = {};
    memcpy(text, staged, sizeof text - 1);
    switch (type) {
    case DHCP6_INFO_IPV4: apply_ip4(id, text); break;
    case DHCP6_INFO_IPV6: apply_ip6(id, text); break;
    case DHCP6_INFO_DEFAULT: *id.type = type; break;
    case DHCP6_INFO_STRING:
        if (text[0] != '\0')
            set_text(id, text);
        break;
    default: break;
    }
}

void free_template(Dhcp6InfoIdTemplate **held) {
    free(*held);
    *held = nullptr;
}

} // namespace

uint32_t dhcp6_info_option18_enable(uint32_t enable) {
    dhcp6InfoOptionPolicy.option18Enable = enable;
    return 0;
}

uint32_t dhcp6_info_option37_enable(uint32_t enable) {
    dhcp6InfoOptionPolicy.option37Enable = enable;
    return 0;
}

uint32_t dhcp6_info_id_set(int32_t which, uint32_t type, const void *value) {
    if (which != 0 && which != 1)
        return REFUSED;
    const InfoId id = which == 0 ? remote_id() : interface_id();
    // Before the type is looked at: whoever sets an id, even in vain, gives up the template.
    free_template(id.idTemplate);
    return set_id(id, type, value) ? 0 : REFUSED;
}

uint32_t dhcp6_info_get(Dhcp6InfoOptionPolicy *policy, Dhcp6InfoIdTemplate *interfaceIdTemplate,
                        Dhcp6InfoIdTemplate *remoteIdTemplate) {
    if (policy == nullptr || interfaceIdTemplate == nullptr || remoteIdTemplate == nullptr)
        return REFUSED;
    memcpy(policy, &dhcp6InfoOptionPolicy, sizeof *policy);
    if (dhcp6InfoOptionPolicy.remoteIdTemplate != nullptr)
        memcpy(remoteIdTemplate, dhcp6InfoOptionPolicy.remoteIdTemplate, sizeof *remoteIdTemplate);
    if (dhcp6InfoOptionPolicy.interfaceIdTemplate != nullptr)
        memcpy(interfaceIdTemplate, dhcp6InfoOptionPolicy.interfaceIdTemplate, sizeof *interfaceIdTemplate);
    return 0;
}

uint32_t dhcp6_info_remote_id_apply() {
    apply(remote_id(), optionContentType, optionContent);
    return 0;
}

uint32_t dhcp6_info_interface_id_apply() {
    apply(interface_id(), optionInterfaceType, optionInterface);
    return 0;
}
