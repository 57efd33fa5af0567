#pragma once
// The VLAN list that callers exchange with the daemon: 512 bytes, VLAN v is bit 0x80 >> (v % 8) of byte v / 8. Only VLANs 1 to
// 4094 are ever looked at.

#include <cstdint>

inline constexpr uint32_t VLAN_LIST_SIZE = 512; // bytes
inline constexpr uint32_t VLAN_FIRST = 1;
inline constexpr uint32_t VLAN_LAST = 4094;

[[nodiscard]] inline bool vlan_valid(uint32_t vlan) { return vlan >= VLAN_FIRST && vlan <= VLAN_LAST; }

// Both expect a valid VLAN.
[[nodiscard]] inline bool vlan_listed(const uint8_t *list, uint32_t vlan) {
    return (list[vlan / 8] & (0x80 >> (vlan % 8))) != 0;
}
inline void vlan_list_add(uint8_t *list, uint32_t vlan) { list[vlan / 8] |= static_cast<uint8_t>(0x80 >> (vlan % 8)); }
