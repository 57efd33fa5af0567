#include "platform/libvlan.h"

#include <array>

#include "platform/linux/ports.h"
#include "platform/linux/vlans.h"

namespace {

// Every message asks for its VLAN's ports, and interfaces change rarely: the answers are kept until they do.
struct KnownList {
    uint32_t change; // of the table that it was read from; 0 for none
    uint32_t vlan;
    SmdPortList list;
};

constexpr uint32_t KNOWN_LISTS = 64; // VLANs with the same low bits push each other out
std::array<KnownList, KNOWN_LISTS> known;

// All members of a trunk are listed while the trunk forwards, so that its lowest member stands for it even without a link.
SmdPortList portsOf(uint32_t vlan) {
    SmdPortList list{};
    for (uint32_t p = 0; p < linuxSwitch.portMax; p++) {
        uint32_t link = linuxBridgeLink(p);
        if (link != LINUX_NO_LINK && linuxLinkSends(link) && linuxVlanForwards(link, vlan)) {
            list.bits[p / 8] = static_cast<uint8_t>(list.bits[p / 8] | (0x80u >> (p % 8)));
        }
    }
    return list;
}

} // namespace

extern "C" {

int32_t vlan_exist(uint32_t vlan) { return linuxVlanExists(vlan) ? 1 : 0; }

int32_t VLAN_Api_PortList_Get(uint32_t vlan, SmdPortList *list, uint32_t) {
    if (list == nullptr) {
        return -1;
    }
    KnownList *answer = &known[vlan % KNOWN_LISTS];
    if (answer->change != linuxPortsChange || answer->vlan != vlan) {
        *answer = {.change = linuxPortsChange, .vlan = vlan, .list = portsOf(vlan)};
    }
    *list = answer->list;
    return 0;
}

} // extern "C"
