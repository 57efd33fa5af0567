#include "platform/linux/vlans.h"

#include <cstring>

#include <libmnl/libmnl.h>
#include <linux/if_bridge.h>
#include <linux/rtnetlink.h>

#include "platform/linux/attributes.h"

namespace {

bool bitGet(const uint8_t *bits, uint32_t vlan) { return (bits[vlan / 8] & (0x80u >> (vlan % 8))) != 0; }

void bitSet(uint8_t *bits, uint32_t vlan) { bits[vlan / 8] = static_cast<uint8_t>(bits[vlan / 8] | (0x80u >> (vlan % 8))); }

void bitClear(uint8_t *bits, uint32_t vlan) { bits[vlan / 8] = static_cast<uint8_t>(bits[vlan / 8] & ~(0x80u >> (vlan % 8))); }

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

// An interface of the switch file may be in another bridge meanwhile, and that one's VLANs are not the switch's.
bool isOfBridge(uint32_t link) {
    const uint32_t bridge = linuxLinks[LINUX_LINK_BRIDGE].ifindex;
    return bridge != 0 && (link == LINUX_LINK_BRIDGE || linuxLinks[link].master == bridge);
}

// One VLAN, or a range of them with one state.
void applyState(LinuxLink *link, const nlattr *entry, bool gone) {
    bridge_vlan_info first{};
    uint32_t last = 0;
    uint32_t state = BR_STATE_FORWARDING;
    LinuxAttributes list = linuxAttributesIn(entry);
    while (const nlattr *attribute = linuxAttributeNext(&list)) {
        const uint16_t type = mnl_attr_get_type(attribute);
        if (type == BRIDGE_VLANDB_ENTRY_INFO && mnl_attr_get_payload_len(attribute) == sizeof first) {
            memcpy(&first, mnl_attr_get_payload(attribute), sizeof first);
        } else if (type == BRIDGE_VLANDB_ENTRY_RANGE && mnl_attr_validate(attribute, MNL_TYPE_U16) >= 0) {
            last = mnl_attr_get_u16(attribute);
        } else if (type == BRIDGE_VLANDB_ENTRY_STATE && mnl_attr_validate(attribute, MNL_TYPE_U8) >= 0) {
            state = mnl_attr_get_u8(attribute);
        }
    }
    last = last != 0 ? last : first.vid;
    for (uint32_t vlan = first.vid; vlan <= last && vlan <= LINUX_VLAN_MAX; vlan++) {
        (gone || state == BR_STATE_FORWARDING ? bitClear : bitSet)(link->blocked, vlan);
    }
}

void clearMembers(LinuxLink *link) {
    link->nativeVlan = 0;
    memset(link->member, 0, sizeof link->member);
    memset(link->untagged, 0, sizeof link->untagged);
}

bool isMember(uint32_t link, uint32_t vlan) { return vlan <= LINUX_VLAN_MAX && bitGet(linuxLinks[link].member, vlan); }

} // namespace

void linuxVlansClear(LinuxLink *link) {
    clearMembers(link);
    memset(link->blocked, 0, sizeof link->blocked);
}

void linuxVlansApplyStates(const nlmsghdr *message) {
    if (mnl_nlmsg_get_payload_len(message) < sizeof(br_vlan_msg)) {
        return;
    }
    const br_vlan_msg *head = static_cast<const br_vlan_msg *>(mnl_nlmsg_get_payload(message));
    const uint32_t link = linuxLinkByIfindex(head->ifindex);
    LinuxAttributes list = linuxAttributesOf(message, sizeof(br_vlan_msg));
    while (const nlattr *attribute = linuxAttributeNext(&list)) {
        if (link != LINUX_NO_LINK && mnl_attr_get_type(attribute) == BRIDGE_VLANDB_ENTRY) {
            applyState(&linuxLinks[link], attribute, message->nlmsg_type == RTM_DELVLAN);
        }
    }
}

void linuxVlansApply(LinuxLink *link, const nlattr *afSpec) {
    clearMembers(link);
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

bool linuxVlanForwards(uint32_t link, uint32_t vlan) {
    return linuxBridge.vlanFiltering == 0 || (isMember(link, vlan) && !bitGet(linuxLinks[link].blocked, vlan));
}

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
        if (linuxLinks[i].ifindex != 0 && isOfBridge(i) && isMember(i, vlan)) {
            return true;
        }
    }
    return false;
}
