#include "platform/libvlan.h"

#include <cstring>

#include "platform/linux/ports.h"
#include "platform/linux/vlans.h"

extern "C" {

int32_t vlan_exist(uint32_t vlan) { return linuxVlanExists(vlan) ? 1 : 0; }

// All members of a trunk are listed while the trunk forwards, so that its lowest member stands for it even without a link.
int32_t VLAN_Api_PortList_Get(uint32_t vlan, SmdPortList *list, uint32_t) {
    if (list == nullptr) {
        return -1;
    }
    memset(list, 0, sizeof *list);
    for (uint32_t p = 0; p < linuxSwitch.portMax; p++) {
        uint32_t link = linuxBridgeLink(p);
        if (link != LINUX_NO_LINK && linuxLinkSends(link) && linuxVlanMember(link, vlan)) {
            list->bits[p / 8] = static_cast<uint8_t>(list->bits[p / 8] | (0x80u >> (p % 8)));
        }
    }
    return 0;
}

} // extern "C"
