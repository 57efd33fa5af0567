#include "platform/liblacp.h"

#include <cstring>

#include "platform/linux/ports.h"

// Whether any port is in a trunk, kept until an interface changes: most switches have none, and every message asks.
static bool hasTrunks() {
    static uint32_t change;
    static bool has;
    if (change != linuxPortsChange) {
        change = linuxPortsChange;
        has = false;
        for (uint32_t p = 0; p < linuxSwitch.portMax; p++) {
            has = has || linuxPortTrunk(p) != LINUX_NO_TRUNK;
        }
    }
    return has;
}

extern "C" {

int32_t lac_get_channel_ag(uint16_t trunk, uint32_t *port0) {
    uint32_t lowest = linuxTrunkLowest(trunk);
    *port0 = lowest == LINUX_NO_LINK ? 0 : lowest;
    return lowest == LINUX_NO_LINK ? -1 : 0;
}

int32_t lac_channel_get_from_port(uint32_t port) {
    uint32_t trunk = linuxPortTrunk(port - 1);
    return trunk == LINUX_NO_TRUNK ? -1 : static_cast<int32_t>(trunk);
}

int32_t lac_ap_2_ag_hi_hi_excpt_cur(const SmdPortList *list, SmdPortList *out, uint32_t port0) {
    if (list == nullptr || out == nullptr) {
        return -1;
    }
    memset(out, 0, sizeof *out);
    if (!hasTrunks()) {
        memcpy(out->bits, list->bits, (linuxSwitch.portMax + 7) / 8);
        return 0;
    }
    uint32_t own = linuxPortTrunk(port0);
    for (uint32_t p = 0; p < linuxSwitch.portMax; p++) {
        if ((list->bits[p / 8] & (0x80u >> (p % 8))) == 0) {
            continue;
        }
        uint32_t trunk = linuxPortTrunk(p);
        if (trunk != LINUX_NO_TRUNK && trunk == own) {
            continue;
        }
        uint32_t kept = trunk == LINUX_NO_TRUNK ? p : linuxTrunkLowest(trunk);
        out->bits[kept / 8] = static_cast<uint8_t>(out->bits[kept / 8] | (0x80u >> (kept % 8)));
    }
    return 0;
}

} // extern "C"
