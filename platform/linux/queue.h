#pragma once
// The daemon's message queue: a Unix SOCK_SEQPACKET socket in the run folder, and the locks that make this process the only
// snoopd6 behind it. Owned by the one thread; used by libvos, and by smdProcessInit for the locks.
//
// Who may speak: root, the daemon's own user, and members of the socket file's group. The file's mode says the same; the
// credentials are looked at because a mode is changed by mistake.
//
// Bounds, and why nobody can do harm through them:
// - LINUX_CALLERS_MAX connections. One more closes the one that was silent longest, those that never said anything first, so
//   that idle callers cannot lock others out.
// - One message per connection. While it waits, nothing more is read from that connection: what else its caller sends stays
//   in the kernel, at the caller's expense, and every caller gets its turn.
// - One message of all connections is dealt with in a turn of the loop, whether the daemon or the platform answers it. So
//   frames and timers wait for the longest single answer, and not for as many as there are callers.
// - A message that is not exactly as long as its header says, or of another version, ends its connection.
// - Replies are sent without waiting. A caller that does not read them loses its connection.

#include <cstdint>

#include "platform/libvos.h"

inline constexpr uint32_t LINUX_CALLERS_MAX = 64;

// Makes sure that this is the only snoopd6 of the run folder and of the network namespace, and that the socket's name is free,
// or ends the process by linuxFatal. Makes the run folder when it is missing; all of it is undone at the end. The second
// call does nothing.
void linuxInstanceLock();

// Path of the socket.
const char *linuxSocketPath();

// Opens the socket; the locks must be held. Ends the process by linuxFatal when that fails.
void linuxQueueOpen();

// True when a message waits.
bool linuxQueueReady();

// The message taken last is done with, answered or not: reads from its connection again.
void linuxQueueResume();

// Deals with the message that waits longest: answers one for the platform and returns 0, copies one for the daemon and returns
// its bytes. Returns 0 also when none waits. A message for the daemon that is longer than `size` ends its connection.
uint32_t linuxQueueTake(uint8_t *buf, uint32_t size, VosMsgReplyCtx *ctx);

// For the handler of a platform message: its caller, a number that is never used twice. And whether a caller is still
// connected.
[[nodiscard]] uint64_t linuxQueueCaller();
[[nodiscard]] bool linuxQueueConnected(uint64_t caller);

// Sends a reply: a header made from ctx and result, then the payload. 0 when it was handed over.
int32_t linuxQueueReply(const VosMsgReplyCtx *ctx, int32_t result, const uint8_t *payload, uint32_t length);
