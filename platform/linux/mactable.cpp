#include "platform/linux/mactable.h"

#include <cerrno>
#include <cstring>

#include <libmnl/libmnl.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include "platform/libsmd.h"
#include "platform/linux/attributes.h"
#include "platform/linux/maccache.h"
#include "platform/linux/netlink.h"
#include "platform/linux/ports.h"

namespace {

constexpr uint32_t MAC_LENGTH = 6;
constexpr uint32_t EXTENDED_LOCKED = 1 << 1; // NTF_EXT_LOCKED, of kernels from 6.2 on

uint32_t questions; // to the kernel, about single stations

struct Listing {
    uint32_t skip;
    LinuxMacStatus *out;
    uint32_t count;
    uint32_t room;
    bool more;
};

int takeEntry(const nlmsghdr *message, void *user) {
    *static_cast<LinuxMacEntry *>(user) = linuxMacEntryRead(message);
    return MNL_CB_OK;
}

// The port (from 1) of an interface, its trunk's lowest member for a bond; 0 when it is no port.
uint32_t portOf(uint32_t ifindex, uint32_t *trunk) {
    uint32_t link = linuxLinkByIfindex(ifindex);
    *trunk = LINUX_NO_TRUNK;
    if (link < LINUX_PORTS_MAX) {
        return link + 1;
    }
    if (link >= LINUX_LINK_BRIDGE) {
        return 0;
    }
    *trunk = linuxLinks[link].trunk;
    uint32_t lowest = linuxTrunkLowest(*trunk);
    return lowest == LINUX_NO_LINK ? 0 : lowest + 1;
}

int listEntry(const nlmsghdr *message, void *user) {
    Listing *listing = static_cast<Listing *>(user);
    LinuxMacEntry entry = linuxMacEntryRead(message);
    if (!entry.found || entry.bridge != linuxLinks[LINUX_LINK_BRIDGE].ifindex) {
        return MNL_CB_OK;
    }
    if (listing->skip > 0) {
        listing->skip--;
        return MNL_CB_OK;
    }
    if (listing->count == listing->room) {
        listing->more = true;
        return MNL_CB_OK;
    }
    LinuxMacStatus *out = &listing->out[listing->count++];
    *out = LinuxMacStatus{};
    out->vlan = entry.vlan;
    memcpy(out->mac, entry.mac, MAC_LENGTH);
    out->port = portOf(entry.ifindex, &out->trunk);
    out->local = entry.local ? 1 : 0;
    return MNL_CB_OK;
}

nlmsghdr *question(LinuxNetlinkQuestion *room, uint16_t flags) {
    nlmsghdr *message = mnl_nlmsg_put_header(room->bytes);
    message->nlmsg_type = RTM_GETNEIGH;
    message->nlmsg_flags = flags;
    ndmsg *header = static_cast<ndmsg *>(mnl_nlmsg_put_extra_header(message, sizeof(ndmsg)));
    header->ndm_family = AF_BRIDGE;
    return message;
}

} // namespace

LinuxMacEntry linuxMacEntryRead(const nlmsghdr *message) {
    LinuxMacEntry entry{};
    const ndmsg *header = static_cast<const ndmsg *>(mnl_nlmsg_get_payload(message));
    bool known = message->nlmsg_type == RTM_NEWNEIGH || message->nlmsg_type == RTM_DELNEIGH;
    if (!known || mnl_nlmsg_get_payload_len(message) < sizeof(ndmsg) || header->ndm_family != AF_BRIDGE) {
        return entry;
    }
    entry.ifindex = static_cast<uint32_t>(header->ndm_ifindex);
    entry.local = (header->ndm_state & NUD_PERMANENT) != 0;
    LinuxAttributes list = linuxAttributesOf(message, sizeof(ndmsg));
    while (const nlattr *attribute = linuxAttributeNext(&list)) {
        switch (mnl_attr_get_type(attribute)) {
        case NDA_LLADDR:
            if (mnl_attr_get_payload_len(attribute) == MAC_LENGTH) {
                memcpy(entry.mac, mnl_attr_get_payload(attribute), MAC_LENGTH);
                entry.found = true;
            }
            break;
        case NDA_VLAN:
            if (mnl_attr_validate(attribute, MNL_TYPE_U16) >= 0) {
                entry.vlan = mnl_attr_get_u16(attribute);
            }
            break;
        case NDA_FLAGS_EXT:
            entry.refused =
                mnl_attr_validate(attribute, MNL_TYPE_U32) >= 0 && (mnl_attr_get_u32(attribute) & EXTENDED_LOCKED) != 0;
            break;
        case NDA_MASTER:
            if (mnl_attr_validate(attribute, MNL_TYPE_U32) >= 0) {
                entry.bridge = mnl_attr_get_u32(attribute);
            }
            break;
        default: break;
        }
    }
    return entry;
}

uint32_t linuxMacList(uint32_t start, LinuxMacStatus *out, uint32_t room, bool *more) {
    LinuxNetlinkQuestion asked{};
    Listing listing = {.skip = start, .out = out, .count = 0, .room = room, .more = false};
    question(&asked, NLM_F_REQUEST | NLM_F_DUMP);
    int32_t error = linuxNetlinkAsk(&asked, listEntry, &listing);
    *more = listing.more && (error == 0 || error == -EINTR);
    return listing.count;
}

// Asks the kernel; keeps its answer, unless that says more than the place.
static bool askKernel(const uint8_t *mac, uint16_t vlan, LinuxMacPlace *place, bool *refused) {
    LinuxNetlinkQuestion asked{};
    ++questions;
    nlmsghdr *message = question(&asked, NLM_F_REQUEST);
    mnl_attr_put_u32(message, NDA_MASTER, linuxLinks[LINUX_LINK_BRIDGE].ifindex);
    mnl_attr_put(message, NDA_LLADDR, MAC_LENGTH, mac);
    if (vlan != 0) {
        mnl_attr_put_u16(message, NDA_VLAN, vlan);
    }
    LinuxMacEntry entry{};
    if (linuxNetlinkAsk(&asked, takeEntry, &entry) != 0 || !entry.found || entry.local) {
        return false;
    }
    place->port = portOf(entry.ifindex, &place->trunk);
    *refused = entry.refused;
    if (place->port != 0 && !entry.refused) {
        linuxMacCacheKeep(mac, vlan, *place);
    }
    return place->port != 0;
}

// `vlan` as the bridge has it in its table: one that does not filter VLANs learns without them.
static bool lookUp(const uint8_t *mac, uint32_t vlan, LinuxMacPlace *place, bool *refused) {
    const bool filtering = linuxBridge.vlanFiltering != 0;
    const uint16_t learned = filtering ? static_cast<uint16_t>(vlan) : uint16_t{0};
    *refused = false;
    if ((mac[0] & 1u) != 0 || (filtering && learned == 0)) {
        return false;
    }
    return linuxMacCacheFind(mac, learned, place) || askKernel(mac, learned, place, refused);
}

bool linuxMacIsBehind(uint32_t port0, const uint8_t *mac, uint32_t vlan) {
    LinuxMacPlace place{};
    bool refused = false;
    if (!lookUp(mac, vlan, &place, &refused) || refused || place.trunk != linuxPortTrunk(port0)) {
        return false;
    }
    return place.trunk != LINUX_NO_TRUNK || place.port == port0 + 1;
}

uint32_t linuxMacQuestions() { return questions; }

extern "C" int32_t smdVDMacGet(SmdMacQuery *q) {
    LinuxMacPlace place{};
    bool refused = false;
    if (q == nullptr || !lookUp(q->mac, q->vlan, &place, &refused)) {
        return -1;
    }
    q->flags = place.trunk != LINUX_NO_TRUNK ? SMD_MAC_ON_TRUNK : 0;
    q->port = place.port;
    q->trunk = place.trunk != LINUX_NO_TRUNK ? static_cast<uint16_t>(place.trunk) : uint16_t{0};
    memset(q->reserved, 0, sizeof q->reserved);
    return 0;
}
