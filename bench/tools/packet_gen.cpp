// Sends one IPv6 packet many times and says how long that took: across veth and bridge the sender's own processor does all the
// work up to the far end, so this is the cost of the way.
//
// packet_gen WHERE FRAMES HEX; WHERE as in packet_socket.h, HEX is the frame. Prints nanoseconds of wall time per frame.

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <sys/socket.h>
#include <vector>

#include "bench/tools/packet_socket.h"

namespace {

constexpr uint32_t BATCH = 64;

std::vector<uint8_t> fromHex(const std::string &text) {
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::strtoul(text.substr(i, 2).c_str(), nullptr, 16)));
    return bytes;
}

uint64_t now() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1000000000 + static_cast<uint64_t>(time.tv_nsec);
}

} // namespace

int main(int argc, char **argv) {
    const uint32_t frames = argc == 4 ? static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10)) : 0;
    if (frames == 0) {
        std::fprintf(stderr, "usage: packet_gen WHERE FRAMES HEX\n");
        return 2;
    }
    std::vector<uint8_t> frame = fromHex(argv[3]);
    const int fd = packetSocketOpen(argv[1], PacketSocketUse::Send);
    iovec piece = {.iov_base = frame.data(), .iov_len = frame.size()};
    std::array<mmsghdr, BATCH> messages{};
    for (mmsghdr &message : messages) {
        message.msg_hdr.msg_iov = &piece;
        message.msg_hdr.msg_iovlen = 1;
    }
    const uint64_t start = now();
    for (uint32_t sent = 0; sent < frames;) {
        const int taken = sendmmsg(fd, messages.data(), frames - sent < BATCH ? frames - sent : BATCH, 0);
        if (taken <= 0) {
            std::perror("packet_gen");
            return 1;
        }
        sent += static_cast<uint32_t>(taken);
    }
    std::printf("%.1f\n", static_cast<double>(now() - start) / frames);
    return 0;
}
