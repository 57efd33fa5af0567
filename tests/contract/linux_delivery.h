#pragma once
// One frame through the step from a port's socket to the daemon, without the socket: the tests are the kernel that received it
// and the daemon that gets it.

#include <cstdint>
#include <linux/if_packet.h>
#include <vector>

#include "linux_interfaces.h"
#include "platform/libsmd.h"

using Bytes = std::vector<uint8_t>;

// The kernel took a tag off, and says of what type it was.
inline constexpr uint32_t TAGGED = TP_STATUS_VLAN_VALID | TP_STATUS_VLAN_TPID_VALID;

// What the daemon got last.
struct Delivered {
    uint32_t count; // of all
    Bytes frame;
    SmdPktRecvInfo info;
    SmdPktCtl ctl;
    uintptr_t address;
    bool zeroTail; // whether zeros stood behind the frame, as many as promised
};

extern Delivered got;

// A SOLICIT from a local sender, without a tag and with a checksum of zero.
Bytes solicit();

Bytes tagged(const Bytes &frame, uint16_t tpid, uint16_t tci);

// The frame as recvmmsg gives it: `status`, `tpid` and `tci` as in struct tpacket_auxdata.
void deliver(const Bytes &frame, uint32_t status = 0, uint16_t tpid = 0, uint16_t tci = 0, uint32_t port0 = 0);

// Tests that deliver start with nothing delivered.
class LinuxDelivery : public LinuxInterfaces {
  protected:
    void SetUp() override;
};
