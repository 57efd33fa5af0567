#pragma once
// What is known about one client message while its options are made. Starts as zeros for every message.

#include <cstdint>

struct Dhcp6InfoContext {
    uint32_t switchId;       // layer-3 interface that serves the VLAN; 0 = none
    uint16_t vlan;           // outer VLAN
    uint16_t port;           // receiving port index, from 0; texts show port + 1
    uint16_t innerVlan;      // of a double-tagged frame, else 0
    uint8_t systemMac[6];    // the switch's own
    uint8_t clientMac[6];    // from the client's DUID, else zero
    uint32_t isXpon;         // 1 = the port is an xPON port
    uint8_t ponValue;        // xPON: number of the PON
    uint8_t serialNumber[8]; // xPON: 4 vendor characters, 4 binary bytes
    uint16_t ponId;          // xPON: ONU id, 13 bits
    uint32_t room;           // bytes that the options may take up where the message lies; 0 = not bounded
};
