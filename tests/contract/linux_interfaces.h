#pragma once
// The kernel's side of the switch's interfaces: netlink messages about them, made by hand as the kernel makes them, so that
// what a test needs (a bridge that filters VLANs, a bond) need not be there. Each is applied at once. The tests start with a
// transparent bridge of four ports, of which the first two have an interface.

#include <array>
#include <cstdint>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <vector>

inline constexpr uint32_t BRIDGE = 100; // interface indexes
inline constexpr uint32_t P1 = 101;
inline constexpr uint32_t P2 = 102;
inline constexpr uint32_t P3 = 103;
inline constexpr uint32_t BOND = 300; // and all behind it
inline constexpr uint32_t BOND_2 = 301;

// ---- Messages that are not applied yet -----------------------------------------------------------------------------

struct LinkMessage {
    alignas(8) std::array<uint8_t, 4096> bytes;
    nlmsghdr *header;
};

// An interface that is up, with its name and nothing else.
void startLink(LinkMessage *message, uint16_t type, uint8_t family, uint32_t ifindex, const char *name);

// The state of one VLAN on an interface, or of those up to `last`; 0: of one.
void startVlan(LinkMessage *message, uint16_t type, uint32_t ifindex, uint16_t vlan, uint16_t last, uint8_t state);

// ---- What the kernel tells -----------------------------------------------------------------------------------------

struct TaggedVlan {
    uint16_t flags; // BRIDGE_VLAN_INFO_*
    uint16_t vid;
};

void tellBridge(uint8_t filtering);

// An interface, in the bridge or in a bond (0: in none); `backup` for a member that its bond does not use.
void tellInterface(uint32_t ifindex, const char *name, uint32_t master, bool backup = false);

// A bond in the bridge, in its mode, with its active member.
void tellBond(const char *name, uint8_t mode, uint32_t active, uint8_t hearsAll);

// What the bridge says of its port: spanning-tree state, and all the VLANs that the port is in.
void tellState(uint32_t ifindex, const char *name, uint8_t state, const std::vector<TaggedVlan> &vlans);

void tellVlan(uint16_t type, uint32_t ifindex, uint16_t vlan, uint16_t last, uint8_t state);

void tellGone(uint32_t ifindex, const char *name);

// ---- The platform's side -------------------------------------------------------------------------------------------

// Ports of a VLAN, the first one the highest bit of the lowest byte.
uint64_t members(uint32_t vlan);

class LinuxInterfaces : public testing::Test {
  protected:
    void SetUp() override;
    // The bridge filters VLANs; port 1 is in VLAN 10, its native one, and in 20 to 29.
    static void filterVlans();
};
