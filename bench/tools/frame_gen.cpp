// Sends a bounded number of frames, each client's in turn, in bursts at a given rate: what clients ask (solicit), what their
// server answers (reply, or address without the prefix), or a storm: SOLICITs of which each has another source MAC (spoof), or
// INFORMATION-REQUESTs or Relay-Forwards of which each has another destination MAC that no station has (information, relay).
//
// frame_gen solicit|reply|address|spoof|information|relay WHERE FRAMES CLIENTS BURST FRAMES_PER_SECOND; WHERE as in packet_socket.h. Prints the number sent.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/socket.h>

#include "bench/tools/client_frames.h"
#include "bench/tools/packet_socket.h"

namespace {

constexpr uint32_t BATCH = 64;
constexpr uint32_t NONE = UINT32_MAX;

struct Kind {
    const char *name;
    ClientFrameKind frames;
    uint32_t madeUp; // where the MAC stands that every frame has another of; NONE for no such storm
};

constexpr Kind KINDS[] = {
    {"solicit", ClientFrameKind::Solicit, NONE},
    {"reply", ClientFrameKind::Reply, NONE},
    {"address", ClientFrameKind::Address, NONE},
    {"spoof", ClientFrameKind::Solicit, CLIENT_FRAME_SOURCE},
    {"information", ClientFrameKind::Information, CLIENT_FRAME_DESTINATION},
    {"relay", ClientFrameKind::RelayForward, CLIENT_FRAME_DESTINATION},
};

struct Load {
    uint32_t madeUp; // as in Kind
    uint32_t frames;
    uint32_t burst;
    uint32_t rate; // frames per second
};

// The Ethernet header is in no checksum, so that four bytes make another station.
void makeUp(ClientFrame *frame, uint32_t place, uint32_t number) {
    const uint8_t mac[6] = {0x02,
                            0x66,
                            static_cast<uint8_t>(number >> 24),
                            static_cast<uint8_t>(number >> 16),
                            static_cast<uint8_t>(number >> 8),
                            static_cast<uint8_t>(number)};
    std::memcpy(&frame->bytes[place], mac, sizeof mac);
}

// Sends frames first .. first + count - 1 of the endless row of frames. Returns how many the interface took.
uint32_t sendSome(int fd, std::vector<ClientFrame> *all, const Load *load, uint32_t first, uint32_t count) {
    mmsghdr messages[BATCH]{};
    iovec vectors[BATCH];
    for (uint32_t i = 0; i < count; i++) {
        ClientFrame *frame = &(*all)[(first + i) % all->size()];
        if (load->madeUp != NONE)
            makeUp(frame, load->madeUp, first + i);
        vectors[i] = {.iov_base = frame->bytes, .iov_len = frame->length};
        messages[i].msg_hdr.msg_iov = &vectors[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    const int sent = sendmmsg(fd, messages, count, 0);
    return sent > 0 ? static_cast<uint32_t>(sent) : 0;
}

uint32_t sendBurst(int fd, std::vector<ClientFrame> *all, const Load *load, uint32_t first, uint32_t count) {
    uint32_t sent = 0;
    while (sent < count) {
        const uint32_t now = sendSome(fd, all, load, first + sent, std::min(count - sent, BATCH));
        if (now == 0)
            break;
        sent += now;
    }
    return sent;
}

// Burst by burst at fixed points in time, so that a late burst does not slow the rate down.
uint32_t sendAll(int fd, std::vector<ClientFrame> *all, const Load *load) {
    timespec next;
    clock_gettime(CLOCK_MONOTONIC, &next);
    const auto gap = static_cast<int64_t>(load->burst) * 1000000000 / load->rate;
    uint32_t sent = 0;
    while (sent < load->frames) {
        const uint32_t wanted = std::min(load->burst, load->frames - sent);
        const uint32_t taken = sendBurst(fd, all, load, sent, wanted);
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

const Kind *kindOf(const char *name) {
    for (const Kind &kind : KINDS)
        if (std::strcmp(kind.name, name) == 0)
            return &kind;
    return nullptr;
}

uint32_t number(const char *text) { return static_cast<uint32_t>(std::strtoul(text, nullptr, 10)); }

} // namespace

int main(int argc, char **argv) {
    const Kind *kind = argc == 7 ? kindOf(argv[1]) : nullptr;
    const uint32_t clients = kind != nullptr ? number(argv[4]) : 0;
    const Load load = kind != nullptr ? Load{kind->madeUp, number(argv[3]), number(argv[5]), number(argv[6])} : Load{};
    if (load.frames == 0 || clients == 0 || clients > CLIENT_FRAME_CLIENTS_MAX || load.burst == 0 || load.rate == 0) {
        std::fprintf(stderr, "usage: frame_gen solicit|reply|address|spoof|information|relay WHERE FRAMES CLIENTS BURST "
                             "FRAMES_PER_SECOND\n");
        return 2;
    }
    std::vector<ClientFrame> all = clientFrames(kind->frames, clients, clients);
    const uint32_t sent = sendAll(packetSocketOpen(argv[2], PacketSocketUse::Send), &all, &load);
    std::printf("%u\n", sent);
    return sent == load.frames ? 0 : 1;
}
