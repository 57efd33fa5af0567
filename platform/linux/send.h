#pragma once
// Frames to the ports. A send copies the frame once into an arena, whatever the number of ports, and queues it per interface;
// at the end of the loop's turn each interface's queue leaves in one system call. When the arena or a queue is full, they leave
// at once. Each interface has a socket of its own, so that one with a full transmit queue does not hold up the others.
//
// Frames that leave here do not pass the bridge or its filter rules.

#include <cstdint>

#include "platform/libsmd.h"

// The words of SmdPktCtl::platform that say whether the daemon's copy of the frame has a tag that it did not come with, and
// whether it came in by an isolated port: 1 then.
inline constexpr uint32_t LINUX_CTL_TAG = 0;
inline constexpr uint32_t LINUX_CTL_ISOLATED = 1;

// Sends what is queued.
void linuxSendFlush();

// Throws away what is queued for a link whose socket goes.
void linuxSendForget(uint32_t link);

// Opens and closes the sockets of bonds as they come and go.
void linuxSendSettle();
