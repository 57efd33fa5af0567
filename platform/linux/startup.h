#pragma once
// Brings the saved configuration back when the loop starts, and knows what became of it. Only when the shell has gone through
// all of it, or there is nothing to go through, is the daemon reported ready.
//
//     startup file                  on_startup_failure    what happens
//     none, and no last good one    any                   nothing is replayed
//     complete, or by hand          any                   it is replayed
//     damaged, or missing           last-good             the last good one is replayed; without one as "open"
//     damaged, or missing           closed                the switch is closed (startupclosed.h)
//     damaged, or missing           open                  nothing is replayed
//
// A shell that cannot be started, or fails as a whole, closes the switch under "closed" and leaves it open otherwise: the last
// good file would need the same shell.
//
// The file is startup.conf beside the switch file; another one with SNOOPD6_STARTUP. Where the switch file is the installed one
// and there is none beside it, it is that of the installed service.

#include "platform/linux/protocol.h"

// Path of the startup file, absolute, whether it exists or not.
const char *linuxStartupFile();

// Sets what is called once, when the saved configuration is in force as far as it can be, right before the daemon is reported
// ready.
void linuxStartupWhenReady(void (*ready)());

// Starts the replay, or reports the daemon ready when there is nothing to replay. The second call does nothing.
void linuxStartupReplay();

// What became of the saved configuration.
void linuxStartupStatus(LinuxStartupStatus *status);

// Acts of an operator: a configuration was saved, all of them were erased, the failure was cleared. Each opens a closed switch.
// Clearing is false when it was not closed.
void linuxStartupSaved();
void linuxStartupErased();
[[nodiscard]] bool linuxStartupClear();
