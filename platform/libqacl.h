#pragma once
// libqacl: the switch's packet filters for IPv6 sources.
//
// Filters are values, not handles: removing names the same values as installing. Installing what is there already succeeds
// and changes nothing; removing what is absent is refused and changes nothing. Addresses are 16 bytes and MACs 6 bytes, in
// network order, copied before return. Ports count from 1. An all-zero MAC in a filter with a port means any source MAC.
// A filter for a source that no host may have (unspecified, loopback, multicast, IPv4-mapped) may be refused.
// All calls are synchronous and answer with the status of the filter hardware: 0 for success.
//
// Order of force: neighbour discovery, VLAN exemption and forward filters win over a port's deny-all.

#include <cstdint>

inline constexpr uint32_t FRM_OP_INSTALL = 3;
inline constexpr uint32_t FRM_OP_REMOVE = 4;

extern "C" {

// Redirects DHCPv6 frames to the processor (FRM_OP_INSTALL) or stops that (FRM_OP_REMOVE), on all ports.
int32_t FRM_OperateDhcp6FilterResource(uint32_t operation);

// Drops every IPv6 packet that enters through the port and that nothing below lets through. Removing it may remove the filters
// of this port too: none of them is needed then.
int32_t FRM_OperatePortDenyAllIp6FilterResource(uint32_t operation, uint32_t port);

// Lets ICMPv6 neighbour discovery through on every port.
int32_t FRM_InstallGlobalForwardIcmp6NdFilterResource(void);
int32_t FRM_RemoveGlobalForwardIcmp6NdFilterResource(void);

// Lets a VLAN through, whatever the source.
int32_t FRM_InstallGlobalForwardIp6VidOnlyFilterResource(uint16_t vlan);
int32_t FRM_RemoveGlobalForwardIp6VidOnlyFilterResource(uint16_t vlan);

// Lets a source address through, from any MAC on any port.
int32_t FRM_InstallGlobalForwardIp6AddrOnlyFilterResource(const uint8_t *address);
int32_t FRM_RemoveGlobalForwardIp6AddrOnlyFilterResource(const uint8_t *address);

// Lets a source address of one MAC through, on any port.
int32_t FRM_InstallGlobalForwardIp6AddrFilterResource(const uint8_t *mac, const uint8_t *address);
int32_t FRM_RemoveGlobalForwardIp6AddrFilterResource(const uint8_t *mac, const uint8_t *address);

// Lets a source address of one MAC through on one port, in any VLAN.
int32_t FRM_InstallForwardIp6AddrFilterResource(uint32_t port, const uint8_t *mac, const uint8_t *address);
int32_t FRM_RemoveForwardIp6AddrFilterResource(uint32_t port, const uint8_t *mac, const uint8_t *address);

// Lets a source address of one MAC through on one port in one VLAN.
int32_t FRM_InstallForwardIp6AddrFilterResource_new(uint32_t port, const uint8_t *mac, const uint8_t *address, uint32_t vlan);
int32_t FRM_RemoveForwardIp6AddrFilterResource_new(uint32_t port, const uint8_t *mac, const uint8_t *address, uint32_t vlan);

} // extern "C"
