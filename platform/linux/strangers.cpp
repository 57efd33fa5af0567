#include "platform/linux/strangers.h"

#include <array>
#include <cstdio>

#include "platform/linux/loop.h"
#include "platform/linux/switchfile.h"

namespace {

std::array<LinuxStranger, LINUX_STRANGERS_MAX> strangers; // ifindex 0: free
bool full;                                                // said so, and no place has become free since

LinuxStranger *find(uint32_t ifindex) {
    for (LinuxStranger &stranger : strangers)
        if (stranger.ifindex == ifindex)
            return &stranger;
    return nullptr;
}

} // namespace

const LinuxStranger *linuxStrangerAt(uint32_t place) { return strangers[place].ifindex != 0 ? &strangers[place] : nullptr; }

void linuxStrangerSeen(uint32_t ifindex, const char *name, uint32_t reading) {
    LinuxStranger *stranger = find(ifindex);
    if (stranger != nullptr) {
        stranger->seen = reading;
        snprintf(stranger->name, sizeof stranger->name, "%s", name); // it may have another one now
        return;
    }
    stranger = find(0);
    if (stranger == nullptr) {
        if (!full)
            linuxLog("bridge %s has more than %u interfaces that are no port of the switch file; the others are not named",
                     linuxSwitch.bridge, LINUX_STRANGERS_MAX);
        full = true;
        return;
    }
    *stranger = {.ifindex = ifindex, .seen = reading, .name = {}};
    snprintf(stranger->name, sizeof stranger->name, "%s", name);
    linuxLog("interface %s is in bridge %s and is no port of the switch file: it is neither snooped nor guarded", name,
             linuxSwitch.bridge);
}

void linuxStrangerGone(uint32_t ifindex) {
    LinuxStranger *stranger = find(ifindex);
    if (stranger == nullptr)
        return;
    *stranger = {};
    full = false;
}

void linuxStrangersKeep(uint32_t reading) {
    for (const LinuxStranger &stranger : strangers)
        if (stranger.ifindex != 0 && stranger.seen != reading)
            linuxStrangerGone(stranger.ifindex);
}
