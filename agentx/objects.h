#pragma once
// The daemon's MIB objects, asked over its socket. A daemon that is gone is looked for again with every request; none waits
// longer than two seconds.

#include <cstdint>

#include "platform/linux/protocol.h"

// Names the daemon's socket. Before anything else here.
void objectsInit();

// Carries one request to the daemon and its answer back into `message`. Returns LINUX_MIB_*, 0, or what else the object
// answered; OBJECTS_UNREACHABLE when there is no answer, said once on standard error until there is one again.
inline constexpr int32_t OBJECTS_UNREACHABLE = -1000;
int32_t objectsAsk(LinuxMibMsg *message);
