#include "l2/dhcp6snooping/infoopt/idtemplate.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "l2/dhcp6snooping/base/wire.h"
#include "platform/libcommon.h"
#include "platform/libl3if.h"
#include "platform/libsmd.h"
#include "platform/libvos.h"

namespace {

constexpr uint32_t VLAN_FIRST = 1;
constexpr uint32_t VLAN_LAST = 4094;
constexpr unsigned long VLAN_FIELD_MAX = 4095;
constexpr uint32_t VALUE_TEXT = 160; // longest text of an element: a host name
constexpr uint32_t HOST_NAME = 128;
constexpr uint32_t VENDOR = 4; // characters in front of a serial number

// One run of the builder.
struct Build {
    const Dhcp6InfoIdTemplate *idTemplate;
    const Dhcp6InfoContext *ctx;
    bool binary;
    uint8_t *out;
    uint32_t space;
    uint32_t *length;
    uint32_t port; // from 1
    uint16_t outerVlan;
    uint16_t innerVlan;
    uint32_t chassis;
    uint32_t slot;
    uint32_t portNumber;
};

bool append(const Build &build, const void *bytes, uint32_t count) {
    const uint32_t at = *build.length;
    *build.length += count;
    if (*build.length > build.space)
        return false;
    memcpy(build.out + at, bytes, count);
    return true;
}

bool append_text(const Build &build, const char *text) {
    return append(build, text, static_cast<uint32_t>(strnlen(text, VALUE_TEXT)));
}

bool append_literal(const Build &build, uint32_t k) {
    const char *literal = build.idTemplate->literal[k];
    return append(build, literal, static_cast<uint32_t>(strnlen(literal, sizeof build.idTemplate->literal[k])));
}

// In binary the low `bytes` bytes, one or two.
bool append_number(const Build &build, uint32_t number, uint32_t bytes, const char *format) {
    if (build.binary) {
        uint8_t field[2];
        wire_put16(field, 0, static_cast<uint16_t>(number));
        return append(build, field + sizeof field - bytes, bytes);
    }
    char text[VALUE_TEXT];
    snprintf(text, sizeof text, format, number);
    return append_text(build, text);
}

bool append_mac(const Build &build, const uint8_t *mac, const char *format) {
    if (build.binary)
        return append(build, mac, 6);
    char text[VALUE_TEXT];
    snprintf(text, sizeof text, format, mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return append_text(build, text);
}

bool append_address(const Build &build, uint32_t ip, const char *format) {
    const uint8_t octets[4] = {static_cast<uint8_t>(ip >> 24), static_cast<uint8_t>(ip >> 16), static_cast<uint8_t>(ip >> 8),
                               static_cast<uint8_t>(ip)};
    if (build.binary)
        return append(build, octets, sizeof octets);
    char text[VALUE_TEXT];
    snprintf(text, sizeof text, format, octets[0], octets[1], octets[2], octets[3]);
    return append_text(build, text);
}

bool append_switch_address(const Build &build) {
    uint32_t ip = 0;
    l3ifSwPrimIpGet(build.ctx->switchId, &ip);
    return append_address(build, ip, "%u.%u.%u.%u");
}

// A text that is no VLAN asks for VLAN 0, which has no address.
bool append_vlan_address(const Build &build, uint32_t k) {
    constexpr uint32_t FIELD = sizeof build.idTemplate->elementVlan[k];
    char text[FIELD + 1] = {};
    memcpy(text, build.idTemplate->elementVlan[k], FIELD);
    const unsigned long vlan = strtoul(text, nullptr, 10);
    uint32_t ip = 0;
    l3ifSwPrimIpGetByVid(vlan <= VLAN_FIELD_MAX ? static_cast<uint32_t>(vlan) : 0, &ip);
    return append_address(build, ip, "%02x%02x%02x%02x");
}

bool append_host_name(const Build &build) {
    char name[HOST_NAME] = {};
    vosHostNameGet(name, sizeof name);
    name[sizeof name - 1] = '\0';
    return append_text(build, name);
}

bool append_port_name(const Build &build) {
    char name[PORT_TEXT_MAX] = {};
    transPort2EtherPort(build.port, name);
    return append_text(build, name);
}

bool append_serial(const Build &build) {
    uint8_t serial[sizeof build.ctx->serialNumber];
    memcpy(serial, build.ctx->serialNumber, sizeof serial);
    for (uint32_t at = 0; at < VENDOR; ++at)
        if (serial[at] == '\0')
            serial[at] = ' ';
    if (build.binary)
        return append(build, serial, sizeof serial);
    char digits[VALUE_TEXT];
    snprintf(digits, sizeof digits, "%02x%02x%02x%02x", serial[4], serial[5], serial[6], serial[7]);
    return append(build, serial, VENDOR) && append_text(build, digits);
}

// A type that nobody knows has no value.
bool append_element(const Build &build, uint32_t k) {
    switch (build.idTemplate->elementType[k]) {
    case DHCP6_INFO_SWITCH_ADDRESS: return append_switch_address(build);
    case DHCP6_INFO_HOST_NAME: return append_host_name(build);
    case DHCP6_INFO_PORT_NAME: return append_port_name(build);
    case DHCP6_INFO_PORT_KIND: return append_text(build, build.ctx->isXpon == 1 ? "xpon" : "ethernet");
    case DHCP6_INFO_SYSTEM_MAC: return append_mac(build, build.ctx->systemMac, "%02x%02x%02x%02x%02x%02x");
    case DHCP6_INFO_CHASSIS: return append_number(build, build.chassis, 1, "%u");
    case DHCP6_INFO_SLOT: return append_number(build, build.slot, 1, "%u");
    case DHCP6_INFO_SUBSLOT: return append_number(build, 0, 1, "%u");
    case DHCP6_INFO_PORT: return append_number(build, build.portNumber, 1, "%u");
    case DHCP6_INFO_OUTER_VLAN: return append_number(build, build.outerVlan, 2, "%04u");
    case DHCP6_INFO_INNER_VLAN: return append_number(build, build.innerVlan, 2, "%04u");
    case DHCP6_INFO_CLIENT_MAC: return append_mac(build, build.ctx->clientMac, "%02X%02X%02X%02X%02X%02X");
    case DHCP6_INFO_VLAN_ADDRESS: return append_vlan_address(build, k);
    case DHCP6_INFO_PON: return append_number(build, build.ctx->ponValue, 1, "%u");
    case DHCP6_INFO_ONU: return append_number(build, build.ctx->ponId, 1, "%u");
    case DHCP6_INFO_SERIAL: return append_serial(build);
    case DHCP6_INFO_ONU_WIDE: return append_number(build, build.ctx->ponId, 2, "%u");
    default: return true;
    }
}

bool is_xpon_element(uint32_t type) { return type >= DHCP6_INFO_PON && type <= DHCP6_INFO_ONU_WIDE; }

bool append_elements(const Build &build) {
    for (uint32_t k = 1; k < DHCP6_INFO_ELEMENTS && build.idTemplate->elementType[k] != 0; ++k) {
        if (build.ctx->isXpon != 1 && is_xpon_element(build.idTemplate->elementType[k]))
            continue;
        if (!append_element(build, k) || !append_literal(build, k))
            return false;
    }
    return true;
}

} // namespace

int32_t dhcp6_info_template_build(const Dhcp6InfoIdTemplate *idTemplate, const Dhcp6InfoContext *ctx, uint32_t mode,
                                  uint8_t *out, uint32_t space, uint32_t *length) {
    Build build = {.idTemplate = idTemplate,
                   .ctx = ctx,
                   .binary = mode == DHCP6_INFO_BINARY,
                   .out = out,
                   .space = space,
                   .length = length,
                   .port = ctx->port + 1u,
                   .outerVlan = ctx->vlan,
                   .innerVlan = ctx->innerVlan,
                   .chassis = 0,
                   .slot = 0,
                   .portNumber = 0};
    if (ctx->vlan < VLAN_FIRST || ctx->vlan > VLAN_LAST || build.port > gul_max_port_num)
        return -1;
    // A single tag belongs to the customer where there is no line terminal in between.
    if (ctx->isXpon != 1 && build.innerVlan == 0) {
        build.innerVlan = ctx->vlan;
        build.outerVlan = 0;
    }
    if (!append_literal(build, 0))
        return -1;
    smdVDPortSnmpToUser(build.port, &build.chassis, &build.slot, &build.portNumber);
    return append_elements(build) ? 0 : -1;
}
