// The yardstick: copies every frame from one interface to another and does nothing else. AF_PACKET, recvmmsg and sendmmsg in
// batches of 64 behind epoll: the least that a forwarder of this kind can do. With --auxdata it also asks the kernel for each
// frame's VLAN tag, as a forwarder that knows VLANs must.
//
// bare_loop [--auxdata] FROM TO; runs until SIGTERM.

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr uint32_t BATCH = 64;
constexpr uint32_t FRAME_ROOM = 2048;
// A queued frame of this load charges 832 bytes: room for a burst of 4,096.
constexpr int RECEIVE_BUFFER = 4096 * 832;

uint8_t frames[BATCH][FRAME_ROOM];
alignas(cmsghdr) uint8_t controls[BATCH][CMSG_SPACE(sizeof(tpacket_auxdata))];
iovec vectors[BATCH];
mmsghdr messages[BATCH];

volatile sig_atomic_t stopped;

[[noreturn]] void fail(const char *what, const char *name) {
    std::fprintf(stderr, "bare_loop: %s %s: %s\n", what, name, std::strerror(errno));
    _exit(1);
}

int openInterface(const char *name, bool auxdata) {
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
        fail("cannot open a packet socket for", name);
    const int on = 1;
    setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on);
    setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &RECEIVE_BUFFER, sizeof RECEIVE_BUFFER);
    if (auxdata)
        setsockopt(fd, SOL_PACKET, PACKET_AUXDATA, &on, sizeof on);
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(name));
    if (address.sll_ifindex == 0 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        fail("cannot bind to", name);
    packet_mreq member{};
    member.mr_ifindex = address.sll_ifindex;
    member.mr_type = PACKET_MR_PROMISC;
    setsockopt(fd, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &member, sizeof member);
    return fd;
}

int receiveBatch(int fd, bool auxdata) {
    for (uint32_t i = 0; i < BATCH; i++) {
        vectors[i] = {.iov_base = frames[i], .iov_len = FRAME_ROOM};
        messages[i].msg_hdr = {};
        messages[i].msg_hdr.msg_iov = &vectors[i];
        messages[i].msg_hdr.msg_iovlen = 1;
        if (auxdata) {
            messages[i].msg_hdr.msg_control = controls[i];
            messages[i].msg_hdr.msg_controllen = sizeof controls[i];
        }
    }
    return recvmmsg(fd, messages, BATCH, MSG_DONTWAIT, nullptr);
}

// What the interface does not take is lost, and missed by whoever counts.
void sendBatch(int fd, uint32_t count) {
    for (uint32_t i = 0; i < count; i++) {
        vectors[i].iov_len = messages[i].msg_len;
        messages[i].msg_hdr.msg_control = nullptr;
        messages[i].msg_hdr.msg_controllen = 0;
    }
    for (uint32_t done = 0; done < count;) {
        const int sent = sendmmsg(fd, messages + done, count - done, MSG_DONTWAIT);
        if (sent <= 0)
            return;
        done += static_cast<uint32_t>(sent);
    }
}

void stop(int) { stopped = 1; }

} // namespace

int main(int argc, char **argv) {
    const bool auxdata = argc == 4 && std::strcmp(argv[1], "--auxdata") == 0;
    if (argc != 3 && !auxdata) {
        std::fprintf(stderr, "usage: bare_loop [--auxdata] FROM TO\n");
        return 2;
    }
    struct sigaction action {};
    action.sa_handler = stop;
    sigaction(SIGTERM, &action, nullptr);
    const int from = openInterface(argv[argc - 2], auxdata);
    const int to = openInterface(argv[argc - 1], auxdata);
    const int poll = epoll_create1(EPOLL_CLOEXEC);
    epoll_event wanted{};
    wanted.events = EPOLLIN;
    if (poll < 0 || epoll_ctl(poll, EPOLL_CTL_ADD, from, &wanted) != 0)
        fail("cannot wait for", argv[argc - 2]);
    while (stopped == 0) {
        epoll_event event;
        if (epoll_wait(poll, &event, 1, -1) != 1)
            continue;
        const int received = receiveBatch(from, auxdata);
        if (received > 0)
            sendBatch(to, static_cast<uint32_t>(received));
    }
    return 0;
}
