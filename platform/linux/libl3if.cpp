#include "platform/libl3if.h"

#include <bitset>
#include <cstdio>
#include <cstring>

#include <arpa/inet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "platform/linux/l3address.h"
#include "platform/linux/ports.h"
#include "platform/linux/vlans.h"

namespace {

int ipSocket = -1;                      // kept open
std::bitset<LINUX_VLAN_MAX + 1> asked;  // VLANs whose address is known
uint32_t addresses[LINUX_VLAN_MAX + 1]; // host order; 0 = none

bool addressOf(const char *interface, uint32_t *ip) {
    if (ipSocket < 0) {
        ipSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    }
    ifreq request{};
    if (strlen(interface) >= sizeof request.ifr_name) {
        return false;
    }
    memcpy(request.ifr_name, interface, strlen(interface));
    if (ipSocket < 0 || ioctl(ipSocket, SIOCGIFADDR, &request) != 0) {
        return false;
    }
    sockaddr_in address;
    memcpy(&address, &request.ifr_addr, sizeof address);
    *ip = ntohl(address.sin_addr.s_addr);
    return true;
}

// Of the VLAN's own interface on the bridge, or of the bridge itself where frames without a tag are of that VLAN.
uint32_t askAddress(uint32_t vlan) {
    uint32_t ip = 0;
    char name[sizeof linuxSwitch.bridge + 8];
    snprintf(name, sizeof name, "%s.%u", linuxSwitch.bridge, vlan);
    if (!addressOf(name, &ip) && vlan == linuxVlanNative(LINUX_LINK_BRIDGE)) {
        addressOf(linuxSwitch.bridge, &ip);
    }
    return ip;
}

// 0 when it has none.
uint32_t vlanAddress(uint32_t vlan) {
    if (vlan == 0 || vlan > LINUX_VLAN_MAX) {
        return 0;
    }
    if (!asked.test(vlan)) {
        addresses[vlan] = askAddress(vlan);
        asked.set(vlan);
    }
    return addresses[vlan];
}

} // namespace

void linuxL3Forget() { asked.reset(); }

extern "C" {

// A layer-3 interface has the number of its VLAN.
uint32_t getSWByVLAN(uint32_t vlan) { return vlanAddress(vlan) != 0 ? vlan : 0; }

int32_t l3ifSwPrimIpGet(uint32_t switchId, uint32_t *ip) { return l3ifSwPrimIpGetByVid(switchId, ip); }

int32_t l3ifSwPrimIpGetByVid(uint32_t vid, uint32_t *ip) {
    *ip = vlanAddress(vid);
    return *ip != 0 ? 0 : -1;
}

} // extern "C"
