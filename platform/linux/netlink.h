#pragma once
// rtnetlink: questions to the kernel, and its notifications of changes. Two sockets: on one a question is asked and answered
// at once, the other carries notifications into the loop. When notifications were lost (the kernel says so) everything is read
// anew.
//
// A question blocks until the kernel has answered, some microseconds. Should an answer stay out, it fails after a second.

#include <cstdint>

struct nlmsghdr;

typedef int (*LinuxNetlinkAnswer)(const nlmsghdr *message, void *user);

inline constexpr uint32_t LINUX_NETLINK_BUFFER = 65536; // bytes of one received datagram at most

// Room for one question. Fill it with mnl_nlmsg_put_header and friends; at most sizeof bytes.
struct LinuxNetlinkQuestion {
    alignas(8) uint8_t bytes[512];
};

// Opens both sockets. 0, or a negative errno.
[[nodiscard]] int32_t linuxNetlinkOpen();

// Asks one question and calls `answer` (may be null) for every message of the reply. The flags of the question say what kind:
// NLM_F_DUMP for a list, NLM_F_ACK for a change. 0, or a negative errno; -EINTR when a list changed while it was read, so that
// entries may be missing or come twice.
[[nodiscard]] int32_t linuxNetlinkAsk(LinuxNetlinkQuestion *question, LinuxNetlinkAnswer answer, void *user);

// Hands notifications of interfaces and IPv4 addresses on from now on, through the loop.
void linuxNetlinkWatch();
