#pragma once
// The daemon's client table as the shell reads it: client by client, in ascending order of MAC addresses. A client that still
// waits for its server's REPLY is pending: the daemon counts it against the limits of its port and VLAN, and never lists it.

#include <array>
#include <vector>

#include "l2/dhcp6snooping/clients/queries.h"
#include "shell/remotecall.h"
#include "shell/values.h"

struct ClientRecord {
    MacAddress mac;
    uint32_t vlan;
    uint32_t port;
    uint32_t leaseCount; // at most DHCP6SNOOPING_LEASE_LINES
    std::array<Dhcp6LeaseLine, DHCP6SNOOPING_LEASE_LINES> leases;
    std::array<uint32_t, DHCP6SNOOPING_LEASE_LINES> remaining; // seconds
};

// The first client behind `mac` (all-zero: the first of all). CallEnd::refused when there is none. The MAC is taken by value,
// so that a walk may hand in the one it is about to overwrite.
[[nodiscard]] CallEnd clientNext(Connection *connection, MacAddress mac, ClientRecord *client, std::string *error);

// All clients.
[[nodiscard]] CallEnd clientAll(Connection *connection, std::vector<ClientRecord> *clients, std::string *error);

// The client with this MAC, which is not all-zero. CallEnd::refused when there is none.
[[nodiscard]] CallEnd clientFind(Connection *connection, MacAddress mac, ClientRecord *client, std::string *error);

// How many clients of all ports the daemon counts, pending ones too.
[[nodiscard]] CallEnd clientTotal(Connection *connection, uint64_t *total, std::string *error);

// What is left of `whole` without `part`. Both are read one after the other while the table changes, so `part` may be larger.
inline uint64_t clientsLeft(uint64_t whole, uint64_t part) { return whole > part ? whole - part : 0; }
