// How long SOLICITs are under way from one wire to another: stamped when they are handed to the first, and by the kernel when
// they arrive at the second. One thread does both, on a processor of its own, and never sleeps, so that neither end waits.
//
// latency FROM TO FRAMES CLIENTS FRAMES_PER_SECOND; FROM and TO as in packet_socket.h. Prints, as JSON, how many frames were sent and
// came out, in how many seconds they were sent, and the median, the 99th percentile and the longest time in nanoseconds.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/socket.h>

#include "bench/tools/client_frames.h"
#include "bench/tools/packet_socket.h"

namespace {

constexpr uint32_t WINDOW = 65536; // transaction ids in use; more frames than may be under way at once
constexpr uint32_t BATCH = 64;
constexpr uint64_t SECOND = 1000000000;
constexpr uint64_t PATIENCE = 5 * SECOND; // after the last frame was sent

struct Course {
    int from;
    int to;
    uint32_t frames;
    uint64_t gap; // nanoseconds between two frames
};

uint64_t stamps[WINDOW]; // of the last frame with this transaction id, CLOCK_REALTIME; 0 once it has arrived
std::vector<uint64_t> times;

uint8_t room[BATCH][CLIENT_FRAME_ROOM];
alignas(cmsghdr) uint8_t controls[BATCH][CMSG_SPACE(sizeof(timespec))];

uint64_t nanoseconds(const timespec &time) {
    return static_cast<uint64_t>(time.tv_sec) * SECOND + static_cast<uint64_t>(time.tv_nsec);
}

uint64_t now(clockid_t clock) {
    timespec time;
    clock_gettime(clock, &time);
    return nanoseconds(time);
}

uint64_t arrivalOf(msghdr *message) {
    for (cmsghdr *c = CMSG_FIRSTHDR(message); c != nullptr; c = CMSG_NXTHDR(message, c)) {
        if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_TIMESTAMPNS) {
            timespec time;
            std::memcpy(&time, CMSG_DATA(c), sizeof time);
            return nanoseconds(time);
        }
    }
    return 0;
}

void takeOne(mmsghdr *message, const uint8_t *frame) {
    const uint8_t *id = frame + CLIENT_FRAME_TRANSACTION;
    const uint32_t transaction = id[0] * 65536u + id[1] * 256u + id[2];
    const uint64_t arrival = arrivalOf(&message->msg_hdr);
    if (message->msg_len <= CLIENT_FRAME_TRANSACTION + 2 || transaction >= WINDOW || stamps[transaction] == 0)
        return; // none of ours
    times.push_back(arrival > stamps[transaction] ? arrival - stamps[transaction] : 0);
    stamps[transaction] = 0;
}

void take(int to) {
    mmsghdr messages[BATCH]{};
    iovec vectors[BATCH];
    for (uint32_t i = 0; i < BATCH; i++) {
        vectors[i] = {.iov_base = room[i], .iov_len = sizeof room[i]};
        messages[i].msg_hdr.msg_iov = &vectors[i];
        messages[i].msg_hdr.msg_iovlen = 1;
        messages[i].msg_hdr.msg_control = controls[i];
        messages[i].msg_hdr.msg_controllen = sizeof controls[i];
    }
    const int received = recvmmsg(to, messages, BATCH, MSG_DONTWAIT, nullptr);
    for (int i = 0; i < received; i++)
        takeOne(&messages[i], room[i]);
}

// Returns the nanoseconds from the first frame to the last.
uint64_t sendAndTake(const Course *course, const std::vector<ClientFrame> *all) {
    const uint64_t start = now(CLOCK_MONOTONIC);
    uint64_t last = start;
    for (uint32_t sent = 0;
         sent < course->frames || (times.size() < course->frames && now(CLOCK_MONOTONIC) - last < PATIENCE);) {
        const uint64_t time = now(CLOCK_MONOTONIC);
        if (sent < course->frames && time - start >= sent * course->gap) {
            const ClientFrame *frame = &(*all)[sent % WINDOW];
            stamps[sent % WINDOW] = now(CLOCK_REALTIME);
            if (send(course->from, frame->bytes, frame->length, 0) < 0)
                stamps[sent % WINDOW] = 0;
            sent++;
            last = time;
        } else {
            take(course->to);
        }
    }
    return last - start;
}

uint64_t at(double share) {
    if (times.empty())
        return 0;
    const auto place = static_cast<size_t>(share * static_cast<double>(times.size() - 1));
    std::nth_element(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(place), times.end());
    return times[place];
}

uint32_t number(const char *text) { return static_cast<uint32_t>(std::strtoul(text, nullptr, 10)); }

} // namespace

int main(int argc, char **argv) {
    const uint32_t frames = argc == 6 ? number(argv[3]) : 0;
    const uint32_t clients = argc == 6 ? number(argv[4]) : 0;
    const uint32_t rate = argc == 6 ? number(argv[5]) : 0;
    if (frames == 0 || clients == 0 || clients > CLIENT_FRAME_CLIENTS_MAX || rate == 0) {
        std::fprintf(stderr, "usage: latency FROM TO FRAMES CLIENTS FRAMES_PER_SECOND\n");
        return 2;
    }
    const std::vector<ClientFrame> all = clientFrames(ClientFrameKind::Solicit, WINDOW, clients);
    const Course course = {.from = packetSocketOpen(argv[1], PacketSocketUse::Send),
                           .to = packetSocketOpen(argv[2], PacketSocketUse::Both),
                           .frames = frames,
                           .gap = SECOND / rate};
    const int on = 1;
    setsockopt(course.to, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
    times.reserve(frames);
    const uint64_t took = sendAndTake(&course, &all);
    std::printf("{\"sent\": %u, \"received\": %zu, \"seconds\": %.3f, \"median\": %lu, \"p99\": %lu, \"longest\": %lu}\n",
                frames, times.size(), static_cast<double>(took) / SECOND, at(0.5), at(0.99), at(1));
    return 0;
}
