#pragma once
// The process: start-up, the message loop, and the callbacks that the platform makes on timer ticks and link changes.
//
// One thread does everything. The loop blocks in vosMsgRecv; frames, ticks, link changes and remote calls come one at a time
// from inside it. That is why no table of the daemon has a lock.

#include <cstdint>

#include "platform/libvos.h"

// The one buffer of the loop; remote calls are worked on and answered in it.
alignas(16) extern uint8_t g_smdMsgRecvBuffer[VOS_MSG_MAX];

// Registers the daemon with every service of the platform, in the one order that works. 0 and the queue's id, or -1001 when
// the tables or the queue could not be set up; every other registration may fail without ending the daemon.
int32_t dhcp6snooping_startup(const char *path, uint32_t *queueId);

// Receives and answers one message.
void dhcp6snooping_serve_message(uint32_t queueId);

// Sets every table to its start values; clients of an earlier life are dropped without a word. Always 0.
int32_t dhcp6snooping_init();

// Timer callback, once a second; every tenth call ages the leases.
int32_t snoopd6TimerProcess(uint32_t timerId, void *user);

// Link callback: a port (from 1) that went down (state 0) loses its clients while fast-remove is set, snooping on or off.
int32_t dhcp6snoopingPortLinkProcess(uint32_t port, uint32_t linkState);

// Running-configuration callback: appends this module's commands when bit 0x10000 of the flags asks for them. 0, or -1 when
// they did not fit.
int32_t snoopd6BldRun(char *text, uint32_t *space, uint32_t flags, uint32_t context);
