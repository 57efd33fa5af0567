#include "platform/linux/linkplaces.h"

#include <cstdio>
#include <cstring>

#include <linux/if_bridge.h>

#include "platform/linux/links.h"
#include "platform/linux/loop.h"
#include "platform/linux/trunks.h"
#include "platform/linux/vlans.h"

namespace {

bool bondLeftOut; // since a place for a bond was free last

bool isBondPlace(uint32_t index) { return index >= LINUX_LINK_BOND0 && index < LINUX_LINK_BRIDGE; }

bool isPort(uint32_t index) { return index < LINUX_PORTS_MAX; }

// The name that the switch file has for a port or for the bridge.
const char *ownName(uint32_t index) { return isPort(index) ? linuxSwitch.ports[index].interface : linuxSwitch.bridge; }

bool isRenamed(uint32_t index) { return !isBondPlace(index) && strcmp(linuxLinks[index].name, ownName(index)) != 0; }

void setName(LinuxLink *link, const char *name) { snprintf(link->name, sizeof link->name, "%s", name); }

// Waits for the interface of the switch file, which may be there already and was not looked at.
void waitForOwn(uint32_t index) {
    setName(&linuxLinks[index], ownName(index));
    linuxLinksDoubt();
}

// A free place for a bond that is seen for the first time, or LINUX_NO_LINK.
uint32_t placeBond(const char *name) {
    for (uint32_t i = LINUX_LINK_BOND0; i < LINUX_LINK_BRIDGE; ++i) {
        if (linuxLinks[i].name[0] != 0)
            continue;
        linuxLinks[i].trunk = linuxTrunkId(name);
        setName(&linuxLinks[i], name);
        return i;
    }
    if (!bondLeftOut) // said once, not with each of its notifications
        linuxLog("bond %s is one too many: at most %u are followed", name, LINUX_BONDS_MAX);
    bondLeftOut = true;
    return LINUX_NO_LINK;
}

// A place that follows a renamed interface is that interface's, whoever else gets its name.
uint32_t placeNamed(const char *name) {
    for (uint32_t i = 0; i < LINUX_LINKS; ++i)
        if (linuxLinks[i].name[0] != 0 && strcmp(linuxLinks[i].name, name) == 0 && !isRenamed(i))
            return i;
    return LINUX_NO_LINK;
}

// The kernel gives a name once: a bond or a renamed interface that had this one is gone, and it was not heard.
void freeName(const char *name, uint32_t keeper) {
    for (uint32_t i = 0; i < LINUX_LINKS; ++i)
        if (i != keeper && (isBondPlace(i) || isRenamed(i)) && strcmp(linuxLinks[i].name, name) == 0)
            linuxLinkGone(i);
}

bool mayFollow(uint32_t index, const char *name, bool isBond) {
    if (isPort(index))
        return linuxBridgeLink(index) != LINUX_NO_LINK;
    const uint32_t named = placeNamed(name);
    return !isBondPlace(index) || (isBond && (named == LINUX_NO_LINK || isBondPlace(named)));
}

// The interface of this place has another name now. True when the place stays with it.
bool follow(uint32_t index, const char *name, bool isBond) {
    if (!mayFollow(index, name, isBond))
        return false;
    LinuxLink *link = &linuxLinks[index];
    linuxLog("interface %s is called %s now", link->name, name);
    link->name[0] = 0; // its number is free for its new name
    freeName(name, index);
    if (isBondPlace(index))
        link->trunk = linuxTrunkId(name);
    setName(link, name);
    return true;
}

} // namespace

uint32_t linuxLinkPlace(uint32_t ifindex, const char *name, bool isBond) {
    const uint32_t known = linuxLinkByIfindex(ifindex);
    if (known != LINUX_NO_LINK && strcmp(linuxLinks[known].name, name) != 0) {
        if (follow(known, name, isBond))
            return known;
        linuxLinkGone(known);
    } else if (known != LINUX_NO_LINK && (isBond || !isBondPlace(known))) {
        return known;
    }
    if (!isBond || placeNamed(name) == LINUX_NO_LINK)
        freeName(name, LINUX_NO_LINK);
    const uint32_t named = placeNamed(name);
    return named == LINUX_NO_LINK && isBond ? placeBond(name) : named;
}

void linuxLinkForgetPort(LinuxLink *link) {
    link->stpState = BR_STATE_DISABLED;
    link->isolated = 0;
    link->locked = 0;
    linuxVlansClear(link);
}

void linuxLinkForget(LinuxLink *link) {
    link->ifindex = 0;
    link->master = 0;
    link->running = 0;
    link->backup = 0;
    link->activeMember = 0;
    link->hearsAll = 0;
    linuxLinkForgetPort(link);
}

void linuxLinkGone(uint32_t index) {
    LinuxLink *link = &linuxLinks[index];
    if (link->ifindex == 0)
        return;
    linuxLog("interface %s is gone", link->name);
    linuxLinkForget(link);
    if (isRenamed(index))
        waitForOwn(index);
    if (!isBondPlace(index))
        return;
    link->name[0] = 0; // the place is free for another bond
    if (bondLeftOut)
        linuxLinksDoubt();
    bondLeftOut = false;
}

void linuxLinksRelease() {
    for (uint32_t port0 = 0; port0 < LINUX_PORTS_MAX; ++port0) {
        if (linuxLinks[port0].ifindex == 0 || !isRenamed(port0) || linuxBridgeLink(port0) != LINUX_NO_LINK)
            continue;
        linuxLog("port 0/%u: interface %s has left bridge %s; the port waits for interface %s again", port0 + 1,
                 linuxLinks[port0].name, linuxSwitch.bridge, ownName(port0));
        linuxLinkForget(&linuxLinks[port0]);
        waitForOwn(port0);
    }
}
