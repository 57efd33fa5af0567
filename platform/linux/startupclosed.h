#pragma once
// The closed switch: after a failure of the startup file, where the switch file asks for it, IPv6 from every port is dropped
// that is not trusted, until an operator acts.
//
// The rules are a base chain of their own in the bridge filter table, in front of trap and guard, and are there only while the
// switch is closed: an open one pays nothing for them. They drop what comes by any interface but the trusted ports', so that an
// interface that joins the bridge later is closed as well. Where the kernel can match a port's bridge (nft_meta_bridge) other
// bridges of the network namespace are left alone, elsewhere they are closed too. All tag depths that the other rules read are
// read, and what cannot be read is dropped. The daemon takes no frame from such a port either.

#include <cstdint>

// Closes the switch but for the trusted ports (bit 1 << p for port index p). False and a sentence when the kernel refuses.
[[nodiscard]] bool linuxStartupClose(uint32_t trusted, char *error, uint32_t errorSize);

// Opens it again; logs when the kernel refuses.
void linuxStartupUnclose();

[[nodiscard]] bool linuxStartupIsClosed();

// Whether frames from the port index are dropped.
[[nodiscard]] bool linuxStartupShuts(uint32_t port0);

// Packets that the closed switch has dropped: asks the kernel.
[[nodiscard]] uint64_t linuxStartupDropped();

// Follows the trusted ports' interfaces after a change.
void linuxStartupClosedSettle();
