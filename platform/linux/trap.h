#pragma once
// The trap: while it holds, the kernel's bridge learns addresses from DHCPv6 frames of the switch's ports but does not forward
// them. It is the daemon's alone to do so.
//
// It is a table of bridge filter rules, loaded once at start; afterwards only the set of interfaces changes that it holds for:
// every port of the switch, or none. The whole chain of extension headers is looked at. What the kernel cannot walk to its end
// is held back, ipv6walk.h says what becomes of it. The table stays when the process dies, so that a switch with snooping on
// does not open; a new start replaces it in one step, and a stop takes it away.

#include <cstdint>

// Loads the table, in place of an older one of ours. 0, or -1 with one sentence in `error`.
[[nodiscard]] int32_t linuxTrapLoad(char *error, uint32_t errorSize);
// Takes the table away.
void linuxTrapUnload();

// Lets the trap hold for all ports, or for none. 0, or -1: nothing has changed then.
[[nodiscard]] int32_t linuxTrapHold(bool hold);
[[nodiscard]] bool linuxTrapHolds();

// Follows the ports as they come, go, and change their interface index.
void linuxTrapSettle();
