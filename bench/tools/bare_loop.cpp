// The yardstick: copies every frame from each of two interfaces to the other and does nothing else. AF_PACKET, recvmmsg and
// sendmmsg in batches of 64 behind epoll: the least that a forwarder of this kind can do. With --auxdata it also asks the kernel
// for each frame's VLAN tag, as a forwarder that knows VLANs must.
//
// bare_loop [--auxdata] ONE OTHER; runs until SIGTERM.

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <linux/if_packet.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include "bench/tools/packet_socket.h"

namespace {

constexpr uint32_t BATCH = 64;
constexpr uint32_t FRAME_ROOM = 2048;
uint8_t frames[BATCH][FRAME_ROOM];
alignas(cmsghdr) uint8_t controls[BATCH][CMSG_SPACE(sizeof(tpacket_auxdata))];
iovec vectors[BATCH];
mmsghdr messages[BATCH];

volatile sig_atomic_t stopped;

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

bool watch(int poll, int fd, uint32_t side, bool auxdata) {
    const int on = 1;
    if (auxdata && setsockopt(fd, SOL_PACKET, PACKET_AUXDATA, &on, sizeof on) != 0)
        return false;
    epoll_event wanted{};
    wanted.events = EPOLLIN;
    wanted.data.u32 = side;
    return epoll_ctl(poll, EPOLL_CTL_ADD, fd, &wanted) == 0;
}

void stop(int) { stopped = 1; }

} // namespace

int main(int argc, char **argv) {
    const bool auxdata = argc == 4 && std::strcmp(argv[1], "--auxdata") == 0;
    if (argc != 3 && !auxdata) {
        std::fprintf(stderr, "usage: bare_loop [--auxdata] ONE OTHER\n");
        return 2;
    }
    struct sigaction action {};
    action.sa_handler = stop;
    sigaction(SIGTERM, &action, nullptr);
    const int sockets[] = {packetSocketOpen(argv[argc - 2], PacketSocketUse::Both),
                           packetSocketOpen(argv[argc - 1], PacketSocketUse::Both)};
    const int poll = epoll_create1(EPOLL_CLOEXEC);
    for (uint32_t side = 0; side < 2; side++)
        if (!watch(poll, sockets[side], side, auxdata)) {
            std::perror("bare_loop");
            return 1;
        }
    std::printf("ready\n");
    std::fflush(stdout);
    while (stopped == 0) {
        epoll_event event;
        if (epoll_wait(poll, &event, 1, -1) != 1)
            continue;
        const int received = receiveBatch(sockets[event.data.u32], auxdata);
        if (received > 0)
            sendBatch(sockets[1 - event.data.u32], static_cast<uint32_t>(received));
    }
    return 0;
}
