#pragma once
// The source guard's ports and exempt VLANs as the shell reads them: what the daemon was told, next to what the kernel has.

#include <cstdint>
#include <string>
#include <vector>

#include "shell/remotecall.h"
#include "shell/values.h"

struct GuardPort {
    uint32_t number;
    bool guarded;              // as configured
    bool installed;            // the kernel has it closed
    uint64_t blocked;          // packets, without those of the next two members
    uint64_t blockedLocal;     // packets from link-local sources
    uint64_t blockedDiscovery; // neighbour discovery and listener reports beyond the port's rate
};

// The switch's ports, ascending.
[[nodiscard]] CallEnd guardPorts(Connection *connection, std::vector<GuardPort> *ports, std::string *error);

[[nodiscard]] CallEnd guardExemptVlans(Connection *connection, std::vector<uint32_t> *vlans, std::string *error);
