#pragma once
// The frames of a script: who sends what from where, put into memory as the switch would deliver it, and what must be true of
// the daemon's answer to one frame.

#include <cstdint>
#include <span>

#include "fuzz/input.h"
#include "fuzz/platform/frame.h"

struct ScriptPlace {
    uint32_t port;  // from 1; any number
    uint32_t vlan;  // VLAN word of the receive information
    uint32_t flags; // control flags; bit 7 stands for "not to be processed"
};

struct ScriptWho {
    uint32_t client; // number of the client, 0 has the all-zero MAC
    uint8_t where;   // bits 0 to 2 port, 3 to 5 VLAN, 6 unusual port, 7 unusual VLAN
    uint8_t how;     // bit 0 second tag, 1 inside a Relay-Reply, 2 broadcast, 3 unicast to a server, 4 lying lengths
};

void scriptClientMac(uint32_t client, uint8_t mac[6]);
void scriptAddress(uint8_t number, uint8_t address[16]);

// A message with options, or about leases, as the input says.
void scriptOptionMessage(FrameMessage *message, uint8_t type, FuzzInput *input);
void scriptLeaseMessage(FrameMessage *message, uint8_t type, const ScriptWho *who, FuzzInput *input);

// Hands a frame to the daemon in a heap block of exactly the size that the receive contract promises: at an address 2 modulo
// 8, with 64 zero bytes behind it.
void scriptDeliver(const ScriptPlace *place, uint32_t offset, std::span<const uint8_t> frame);

// Puts the headers around a message, delivers it, and checks that a limit admitted no client too many and a server on an
// untrusted port reached nobody.
void scriptDeliverMessage(const ScriptWho *who, const FrameMessage *message);
