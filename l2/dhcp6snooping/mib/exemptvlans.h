#pragma once
// The exempt VLANs as one text value: a list like "1,3-5", read and written whole.

#include <cstdint>

#include "platform/libccd.h"

// Writes the list into the variable. 0, or -1 without memory.
int32_t mib_exempt_vlans_get(CcdVariable *variable);

// Makes exactly the listed VLANs exempt, at most 128 of them. VLAN 4094 is never touched here. Returns what the last change
// of a filter answered, 0 when nothing changed; the parser's answer for a text that is no list, -1 for too many VLANs, with
// nothing changed.
int32_t mib_exempt_vlans_commit(const CcdVariable *variable);
