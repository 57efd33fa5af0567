#pragma once
// A packet socket and the interface it is bound to.

#include <cstdint>

// Binds a socket to an interface, to receive frames of all kinds there or none at all. 0, or -1 and errno.
int linuxPacketBind(int fd, uint32_t ifindex, bool receives);

// A socket whose interface was deleted stays without one, even when another interface gets the same index before anybody hears
// of either.
bool linuxPacketBound(int fd, uint32_t ifindex);
