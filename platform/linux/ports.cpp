#include "platform/linux/ports.h"

#include <cstring>

#include <linux/if_bridge.h>

#include "platform/linux/capture.h"
#include "platform/linux/guard.h"
#include "platform/linux/maccache.h"
#include "platform/linux/send.h"
#include "platform/linux/startupclosed.h"
#include "platform/linux/trap.h"

LinuxLink linuxLinks[LINUX_LINKS];
LinuxBridge linuxBridge;
LinuxPortCounters linuxCounters[LINUX_PORTS_MAX];
uint32_t linuxPortsChange = 1;

namespace {

int32_t (*linkChanged)(uint32_t port, uint32_t linkState);
uint32_t reportedLink[LINUX_PORTS_MAX]; // what the callback was told last
bool started;

bool isBond(uint32_t link) { return link >= LINUX_LINK_BOND0 && link < LINUX_LINK_BRIDGE; }

bool inBridge(const LinuxLink &link) {
    uint32_t bridge = linuxLinks[LINUX_LINK_BRIDGE].ifindex;
    return link.ifindex != 0 && bridge != 0 && link.master == bridge;
}

// The bond that a port index is a member of, in the bridge or not.
uint32_t bondOf(uint32_t port0) {
    uint32_t master = linuxLinks[port0].master;
    if (linuxLinks[port0].ifindex == 0 || master == 0) {
        return LINUX_NO_LINK;
    }
    uint32_t link = linuxLinkByIfindex(master);
    return link != LINUX_NO_LINK && isBond(link) ? link : LINUX_NO_LINK;
}

// Whether a bond takes frames from its member. One that balances by load has an active member for what is flooded, and its
// members do not say that they are not; what is for one station comes to the active member too, because only there do others
// see the station's own address.
bool bondHears(const LinuxLink &bond, const LinuxLink &member) {
    bool active = bond.activeMember == 0 || bond.activeMember == member.ifindex;
    return bond.hearsAll != 0 || (member.backup == 0 && active);
}

} // namespace

void linuxPortInit(uint32_t port0) {
    memcpy(linuxLinks[port0].name, linuxSwitch.ports[port0].interface, sizeof linuxLinks[port0].name);
    linuxLinks[port0].trunk = LINUX_NO_TRUNK;
    linuxCounters[port0].number = port0 + 1;
}

void linuxPortsInit() {
    for (uint32_t p = 0; p < LINUX_PORTS_MAX; p++)
        linuxPortInit(p);
    memcpy(linuxLinks[LINUX_LINK_BRIDGE].name, linuxSwitch.bridge, sizeof linuxSwitch.bridge);
}

bool linuxPortExists(uint32_t port) { return port >= 1 && port <= LINUX_PORTS_MAX && linuxSwitch.ports[port - 1].exists != 0; }

uint32_t linuxBridgeLink(uint32_t port0) {
    if (!linuxPortExists(port0 + 1)) {
        return LINUX_NO_LINK;
    }
    if (inBridge(linuxLinks[port0])) {
        return port0;
    }
    uint32_t bond = bondOf(port0);
    return bond != LINUX_NO_LINK && inBridge(linuxLinks[bond]) ? bond : LINUX_NO_LINK;
}

bool linuxPortReceives(uint32_t port0) {
    uint32_t link = linuxBridgeLink(port0);
    if (link == LINUX_NO_LINK || linuxLinks[link].stpState != BR_STATE_FORWARDING) {
        return false;
    }
    return link == port0 || bondHears(linuxLinks[link], linuxLinks[port0]);
}

bool linuxLinkSends(uint32_t link) {
    return inBridge(linuxLinks[link]) && linuxLinks[link].running != 0 && linuxLinks[link].stpState == BR_STATE_FORWARDING;
}

uint32_t linuxPortTrunk(uint32_t port0) {
    uint32_t link = linuxBridgeLink(port0);
    return link != LINUX_NO_LINK && isBond(link) ? linuxLinks[link].trunk : LINUX_NO_TRUNK;
}

uint32_t linuxTrunkLowest(uint32_t trunk) {
    for (uint32_t p = 0; p < LINUX_PORTS_MAX && trunk != LINUX_NO_TRUNK; p++) {
        if (linuxPortTrunk(p) == trunk) {
            return p;
        }
    }
    return LINUX_NO_LINK;
}

uint32_t linuxTrunkLink(uint32_t trunk) {
    uint32_t port0 = linuxTrunkLowest(trunk);
    return port0 == LINUX_NO_LINK ? LINUX_NO_LINK : linuxBridgeLink(port0);
}

uint32_t linuxLinkByIfindex(uint32_t ifindex) {
    for (uint32_t i = 0; i < LINUX_LINKS && ifindex != 0; i++) {
        if (linuxLinks[i].ifindex == ifindex) {
            return i;
        }
    }
    return LINUX_NO_LINK;
}

void linuxPortsOnLinkChange(int32_t (*cb)(uint32_t port, uint32_t linkState)) {
    for (uint32_t p = 0; p < LINUX_PORTS_MAX; p++) {
        reportedLink[p] = linuxLinks[p].running;
    }
    linkChanged = cb;
}

void linuxPortsStart() {
    started = true;
    linuxPortsSettle();
}

void linuxPortsSettle() {
    linuxPortsChange++;
    if (!started) {
        return;
    }
    linuxMacCacheForget();
    linuxCaptureSettle();
    linuxSendSettle();
    linuxTrapSettle();
    linuxGuardSettle();
    linuxStartupClosedSettle();
    for (uint32_t p = 0; p < linuxSwitch.portMax; p++) {
        if (reportedLink[p] == linuxLinks[p].running) {
            continue;
        }
        reportedLink[p] = linuxLinks[p].running;
        if (linkChanged != nullptr) {
            linkChanged(p + 1, reportedLink[p]);
        }
    }
}
