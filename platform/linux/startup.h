#pragma once
// Brings the saved configuration back: when the loop starts, the command shell is run on the startup file, and only when it has
// gone through all of it is the daemon reported ready.
//
// The shell is a process of its own that speaks to the daemon as any caller does, so that frames and timers go on meanwhile. A
// line that fails is named in the log and does not stop the rest. A shell that does not come to an end is ended after a minute.
//
// The file is startup.conf beside the switch file; another one with SNOOPD6_STARTUP. The shell is the installed one, another
// one with SNOOPD6_SHELL.

#include <sys/time.h>

// How long the shell may take.
extern timeval linuxStartupPatience;

// Path of the startup file, whether it exists or not.
const char *linuxStartupFile();

// Sets what is called once, when the saved configuration is in force as far as it can be, right before the daemon is reported
// ready.
void linuxStartupWhenReady(void (*ready)());

// Starts the replay, or reports the daemon ready when there is nothing to replay. The second call does nothing.
void linuxStartupReplay();
