#pragma once
// The switch file: which bridge is the switch, and which of its interfaces is which port. Read once, at start.
// Path: the environment variable SNOOPD6_SWITCH, or /etc/snoopd6/switch.toml.

#include <cstdint>

inline constexpr uint32_t LINUX_PORTS_MAX = 28;

struct LinuxPortConfig {
    uint32_t exists; // 1 when the file describes this port
    char interface[16];
    uint32_t raGuard;  // 1: router advertisements and redirects are closed on a guarded port
    uint32_t xpon;     // 1: an xPON port
    uint32_t pon;      // 0 to 255
    uint32_t onu;      // 0 to 8191
    uint8_t serial[8]; // 4 vendor characters, 4 binary bytes
};

struct LinuxTrunkConfig {
    char interface[16]; // of the bond; "" ends the list
    uint32_t id;        // 0 to 65534
};

struct LinuxSwitchConfig {
    char bridge[16];
    char title[64];               // for the running configuration; default "DHCPv6 snooping"
    uint32_t enterprise;          // default 47119
    uint32_t portMax;             // highest port number, 1 to 28
    uint32_t keepBridgeNetfilter; // 1: bridge netfilter is left as it is, and the daemon does not start where it is on
    uint32_t onStartupFailure;    // LINUX_STARTUP_* of protocol.h: what happens without a whole startup file
    uint8_t vlans[512]; // bit 0x80 >> (v % 8) of byte v / 8: VLANs of a bridge that does not filter them; default VLAN 1
    LinuxPortConfig ports[LINUX_PORTS_MAX]; // by port index
    LinuxTrunkConfig trunks[LINUX_PORTS_MAX + 1];
};

// What the file said; valid after linuxSwitchFileRead.
extern LinuxSwitchConfig linuxSwitch;

// Reads the file into *config. True on success; false with one sentence in `error` that names file, line and what is wrong.
bool linuxSwitchFileRead(const char *path, LinuxSwitchConfig *config, char *error, uint32_t errorSize);

// SNOOPD6_SWITCH, or the default path.
const char *linuxSwitchFilePath();
