#pragma once
// Frames from the ports: one packet socket per port, bound to its interface, with a filter in the kernel that passes UDP to the
// captured ports and whatever has an extension header.
//
// A turn of the loop takes at most LINUX_FRAMES_A_TURN frames, in turns from all ports that have any, so that neither a
// storm on one port starves the others nor all of them together starve remote calls and timers. What they send during the turn
// leaves at its end, in batches.
//
// A frame to a station that is not remembered costs a question to the kernel (maccache.h). It counts for eight frames of its
// port's share, so that a storm of such frames makes turns shorter and not longer. What is not taken in a turn waits in the
// port's own socket: every question is still asked, and no other port's frames wait for it.
//
// The frames lie in one static array of slots; nothing is allocated, and no system call is made for a single frame.

#include <cstdint>

#include "platform/libsmd.h"

inline constexpr uint32_t LINUX_FRAMES_A_TURN = 64;
inline constexpr uint32_t LINUX_CAPTURES_MAX = 8; // registered rules

// A registered capture. It makes the sockets' filter and decides who gets a frame.
struct LinuxCapture {
    uint16_t udpPort;
    uint32_t mode; // SMD_PKT_MODE_*
    SmdPktRule rule;
    SmdPktRecvFn deliver;
};

// Prepares the slots and the loop's side. Once, before any socket is opened.
void linuxCaptureInit();

// Adds a capture, or changes the mode of one, and brings sockets and trap in line. 0, or -1: the rule is not one that this
// switch can serve, is there already (add) or is not there (mode), there are too many, or the kernel refuses the filter.
[[nodiscard]] int32_t linuxCaptureAdd(const SmdPktRule *rule, uint32_t mode, SmdPktRecvFn deliver);
[[nodiscard]] int32_t linuxCaptureMode(const SmdPktRule *rule, uint32_t mode);

// Opens and closes sockets as interfaces come and go.
void linuxCaptureSettle();

// Throws away what waits in the sockets: frames that the kernel has forwarded itself.
void linuxCaptureDrain();

// The socket of a port index, or -1. It serves sending as well.
[[nodiscard]] int linuxCaptureSocket(uint32_t port0);

// Frames that the kernel lost because a port's socket was full, since the start. One system call.
[[nodiscard]] uint64_t linuxCaptureLost(uint32_t port0);

// Sees to it that queued sends leave even if no frame comes in.
void linuxCaptureWake();
