#pragma once
// Kernels can run bridged frames through the IP firewall as well. That would let rules written for routed traffic drop or alter
// frames on the switch's ports, and would reassemble fragments behind the daemon's back. So it is turned off while the daemon
// runs: for the bridge, and in the network namespace, since either switch alone turns it on. A stop puts back what was there.

// Turns it off, and logs what was changed. What the kernel refuses is logged too and is no reason not to run.
void linuxBrNetfilterOff();
void linuxBrNetfilterRestore();
