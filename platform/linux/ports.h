#pragma once
// The switch's interfaces as the kernel last described them: the ports of the switch file, the bonds that some of them belong
// to, and the bridge itself. links.cpp writes this table from netlink messages; everything else reads it.
//
// One array holds them all, so that one index names an interface everywhere (its record, its socket, its transmit queue):
// the ports by port index, behind them the bonds in the order of their appearance, last the bridge. It never grows. A bond
// beyond its room is logged and is no trunk.
//
// What the bridge knows of a port it knows of the interface that was put into it. For the member of a bond that is the bond:
// spanning-tree state, VLANs and learned addresses are the bond's, frames are received on the member and sent on the bond.

#include <cstdint>

#include "platform/linux/protocol.h"
#include "platform/linux/switchfile.h"

inline constexpr uint32_t LINUX_BONDS_MAX = 28;
inline constexpr uint32_t LINUX_LINK_BOND0 = LINUX_PORTS_MAX;
inline constexpr uint32_t LINUX_LINK_BRIDGE = LINUX_PORTS_MAX + LINUX_BONDS_MAX;
inline constexpr uint32_t LINUX_LINKS = LINUX_LINK_BRIDGE + 1;
inline constexpr uint32_t LINUX_NO_LINK = 0xFFFFFFFFu;

struct LinuxLink {
    char name[16];         // that the kernel has for it now; while it is missing, of a port, the switch file's
    uint32_t ifindex;      // 0 while there is no such interface
    uint32_t master;       // ifindex of the bridge or bond that it is in, 0 for none
    uint32_t running;      // 1 when it is up and has a carrier
    uint32_t stpState;     // BR_STATE_*, when it is in a bridge
    uint32_t isolated;     // 1 when nothing goes from it to another one of these
    uint32_t locked;       // 1 when only stations that the bridge knows behind it may send
    uint32_t backup;       // 1 for a bond's member that the bond does not use now
    uint32_t trunk;        // of a bond: its trunk id
    uint32_t activeMember; // of a bond that balances by load: ifindex of the member that hears what is flooded, else 0
    uint32_t hearsAll;     // of a bond: 1 when it takes frames from members that it does not use
    uint32_t seen;         // number of the last full reading that listed it
    uint32_t nativeVlan;   // VLAN of frames without a tag, 0 for none; of a bridge that filters VLANs
    uint8_t member[512];   // bit 0x80 >> (v % 8) of byte v / 8: VLANs that it is a member of
    uint8_t untagged[512]; // of these, the ones that leave it without a tag
    uint8_t blocked[512];  // of these, the ones that spanning tree keeps closed on it
};

struct LinuxBridge {
    uint32_t vlanFiltering; // 1 when it filters VLANs
    uint16_t vlanTpid;      // Ethernet type of the tags that it filters by
    uint8_t mac[6];
};

extern LinuxLink linuxLinks[LINUX_LINKS];
extern LinuxBridge linuxBridge;
extern LinuxPortCounters linuxCounters[LINUX_PORTS_MAX];

// Counts up with every change of the table: what was worked out from it before is old.
extern uint32_t linuxPortsChange;

// Take the name of one port, or of all and of the bridge, from the switch file.
void linuxPortInit(uint32_t port0);
void linuxPortsInit();

// Whether the switch has this port (from 1).
[[nodiscard]] bool linuxPortExists(uint32_t port);

// The link that is in the bridge on behalf of a port index: its own, or its bond's. LINUX_NO_LINK when neither is.
[[nodiscard]] uint32_t linuxBridgeLink(uint32_t port0);

// Whether frames that come in through the port index pass the bridge.
[[nodiscard]] bool linuxPortReceives(uint32_t port0);

// Whether the link, a port's or a bond's, can send: in the bridge, up and forwarding.
[[nodiscard]] bool linuxLinkSends(uint32_t link);

// The trunk of a port index, or LINUX_NO_TRUNK; the lowest port index of a trunk, or LINUX_NO_LINK when there is no such trunk.
[[nodiscard]] uint32_t linuxPortTrunk(uint32_t port0);
[[nodiscard]] uint32_t linuxTrunkLowest(uint32_t trunk);
// The bond of a trunk, or LINUX_NO_LINK.
[[nodiscard]] uint32_t linuxTrunkLink(uint32_t trunk);

// The link with this ifindex, or LINUX_NO_LINK.
[[nodiscard]] uint32_t linuxLinkByIfindex(uint32_t ifindex);

// The callback for link changes; null for none.
void linuxPortsOnLinkChange(int32_t (*cb)(uint32_t port, uint32_t linkState));

// From now on the platform acts on what the table says; before, it is only read.
void linuxPortsStart();

// Brings everything that follows from the table in line with it: sockets, the trap, link callbacks. Called by links.cpp
// after every change, from the loop.
void linuxPortsSettle();
