#pragma once
// The switch that fuzz targets and benches link the daemon's core with. It keeps no record of the calls, allocates nothing
// and answers every question from one global record that the caller fills in: what a fuzz input says, or what a bench needs.
//
// It holds the core to its side of the contract as it goes: every sent byte is read, every text is measured. A breach ends
// the process.

#include <cstdint>

#include "platform/libsmd.h"
#include "platform/linux/loop.h"

inline constexpr uint32_t LEAN_PORTS = 28;
inline constexpr uint32_t LEAN_PLACES = 8; // distinct answers of the MAC table and of the VLAN table

struct LeanMacAnswer {
    uint32_t found; // 0: smdVDMacGet answers -1
    uint32_t flags; // SMD_MAC_* bits
    uint32_t port;  // any number, also one that no port has
    uint16_t trunk;
};

struct LeanSwitch {
    uint32_t now;                     // vosUpSeconds, seconds
    uint32_t clockStep;               // seconds that pass at every look at the clock
    uint32_t debug;                   // non-zero: every trace line is formatted
    uint32_t sendFails;               // non-zero: every send answers -1
    uint32_t filterFails;             // non-zero: every change of a filter answers -1
    uint32_t identityFails;           // non-zero: questions about names, numbers and addresses go unanswered
    uint32_t longHostName;            // non-zero: the host name fills its buffer, without a NUL
    LeanMacAnswer macs[LEAN_PLACES];  // by the MAC's last byte modulo LEAN_PLACES
    SmdPortList members[LEAN_PLACES]; // by VLAN modulo LEAN_PLACES
    int32_t trunkOf[LEAN_PORTS];      // by port index; -1 = none
    SmdPktRecvFn receive;             // what the core registered
    int32_t (*link)(uint32_t, uint32_t);
    int32_t (*tick)(uint32_t, void *);
    int32_t (*build)(char *, uint32_t *, uint32_t, uint32_t);
    uint32_t sends;       // accepted sends
    uint32_t sentLength;  // bytes, of the last one
    uint32_t sentFlags;   // control flags of the last one
    uint32_t sentPort;    // of the last one; 0 when it went to a list
    SmdPortList sentList; // of the last one; empty when it went to a port
    uint32_t lines;       // trace lines
    uint32_t filters;     // accepted changes of filters
};
extern LeanSwitch leanSwitch;
extern uint8_t leanSent[SMD_FRAME_MAX]; // bytes of the last accepted send

// Bytes that the next vosMsgRecv delivers, and the length that it claims. Cleared by it; with none it answers -1.
extern const uint8_t *leanMessage;
extern uint32_t leanMessageLength;

// Answers the requests of the sub-agent, once the core has been started.
extern LinuxMsgHandler leanMibRequest;

// A plain switch: 28 ports, all of them in every VLAN, no trunks, MAC n modulo 8 on port n modulo 8 + 1, debugging off. What
// the core registered stays.
void leanReset();

// The last send went to this port (from 1).
[[nodiscard]] bool leanSentTo(uint32_t port);
