#include "platform/linux/links.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_bonding.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include "platform/linux/attributes.h"
#include "platform/linux/ipv6walk.h"
#include "platform/linux/linkplaces.h"
#include "platform/linux/loglimit.h"
#include "platform/linux/loop.h"
#include "platform/linux/netlink.h"
#include "platform/linux/ports.h"
#include "platform/linux/strangers.h"
#include "platform/linux/vlans.h"

namespace {

constexpr uint32_t READ_TRIES = 8; // of a list that changes while it is read

uint32_t readings; // full readings so far
bool reading;      // one is going on
bool stale;        // something is not known that no further notification needs to tell: everything has to be read again
bool bridgeIsBridge;
uint32_t defaultVlan; // of the bridge

// The attributes of an interface that matter here, as pointers into the message; null where absent.
struct Attributes {
    const nlattr *name;
    const nlattr *master;
    const nlattr *address;
    const nlattr *linkInfo;
    const nlattr *protoInfo;
    const nlattr *afSpec;
    bool partial; // a notification that does not describe the whole interface
};

// An interface's kind and what the kernel says about it as such, and as a member of its master.
struct Kind {
    const char *kind;
    const nlattr *data;
    const char *slaveKind;
    const nlattr *slaveData;
};

Attributes readAttributes(const nlmsghdr *message) {
    Attributes found{};
    LinuxAttributes list = linuxAttributesOf(message, sizeof(ifinfomsg));
    while (const nlattr *attribute = linuxAttributeNext(&list)) {
        switch (mnl_attr_get_type(attribute)) {
        case IFLA_IFNAME: found.name = attribute; break;
        case IFLA_MASTER: found.master = attribute; break;
        case IFLA_ADDRESS: found.address = attribute; break;
        case IFLA_LINKINFO: found.linkInfo = attribute; break;
        case IFLA_PROTINFO: found.protoInfo = attribute; break;
        case IFLA_AF_SPEC: found.afSpec = attribute; break;
        case IFLA_WIRELESS: found.partial = true; break;
        default: break;
        }
    }
    return found;
}

Kind readKind(const nlattr *linkInfo) {
    Kind found = {.kind = "", .data = nullptr, .slaveKind = "", .slaveData = nullptr};
    if (linkInfo == nullptr) {
        return found;
    }
    LinuxAttributes list = linuxAttributesIn(linkInfo);
    while (const nlattr *attribute = linuxAttributeNext(&list)) {
        switch (mnl_attr_get_type(attribute)) {
        case IFLA_INFO_KIND: found.kind = linuxAttributeText(attribute); break;
        case IFLA_INFO_DATA: found.data = attribute; break;
        case IFLA_INFO_SLAVE_KIND: found.slaveKind = linuxAttributeText(attribute); break;
        case IFLA_INFO_SLAVE_DATA: found.slaveData = attribute; break;
        default: break;
        }
    }
    return found;
}

// Another default VLAN makes it the native one of all ports that had the old one; the kernel tells of the bridge only.
void readDefaultVlan(const nlattr *data) {
    const nlattr *attribute = linuxAttributeFind(data, IFLA_BR_VLAN_DEFAULT_PVID, sizeof(uint16_t));
    const uint32_t vlan = attribute != nullptr ? mnl_attr_get_u16(attribute) : 0;
    stale = stale || (!reading && vlan != defaultVlan);
    defaultVlan = vlan;
}

void readBridge(const Attributes &attributes, const Kind &kind) {
    bridgeIsBridge = strcmp(kind.kind, "bridge") == 0;
    linuxBridge.vlanFiltering = 0;
    linuxBridge.vlanTpid = LINUX_TPID_8021Q;
    if (bridgeIsBridge && kind.data != nullptr) {
        linuxBridge.vlanFiltering = linuxAttributeU8(kind.data, IFLA_BR_VLAN_FILTERING, 0);
        if (const nlattr *protocol = linuxAttributeFind(kind.data, IFLA_BR_VLAN_PROTOCOL, sizeof(uint16_t))) {
            linuxBridge.vlanTpid = linuxBe16(static_cast<const uint8_t *>(mnl_attr_get_payload(protocol)));
        }
        readDefaultVlan(kind.data);
    }
    if (attributes.address != nullptr && mnl_attr_get_payload_len(attributes.address) == sizeof linuxBridge.mac) {
        memcpy(linuxBridge.mac, mnl_attr_get_payload(attributes.address), sizeof linuxBridge.mac);
    }
}

// In the other modes with one active member, the members tell themselves, and sooner.
void readBond(const nlattr *data, LinuxLink *link) {
    const uint32_t mode = linuxAttributeU8(data, IFLA_BOND_MODE, BOND_MODE_ROUNDROBIN);
    const bool byLoad = mode == BOND_MODE_TLB || mode == BOND_MODE_ALB;
    const nlattr *active = linuxAttributeFind(data, IFLA_BOND_ACTIVE_SLAVE, sizeof(uint32_t));
    link->activeMember = byLoad && active != nullptr ? mnl_attr_get_u32(active) : 0;
    link->hearsAll = linuxAttributeU8(data, IFLA_BOND_ALL_SLAVES_ACTIVE, 0);
}

// Logs what people look for when a port does not work: it is not there, or not in the bridge. Not in the middle of a full
// reading, where the bond that a port is in may not have been listed yet.
void logPort(uint32_t index, uint32_t wasIfindex, uint32_t wasMaster) {
    const LinuxLink &link = linuxLinks[index];
    if (index >= LINUX_PORTS_MAX || reading || (link.ifindex == wasIfindex && link.master == wasMaster)) {
        return;
    }
    bool in = linuxBridgeLink(index) != LINUX_NO_LINK;
    linuxLog("port 0/%u: interface %s is %s bridge %s", index + 1, link.name, in ? "in" : "not in", linuxSwitch.bridge);
}

// What a bridge says of its port, alone or with the rest of the interface.
void readPort(const nlattr *nest, LinuxLink *link) {
    link->stpState = linuxAttributeU8(nest, IFLA_BRPORT_STATE, link->stpState);
    link->isolated = linuxAttributeU8(nest, IFLA_BRPORT_ISOLATED, link->isolated);
    link->locked = linuxAttributeU8(nest, IFLA_BRPORT_LOCKED, link->locked);
}

void followStranger(uint32_t ifindex, const char *name, bool inBridge) {
    if (inBridge) {
        linuxStrangerSeen(ifindex, name, readings);
    } else {
        linuxStrangerGone(ifindex);
    }
}

// A bond in the bridge is a stranger too while none of its members is a port.
void followBonds() {
    for (uint32_t i = LINUX_LINK_BOND0; i < LINUX_LINK_BRIDGE; i++) {
        const LinuxLink &bond = linuxLinks[i];
        if (bond.ifindex != 0) {
            const bool inBridge = bond.master != 0 && bond.master == linuxLinks[LINUX_LINK_BRIDGE].ifindex;
            followStranger(bond.ifindex, bond.name, inBridge && linuxTrunkLowest(bond.trunk) == LINUX_NO_LINK);
        }
    }
}

// What follows from a change of the table, once all of it is there.
void settle() {
    if (!reading) {
        linuxLinksRelease();
        followBonds();
    }
    linuxPortsSettle();
}

// A full description of one interface.
void applyInterface(const ifinfomsg *info, const Attributes &attributes) {
    uint32_t ifindex = static_cast<uint32_t>(info->ifi_index);
    Kind kind = readKind(attributes.linkInfo);
    const char *name = linuxAttributeText(attributes.name);
    const uint32_t master = attributes.master == nullptr ? 0 : linuxAttributeU32(attributes.master);
    const uint32_t index = linuxLinkPlace(ifindex, name, strcmp(kind.kind, "bond") == 0);
    followStranger(ifindex, name, index == LINUX_NO_LINK && master != 0 && master == linuxLinks[LINUX_LINK_BRIDGE].ifindex);
    if (index == LINUX_NO_LINK) {
        return;
    }
    LinuxLink *link = &linuxLinks[index];
    uint32_t wasIfindex = link->ifindex;
    uint32_t wasMaster = link->master;
    if (link->ifindex != ifindex) {
        linuxLinkForget(link);
        linuxPortsSettle(); // the old interface is let go of before the new one is taken
        // One that was in a bridge before it got this name was told of as a port under the other one.
        stale = stale || (!reading && (attributes.master != nullptr || index == LINUX_LINK_BRIDGE));
    }
    link->ifindex = ifindex;
    link->seen = readings;
    link->master = master;
    link->running = (info->ifi_flags & IFF_UP) != 0 && (info->ifi_flags & IFF_RUNNING) != 0 ? 1 : 0;
    link->backup = 0;
    if (kind.slaveData != nullptr && strcmp(kind.slaveKind, "bond") == 0) {
        link->backup = linuxAttributeU8(kind.slaveData, IFLA_BOND_SLAVE_STATE, 0);
    }
    if (kind.slaveData != nullptr && strcmp(kind.slaveKind, "bridge") == 0) {
        readPort(kind.slaveData, link);
    }
    if (index == LINUX_LINK_BRIDGE) {
        readBridge(attributes, kind);
    } else if (index >= LINUX_LINK_BOND0 && kind.data != nullptr) {
        readBond(kind.data, link);
    }
    logPort(index, wasIfindex, wasMaster);
}

// Whether a bridge message is about the switch inside a network card: such cards answer for themselves beside the bridge.
bool isOwnSwitch(const nlattr *afSpec) {
    LinuxAttributes list = linuxAttributesIn(afSpec);
    while (const nlattr *attribute = linuxAttributeNext(&list)) {
        if (mnl_attr_get_type(attribute) == IFLA_BRIDGE_FLAGS) {
            return true;
        }
    }
    return false;
}

// What a bridge says about one of its ports, or about itself.
void applyBridgePort(const nlmsghdr *message, const ifinfomsg *info, const Attributes &attributes) {
    uint32_t index = linuxLinkByIfindex(static_cast<uint32_t>(info->ifi_index));
    if (index == LINUX_NO_LINK) {
        return;
    }
    LinuxLink *link = &linuxLinks[index];
    if (attributes.afSpec != nullptr && isOwnSwitch(attributes.afSpec)) {
        return;
    }
    if (message->nlmsg_type == RTM_DELLINK) {
        linuxLinkForgetPort(link);
        stale = true; // the same is said of a port that stays when VLANs were taken from it by RTM_DELVLAN
        return;
    }
    if (attributes.protoInfo != nullptr) {
        readPort(attributes.protoInfo, link);
    }
    if (attributes.afSpec == nullptr && !reading) { // "no VLAN", or a notification that leaves them out: ask
        stale = true;
        return;
    }
    linuxVlansApply(link, attributes.afSpec);
}

int32_t ask(uint8_t family, uint32_t filter) {
    LinuxNetlinkQuestion question{};
    nlmsghdr *message = mnl_nlmsg_put_header(question.bytes);
    message->nlmsg_type = RTM_GETLINK;
    message->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    ifinfomsg *info = static_cast<ifinfomsg *>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
    info->ifi_family = family;
    mnl_attr_put_u32(message, IFLA_EXT_MASK, filter);
    return linuxNetlinkAsk(&question, linuxLinksApply, nullptr);
}

// A kernel that does not filter VLANs has no states of them.
int32_t askVlanStates() {
    LinuxNetlinkQuestion question{};
    nlmsghdr *message = mnl_nlmsg_put_header(question.bytes);
    message->nlmsg_type = RTM_GETVLAN;
    message->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    static_cast<br_vlan_msg *>(mnl_nlmsg_put_extra_header(message, sizeof(br_vlan_msg)))->family = AF_BRIDGE;
    const int32_t error = linuxNetlinkAsk(&question, linuxLinksApply, nullptr);
    return error == -EOPNOTSUPP ? 0 : error;
}

// Whoever is not listed is gone. After an error the reading is tried again with the next notification.
int32_t readOnce() {
    readings++;
    reading = true;
    int32_t error = ask(AF_UNSPEC, RTEXT_FILTER_SKIP_STATS);
    if (error == 0) {
        error = ask(AF_BRIDGE, RTEXT_FILTER_BRVLAN_COMPRESSED);
    }
    if (error == 0) {
        error = askVlanStates();
    }
    reading = false;
    stale = error != 0;
    if (error != 0) {
        return error;
    }
    for (uint32_t i = 0; i < LINUX_LINKS; i++) {
        if (linuxLinks[i].seen != readings) {
            linuxLinkGone(i);
        }
    }
    linuxStrangersKeep(readings);
    linuxLinksRelease();
    followBonds();
    return 0;
}

} // namespace

int linuxLinksApply(const nlmsghdr *message, void *) {
    if (message->nlmsg_type == RTM_NEWVLAN || message->nlmsg_type == RTM_DELVLAN) {
        linuxVlansApplyStates(message);
        linuxPortsSettle();
        return MNL_CB_OK;
    }
    // A bridge tells by RTM_SETLINK of VLANs that a port was given by RTM_NEWVLAN.
    const uint16_t type = message->nlmsg_type;
    if ((type != RTM_NEWLINK && type != RTM_SETLINK && type != RTM_DELLINK) ||
        mnl_nlmsg_get_payload_len(message) < sizeof(ifinfomsg)) {
        return MNL_CB_OK;
    }
    const ifinfomsg *info = static_cast<const ifinfomsg *>(mnl_nlmsg_get_payload(message));
    if (info->ifi_index <= 0) { // nobody's
        return MNL_CB_OK;
    }
    Attributes attributes = readAttributes(message);
    if (info->ifi_family == AF_BRIDGE) {
        applyBridgePort(message, info, attributes);
    } else if (type == RTM_DELLINK) {
        const uint32_t index = linuxLinkByIfindex(static_cast<uint32_t>(info->ifi_index));
        linuxStrangerGone(static_cast<uint32_t>(info->ifi_index));
        if (index != LINUX_NO_LINK) {
            linuxLinkGone(index);
        }
    } else if (attributes.name != nullptr && linuxAttributeText(attributes.name)[0] != 0 && !attributes.partial) {
        applyInterface(info, attributes);
    }
    settle();
    return MNL_CB_OK;
}

// Once more when the list changed meanwhile, or when what it said is only understood now: an interface may be listed before its
// bridge.
int32_t linuxLinksRead() {
    int32_t error = 0;
    bool again = true;
    for (uint32_t i = 0; i < READ_TRIES && again; i++) {
        const uint32_t bridge = linuxLinks[LINUX_LINK_BRIDGE].ifindex;
        error = readOnce();
        again = error == -EINTR || (error == 0 && (stale || bridge != linuxLinks[LINUX_LINK_BRIDGE].ifindex));
    }
    linuxPortsSettle();
    return error;
}

void linuxLinksDoubt() { stale = true; }

void linuxLinksCatchUp() {
    if (!stale) {
        return;
    }
    int32_t error = linuxLinksRead();
    if (error != 0) {
        linuxLogLimited("cannot read the interfaces: %s", strerror(-error));
    }
}

bool linuxLinksBridgeCheck(char *error, uint32_t errorSize) {
    if (linuxLinks[LINUX_LINK_BRIDGE].ifindex == 0) {
        snprintf(error, errorSize, "bridge %s does not exist; create it, or correct `bridge` in the switch file",
                 linuxSwitch.bridge);
        return false;
    }
    if (!bridgeIsBridge) {
        snprintf(error, errorSize, "interface %s is not a bridge; correct `bridge` in the switch file", linuxSwitch.bridge);
        return false;
    }
    return true;
}
