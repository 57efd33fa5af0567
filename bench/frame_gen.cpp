// Sends a bounded number of SOLICITs, each client MAC in turn, in bursts at a given rate.
//
// frame_gen INTERFACE FRAMES MACS BURST FRAMES_PER_SECOND; prints the number sent.

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "fuzz/platform/frame.h"

namespace {

constexpr uint32_t FRAME_ROOM = 256;
constexpr uint32_t BATCH = 64;

struct Load {
    uint32_t frames;
    uint32_t macs;
    uint32_t burst;
    uint32_t rate; // frames per second
};

struct Solicit {
    uint8_t bytes[FRAME_ROOM];
    uint32_t length;
};

std::vector<Solicit> buildAll(uint32_t macs) {
    static FrameMessage message;
    std::vector<Solicit> all(macs);
    for (uint32_t i = 0; i < macs; i++) {
        FramePlan plan{.destination = {0x33, 0x33, 0, 1, 0, 2}, .source = {}, .vlan = 0, .tags = 0, .toServer = 1};
        const uint8_t mac[6] = {0x02, 0x10, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
        std::memcpy(plan.source, mac, sizeof mac);
        uint32_t offset = 0;
        frameSolicit(&message, mac, i);
        all[i].length = frameBuild(&plan, &message, all[i].bytes, &offset);
    }
    return all;
}

int openInterface(const char *name) {
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(if_nametoindex(name));
    if (fd < 0 || address.sll_ifindex == 0 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        std::fprintf(stderr, "frame_gen: cannot send on %s: %s\n", name, std::strerror(errno));
        std::exit(1);
    }
    return fd;
}

// Sends frames first .. first + count - 1 of the endless row of clients. Returns how many the interface took.
uint32_t sendSome(int fd, std::vector<Solicit> *all, uint32_t first, uint32_t count) {
    mmsghdr messages[BATCH]{};
    iovec vectors[BATCH];
    for (uint32_t i = 0; i < count; i++) {
        Solicit *solicit = &(*all)[(first + i) % all->size()];
        vectors[i] = {.iov_base = solicit->bytes, .iov_len = solicit->length};
        messages[i].msg_hdr.msg_iov = &vectors[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    const int sent = sendmmsg(fd, messages, count, 0);
    return sent > 0 ? static_cast<uint32_t>(sent) : 0;
}

uint32_t sendBurst(int fd, std::vector<Solicit> *all, uint32_t first, uint32_t count) {
    uint32_t sent = 0;
    while (sent < count) {
        const uint32_t now = sendSome(fd, all, first + sent, std::min(count - sent, BATCH));
        if (now == 0)
            break;
        sent += now;
    }
    return sent;
}

// Burst by burst at fixed points in time, so that a late burst does not slow the rate down.
uint32_t sendAll(int fd, const Load *load) {
    std::vector<Solicit> all = buildAll(load->macs);
    timespec next;
    clock_gettime(CLOCK_MONOTONIC, &next);
    const auto gap = static_cast<int64_t>(load->burst) * 1000000000 / load->rate;
    uint32_t sent = 0;
    while (sent < load->frames) {
        const uint32_t wanted = std::min(load->burst, load->frames - sent);
        const uint32_t taken = sendBurst(fd, &all, sent, wanted);
        sent += taken;
        if (taken < wanted)
            break;
        const int64_t nanoseconds = next.tv_nsec + gap;
        next.tv_sec += nanoseconds / 1000000000;
        next.tv_nsec = nanoseconds % 1000000000;
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
    }
    return sent;
}

uint32_t number(const char *text) { return static_cast<uint32_t>(std::strtoul(text, nullptr, 10)); }

} // namespace

int main(int argc, char **argv) {
    const Load load = argc == 6 ? Load{number(argv[2]), number(argv[3]), number(argv[4]), number(argv[5])} : Load{};
    if (load.frames == 0 || load.macs == 0 || load.macs > 65536 || load.burst == 0 || load.rate == 0) {
        std::fprintf(stderr, "usage: frame_gen INTERFACE FRAMES MACS BURST FRAMES_PER_SECOND\n");
        return 2;
    }
    const uint32_t sent = sendAll(openInterface(argv[1]), &load);
    std::printf("%u\n", sent);
    return sent == load.frames ? 0 : 1;
}
