#include "fuzz/netlinkscript.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace {

constexpr uint32_t ROOM = 8192; // bytes of the longest message, a bridge port with 255 VLANs

// Bits of a link's flags.
constexpr uint32_t LINK_DOWN = 0x01;
constexpr uint32_t LINK_NO_CARRIER = 0x02;
constexpr uint32_t LINK_NO_NAME = 0x04;
constexpr uint32_t LINK_PARTIAL = 0x08;
constexpr uint32_t LINK_NO_INFO = 0x10;
constexpr uint32_t LINK_NAME_OPEN = 0x20;    // no zero at its end
constexpr uint32_t LINK_LENGTHS_LIE = 0x40;  // of the attributes
constexpr uint32_t LINK_WIDE_NUMBERS = 0x80; // where one byte is due
// Bits of a port's flags.
constexpr uint32_t PORT_NO_VLANS = 0x01;
constexpr uint32_t PORT_NO_STATE = 0x02;
constexpr uint32_t PORT_NETWORK_CARD = 0x04;

void start(nlmsghdr *message, uint16_t type, uint8_t family, uint32_t ifindex, uint32_t flags) {
    message->nlmsg_type = type;
    auto *info = static_cast<ifinfomsg *>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
    info->ifi_family = family;
    info->ifi_index = static_cast<int>(ifindex);
    info->ifi_flags = ((flags & LINK_DOWN) != 0 ? 0 : IFF_UP) | ((flags & LINK_NO_CARRIER) != 0 ? 0 : IFF_RUNNING);
}

void putNumber(nlmsghdr *message, uint16_t type, uint32_t value, uint32_t flags) {
    if ((flags & LINK_WIDE_NUMBERS) != 0)
        mnl_attr_put_u32(message, type, value);
    else
        mnl_attr_put_u8(message, type, static_cast<uint8_t>(value));
}

void putInfo(nlmsghdr *message, uint32_t kind, uint32_t first, uint32_t second, uint32_t flags) {
    static constexpr const char *KINDS[] = {"", "bond", "bridge", "team"};
    nlattr *info = mnl_attr_nest_start(message, IFLA_LINKINFO);
    mnl_attr_put_strz(message, IFLA_INFO_KIND, KINDS[kind % 4]);
    nlattr *data = mnl_attr_nest_start(message, IFLA_INFO_DATA);
    if (kind % 4 == 2) {
        putNumber(message, IFLA_BR_VLAN_FILTERING, first & 1u, flags);
        mnl_attr_put_u16(message, IFLA_BR_VLAN_PROTOCOL, (first & 2u) != 0 ? uint16_t{0xA888} : uint16_t{0x0081});
        mnl_attr_put_u16(message, IFLA_BR_VLAN_DEFAULT_PVID, static_cast<uint16_t>(second));
    } else {
        putNumber(message, IFLA_BOND_MODE, first % 8, flags);
        putNumber(message, IFLA_BOND_ALL_SLAVES_ACTIVE, first >> 7, flags);
        mnl_attr_put_u32(message, IFLA_BOND_ACTIVE_SLAVE, second);
    }
    mnl_attr_nest_end(message, data);
    mnl_attr_put_strz(message, IFLA_INFO_SLAVE_KIND, KINDS[kind / 4 % 4]);
    nlattr *slave = mnl_attr_nest_start(message, IFLA_INFO_SLAVE_DATA);
    if (kind / 4 % 4 == 1) {
        putNumber(message, IFLA_BOND_SLAVE_STATE, second & 1u, flags);
    } else {
        putNumber(message, IFLA_BRPORT_STATE, second % 8, flags);
        putNumber(message, IFLA_BRPORT_ISOLATED, second >> 6 & 1u, flags);
        putNumber(message, IFLA_BRPORT_LOCKED, second >> 7, flags);
    }
    mnl_attr_nest_end(message, slave);
    mnl_attr_nest_end(message, info);
}

void putLink(nlmsghdr *message, uint16_t type, FuzzInput *input) {
    const uint32_t ifindex = fuzzU8(input);
    const char *name = netlinkName(fuzzU8(input));
    const uint32_t master = fuzzU8(input);
    const uint32_t flags = fuzzU8(input);
    const uint32_t kind = fuzzU8(input);
    const uint32_t first = fuzzU8(input);
    const uint32_t second = fuzzU8(input);
    start(message, type, AF_UNSPEC, ifindex, flags);
    if ((flags & LINK_NO_NAME) == 0)
        mnl_attr_put(message, IFLA_IFNAME, std::strlen(name) + ((flags & LINK_NAME_OPEN) != 0 ? 0 : 1), name);
    if (master != 0)
        mnl_attr_put_u32(message, IFLA_MASTER, master);
    if ((flags & LINK_PARTIAL) != 0)
        mnl_attr_put_u32(message, IFLA_WIRELESS, 0);
    auto *info = static_cast<nlattr *>(mnl_nlmsg_get_payload_tail(message));
    if ((flags & LINK_NO_INFO) == 0)
        putInfo(message, kind, first, second, flags);
    if ((flags & (LINK_NO_INFO | LINK_LENGTHS_LIE)) == LINK_LENGTHS_LIE)
        info->nla_len = static_cast<uint16_t>(info->nla_len + static_cast<int8_t>(second));
}

void putPort(nlmsghdr *message, uint16_t type, FuzzInput *input) {
    const uint32_t ifindex = fuzzU8(input);
    const uint32_t flags = fuzzU8(input);
    const uint8_t state = fuzzU8(input);
    start(message, type, AF_BRIDGE, ifindex, 0);
    if ((flags & PORT_NO_STATE) == 0) {
        nlattr *port = mnl_attr_nest_start(message, IFLA_PROTINFO);
        mnl_attr_put_u8(message, IFLA_BRPORT_STATE, state % 8);
        mnl_attr_put_u8(message, IFLA_BRPORT_ISOLATED, state >> 6 & 1);
        mnl_attr_put_u8(message, IFLA_BRPORT_LOCKED, state >> 7);
        mnl_attr_nest_end(message, port);
    }
    if ((flags & PORT_NO_VLANS) != 0)
        return;
    nlattr *vlans = mnl_attr_nest_start(message, IFLA_AF_SPEC);
    if ((flags & PORT_NETWORK_CARD) != 0)
        mnl_attr_put_u16(message, IFLA_BRIDGE_FLAGS, BRIDGE_FLAGS_SELF);
    for (uint32_t count = fuzzU8(input); count > 0; count--) {
        const uint16_t vlan = fuzzU16(input); // its flags are in the upper bits, so that most are in range
        const bridge_vlan_info entry = {.flags = static_cast<uint16_t>(vlan >> 11),
                                        .vid = static_cast<uint16_t>(vlan & 0x1FFF)};
        mnl_attr_put(message, IFLA_BRIDGE_VLAN_INFO, sizeof entry, &entry);
    }
    mnl_attr_nest_end(message, vlans);
}

void putVlan(nlmsghdr *message, uint16_t type, FuzzInput *input) {
    message->nlmsg_type = type;
    auto *head = static_cast<br_vlan_msg *>(mnl_nlmsg_put_extra_header(message, sizeof(br_vlan_msg)));
    head->family = AF_BRIDGE;
    head->ifindex = fuzzU8(input);
    const bridge_vlan_info entry = {.flags = 0, .vid = fuzzU16(input)};
    nlattr *nest = mnl_attr_nest_start(message, BRIDGE_VLANDB_ENTRY);
    mnl_attr_put(message, BRIDGE_VLANDB_ENTRY_INFO, sizeof entry, &entry);
    mnl_attr_put_u16(message, BRIDGE_VLANDB_ENTRY_RANGE, fuzzU16(input));
    mnl_attr_put_u8(message, BRIDGE_VLANDB_ENTRY_STATE, fuzzU8(input));
    mnl_attr_nest_end(message, nest);
}

void putNeighbour(nlmsghdr *message, FuzzInput *input) {
    message->nlmsg_type = RTM_NEWNEIGH;
    auto *head = static_cast<ndmsg *>(mnl_nlmsg_put_extra_header(message, sizeof(ndmsg)));
    head->ndm_family = AF_BRIDGE;
    head->ndm_ifindex = fuzzU8(input);
    const uint8_t mac[6] = {2, 0, 0, 0, 0, fuzzU8(input)};
    const uint16_t vlan = fuzzU16(input);
    const uint32_t flags = fuzzU8(input);
    head->ndm_state = (flags & 1u) != 0 ? NUD_PERMANENT : NUD_REACHABLE;
    mnl_attr_put(message, NDA_LLADDR, sizeof mac - (flags >> 7), mac);
    mnl_attr_put_u16(message, NDA_VLAN, vlan);
    mnl_attr_put_u32(message, NDA_FLAGS_EXT, flags);
    mnl_attr_put_u32(message, NDA_MASTER, NETLINK_BRIDGE_INDEX);
}

void putRaw(nlmsghdr *message, FuzzInput *input) {
    message->nlmsg_type = fuzzU16(input);
    const std::span<const uint8_t> bytes = fuzzTake(input, fuzzU8(input));
    if (!bytes.empty())
        std::memcpy(mnl_nlmsg_get_payload(message), bytes.data(), bytes.size());
    message->nlmsg_len += static_cast<uint32_t>(bytes.size());
}

} // namespace

const char *netlinkName(uint32_t number) {
    static constexpr const char *NAMES[] = {NETLINK_BRIDGE, "p1",     "p2", "p4", "p5",
                                            "p28",          "uplink", "x",  "",   "fifteen-letters"};
    static char numbered[16];
    if (number < std::size(NAMES))
        return NAMES[number];
    const auto behind = number - static_cast<uint32_t>(std::size(NAMES));
    std::snprintf(numbered, sizeof numbered, "%s%u", behind % 2 == 0 ? "bond" : "lag", behind / 2);
    return numbered;
}

void netlinkTell(uint32_t what, FuzzInput *input, int (*reader)(const nlmsghdr *message, void *user), void *user) {
    alignas(8) static std::array<uint8_t, ROOM> room;
    room.fill(0);
    nlmsghdr *message = mnl_nlmsg_put_header(room.data());
    const uint32_t cut = fuzzU8(input);
    switch (what % NETLINK_KINDS) {
    case NETLINK_LINK: putLink(message, RTM_NEWLINK, input); break;
    case NETLINK_LINK_GONE: putLink(message, RTM_DELLINK, input); break;
    case NETLINK_PORT: putPort(message, RTM_NEWLINK, input); break;
    case NETLINK_PORT_GONE: putPort(message, RTM_DELLINK, input); break;
    case NETLINK_VLAN: putVlan(message, RTM_NEWVLAN, input); break;
    case NETLINK_VLAN_GONE: putVlan(message, RTM_DELVLAN, input); break;
    case NETLINK_NEIGHBOUR: putNeighbour(message, input); break;
    default: putRaw(message, input); break;
    }
    message->nlmsg_len -= std::min<uint32_t>(cut, message->nlmsg_len - NLMSG_HDRLEN);
    auto *exact = static_cast<nlmsghdr *>(std::malloc(message->nlmsg_len));
    std::memcpy(exact, message, message->nlmsg_len);
    reader(exact, user);
    std::free(exact);
}
