#include "platform/linux/capture.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>

#include <event2/event.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/linux/deliver.h"
#include "platform/linux/filter.h"
#include "platform/linux/loop.h"
#include "platform/linux/maccache.h"
#include "platform/linux/mactable.h"
#include "platform/linux/packetsocket.h"
#include "platform/linux/ports.h"
#include "platform/linux/send.h"
#include "platform/linux/trap.h"

namespace {

constexpr int RECEIVE_BUFFER = 8 << 20;                            // bytes: a burst of some ten thousand messages
constexpr uint32_t RECEIVE_MAX = SMD_FRAME_MAX - 4;                // bytes without the outermost tag
constexpr uint32_t FRAME_OFFSET = 64 + SMD_FRAME_ALIGN;            // in a slot; in front of it a cache line of room
constexpr uint32_t RAW_OFFSET = FRAME_OFFSET + LINUX_RAW_HEADROOM; // where a frame is received to
constexpr uint32_t SLOT_BYTES = (RAW_OFFSET + RECEIVE_MAX + 8 + SMD_FRAME_TAIL + 63) / 64 * 64;
constexpr uint32_t QUESTION_PRICE = 8;          // frames; what a frame with a question to the MAC table counts for
constexpr uint32_t DRAIN_MAX = 1 << 20;         // frames; a full socket holds fewer
constexpr uint16_t DHCPV6_PORTS[] = {546, 547}; // the trap's rules know these

struct alignas(64) Slot {
    uint8_t bytes[SLOT_BYTES];
};

// Apart from the slots: side by side they share a few pages, where each slot has two of its own.
struct alignas(8) Control {
    uint8_t bytes[CMSG_SPACE(sizeof(tpacket_auxdata))];
};

struct Socket {
    int fd;
    uint32_t ifindex; // that it is bound to; 0 while there is no socket
    uint32_t refused; // interface that no socket could be opened on: said once, tried at every change
    event *readable;
    uint64_t lost;
    uint32_t price; // of a frame in the next batch, 1 to QUESTION_PRICE; 0 before the first batch
};

std::array<Slot, LINUX_FRAMES_A_TURN> slots;
std::array<Control, LINUX_FRAMES_A_TURN> controls;
std::array<iovec, LINUX_FRAMES_A_TURN> pieces;
std::array<mmsghdr, LINUX_FRAMES_A_TURN> messages;
std::array<Socket, LINUX_PORTS_MAX> sockets;
std::array<LinuxCapture, LINUX_CAPTURES_MAX> captures;
std::array<uint16_t, LINUX_CAPTURES_MAX> wantedPorts; // of the captures that are to be delivered
uint32_t captureCount;
uint32_t wantedCount;
uint32_t readyPorts; // bit 1 << port index: it may have frames
uint32_t firstPort;  // whose turn it is to be first
static_assert(LINUX_PORTS_MAX <= 32);
event *turnEvent;
bool inTurn;

static_assert(LINUX_CAPTURES_MAX <= LINUX_FILTER_PORTS_MAX);
static_assert(SLOT_BYTES % 64 == 0 && RAW_OFFSET >= LINUX_RAW_HEADROOM);

// ---- Receiving -----------------------------------------------------------------------------------------------------

void setOption(int fd, int level, int option, int value) { setsockopt(fd, level, option, &value, sizeof value); }

LinuxRawFrame readRaw(Slot *slot, mmsghdr *message) {
    LinuxRawFrame raw = {.bytes = slot->bytes + RAW_OFFSET, .length = message->msg_len, .status = 0, .tpid = 0, .tci = 0};
    for (cmsghdr *c = CMSG_FIRSTHDR(&message->msg_hdr); c != nullptr; c = CMSG_NXTHDR(&message->msg_hdr, c)) {
        if (c->cmsg_level != SOL_PACKET || c->cmsg_type != PACKET_AUXDATA) {
            continue;
        }
        tpacket_auxdata auxiliary;
        memcpy(&auxiliary, CMSG_DATA(c), sizeof auxiliary);
        raw.status = auxiliary.tp_status;
        raw.tci = auxiliary.tp_vlan_tci;
        raw.tpid = (auxiliary.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0 ? auxiliary.tp_vlan_tpid : uint16_t{ETH_P_8021Q};
    }
    return raw;
}

// Returns the price of a frame in the port's next batch, from what this batch asked. The price rises at once and falls by one a
// batch, so that a port does not get a full turn by asking in every second batch only.
uint32_t priceAfter(uint32_t before, uint32_t frames, uint32_t questions) {
    const uint32_t shown = 1 + (QUESTION_PRICE - 1) * questions / frames;
    return std::max(shown, before - 1);
}

// Takes as many frames of one port as `share` buys, at least one, and delivers them. Returns what they cost.
uint32_t receive(uint32_t port0, uint32_t share) {
    const uint32_t price = std::max(sockets[port0].price, 1u);
    const uint32_t limit = std::max(share / price, 1u);
    int n = recvmmsg(sockets[port0].fd, messages.data(), limit, MSG_DONTWAIT, nullptr);
    uint32_t count = n > 0 ? static_cast<uint32_t>(n) : 0; // none when the interface went down, which the notification tells
    if (count < limit) {
        readyPorts &= ~(1u << port0);
    }
    if (count == 0) {
        return 0;
    }
    uint32_t link = linuxBridgeLink(port0);
    LinuxIngress ingress = {.port0 = port0,
                            .link = link,
                            .receives = linuxPortReceives(port0),
                            .trapHolds = linuxTrapHolds(),
                            .captures = {captures.data(), captureCount},
                            .ports = {wantedPorts.data(), wantedCount}};
    linuxCounters[port0].received += count;
    linuxMacCacheDoubt();
    const uint32_t asked = linuxMacQuestions();
    for (uint32_t i = 0; i < count; i++) {
        LinuxRawFrame raw = readRaw(&slots[i], &messages[i]);
        messages[i].msg_hdr.msg_controllen = sizeof controls[i].bytes; // the kernel left the length that it used
        if ((messages[i].msg_hdr.msg_flags & MSG_TRUNC) != 0) {
            linuxCounters[port0].dropOversize++;
            continue;
        }
        linuxDeliver(ingress, &raw);
    }
    sockets[port0].price = priceAfter(price, count, linuxMacQuestions() - asked);
    return std::min(count * price, share);
}

// One turn: frames of all ready ports, each its share first and then what the others left, and what was sent meanwhile.
void turn(evutil_socket_t, short, void *) {
    inTurn = true;
    linuxTurnBegin();
    uint32_t left = LINUX_FRAMES_A_TURN;
    for (uint32_t pass = 0; pass < 2 && readyPorts != 0; pass++) {
        uint32_t ready = static_cast<uint32_t>(std::popcount(readyPorts));
        uint32_t share = pass == 0 ? LINUX_FRAMES_A_TURN / ready : LINUX_FRAMES_A_TURN;
        uint64_t inOrder = (readyPorts | static_cast<uint64_t>(readyPorts) << LINUX_PORTS_MAX) >> firstPort;
        for (uint64_t todo = inOrder & ((1u << LINUX_PORTS_MAX) - 1); todo != 0 && left != 0; todo &= todo - 1) {
            uint32_t port0 = (firstPort + static_cast<uint32_t>(std::countr_zero(todo))) % LINUX_PORTS_MAX;
            left -= receive(port0, share < left ? share : left);
        }
    }
    firstPort = (firstPort + 1) % LINUX_PORTS_MAX;
    readyPorts = 0; // the loop says again who has frames
    linuxSendFlush();
    linuxMacCacheDoubt();
    linuxTurnEnd();
    inTurn = false;
}

void onReadable(evutil_socket_t, short, void *user) {
    readyPorts |= 1u << (static_cast<Socket *>(user) - sockets.data());
    event_active(turnEvent, 0, 0);
}

// ---- Sockets -------------------------------------------------------------------------------------------------------

bool openSocket(uint32_t port0) {
    Socket *opened = &sockets[port0];
    int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); // protocol 0: receives nothing before it is bound
    if (fd < 0) {
        return false;
    }
    setOption(fd, SOL_PACKET, PACKET_AUXDATA, 1);
    setOption(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, 1);
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &RECEIVE_BUFFER, sizeof RECEIVE_BUFFER) != 0) {
        setOption(fd, SOL_SOCKET, SO_RCVBUF, RECEIVE_BUFFER);
    }
    uint32_t ifindex = linuxLinks[port0].ifindex;
    if (linuxFilterAttach(fd, {wantedPorts.data(), wantedCount}) != 0 || linuxPacketBind(fd, ifindex, true) != 0) {
        int error = errno;
        close(fd);
        errno = error;
        return false;
    }
    opened->readable = event_new(linuxLoopBase(), fd, EV_READ | EV_PERSIST, onReadable, opened);
    if (opened->readable == nullptr || event_add(opened->readable, nullptr) != 0) {
        linuxFatal("cannot watch port 0/%u: out of memory", port0 + 1);
    }
    opened->fd = fd;
    opened->ifindex = ifindex;
    return true;
}

void closeSocket(uint32_t port0) {
    Socket *closed = &sockets[port0];
    closed->lost = linuxCaptureLost(port0);
    linuxSendForget(port0);
    event_free(closed->readable);
    close(closed->fd);
    closed->readable = nullptr;
    closed->ifindex = 0;
    readyPorts &= ~(1u << port0);
}

int32_t attachAll(std::span<const uint16_t> ports) {
    int32_t result = 0;
    for (const Socket &socket : sockets) {
        if (socket.ifindex != 0 && linuxFilterAttach(socket.fd, ports) != 0) {
            result = -1;
        }
    }
    return result;
}

// ---- Captures ------------------------------------------------------------------------------------------------------

LinuxCapture *find(const SmdPktRule *rule) {
    for (uint32_t i = 0; i < captureCount; i++) {
        if (memcmp(&captures[i].rule, rule, sizeof *rule) == 0) {
            return &captures[i];
        }
    }
    return nullptr;
}

// The sockets and the trap are built for DHCPv6.
bool serves(const SmdPktRule *rule) {
    constexpr uint16_t VALID = SMD_RULE_ETHER_TYPE | SMD_RULE_PROTOCOL | SMD_RULE_UDP_PORT;
    return (rule->valid & VALID) == VALID && rule->etherType == ETH_P_IPV6 && rule->protocol == IPPROTO_UDP &&
           (rule->udpPort == DHCPV6_PORTS[0] || rule->udpPort == DHCPV6_PORTS[1]);
}

void listWanted() {
    wantedCount = 0;
    for (uint32_t i = 0; i < captureCount; i++) {
        if ((captures[i].mode & SMD_PKT_MODE_DELIVER) != 0) {
            wantedPorts[wantedCount++] = captures[i].udpPort;
        }
    }
}

bool holdsAny() {
    for (uint32_t i = 0; i < captureCount; i++) {
        if ((captures[i].mode & SMD_PKT_MODE_FORWARD) == 0) {
            return true;
        }
    }
    return false;
}

// Puts the captures into force.
int32_t apply() {
    listWanted();
    bool holds = holdsAny();
    if (holds && !linuxTrapHolds()) {
        linuxCaptureDrain();
    }
    int32_t filtered = attachAll({wantedPorts.data(), wantedCount});
    int32_t trapped = linuxTrapHold(holds);
    return filtered == 0 && trapped == 0 ? 0 : -1;
}

} // namespace

int32_t linuxCaptureAdd(const SmdPktRule *rule, uint32_t mode, SmdPktRecvFn deliver) {
    if (!serves(rule) || deliver == nullptr || captureCount == LINUX_CAPTURES_MAX || find(rule) != nullptr) {
        return -1;
    }
    captures[captureCount++] = {.udpPort = rule->udpPort, .mode = mode, .rule = *rule, .deliver = deliver};
    if (apply() != 0) {
        captureCount--;
        static_cast<void>(apply());
        return -1;
    }
    return 0;
}

int32_t linuxCaptureMode(const SmdPktRule *rule, uint32_t mode) {
    LinuxCapture *capture = find(rule);
    if (capture == nullptr) {
        return -1;
    }
    uint32_t before = capture->mode;
    capture->mode = mode;
    if (apply() != 0) {
        capture->mode = before;
        static_cast<void>(apply()); // as far as the kernel lets it
        return -1;
    }
    return 0;
}

void linuxCaptureSettle() {
    for (uint32_t p = 0; p < LINUX_PORTS_MAX; p++) {
        Socket *socket = &sockets[p];
        if (socket->ifindex == linuxLinks[p].ifindex &&
            (socket->ifindex == 0 || linuxPacketBound(socket->fd, socket->ifindex))) {
            continue;
        }
        if (socket->ifindex != 0) {
            closeSocket(p);
        }
        // An interface that is not there any more is gone with the next notification.
        if (linuxLinks[p].ifindex != 0 && !openSocket(p) && errno != ENODEV && socket->refused != linuxLinks[p].ifindex) {
            socket->refused = linuxLinks[p].ifindex;
            linuxLog("port 0/%u: cannot capture on interface %s: %s", p + 1, linuxLinks[p].name, strerror(errno));
        }
    }
}

void linuxCaptureDrain() {
    static_cast<void>(attachAll({})); // nothing more comes in, so that the end of the queue can be reached
    for (const Socket &socket : sockets) {
        uint8_t byte;
        for (uint32_t i = 0; i < DRAIN_MAX && socket.ifindex != 0; i++) {
            if (recv(socket.fd, &byte, sizeof byte, MSG_DONTWAIT) < 0 && errno == EAGAIN) {
                break;
            }
        }
    }
}

int linuxCaptureSocket(uint32_t port0) { return sockets[port0].ifindex != 0 ? sockets[port0].fd : -1; }

uint64_t linuxCaptureLost(uint32_t port0) {
    Socket *socket = &sockets[port0];
    tpacket_stats statistics{};
    socklen_t size = sizeof statistics;
    if (socket->ifindex != 0 && getsockopt(socket->fd, SOL_PACKET, PACKET_STATISTICS, &statistics, &size) == 0) {
        socket->lost += statistics.tp_drops; // the kernel counts from zero again
    }
    return socket->lost;
}

void linuxCaptureInit() {
    for (uint32_t i = 0; i < LINUX_FRAMES_A_TURN; i++) {
        pieces[i] = {.iov_base = slots[i].bytes + RAW_OFFSET, .iov_len = RECEIVE_MAX};
        messages[i].msg_hdr.msg_iov = &pieces[i];
        messages[i].msg_hdr.msg_iovlen = 1;
        messages[i].msg_hdr.msg_control = controls[i].bytes;
        messages[i].msg_hdr.msg_controllen = sizeof controls[i].bytes;
    }
    turnEvent = event_new(linuxLoopBase(), -1, 0, turn, nullptr);
    if (turnEvent == nullptr) {
        linuxFatal("cannot set up the capture: out of memory");
    }
}

void linuxCaptureWake() {
    if (!inTurn) {
        event_active(turnEvent, 0, 0);
    }
}
