#pragma once
// What the bridge's MAC table last answered, so that a frame to a single station costs no question to the kernel.
//
// An answer is good until the bridge says anything about its MAC in its VLAN. Notifications are only ever taken as that, never
// as the new answer: one that is read late forgets what need not be forgotten, and that is all. A station that moves is learned
// by the bridge, and so told of, before anybody can answer its first frame from the new place. So what has been told before
// frames are taken from a port is read before the first of them is answered from here, whomever the loop served first. While
// more notifications wait than are read then (many new stations at once), nothing is answered from here and nothing is kept,
// and when the kernel lost some, everything is forgotten.
//
// A fixed table: stations that fall on the same set of places push each other out, and cost the question again.

#include <cstdint>

struct LinuxMacPlace {
    uint32_t port;  // from 1; of a trunk its lowest member
    uint32_t trunk; // LINUX_NO_TRUNK when there is none
};

// Listens to the bridge from now on. A kernel that refuses costs questions, nothing else. Once.
void linuxMacCacheOpen();

// Frames were received, or time has passed: what the bridge told meanwhile is read before the next answer.
void linuxMacCacheDoubt();

// False when the kernel has to be asked. VLAN 0 on a bridge that does not filter VLANs.
[[nodiscard]] bool linuxMacCacheFind(const uint8_t *mac, uint16_t vlan, LinuxMacPlace *place);

// Keeps what the kernel answered just now.
void linuxMacCacheKeep(const uint8_t *mac, uint16_t vlan, LinuxMacPlace place);

// Forgets everything: interfaces have changed, and with them what a port is.
void linuxMacCacheForget();
