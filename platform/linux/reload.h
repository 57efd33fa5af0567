#pragma once
// A new reading of the switch file while the daemon runs (SIGHUP). Taken up is what needs no restart: ports that the switch did
// not have, the title, the enterprise number and the VLANs. The log says in one sentence what was taken up and what waits for a
// restart. A file with a fault changes nothing.
//
// A child process reads the file and hands back what it says, because the TOML parser ends its process when it meets what it
// takes for impossible.

#include <cstdint>

// Starts a reading; one that still goes on is given up.
void linuxReload();

// Logs a port whose interface is missing or not in the bridge.
void linuxReloadSayMissing(uint32_t port0);
