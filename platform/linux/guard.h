#pragma once
// The source guard's filters as the daemon wants them, kept in line with the kernel's table.
//
// The kernel knows interfaces by index and matches frames without a tag apart from tagged ones; the daemon speaks of ports
// and VLANs. So the wanted filters are remembered here, by port and VLAN, and written to the kernel as elements of sets under
// the index and the native VLAN that the port has now. When an interface goes and comes back, or its native VLAN changes, its
// elements are rewritten; the daemon need not know. A filter for a port whose interface is missing waits for it. What the
// kernel refuses then is tried again at the next change.
//
// Ports that are members of one bond share the bond's index: an element that two of them want goes with the last of them.
//
// Bound: memory. Filters come from leases of at most 2048 clients and from what the operator configures.

#include <cstddef>
#include <cstdint>

#include "platform/libcommon.h"
#include "platform/linux/protocol.h"

enum : uint32_t {
    LINUX_FILTER_ADDRESS = 1,
    LINUX_FILTER_MAC_ADDRESS = 2,
    LINUX_FILTER_PORT = 3,
    LINUX_FILTER_PORT_VLAN = 4,
};

// Identity of a filter. Fields that its kind does not use are 0; compared as bytes, so there is no padding.
struct LinuxGuardKey {
    uint32_t kind;
    uint32_t port; // from 1
    uint32_t vlan;
    uint8_t mac[6]; // all zeros in kinds 3 and 4: any
    uint8_t reserved[2];
    uint8_t address[16];
};
static_assert(sizeof(LinuxGuardKey) == 36);

struct LinuxGuardFilter {
    AvlNode link;
    LinuxGuardKey key;
};
static_assert(offsetof(LinuxGuardFilter, link) == 0);

// 0, or a negative errno: the kernel's, -ENODEV for a port that the switch does not have, -EINVAL for what is no VLAN. Nothing
// has changed on failure. Adding what is wanted already asks the kernel nothing; removing what is not wanted is -ENOENT. A
// filter or a denial that somebody else took out of the kernel is -ENOENT too when it is removed, and no longer wanted then.
[[nodiscard]] int32_t linuxGuardFilterAdd(const LinuxGuardKey *key);
[[nodiscard]] int32_t linuxGuardFilterRemove(const LinuxGuardKey *key);
[[nodiscard]] int32_t linuxGuardPortClose(uint32_t port);
[[nodiscard]] int32_t linuxGuardPortOpen(uint32_t port);
[[nodiscard]] int32_t linuxGuardNeighbourDiscovery(bool open);
[[nodiscard]] int32_t linuxGuardVlanExempt(uint32_t vlan, bool exempt);

// Removes every filter of kinds 3 and 4 of a port. Opening a port does so: a filter that is left then belongs to nobody, and
// would let its source in when the port is closed again.
void linuxGuardFiltersForget(uint32_t port);

// Whether the guard lets a packet in by what is wanted, as the kernel's rules do: the port is open, the VLAN exempt, or the
// source bound. Neighbour discovery is not considered.
[[nodiscard]] bool linuxGuardAdmits(uint32_t port0, uint32_t vlan, const uint8_t *mac, const uint8_t *address);

// Rewrites the elements of ports whose interface or native VLAN has changed.
void linuxGuardSettle();

// The next wanted filter behind `after` (null: the first), in the order of the keys; null at the end.
[[nodiscard]] const LinuxGuardFilter *linuxGuardNext(const LinuxGuardKey *after);

// Whether all of a filter's elements are in the kernel now: asks it.
[[nodiscard]] bool linuxGuardInKernel(const LinuxGuardKey *key);

// What the guard did on a port (from 1): asks the kernel for its counters.
void linuxGuardPortStatus(uint32_t port, LinuxGuardPortStatus *status);
