#include "platform/linux/guarddenial.h"

#include <cerrno>
#include <span>

#include "platform/linux/guard.h"
#include "platform/linux/guardnames.h"
#include "platform/linux/nftset.h"
#include "platform/linux/portnames.h"
#include "platform/linux/ports.h"
#include "platform/linux/vlans.h"

namespace {

std::array<bool, LINUX_PORTS_MAX> closed;    // wanted: deny all but the filters
std::array<bool, LINUX_VLAN_MAX + 1> exempt; // by VLAN id

// Sets of interfaces whose elements count, each with the member of a port's status that it adds to.
struct CountingSet {
    const char *set;
    uint64_t LinuxGuardPortStatus::*member;
};

constexpr std::array<CountingSet, 3> COUNTING = {{
    {"blocked", &LinuxGuardPortStatus::blocked},
    {"blocked_local", &LinuxGuardPortStatus::blockedLocal},
    {"blocked_nd", &LinuxGuardPortStatus::blockedDiscovery},
}};

// Counted since the port was closed, on interfaces that it has left and before the counters were made anew.
std::array<LinuxGuardPortStatus, LINUX_PORTS_MAX> kept;
std::array<LinuxGuardPortStatus, LINUX_PORTS_MAX> counted; // what linuxGuardCountsRead found

std::span<const uint8_t> keyOf(const uint32_t &ifindex) {
    return {reinterpret_cast<const uint8_t *>(&ifindex), sizeof ifindex};
}

bool begins(const LinuxGuardDenialChange &change, bool before, bool after) { return after && (!before || !change.certain); }

bool ends(const LinuxGuardDenialChange &change, bool before, bool after) { return !after && (before || !change.certain); }

int32_t setClosed(uint32_t port0, bool close, bool strict) {
    LinuxGuardDenialChange change = {.ifindex = linuxGuardPlaces[port0].ifindex, .before = {}, .after = {}, .certain = true};
    linuxNftBegin();
    if (change.ifindex != 0)
        change.before = linuxGuardDenial(change.ifindex);
    closed[port0] = close;
    if (change.ifindex != 0) {
        change.after = linuxGuardDenial(change.ifindex);
        linuxGuardQueueStricter(change);
        linuxGuardQueueLooser(change, strict);
    }
    linuxGuardNamesQueueIn();
    linuxGuardNamesQueueOut();
    const int32_t error = linuxNftCommit();
    if (error != 0) {
        closed[port0] = !close;
        linuxGuardNamesDoubt();
    }
    return error;
}

uint64_t packetsOf(const char *set, std::span<const uint8_t> key) {
    LinuxNftElement element{};
    return linuxNftGet(set, key, &element) == 0 ? element.packets : 0;
}

// Adds what the interface of a port has counted.
void addCounts(uint32_t port0, LinuxGuardPortStatus *status) {
    const uint32_t ifindex = linuxGuardPlaces[port0].ifindex;
    for (const CountingSet &counting : COUNTING)
        status->*counting.member += ifindex == 0 ? 0 : packetsOf(counting.set, keyOf(ifindex));
}

} // namespace

bool linuxGuardPortClosed(uint32_t port0) { return closed[port0]; }

bool linuxGuardVlanIsExempt(uint32_t vlan) { return vlan <= LINUX_VLAN_MAX && exempt[vlan]; }

LinuxGuardDenial linuxGuardDenial(uint32_t ifindex) {
    LinuxGuardDenial denial{};
    for (uint32_t port0 = 0; port0 < LINUX_PORTS_MAX; ++port0) {
        if (!closed[port0] || linuxGuardPlaces[port0].ifindex != ifindex)
            continue;
        denial.closed = true;
        denial.raClosed = denial.raClosed || linuxSwitch.ports[port0].raGuard != 0;
        denial.exempt = denial.exempt || exempt[linuxGuardPlaces[port0].native]; // VLAN 0, none, is never exempt
    }
    return denial;
}

void linuxGuardQueueStricter(const LinuxGuardDenialChange &change) {
    const std::span<const uint8_t> key = keyOf(change.ifindex);
    if (begins(change, change.before.closed, change.after.closed)) {
        linuxNftAdd("guard_if", key);
        linuxNftAdd("nd_over", key);
        for (const CountingSet &counting : COUNTING) {
            linuxNftDrop(counting.set, key); // counts from 0
            linuxNftAdd(counting.set, key);
        }
    }
    if (begins(change, change.before.raClosed, change.after.raClosed))
        linuxNftAdd("ra_closed_if", key);
    if (ends(change, change.before.exempt, change.after.exempt))
        linuxNftDrop("exempt_if", key);
}

void linuxGuardQueueLooser(const LinuxGuardDenialChange &change, bool strict) {
    const std::span<const uint8_t> key = keyOf(change.ifindex);
    if (begins(change, change.before.exempt, change.after.exempt))
        linuxNftAdd("exempt_if", key);
    if (ends(change, change.before.raClosed, change.after.raClosed))
        linuxNftDrop("ra_closed_if", key);
    if (ends(change, change.before.closed, change.after.closed)) {
        (strict ? linuxNftRemove : linuxNftDrop)("guard_if", key);
        linuxNftDrop("nd_over", key);
        for (const CountingSet &counting : COUNTING)
            linuxNftDrop(counting.set, key);
    }
}

void linuxGuardQueueForget() {
    for (const char *set : {"guard_if", "ra_closed_if", "exempt_if", "nd_over"})
        linuxNftEmpty(set);
    for (const CountingSet &counting : COUNTING)
        linuxNftEmpty(counting.set);
}

void linuxGuardKeepCount(uint32_t port0) {
    if (closed[port0])
        addCounts(port0, &kept[port0]);
}

void linuxGuardCountsRead(const LinuxGuardPlaces &from) {
    counted = {};
    for (uint32_t port0 = 0; port0 < LINUX_PORTS_MAX; ++port0)
        if (closed[port0] && from[port0].ifindex == linuxGuardPlaces[port0].ifindex)
            addCounts(port0, &counted[port0]);
}

void linuxGuardCountsKeep() {
    for (uint32_t port0 = 0; port0 < LINUX_PORTS_MAX; ++port0)
        for (const CountingSet &counting : COUNTING)
            kept[port0].*counting.member += counted[port0].*counting.member;
}

int32_t linuxGuardPortClose(uint32_t port) {
    if (!linuxPortExists(port))
        return -ENODEV;
    if (closed[port - 1])
        return 0;
    kept[port - 1] = {};
    return setClosed(port - 1, true, true);
}

int32_t linuxGuardPortOpen(uint32_t port) {
    if (!linuxPortExists(port))
        return -ENODEV;
    if (!closed[port - 1])
        return -ENOENT;
    const int32_t error = setClosed(port - 1, false, true);
    if (error == 0)
        linuxGuardFiltersForget(port);
    if (error != -ENOENT)
        return error;
    // Somebody else opened it in the kernel: it is open from now on, and what is left of it goes as far as it can.
    static_cast<void>(setClosed(port - 1, false, false));
    closed[port - 1] = false;
    linuxGuardFiltersForget(port);
    return error;
}

int32_t linuxGuardVlanExempt(uint32_t vlan, bool add) {
    if (vlan < 1 || vlan > LINUX_VLAN_MAX)
        return -EINVAL;
    if (exempt[vlan] == add)
        return add ? 0 : -ENOENT;
    const std::array<uint8_t, 2> key = {static_cast<uint8_t>(vlan >> 8), static_cast<uint8_t>(vlan)};
    linuxNftBegin();
    (add ? linuxNftAdd : linuxNftRemove)("exempt_vlan", key);
    for (uint32_t port0 = 0; port0 < LINUX_PORTS_MAX; ++port0) // members of a bond name theirs more than once
        if (closed[port0] && linuxGuardPlaces[port0].ifindex != 0 && linuxGuardPlaces[port0].native == vlan)
            (add ? linuxNftAdd : linuxNftDrop)("exempt_if", keyOf(linuxGuardPlaces[port0].ifindex));
    const int32_t error = linuxNftCommit();
    if (error == 0)
        exempt[vlan] = add;
    return error;
}

void linuxGuardPortStatus(uint32_t port, LinuxGuardPortStatus *status) {
    const uint32_t port0 = port - 1;
    const uint32_t ifindex = linuxGuardPlaces[port0].ifindex;
    *status = closed[port0] ? kept[port0] : LinuxGuardPortStatus{};
    status->port = port;
    status->guarded = closed[port0] ? 1 : 0;
    status->installed = ifindex != 0 && linuxNftGet("guard_if", keyOf(ifindex), nullptr) == 0 ? 1 : 0;
    if (!closed[port0])
        return;
    addCounts(port0, status);
    LinuxPortNames names{};
    linuxPortNamesAdd(&names, port0);
    for (const LinuxPortName &name : linuxPortNamesAll(names))
        status->blocked += packetsOf("guard_name", name);
}
