#pragma once
// Interfaces in the bridge that are no port of the switch: nothing that enters there is snooped or guarded, so each is named in
// the log once, when it is seen there. At most LINUX_STRANGERS_MAX are remembered; of more, the log says that there are more.

#include <cstdint>

inline constexpr uint32_t LINUX_STRANGERS_MAX = 64;

struct LinuxStranger {
    uint32_t ifindex;
    uint32_t seen; // number of the last full reading that listed it
    char name[16];
};

// The interface in a place below LINUX_STRANGERS_MAX, or null when the place is free.
[[nodiscard]] const LinuxStranger *linuxStrangerAt(uint32_t place);

// Takes note of an interface that is in the bridge and no port, or is not in it any more.
void linuxStrangerSeen(uint32_t ifindex, const char *name, uint32_t reading);
void linuxStrangerGone(uint32_t ifindex);

// Forgets those that a full reading did not list.
void linuxStrangersKeep(uint32_t reading);
