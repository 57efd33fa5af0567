// libsmd, libvlan and liblacp of the lean switch.

#include <algorithm>
#include <cstring>
#include <iterator>

#include "fuzz/check.h"
#include "fuzz/platform/lean.h"
#include "platform/liblacp.h"
#include "platform/libvlan.h"

uint32_t gul_max_port_num = LEAN_PORTS;
LeanSwitch leanSwitch;
uint8_t leanSent[SMD_FRAME_MAX];

void leanReset() {
    LeanSwitch fresh{};
    fresh.now = 1000;
    for (uint32_t place = 0; place < LEAN_PLACES; place++) {
        fresh.macs[place] = {.found = 1, .flags = 0, .port = place + 1, .trunk = 0};
        fresh.members[place] = {{0xFF, 0xFF, 0xFF, 0xF0, 0, 0, 0, 0}};
    }
    for (int32_t &trunk : fresh.trunkOf)
        trunk = -1;
    fresh.receive = leanSwitch.receive;
    fresh.link = leanSwitch.link;
    fresh.tick = leanSwitch.tick;
    fresh.build = leanSwitch.build;
    leanSwitch = fresh;
    gul_max_port_num = LEAN_PORTS;
}

bool leanSentTo(uint32_t port) {
    if (port == 0)
        return false;
    if (leanSwitch.sentPort == port)
        return true;
    const uint32_t port0 = port - 1;
    return port0 < 64 && (leanSwitch.sentList.bits[port0 / 8] & (0x80u >> (port0 % 8))) != 0;
}

// Reads every byte, so that a length beyond the frame is found, and keeps what the targets ask about.
static int32_t accept(const uint8_t *frame, uint32_t length, const SmdPktCtl *ctl) {
    if (leanSwitch.sendFails != 0 || length < 18 || length > SMD_FRAME_MAX)
        return -1;
    std::memcpy(leanSent, frame, length);
    leanSwitch.sends++;
    leanSwitch.sentLength = length;
    leanSwitch.sentFlags = ctl->flags;
    leanSwitch.sentPort = 0;
    leanSwitch.sentList = {};
    return 0;
}

extern "C" {

int32_t smdProcessInit(const char *) { return 0; }

int32_t smdVDPktRegister(uint32_t, const SmdPktRule *, uint32_t, SmdPktRecvFn cb) {
    leanSwitch.receive = cb;
    return 0;
}

int32_t smdVDPktRegRunning(uint32_t, const SmdPktRule *, uint32_t) { return 0; }

int32_t smdVDPktSendPort(uint8_t *frame, uint32_t length, SmdPktCtl *ctl, uint16_t, uint32_t port, uint32_t) {
    const uint32_t number = port & ~SMD_PORT_TRUNK;
    const bool known = (port & SMD_PORT_TRUNK) != 0 || (number >= 1 && number <= LEAN_PORTS);
    if (!known || accept(frame, length, ctl) != 0)
        return -1;
    leanSwitch.sentPort = port;
    return 0;
}

int32_t smdVDPktSendPortlist(uint8_t *frame, uint32_t length, SmdPktCtl *ctl, uint16_t, const SmdPortList *list, uint32_t) {
    fuzzCheck(vd_portlist_plnull(list) == 0, "a frame is not sent to an empty list");
    if (accept(frame, length, ctl) != 0)
        return -1;
    leanSwitch.sentList = *list;
    return 0;
}

int32_t vd_portlist_plnull(const SmdPortList *list) {
    static const SmdPortList none{};
    return std::memcmp(list, &none, sizeof none) == 0 ? 1 : 0;
}

int32_t smdVDDhcp6snoopingOnOff(uint32_t) { return 0; }

int32_t smdVDMacGet(SmdMacQuery *q) {
    const LeanMacAnswer *answer = &leanSwitch.macs[q->mac[5] % LEAN_PLACES];
    if ((q->mac[0] & 1) != 0 || answer->found == 0)
        return -1;
    q->flags = answer->flags;
    q->port = answer->port;
    q->trunk = answer->trunk;
    return 0;
}

int32_t smdVDLinktrapRegPort(uint32_t, uint32_t, int32_t (*cb)(uint32_t, uint32_t)) {
    leanSwitch.link = cb;
    return 0;
}

int32_t VLAN_Api_PortList_Get(uint32_t vlan, SmdPortList *list, uint32_t) {
    *list = leanSwitch.members[vlan % LEAN_PLACES];
    return 0;
}

int32_t lac_get_channel_ag(uint16_t trunk, uint32_t *port0) {
    for (*port0 = 0; *port0 < LEAN_PORTS; ++*port0)
        if (leanSwitch.trunkOf[*port0] == trunk)
            return 0;
    *port0 = 0;
    return -1;
}

int32_t lac_channel_get_from_port(uint32_t port) { return port >= 1 && port <= LEAN_PORTS ? leanSwitch.trunkOf[port - 1] : -1; }

int32_t lac_ap_2_ag_hi_hi_excpt_cur(const SmdPortList *list, SmdPortList *out, uint32_t port0) {
    fuzzCheck(list != out, "the folded list is an object of its own");
    *out = *list;
    if (std::all_of(std::begin(leanSwitch.trunkOf), std::end(leanSwitch.trunkOf), [](int32_t trunk) { return trunk == -1; }))
        return 0;
    const int32_t own = lac_channel_get_from_port(port0 + 1);
    for (uint32_t p = 0; p < LEAN_PORTS; p++) {
        const int32_t trunk = leanSwitch.trunkOf[p];
        const auto bit = static_cast<uint8_t>(0x80u >> (p % 8));
        if (trunk == -1 || (list->bits[p / 8] & bit) == 0)
            continue;
        uint32_t lowest = 0;
        (void)lac_get_channel_ag(static_cast<uint16_t>(trunk), &lowest);
        out->bits[p / 8] = static_cast<uint8_t>(out->bits[p / 8] & ~bit);
        if (trunk != own)
            out->bits[lowest / 8] = static_cast<uint8_t>(out->bits[lowest / 8] | (0x80u >> (lowest % 8)));
    }
    return 0;
}

} // extern "C"
