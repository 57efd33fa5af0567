#pragma once
// Turns netlink's description of interfaces into the table of ports.h: the full reading at start and after a loss, and every
// notification in between, through the same code.
//
// An interface of the switch file may be missing, appear later, go, come back under another ifindex, or leave the bridge. None
// of that is an error: the port is down meanwhile, and each change is logged once. linkplaces.h says what becomes of one that
// gets another name.

#include <cstdint>

struct nlmsghdr;

// Takes in one message about an interface; anything else is ignored. Always 1, "go on" to libmnl.
int linuxLinksApply(const nlmsghdr *message, void *user);

// Reads all interfaces; those that are not listed are gone. 0, or a negative errno.
[[nodiscard]] int32_t linuxLinksRead();

// Something is not known that no further notification needs to say: notifications were lost, or not understood when they came.
void linuxLinksDoubt();

// Reads again what notifications left out. Called after a batch of them.
void linuxLinksCatchUp();

// Whether the bridge of the switch file is there and a bridge; if not, `error` says so in one sentence.
[[nodiscard]] bool linuxLinksBridgeCheck(char *error, uint32_t errorSize);
