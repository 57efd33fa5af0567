#pragma once
// Which addresses are bound beside the leases, whoever they are bound to: a map in the kernel that the rules ask once a packet.
//
// It says "accept" for an address that may come from anywhere, and "return" for one that is bound to a port or a MAC address
// as well: only then the sets of such filters are worth a look. Leases, which name port, MAC address and VLAN, are not in it.
// Several filters may share an address; its element goes with the last.

#include <cstdint>

#include "platform/linux/guard.h"

// Counts a filter in, before it is written. False without memory; nothing has changed then.
[[nodiscard]] bool linuxGuardSourceBind(const LinuxGuardKey *key);
void linuxGuardSourceUnbind(const LinuxGuardKey *key);

// Queue what the map has to be changed in, in the batch that is open, when this filter comes or goes. It is counted in.
void linuxGuardSourceQueueIn(const LinuxGuardKey *key);
void linuxGuardSourceQueueOut(const LinuxGuardKey *key, bool strict); // strict: an element that is not there fails the commit

// Writes the whole map anew, in batches. 0, or the first negative errno.
[[nodiscard]] int32_t linuxGuardSourcesRewrite();

// Whether the kernel's map has what this filter needs: asks it.
[[nodiscard]] bool linuxGuardSourceInKernel(const LinuxGuardKey *key);
