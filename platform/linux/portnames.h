#pragma once
// The names that a port's interface in the bridge may come back under: its own, and that of the bond that it is a member of.
// The kernel's rules close interfaces by these names until their index is known, also while no daemon runs.

#include <array>
#include <cstdint>
#include <span>

#include "platform/linux/switchfile.h"

using LinuxPortName = std::array<uint8_t, 16>; // filled up with zeros, as the kernel compares them

struct LinuxPortNames {
    uint32_t count;
    std::array<LinuxPortName, 2 * LINUX_PORTS_MAX> name; // each once
};

// Adds the names of a port, by index.
void linuxPortNamesAdd(LinuxPortNames *names, uint32_t port0);

[[nodiscard]] std::span<const LinuxPortName> linuxPortNamesAll(const LinuxPortNames &names);
[[nodiscard]] bool linuxPortNamesHave(const LinuxPortNames &names, const LinuxPortName &name);
