#pragma once
// One received frame on its way to the daemon: its tag is put back, its headers are walked, and it is delivered or counted.

#include <cstdint>
#include <span>

#include "platform/linux/capture.h"

// A frame as a packet socket hands it over: the outermost tag beside it.
struct LinuxRawFrame {
    uint8_t *bytes;  // destination MAC; LINUX_RAW_HEADROOM writable bytes before it, SMD_FRAME_TAIL + 4 behind the end
    uint32_t length; // at least 14
    uint32_t status; // TP_STATUS_* bits
    uint16_t tpid;   // of the outermost tag, when there is one
    uint16_t tci;
};

// A raw frame lies one tag behind an address that is SMD_FRAME_ALIGN modulo 8: its tag is inserted by moving the two MACs.
inline constexpr uint32_t LINUX_RAW_HEADROOM = 4;

// What is the same for all frames of one batch from a port.
struct LinuxIngress {
    uint32_t port0;
    uint32_t link;  // in the bridge for it, or LINUX_NO_LINK
    bool receives;  // the bridge lets its frames in
    bool trapHolds; // the kernel does not forward what is captured
    std::span<const LinuxCapture> captures;
    std::span<const uint16_t> ports; // of the captures that are to be delivered
};

void linuxDeliver(const LinuxIngress &ingress, LinuxRawFrame *raw);
