#pragma once
// The trap: while it holds, the kernel's bridge learns addresses from DHCPv6 frames of the switch's ports but does not forward
// them. It is the daemon's alone to do so.
//
// Its rules are part of the one table (nftrules.h); here only the sets of interfaces change that they hold for: every port of
// the switch, or none. They hold by name as well, for an interface that was made again and is not known yet. The whole chain of
// extension headers is looked at. What the kernel cannot walk to its end is held back, ipv6walk.h says what becomes of it.

#include <cstdint>

// Lets the trap hold for all ports, or for none. 0, or -1: nothing has changed then.
[[nodiscard]] int32_t linuxTrapHold(bool hold);
// The same for a reason of its own, next to the captures: the trap holds while either wants it. Ending what is not wanted: -1.
[[nodiscard]] int32_t linuxTrapRedirect(bool redirect);
[[nodiscard]] bool linuxTrapHolds();

// Follows the ports as they come, go, and change their interface index.
void linuxTrapSettle();
