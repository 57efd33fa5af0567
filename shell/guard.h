#pragma once
// The source guard's ports and exempt VLANs as the shell reads them: what the daemon was told, next to what the kernel has.

#include <cstdint>
#include <string>
#include <vector>

#include "shell/remotecall.h"
#include "shell/values.h"

struct GuardPort {
    uint32_t number;
    bool guarded;          // as configured
    bool installed;        // the kernel has it closed
    uint64_t blocked;      // packets, without the next member's
    uint64_t blockedLocal; // packets from link-local sources
};

// The switch's ports, ascending.
[[nodiscard]] CallEnd guardPorts(Connection *connection, std::vector<GuardPort> *ports, std::string *error);

[[nodiscard]] CallEnd guardExemptVlans(Connection *connection, std::vector<uint32_t> *vlans, std::string *error);
