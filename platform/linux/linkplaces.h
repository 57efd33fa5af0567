#pragma once
// Which place of the table in ports.h an interface has. A port waits for the interface that the switch file names, and follows
// that interface from then on: when it gets another name, the port stays with it until it leaves the bridge. Otherwise a name
// would be all it takes to get past the guard. The bridge is followed likewise as long as it is there. Bonds take the places
// after the ports as they appear.

#include <cstdint>

#include "platform/linux/ports.h"

// The place of an interface, or LINUX_NO_LINK when it is nothing to the switch. Frees the places that its index and its name no
// longer belong to.
[[nodiscard]] uint32_t linuxLinkPlace(uint32_t ifindex, const char *name, bool isBond);

// Forgets what the bridge said about a link, or all that the kernel said; its name and trunk id stay.
void linuxLinkForgetPort(LinuxLink *link);
void linuxLinkForget(LinuxLink *link);

// The interface of a place is gone, and the place waits for the next one.
void linuxLinkGone(uint32_t index);

// Ports whose interface has another name and has left the bridge wait for the one in the switch file again.
void linuxLinksRelease();
