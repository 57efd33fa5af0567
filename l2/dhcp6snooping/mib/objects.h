#pragma once
// The MIB module as the sub-agent library reads it: one record per object, one descriptor per group, and the list that pairs
// them. All constant; the library calls the handlers of handlers.h.
//
// Some declared ranges are not those that the handlers enforce. The handlers decide; the declared ones stay as they are, since
// managers have them compiled in.

#include <cstdint>

#include "platform/libccd.h"

// MIB_OBJECTS entries in object order, closed by a pair of nulls.
extern const CcdRegEntry tqzL2Dhcp6SnoopingObjects[];

// Registers or withdraws the module. The arguments are ignored. Always 0.
int32_t tqzL2Dhcp6SnoopingInit(uint32_t a, uint32_t b);
int32_t tqzL2Dhcp6SnoopingTerminate(uint32_t a, uint32_t b);
