#pragma once
// The registered MIB module as SNMP sees it: its objects sorted by OID, and requests on them by OID.
//
// An object's OID is that of its group without the first stored arc, and its column. What follows is the instance, which only
// the object's handler understands. One module at a time, at most LINUX_MIB_OBJECTS_MAX objects; the module's tables are
// constant and stay where they are.
//
// A walk ends: an instance that a handler names must lie behind the one that was asked for, or the object has no next one.

#include <cstdint>

#include "platform/libccd.h"
#include "platform/linux/protocol.h"

inline constexpr uint32_t LINUX_MIB_OBJECTS_MAX = 64;

// Takes a module's list in. 0; -1 when there is a module already, or the list has too many objects or an OID that is too long.
[[nodiscard]] int32_t linuxMibRegister(const CcdRegEntry *list);
void linuxMibForget();

// Works on one request in place. Returns 0 or one of LINUX_MIB_*; a failure that a handler answered otherwise is passed on.
int32_t linuxMibRequest(LinuxMibMsg *message);
