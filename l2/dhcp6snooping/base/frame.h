#pragma once
// Where things stand in a captured frame, in bytes. A captured frame always carries one VLAN tag; a second one shifts the IPv6
// header and everything behind it by 4.

#include <cstdint>

inline constexpr uint32_t FRAME_DESTINATION_MAC = 0;
inline constexpr uint32_t FRAME_SOURCE_MAC = 6;
inline constexpr uint32_t FRAME_ETHERNET_HEADER = 14; // without tags
inline constexpr uint32_t FRAME_INNER_VLAN = 18;      // of a double-tagged frame
inline constexpr uint32_t FRAME_IP6 = 18;

inline constexpr uint32_t IP6_HEADER = 40;
inline constexpr uint32_t IP6_PAYLOAD_LENGTH = 4; // in the IPv6 header
inline constexpr uint32_t IP6_SOURCE = 8;         // in the IPv6 header

inline constexpr uint32_t UDP_HEADER = 8;
inline constexpr uint32_t UDP_DESTINATION_PORT = 2; // in the UDP header
inline constexpr uint32_t UDP_LENGTH = 4;           // in the UDP header
