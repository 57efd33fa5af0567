#pragma once
// Kernels can run bridged frames through the IP firewall as well. That would let rules written for routed traffic drop or alter
// frames on the switch's ports, and would reassemble fragments without the daemon's knowledge. So it is turned off while the
// daemon runs: for the bridge, and in the network namespace, since either switch alone turns it on. A stop puts back what was
// there, also what a daemon that was killed had found (brrecord.h).

#include <cstdint>

// Turns it off, and logs what was changed. What the kernel refuses is logged too and is no reason not to run.
void linuxBrNetfilterOff();

// Instead of the above where the switch file says "keep": changes nothing, but puts back what a killed daemon had turned off.
// False with one sentence in `error` when it is on.
[[nodiscard]] bool linuxBrNetfilterKeep(char *error, uint32_t errorSize);

// Puts back what linuxBrNetfilterOff turned off.
void linuxBrNetfilterRestore();
