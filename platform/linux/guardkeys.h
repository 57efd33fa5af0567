#pragma once
// How a source-guard filter is written in the kernel's table: which sets, and which keys. Pure.

#include <cstdint>

#include "platform/linux/guard.h"

// Where a port's elements are written: the interface in the bridge, and the VLAN of its frames without a tag.
struct LinuxGuardPlace {
    uint32_t ifindex; // 0: none
    uint32_t native;  // 0: none
};

struct LinuxGuardElement {
    const char *set;
    uint32_t length; // bytes of the key
    uint8_t key[32]; // each field padded to 4 bytes
};

struct LinuxGuardElements {
    uint32_t count;
    LinuxGuardElement element[2];
};

// Whether a filter with a port takes its address from any MAC.
[[nodiscard]] bool linuxGuardAnyMac(const LinuxGuardKey *key);

// The elements of a filter in the sets; none for a port without an interface, nor for an address alone, which is in the map of
// sources (guardsources.h).
void linuxGuardElements(const LinuxGuardKey *key, LinuxGuardPlace place, LinuxGuardElements *elements);
