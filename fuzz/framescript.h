#pragma once
// The script of the frame path: what one fuzz input says happens to a switch, event by event. Each event is one byte that
// names it and a few bytes of detail; client table, limits and settings live on from event to event.

#include "fuzz/input.h"

enum ScriptEvent : uint8_t {
    SCRIPT_RAW_FRAME = 0,     // u8 port, u16 VLAN, u8 flags, u16 offset, u16 length, bytes
    SCRIPT_MESSAGE = 1,       // u8 type, u8 who, u8 where, u8 how, u8 length, options
    SCRIPT_LEASE_MESSAGE = 2, // u8 type, u8 who, u8 where, u8 how, u8 count, per lease u8 address, u8 seconds
    SCRIPT_CROWD = 3,         // u8 where, u16 first client, u16 clients: a SOLICIT of each
    SCRIPT_TIME = 4,          // u8 seconds; 255: u32 seconds
    SCRIPT_AGE = 5,           // ten ticks of the timer
    SCRIPT_TRUST = 6,         // u8 port, u8 mode
    SCRIPT_PORT_LIMIT = 7,    // u8 port, u16 clients
    SCRIPT_VLAN_LIMIT = 8,    // u16 VLAN, u16 clients
    SCRIPT_SWITCHES =
        9, // u8: bit 0 l2-relay, 1 fast-remove, 2 snooping, 3 sends fail, 4 slow clock, 5 filters fail, 6 and 7 options 18, 37
    SCRIPT_LINK = 10,       // u8 port, u8 state
    SCRIPT_DELETE = 11,     // u8 kind, then what the kind asks for
    SCRIPT_GUARD = 12,      // u8 port, u8 on
    SCRIPT_QUERY = 13,      // u8 who: a walk over the clients from there, and one client
    SCRIPT_VLAN_RESET = 14, // u16 VLAN
    SCRIPT_PLATFORM = 15,   // u8 which, then a MAC answer, a member list, a trunk or the number of ports
    SCRIPT_EVENTS = 16,
};

// A switch as it comes from the factory, with port 4 trusted and snooping on.
void scriptBegin();

// The ids of options 18 and 37 as they are after start-up, whatever the last input left.
void scriptResetInformation();

// Lets the next event happen and checks what must hold. False at the end of the input, or when the script has used up its
// bound of frames.
bool scriptStep(FuzzInput *input);

// For targets that let something else happen between events: checks what must hold, and takes note that a VLAN's count was
// set to 0.
void scriptCheck();
void scriptNoteVlanReset();

// Turns snooping off and checks that nothing is left.
void scriptEnd();
