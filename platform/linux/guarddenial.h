#pragma once
// Interfaces that the source guard has closed: what the ports on an interface want of it together, and what has to change in
// the kernel when that changes. Usually an interface is one port; a bond is one interface for all its members, and one closed
// member closes it.
//
// Owns which ports are closed and which VLANs are exempt, and what was counted on interfaces that a port has left.

#include <array>

#include "platform/linux/guardkeys.h"
#include "platform/linux/switchfile.h"

using LinuxGuardPlaces = std::array<LinuxGuardPlace, LINUX_PORTS_MAX>;

extern LinuxGuardPlaces linuxGuardPlaces; // by port index: where each port's elements are; guard.cpp's

struct LinuxGuardDenial {
    bool closed;
    bool raClosed; // to router advertisements and redirects as well
    bool exempt;   // frames without a tag pass: they belong to an exempt VLAN
};

struct LinuxGuardDenialChange {
    uint32_t ifindex;
    LinuxGuardDenial before;
    LinuxGuardDenial after;
    bool certain; // the kernel has what `before` says
};

// Whether a port, by index, is to be closed.
[[nodiscard]] bool linuxGuardPortClosed(uint32_t port0);

[[nodiscard]] bool linuxGuardVlanIsExempt(uint32_t vlan);

// What is wanted of an interface now.
[[nodiscard]] LinuxGuardDenial linuxGuardDenial(uint32_t ifindex);

// Queue the part of a change that lets less through, and the part that lets more through. A strict one fails when the interface
// is not closed in the kernel.
void linuxGuardQueueStricter(const LinuxGuardDenialChange &change);
void linuxGuardQueueLooser(const LinuxGuardDenialChange &change, bool strict);

// Queues that no interface is closed, nor exempt. What is wanted has to be queued behind it in the same batch, as if none of it
// were certain.
void linuxGuardQueueForget();

// Keeps what was counted for a port (by index) on the interface that it is about to leave.
void linuxGuardKeepCount(uint32_t port0);

// The same where all counters are made anew: reads them before, for ports that are where they were, and keeps what was read
// once the kernel has done it. A refusal leaves them as they are.
void linuxGuardCountsRead(const LinuxGuardPlaces &from);
void linuxGuardCountsKeep();
