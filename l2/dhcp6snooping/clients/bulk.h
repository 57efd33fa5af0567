#pragma once
// Deletion of many clients at once: by port, VLAN, address, MAC, or all. A deletion that takes 30 seconds is cut off, because
// the message loop stands still meanwhile; what is left ages out or is deleted by a second call.

#include <cstdint>

enum : uint32_t {
    DHCP6SNOOPING_DELETE_BY_PORT = 0, // value: port number
    DHCP6SNOOPING_DELETE_BY_IP = 1,   // value: pointer to a 16-byte address; only the first client that holds it
    DHCP6SNOOPING_DELETE_BY_VLAN = 2, // value: VLAN id
    DHCP6SNOOPING_DELETE_BY_MAC = 3,  // value: pointer to a 6-byte MAC
    DHCP6SNOOPING_DELETE_ALL = 4,     // value: not used
};

// 0; 0xFFFFFFFF for an unknown kind or a null pointer, found out at the first client (an empty table answers 0).
uint32_t dhcp6snooping_delete_by(uint32_t kind, uintptr_t value);

uint32_t dhcp6snooping_delete_by_port(uint32_t port);
uint32_t dhcp6snooping_delete_by_ip(const uint8_t *address);
uint32_t dhcp6snooping_delete_by_vlan(uint32_t vlan);
uint32_t dhcp6snooping_delete_by_mac(const uint8_t *mac);
uint32_t dhcp6snooping_delete_all();
