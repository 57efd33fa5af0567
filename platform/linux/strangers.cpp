#include "platform/linux/strangers.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

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

// A port that follows its renamed interface leaves its name to whoever takes it next. The rules by name hold for that one.
bool hasNameOfPort(const char *name) {
    return std::ranges::any_of(linuxSwitch.ports,
                               [name](const LinuxPortConfig &port) { return strcmp(port.interface, name) == 0; });
}

void say(const char *name) {
    if (hasNameOfPort(name))
        linuxLog("interface %s is in bridge %s, but the port of that name follows another interface, which had it before: "
                 "what the guard of that port or the trap would look at is dropped",
                 name, linuxSwitch.bridge);
    else
        linuxLog("interface %s is in bridge %s and is no port of the switch file: it is neither snooped nor guarded", name,
                 linuxSwitch.bridge);
}

} // namespace

const LinuxStranger *linuxStrangerAt(uint32_t place) { return strangers[place].ifindex != 0 ? &strangers[place] : nullptr; }

void linuxStrangerSeen(uint32_t ifindex, const char *name, uint32_t reading) {
    LinuxStranger *stranger = find(ifindex);
    if (stranger != nullptr) {
        stranger->seen = reading;
        if (strcmp(stranger->name, name) != 0) {
            snprintf(stranger->name, sizeof stranger->name, "%s", name);
            say(name);
        }
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
    say(name);
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
