#include "platform/linux/vlans.h"

#include <cstring>

#include <libmnl/libmnl.h>
#include <linux/if_bridge.h>

#include "platform/linux/netlink.h"

namespace {

bool bitGet(const uint8_t *bits, uint32_t vlan) { return (bits[vlan / 8] & (0x80u >> (vlan % 8))) != 0; }

void bitSet(uint8_t *bits, uint32_t vlan) { bits[vlan / 8] = static_cast<uint8_t>(bits[vlan / 8] | (0x80u >> (vlan % 8))); }

void addRange(LinuxLink *link, uint32_t first, uint32_t last, uint32_t flags) {
    for (uint32_t vlan = first; vlan <= last && vlan <= LINUX_VLAN_MAX; vlan++) {
        if (vlan == 0) {
            continue;
        }
        bitSet(link->member, vlan);
        if ((flags & BRIDGE_VLAN_INFO_UNTAGGED) != 0) {
            bitSet(link->untagged, vlan);
        }
        if ((flags & BRIDGE_VLAN_INFO_PVID) != 0) {
            link->nativeVlan = vlan;
        }
    }
}

bool isMember(uint32_t link, uint32_t vlan) { return vlan <= LINUX_VLAN_MAX && bitGet(linuxLinks[link].member, vlan); }

} // namespace

void linuxVlansClear(LinuxLink *link) {
    link->nativeVlan = 0;
    memset(link->member, 0, sizeof link->member);
    memset(link->untagged, 0, sizeof link->untagged);
}

void linuxVlansApply(LinuxLink *link, const nlattr *afSpec) {
    linuxVlansClear(link);
    if (afSpec == nullptr) {
        return;
    }
    uint32_t begin = 0;
    LinuxAttributes list = linuxAttributesIn(afSpec);
    while (const nlattr *attribute = linuxAttributeNext(&list)) {
        bridge_vlan_info info;
        if (mnl_attr_get_type(attribute) != IFLA_BRIDGE_VLAN_INFO || mnl_attr_get_payload_len(attribute) != sizeof info) {
            continue;
        }
        memcpy(&info, mnl_attr_get_payload(attribute), sizeof info);
        if ((info.flags & BRIDGE_VLAN_INFO_RANGE_BEGIN) != 0) {
            begin = info.vid;
            continue;
        }
        addRange(link, (info.flags & BRIDGE_VLAN_INFO_RANGE_END) != 0 ? begin : info.vid, info.vid, info.flags);
    }
}

uint16_t linuxVlanNative(uint32_t link) {
    return linuxBridge.vlanFiltering != 0 ? static_cast<uint16_t>(linuxLinks[link].nativeVlan) : LINUX_NATIVE_VLAN;
}

bool linuxVlanMember(uint32_t link, uint32_t vlan) { return linuxBridge.vlanFiltering == 0 || isMember(link, vlan); }

bool linuxVlanUntagged(uint32_t link, uint32_t vlan) {
    return linuxBridge.vlanFiltering != 0 && vlan <= LINUX_VLAN_MAX && bitGet(linuxLinks[link].untagged, vlan);
}

bool linuxVlanExists(uint32_t vlan) {
    if (vlan == 0 || vlan > LINUX_VLAN_MAX) {
        return false;
    }
    if (linuxBridge.vlanFiltering == 0) {
        return bitGet(linuxSwitch.vlans, vlan);
    }
    for (uint32_t i = 0; i < LINUX_LINKS; i++) {
        if (linuxLinks[i].ifindex != 0 && isMember(i, vlan)) {
            return true;
        }
    }
    return false;
}
