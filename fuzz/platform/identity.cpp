// Who the lean switch is: its names, numbers and addresses, which options 18 and 37 and the running configuration tell. Where leanSwitch.identityFails is
// set, every question goes unanswered, and what the caller handed in stays as it was.

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "fuzz/check.h"
#include "fuzz/platform/lean.h"
#include "platform/libcommon.h"
#include "platform/libl3if.h"
#include "platform/liboem.h"
#include "platform/libsmd.h"
#include "platform/libsyslog.h"
#include "platform/libvlan.h"
#include "platform/libvos.h"

static constexpr uint32_t ADDRESS = 0xC0000200; // of VLAN 0; others follow

static int32_t answerAddress(uint32_t number, uint32_t *ip) {
    if (leanSwitch.identityFails != 0 || number == 0)
        return -1;
    *ip = ADDRESS + number;
    return 0;
}

extern "C" {

// With longHostName the buffer is filled to its end, without a NUL.
int32_t vosHostNameGet(char *buf, uint32_t size) {
    if (leanSwitch.identityFails != 0)
        return -1;
    if (leanSwitch.longHostName != 0)
        std::memset(buf, 'h', size);
    else
        std::memcpy(buf, "switch", std::min<size_t>(size, sizeof "switch"));
    return 0;
}

int32_t getSysMacAdress(uint8_t mac[6]) {
    constexpr uint8_t SYSTEM[6] = {0x02, 0x00, 0x5E, 0x00, 0xAB, 0xCD};
    if (leanSwitch.identityFails != 0)
        return -1;
    std::memcpy(mac, SYSTEM, sizeof SYSTEM);
    return 0;
}

uint32_t oemPenGet(void) { return 47119; }

int32_t oem_type_check(const char *name) {
    fuzzCheck(std::strlen(name) > 0, "a seller has a name");
    return static_cast<int32_t>(leanSwitch.identityFails);
}

uint32_t getSWByVLAN(uint32_t vlan) { return vlan; }

int32_t l3ifSwPrimIpGet(uint32_t switchId, uint32_t *ip) { return answerAddress(switchId, ip); }

int32_t l3ifSwPrimIpGetByVid(uint32_t vid, uint32_t *ip) {
    fuzzCheck(vid < 4096, "a VLAN has 12 bits");
    return answerAddress(vid, ip);
}

int32_t smdVDPortSnmpToUser(uint32_t port, uint32_t *a, uint32_t *b, uint32_t *c) {
    if (leanSwitch.identityFails != 0)
        return -1;
    *a = 1;
    *b = 0;
    *c = port;
    return 0;
}

const char *get_str_by_mid(uint32_t) { return "fuzz"; }

int32_t smdVDPortExistAndType(uint32_t port, uint32_t *type) {
    *type = 1;
    return port >= 1 && port <= LEAN_PORTS ? 1 : 0;
}

int32_t vlan_exist(uint32_t vlan) {
    fuzzCheck(vlan >= 1 && vlan <= 4094, "a question names a VLAN");
    return vlan % (vlan < 64 ? 2 : 16) == 1 ? 1 : 0; // few enough for a walk
}

char *transPort2InterfaceDesc(uint32_t port, char *buf) {
    std::snprintf(buf, PORT_DESC_MAX, "interface ethernet 0/%u", port);
    return buf;
}

char *transPort2String(uint32_t port, char *buf) { return transPort2EtherPort(port, buf); }

char *macToStr(const uint8_t mac[6], char *text) {
    std::snprintf(text, 18, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}

int32_t strtoipAddr(const char *text, uint32_t *address) {
    unsigned octets[4];
    char end;
    if (std::sscanf(text, "%3u.%3u.%3u.%3u%c", &octets[0], &octets[1], &octets[2], &octets[3], &end) != 4)
        return -1;
    *address = 0;
    for (const unsigned octet : octets) {
        if (octet > 255)
            return -1;
        *address = *address << 8 | octet;
    }
    return 0;
}

} // extern "C"
