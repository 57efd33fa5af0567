#include "linux_interfaces.h"

#include <cstdio>
#include <cstring>

#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include "platform/libvlan.h"
#include "platform/linux/links.h"
#include "platform/linux/ports.h"

void startLink(LinkMessage *message, uint16_t type, uint8_t family, uint32_t ifindex, const char *name) {
    message->header = mnl_nlmsg_put_header(message->bytes.data());
    message->header->nlmsg_type = type;
    ifinfomsg *info = static_cast<ifinfomsg *>(mnl_nlmsg_put_extra_header(message->header, sizeof(ifinfomsg)));
    info->ifi_family = family;
    info->ifi_index = static_cast<int>(ifindex);
    info->ifi_flags = IFF_UP | IFF_RUNNING;
    mnl_attr_put_strz(message->header, IFLA_IFNAME, name);
}

void startVlan(LinkMessage *message, uint16_t type, uint32_t ifindex, uint16_t vlan, uint16_t last, uint8_t state) {
    message->header = mnl_nlmsg_put_header(message->bytes.data());
    message->header->nlmsg_type = type;
    br_vlan_msg *head = static_cast<br_vlan_msg *>(mnl_nlmsg_put_extra_header(message->header, sizeof(br_vlan_msg)));
    head->family = AF_BRIDGE;
    head->ifindex = ifindex;
    nlattr *entry = mnl_attr_nest_start(message->header, BRIDGE_VLANDB_ENTRY);
    bridge_vlan_info info = {.flags = 0, .vid = vlan};
    mnl_attr_put(message->header, BRIDGE_VLANDB_ENTRY_INFO, sizeof info, &info);
    if (last != 0) {
        mnl_attr_put_u16(message->header, BRIDGE_VLANDB_ENTRY_RANGE, last);
    }
    mnl_attr_put_u8(message->header, BRIDGE_VLANDB_ENTRY_STATE, state);
    mnl_attr_nest_end(message->header, entry);
}

void tellBridge(uint8_t filtering) {
    LinkMessage message{};
    startLink(&message, RTM_NEWLINK, AF_UNSPEC, BRIDGE, "br0");
    nlattr *info = mnl_attr_nest_start(message.header, IFLA_LINKINFO);
    mnl_attr_put_strz(message.header, IFLA_INFO_KIND, "bridge");
    nlattr *data = mnl_attr_nest_start(message.header, IFLA_INFO_DATA);
    mnl_attr_put_u8(message.header, IFLA_BR_VLAN_FILTERING, filtering);
    mnl_attr_put_u16(message.header, IFLA_BR_VLAN_PROTOCOL, htobe16(0x8100));
    mnl_attr_nest_end(message.header, data);
    mnl_attr_nest_end(message.header, info);
    linuxLinksApply(message.header, nullptr);
}

void tellInterface(uint32_t ifindex, const char *name, uint32_t master, bool backup) {
    LinkMessage message{};
    startLink(&message, RTM_NEWLINK, AF_UNSPEC, ifindex, name);
    if (master != 0) {
        mnl_attr_put_u32(message.header, IFLA_MASTER, master);
    }
    nlattr *info = mnl_attr_nest_start(message.header, IFLA_LINKINFO);
    if (ifindex >= BOND) {
        mnl_attr_put_strz(message.header, IFLA_INFO_KIND, "bond");
    }
    if (master == BRIDGE) {
        mnl_attr_put_strz(message.header, IFLA_INFO_SLAVE_KIND, "bridge");
        nlattr *data = mnl_attr_nest_start(message.header, IFLA_INFO_SLAVE_DATA);
        mnl_attr_put_u8(message.header, IFLA_BRPORT_STATE, BR_STATE_FORWARDING);
        mnl_attr_nest_end(message.header, data);
    }
    if (master >= BOND) {
        mnl_attr_put_strz(message.header, IFLA_INFO_SLAVE_KIND, "bond");
        nlattr *data = mnl_attr_nest_start(message.header, IFLA_INFO_SLAVE_DATA);
        mnl_attr_put_u8(message.header, IFLA_BOND_SLAVE_STATE, backup ? 1 : 0);
        mnl_attr_nest_end(message.header, data);
    }
    mnl_attr_nest_end(message.header, info);
    linuxLinksApply(message.header, nullptr);
}

void tellBond(const char *name, uint8_t mode, uint32_t active, uint8_t hearsAll) {
    LinkMessage message{};
    startLink(&message, RTM_NEWLINK, AF_UNSPEC, BOND, name);
    mnl_attr_put_u32(message.header, IFLA_MASTER, BRIDGE);
    nlattr *info = mnl_attr_nest_start(message.header, IFLA_LINKINFO);
    mnl_attr_put_strz(message.header, IFLA_INFO_KIND, "bond");
    nlattr *data = mnl_attr_nest_start(message.header, IFLA_INFO_DATA);
    mnl_attr_put_u8(message.header, IFLA_BOND_MODE, mode);
    if (active != 0) {
        mnl_attr_put_u32(message.header, IFLA_BOND_ACTIVE_SLAVE, active);
    }
    mnl_attr_put_u8(message.header, IFLA_BOND_ALL_SLAVES_ACTIVE, hearsAll);
    mnl_attr_nest_end(message.header, data);
    mnl_attr_put_strz(message.header, IFLA_INFO_SLAVE_KIND, "bridge");
    nlattr *slave = mnl_attr_nest_start(message.header, IFLA_INFO_SLAVE_DATA);
    mnl_attr_put_u8(message.header, IFLA_BRPORT_STATE, BR_STATE_FORWARDING);
    mnl_attr_nest_end(message.header, slave);
    mnl_attr_nest_end(message.header, info);
    linuxLinksApply(message.header, nullptr);
}

void tellState(uint32_t ifindex, const char *name, uint8_t state, const std::vector<TaggedVlan> &vlans) {
    LinkMessage message{};
    startLink(&message, RTM_NEWLINK, AF_BRIDGE, ifindex, name);
    nlattr *proto = mnl_attr_nest_start(message.header, IFLA_PROTINFO);
    mnl_attr_put_u8(message.header, IFLA_BRPORT_STATE, state);
    mnl_attr_nest_end(message.header, proto);
    nlattr *nest = mnl_attr_nest_start(message.header, IFLA_AF_SPEC);
    for (const TaggedVlan &vlan : vlans) {
        bridge_vlan_info entry = {.flags = vlan.flags, .vid = vlan.vid};
        mnl_attr_put(message.header, IFLA_BRIDGE_VLAN_INFO, sizeof entry, &entry);
    }
    mnl_attr_nest_end(message.header, nest);
    linuxLinksApply(message.header, nullptr);
}

void tellVlan(uint16_t type, uint32_t ifindex, uint16_t vlan, uint16_t last, uint8_t state) {
    LinkMessage message{};
    startVlan(&message, type, ifindex, vlan, last, state);
    linuxLinksApply(message.header, nullptr);
}

void tellGone(uint32_t ifindex, const char *name) {
    LinkMessage message{};
    startLink(&message, RTM_DELLINK, AF_UNSPEC, ifindex, name);
    linuxLinksApply(message.header, nullptr);
}

uint64_t members(uint32_t vlan) {
    SmdPortList list;
    EXPECT_EQ(VLAN_Api_PortList_Get(vlan, &list, 0), 0);
    return list.bits[0];
}

void LinuxInterfaces::SetUp() {
    memset(&linuxSwitch, 0, sizeof linuxSwitch);
    memset(linuxLinks, 0, sizeof linuxLinks);
    memset(linuxCounters, 0, sizeof linuxCounters);
    snprintf(linuxSwitch.bridge, sizeof linuxSwitch.bridge, "br0");
    for (uint32_t p = 0; p < 4; p++) {
        linuxSwitch.ports[p].exists = 1;
        snprintf(linuxSwitch.ports[p].interface, sizeof linuxSwitch.ports[p].interface, "p%u", p + 1);
    }
    linuxSwitch.portMax = 4;
    linuxSwitch.vlans[0] = 0x40; // VLAN 1
    linuxSwitch.vlans[1] = 0x20; // VLAN 10
    linuxPortsInit();
    tellBridge(0);
    tellInterface(P1, "p1", BRIDGE);
    tellInterface(P2, "p2", BRIDGE);
}

void LinuxInterfaces::filterVlans() {
    tellBridge(1);
    tellState(P1, "p1", BR_STATE_FORWARDING,
              {{BRIDGE_VLAN_INFO_PVID | BRIDGE_VLAN_INFO_UNTAGGED, 10},
               {BRIDGE_VLAN_INFO_RANGE_BEGIN, 20},
               {BRIDGE_VLAN_INFO_RANGE_END, 29}});
}
