#include "platform/linux/send.h"

#include <array>
#include <bit>
#include <cerrno>
#include <cstring>

#include <sys/socket.h>
#include <unistd.h>

#include "platform/linux/capture.h"
#include "platform/linux/ipv6walk.h"
#include "platform/linux/loop.h"
#include "platform/linux/packetsocket.h"
#include "platform/linux/ports.h"
#include "platform/linux/vlans.h"

namespace {

constexpr uint32_t MACS_LENGTH = 12;
constexpr uint32_t TAG_LENGTH = 4;
constexpr uint32_t LENGTH_MIN = 18; // bytes: the MACs, one tag and an Ethernet type
constexpr uint32_t QUEUE_MAX = 64;  // frames a link
constexpr uint32_t ARENA_BYTES = QUEUE_MAX * SMD_FRAME_MAX;
constexpr uint32_t SENDERS = LINUX_LINK_BRIDGE; // ports and bonds

// Frames that wait for one interface. A frame leaves whole, or as two pieces around the tag that is taken off.
struct Queue {
    uint32_t count;
    uint32_t port0; // whose counters count them
    std::array<mmsghdr, QUEUE_MAX> messages;
    std::array<std::array<iovec, 2>, QUEUE_MAX> pieces;
};

struct BondSocket {
    int fd;
    uint32_t ifindex; // 0 while there is none
    uint32_t refused; // bond that no socket could be opened on: said once, tried at every change
};

alignas(64) std::array<uint8_t, ARENA_BYTES> arena;
uint32_t arenaUsed;
std::array<Queue, SENDERS> queues;
uint64_t waiting; // bit 1 << link: its queue is not empty
static_assert(SENDERS <= 64);
std::array<BondSocket, LINUX_BONDS_MAX> bondSockets;

int socketOf(uint32_t link) {
    if (link < LINUX_LINK_BOND0) {
        return linuxCaptureSocket(link);
    }
    const BondSocket &bond = bondSockets[link - LINUX_LINK_BOND0];
    return bond.ifindex != 0 ? bond.fd : -1;
}

// A frame that the interface refuses is counted, and the ones behind it get their chance; when the socket's buffer is full
// they would be refused too.
void flush(uint32_t link) {
    Queue *queue = &queues[link];
    LinuxPortCounters *counters = &linuxCounters[queue->port0];
    int fd = socketOf(link);
    uint32_t at = 0;
    while (at < queue->count) {
        int n = fd < 0 ? -1 : sendmmsg(fd, queue->messages.data() + at, queue->count - at, MSG_DONTWAIT);
        if (n > 0) {
            counters->sent += static_cast<uint32_t>(n);
            at += static_cast<uint32_t>(n);
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else if (fd < 0 || errno == EAGAIN) {
            counters->sendFailed += queue->count - at;
            at = queue->count;
        } else {
            counters->sendFailed++;
            at++;
        }
    }
    queue->count = 0;
}

// The ports of a list as one number, the first one its highest bit.
uint64_t portBits(const SmdPortList &list) {
    uint64_t bits;
    static_assert(sizeof bits == sizeof list.bits);
    memcpy(&bits, list.bits, sizeof bits);
    return std::endian::native == std::endian::little ? __builtin_bswap64(bits) : bits;
}

// The frame's copy that its queue entries point into.
uint8_t *copy(const uint8_t *frame, uint32_t length) {
    if (length > ARENA_BYTES - arenaUsed) {
        linuxSendFlush();
    }
    uint8_t *copied = arena.data() + arenaUsed;
    memcpy(copied, frame, length);
    arenaUsed += (length + 7) / 8 * 8;
    return copied;
}

// Whether the outermost tag comes off: where the VLAN is untagged on a bridge that filters VLANs; where libsmd put it in on one
// that does not, so that what came in goes out unchanged.
bool stripsTag(const uint8_t *frame, const SmdPktCtl *ctl, uint32_t vlan, uint32_t link) {
    if (!linuxIsTag(linuxBe16(frame + MACS_LENGTH))) {
        return false;
    }
    if (linuxBridge.vlanFiltering != 0) {
        return linuxVlanUntagged(link, vlan);
    }
    return ctl != nullptr && ctl->platform[LINUX_CTL_TAG] != 0;
}

void enqueue(uint32_t link, uint8_t *frame, uint32_t length, bool strip) {
    Queue *queue = &queues[link];
    std::array<iovec, 2> *pieces = &queue->pieces[queue->count];
    msghdr *header = &queue->messages[queue->count].msg_hdr;
    *header = msghdr{};
    header->msg_iov = pieces->data();
    header->msg_iovlen = strip ? 2 : 1;
    (*pieces)[0] = {.iov_base = frame, .iov_len = strip ? MACS_LENGTH : length};
    (*pieces)[1] = {.iov_base = frame + MACS_LENGTH + TAG_LENGTH, .iov_len = length - MACS_LENGTH - TAG_LENGTH};
    queue->count++;
}

// The link that a frame to this port leaves by, or LINUX_NO_LINK when it cannot.
uint32_t egress(uint32_t link, const SmdPktCtl *ctl, uint32_t vlan) {
    if (link == LINUX_NO_LINK || !linuxLinkSends(link) || socketOf(link) < 0 || !linuxVlanForwards(link, vlan)) {
        return LINUX_NO_LINK;
    }
    const bool keptApart = linuxLinks[link].isolated != 0 && ctl != nullptr && ctl->platform[LINUX_CTL_ISOLATED] != 0;
    return keptApart ? LINUX_NO_LINK : link;
}

bool acceptable(const uint8_t *frame, uint32_t length) {
    return frame != nullptr && length >= LENGTH_MIN && length <= SMD_FRAME_MAX;
}

// Queues an arena copy for one link.
void queueFor(uint32_t link, uint32_t port0, uint8_t *copied, uint32_t length, const SmdPktCtl *ctl, uint32_t vlan) {
    queues[link].port0 = port0;
    waiting |= uint64_t{1} << link;
    enqueue(link, copied, length, stripsTag(copied, ctl, vlan, link));
    linuxCaptureWake();
}

void openBond(uint32_t bond) {
    uint32_t link = LINUX_LINK_BOND0 + bond;
    int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0 || linuxPacketBind(fd, linuxLinks[link].ifindex, false) != 0) {
        // A bond that is not there any more is gone with the next notification.
        if (errno != ENODEV && bondSockets[bond].refused != linuxLinks[link].ifindex) {
            bondSockets[bond].refused = linuxLinks[link].ifindex;
            linuxLog("cannot send on bond %s: %s", linuxLinks[link].name, strerror(errno));
        }
        if (fd >= 0) {
            close(fd);
        }
        return;
    }
    bondSockets[bond] = {.fd = fd, .ifindex = linuxLinks[link].ifindex, .refused = 0};
}

} // namespace

void linuxSendFlush() {
    for (; waiting != 0; waiting &= waiting - 1) {
        flush(static_cast<uint32_t>(std::countr_zero(waiting)));
    }
    arenaUsed = 0;
}

void linuxSendForget(uint32_t link) {
    Queue *queue = &queues[link];
    linuxCounters[queue->port0].sendFailed += queue->count;
    queue->count = 0;
}

void linuxSendSettle() {
    for (uint32_t b = 0; b < LINUX_BONDS_MAX; b++) {
        BondSocket *bond = &bondSockets[b];
        uint32_t ifindex = linuxLinks[LINUX_LINK_BOND0 + b].ifindex;
        if (bond->ifindex == ifindex && (ifindex == 0 || linuxPacketBound(bond->fd, ifindex))) {
            continue;
        }
        if (bond->ifindex != 0) {
            linuxSendForget(LINUX_LINK_BOND0 + b);
            close(bond->fd);
            bond->ifindex = 0;
        }
        if (ifindex != 0) {
            openBond(b);
        }
    }
}

extern "C" {

int32_t smdVDPktSendPort(uint8_t *frame, uint32_t length, SmdPktCtl *ctl, uint16_t vlan, uint32_t port, uint32_t) {
    if (!acceptable(frame, length)) {
        return -1;
    }
    uint32_t port0 = (port & SMD_PORT_TRUNK) != 0 ? linuxTrunkLowest(port & ~SMD_PORT_TRUNK) : port - 1;
    if (port0 >= LINUX_PORTS_MAX) {
        return -1;
    }
    uint32_t link = egress(linuxBridgeLink(port0), ctl, vlan);
    if (link == LINUX_NO_LINK) {
        return -1;
    }
    if (queues[link].count == QUEUE_MAX) {
        linuxSendFlush();
    }
    queueFor(link, port0, copy(frame, length), length, ctl, vlan);
    return 0;
}

int32_t smdVDPktSendPortlist(uint8_t *frame, uint32_t length, SmdPktCtl *ctl, uint16_t vlan, const SmdPortList *list,
                             uint32_t) {
    if (!acceptable(frame, length) || list == nullptr) {
        return -1;
    }
    std::array<uint32_t, LINUX_PORTS_MAX> links;
    uint32_t count = 0;
    uint64_t served = 0; // bit 1 << link
    int32_t result = 0;
    bool full = false;
    for (uint64_t left = portBits(*list); left != 0;) {
        uint32_t p = static_cast<uint32_t>(std::countl_zero(left));
        left &= ~(uint64_t{1} << (63 - p));
        uint32_t link = p < LINUX_PORTS_MAX ? egress(linuxBridgeLink(p), ctl, vlan) : LINUX_NO_LINK;
        if (link == LINUX_NO_LINK) {
            result = -1;
            continue;
        }
        if ((served >> link & 1) != 0) {
            continue; // another member of a trunk that is served already
        }
        served |= uint64_t{1} << link;
        full = full || queues[link].count == QUEUE_MAX;
        queues[link].port0 = p;
        links[count++] = link;
    }
    if (count == 0) {
        return result;
    }
    if (full) {
        linuxSendFlush();
    }
    uint8_t *copied = copy(frame, length);
    for (uint32_t i = 0; i < count; i++) {
        queueFor(links[i], queues[links[i]].port0, copied, length, ctl, vlan);
    }
    return result;
}

} // extern "C"
