#pragma once
// The load that benches put on the core: so many clients, and for each one frame of every kind, built before anything is
// measured and lying in memory as the switch would deliver it.

#include <cstdint>

inline constexpr uint32_t LOAD_CLIENTS_MAX = 2048;

enum LoadKind : uint32_t {
    LOAD_SOLICIT = 0,
    LOAD_REPLY = 1,   // one address and one prefix
    LOAD_RELEASE = 2, // of both
    LOAD_REQUEST = 3, // for both
    LOAD_ADVERTISE = 4,
    LOAD_RELAY_REPLY = 5, // around the REPLY; unwrapped in place, so that a second delivery finds a bare REPLY
    LOAD_KINDS = 6,
};

// Starts the core: snooping on, port 4 trusted, tracing off, no clients.
void loadBegin();

// Builds the frames of `clients` clients, `leases` addresses in each REPLY and RELEASE beside one prefix.
void loadBuild(uint32_t clients, uint32_t leases);

// Delivers one client's frame: clients live on ports 1 to 3, the server is behind port 4.
void loadDeliver(LoadKind kind, uint32_t client);

// Delivers one kind for all clients.
void loadDeliverAll(LoadKind kind);

// Ends the process when the table does not hold so many clients: a bench that measures something else than it says.
void loadExpectClients(uint32_t clients);
