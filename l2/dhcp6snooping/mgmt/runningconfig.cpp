#include "l2/dhcp6snooping/mgmt/runningconfig.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "l2/dhcp6snooping/base/trace.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/clients/table.h"
#include "l2/dhcp6snooping/infoopt/policy.h"
#include "l2/dhcp6snooping/sourceguard/bindings.h"
#include "l2/dhcp6snooping/sourceguard/exemption.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "platform/libcommon.h"
#include "platform/libsmd.h"
#include "platform/libsyslog.h"
#include "platform/libvlan.h"
#include "platform/libvos.h"

namespace {

constexpr uint32_t VLAN_FIRST = 1;
constexpr uint32_t VLAN_LAST = 4094;
constexpr uint32_t VLAN_TEXT_CHUNK = 110; // characters of one exemption list
constexpr uint32_t ADDRESS_TEXT = 47;     // bytes that vosInetNtop may write
constexpr uint32_t PLATFORM_TEXT = 256;   // bytes given to the platform for a text of its own

// The text while it grows.
struct ConfigText {
    char *end; // its NUL
    uint32_t *space;
    const char *title;
    bool titled;
};

bool append(ConfigText *config, const char *format, ...) __attribute__((format(printf, 2, 3)));

bool charge(const ConfigText *config, uint32_t length) {
    const uint32_t before = *config->space;
    *config->space = before - length;
    return static_cast<int32_t>(before) > static_cast<int32_t>(length);
}

bool append(ConfigText *config, const char *format, ...) {
    if (!config->titled) {
        config->titled = true;
        if (!append(config, "!!!%s\r\n", config->title))
            return false;
    }
    va_list measured;
    va_list written;
    va_start(measured, format);
    va_copy(written, measured);
    const int length = vsnprintf(nullptr, 0, format, measured);
    const bool fits = length >= 0 && charge(config, static_cast<uint32_t>(length));
    if (fits) {
        vsnprintf(config->end, static_cast<size_t>(length) + 1, format, written);
        config->end += length;
    }
    va_end(written);
    va_end(measured);
    return fits;
}

const char *address_text(const uint8_t *address, char *buf) {
    const char *text = vosInetNtop(VOS_AF_INET6, address, buf, ADDRESS_TEXT);
    return text != nullptr ? text : "";
}

bool append_switches(ConfigText *config) {
    if (dhcp6SnoopingOn != 0 && !append(config, "dhcpv6-snooping\r\n"))
        return false;
    if (bDhcp6SnoopingFastRemove == 0 && !append(config, "undo dhcpv6-snooping port-down-action fast-remove\r\n"))
        return false;
    return dhcp6L2Relay == 0 || append(config, "dhcpv6-snooping l2-relay\r\n");
}

// ---- Ports and VLANs ----------------------------------------------------------------------------------------------------

bool append_port(ConfigText *config, uint32_t port0) {
    const bool trusted = dhcp6SnoopingTrustPort[port0] == 1;
    const bool guarded = Ip6SourceGuardPort[port0] == IP6_SOURCE_GUARD_ON;
    const int limit = dhcp6SnoopingPortMaxIP[port0];
    const bool limited = limit != static_cast<int>(DHCP6SNOOPING_LIMIT_MAX);
    if (!trusted && !guarded && !limited)
        return true;
    char interface[PLATFORM_TEXT] = {};
    transPort2InterfaceDesc(port0 + 1, interface);
    interface[sizeof interface - 1] = '\0';
    char limit_line[64] = {};
    if (limited)
        snprintf(limit_line, sizeof limit_line, "dhcpv6-snooping max-clients %d\r\n", limit);
    return append(config, "%s\r\n%s%s%squit\r\n", interface, trusted ? "dhcpv6-snooping trust\r\n" : "",
                  guarded ? "ipv6-source-guard\r\n" : "", limit_line);
}

bool append_ports(ConfigText *config) {
    for (uint32_t port0 = 0; port0 < std::min(gul_max_port_num, DHCP6SNOOPING_PORTS); ++port0) {
        uint32_t type = 0;
        if (smdVDPortExistAndType(port0 + 1, &type) != 0 && !append_port(config, port0))
            return false;
    }
    return true;
}

bool append_vlans(ConfigText *config) {
    for (uint32_t vlan = VLAN_FIRST; vlan <= VLAN_LAST; ++vlan) {
        const int limit = dhcp6SnoopingDhcpVlanMaxIP[vlan];
        if (limit == static_cast<int>(DHCP6SNOOPING_LIMIT_MAX) || vlan_exist(vlan) == 0)
            continue;
        if (!append(config, "vlan %d\r\ndhcpv6-snooping max-clients %d\r\nquit\r\n", static_cast<int>(vlan), limit))
            return false;
    }
    return true;
}

// ---- Options 18 and 37 --------------------------------------------------------------------------------------------------

bool append_id(ConfigText *config, const char *name, uint32_t type, const uint8_t *value,
               const Dhcp6InfoIdTemplate *idTemplate) {
    constexpr int LENGTH_MAX = DHCP6_INFO_VALUE;
    char address[ADDRESS_TEXT + 1] = {};
    switch (type) {
    case DHCP6_INFO_IPV4:
        return append(config, "dhcpv6-snooping information %s ipv4-address %d.%d.%d.%d\r\n", name, value[0], value[1], value[2],
                      value[3]);
    case DHCP6_INFO_IPV6:
        return append(config, "dhcpv6-snooping information %s ipv6-address %s\r\n", name, address_text(value, address));
    case DHCP6_INFO_STRING:
        return append(config, "dhcpv6-snooping information %s string \"%.*s\"\r\n", name, LENGTH_MAX,
                      reinterpret_cast<const char *>(value));
    case DHCP6_INFO_USER_DEFINED:
        return idTemplate == nullptr || append(config, "dhcpv6-snooping information %s user-defined \"%.*s\"\r\n", name,
                                               static_cast<int>(sizeof idTemplate->text), idTemplate->text);
    default: return true;
    }
}

bool append_information(ConfigText *config) {
    const Dhcp6InfoOptionPolicy &policy = dhcp6InfoOptionPolicy;
    if (policy.option18Enable != 0 && !append(config, "dhcpv6-snooping information option 18\r\n"))
        return false;
    if (!append_id(config, "interface-id", policy.interfaceIdType, policy.interfaceIdValue, policy.interfaceIdTemplate))
        return false;
    if (policy.option37Enable != 0 && !append(config, "dhcpv6-snooping information option 37\r\n"))
        return false;
    return append_id(config, "remote-id", policy.remoteIdType, policy.remoteIdValue, policy.remoteIdTemplate);
}

// ---- Source guard -------------------------------------------------------------------------------------------------------

bool append_exemption_texts(ConfigText *config, const uint16_t *vids, char (*texts)[VLAN_TEXT_MAX]) {
    const uint32_t count = std::min(vidArray2vlanList(vids, texts, VLAN_TEXT_CHUNK, 0), VLAN_TEXTS_MAX);
    for (uint32_t text = 0; text < count; ++text)
        if (!append(config, "undo ipv6-source-guard vlan %.*s\r\n", static_cast<int>(VLAN_TEXT_MAX), texts[text]))
            return false;
    return true;
}

bool append_exemptions(ConfigText *config) {
    uint16_t vids[VLAN_LAST + 2] = {}; // count, VLANs, 0
    for (uint32_t vlan = VLAN_FIRST; vlan <= VLAN_LAST; ++vlan)
        if (no_ip6_source_guard_vlan[vlan] != 0)
            vids[++vids[0]] = static_cast<uint16_t>(vlan);
    if (vids[0] == 0)
        return true;
    void *area = calloc(VLAN_TEXTS_MAX, VLAN_TEXT_MAX);
    if (area == nullptr)
        return true;
    const bool fits = append_exemption_texts(config, vids, static_cast<char(*)[VLAN_TEXT_MAX]>(area));
    free(area);
    return fits;
}

// Where the MAC address is open, port and VLAN are not told.
bool append_binding(ConfigText *config, const Ip6SourceGuardBindNode *node) {
    char address_buf[ADDRESS_TEXT + 1] = {};
    char mac[PLATFORM_TEXT] = {};
    char port[PLATFORM_TEXT] = {};
    const char *address = address_text(node->address.bytes, address_buf);
    macToStr(node->mac, mac);
    transPort2String(node->port, port);
    mac[sizeof mac - 1] = '\0';
    port[sizeof port - 1] = '\0';
    if (dhcp6snooping_mac_is_zero(node->mac))
        return append(config, "ipv6-source-guard bind ip %s\r\n", address);
    if (node->port == 0)
        return append(config, "ipv6-source-guard bind ip %s mac %s\r\n", address, mac);
    if (node->vlan == 0)
        return append(config, "ipv6-source-guard bind ip %s mac %s interface ethernet %s\r\n", address, mac, port);
    return append(config, "ipv6-source-guard bind ip %s mac %s interface ethernet %s vlan %u\r\n", address, mac, port,
                  node->vlan);
}

bool append_bindings(ConfigText *config) {
    const Ip6SourceGuardBindNode *head = pIp6SourceGuardBindListHead;
    for (const Ip6SourceGuardBindNode *node = head->next; node != head; node = node->next)
        if (!append_binding(config, node))
            return false;
    return true;
}

} // namespace

int32_t BldRun_dhcp6snooping_cmd(char *text, uint32_t *space, uint32_t, uint32_t) {
    if (text == nullptr || space == nullptr || static_cast<int32_t>(*space) < 1)
        return -1;
    const char *title = get_str_by_mid(DHCP6SNOOPING_SYSLOG_MODULE);
    if (title == nullptr)
        return -1;
    ConfigText config = {.end = text + strlen(text), .space = space, .title = title, .titled = false};
    const bool fits = append_switches(&config) && append_ports(&config) && append_vlans(&config) &&
                      append_information(&config) && append_exemptions(&config) && append_bindings(&config);
    return fits ? 0 : -1;
}
