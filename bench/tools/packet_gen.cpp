// Sends a packet many times, from one source or from many in turn, and measures how long that takes. Across veth and bridge the
// sender's own processor does all the work up to the far end, so this is the cost of the way.
//
// packet_gen WHERE FRAMES HEX [SOURCES OFFSET...]; WHERE as in packet_socket.h, HEX is the frame. Writes a number that counts
// from 1 to SOURCES and starts again into the four bytes at each OFFSET; checksums stay as they are, a bridge does not read them.
// Prints nanoseconds of wall time per frame.

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <span>
#include <string>
#include <sys/socket.h>
#include <vector>

#include "bench/tools/packet_socket.h"

namespace {

constexpr uint32_t BATCH = 64;
constexpr uint32_t NUMBER = 4; // bytes

struct Load {
    uint32_t frames;
    uint32_t sources;
    std::vector<size_t> offsets;
    std::vector<uint8_t> frame;
};

uint32_t number(const char *text) { return static_cast<uint32_t>(std::strtoul(text, nullptr, 10)); }

std::vector<uint8_t> fromHex(const std::string &text) {
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::strtoul(text.substr(i, 2).c_str(), nullptr, 16)));
    return bytes;
}

// Returns a load of no frames where the words are wrong.
Load loadOf(std::span<char *> words) {
    Load load{};
    if (words.size() != 4 && words.size() < 6)
        return load;
    load.frame = fromHex(words[3]);
    for (size_t i = 5; i < words.size(); ++i) {
        load.offsets.push_back(number(words[i]));
        if (load.offsets.back() + NUMBER > load.frame.size())
            return load;
    }
    load.sources = words.size() == 4 ? 1 : number(words[4]);
    load.frames = load.sources == 0 ? 0 : number(words[2]);
    return load;
}

void putSource(uint8_t *frame, const Load &load, uint32_t source) {
    for (const size_t offset : load.offsets)
        for (uint32_t i = 0; i < NUMBER; ++i)
            frame[offset + i] = static_cast<uint8_t>(source >> (8 * (NUMBER - 1 - i)));
}

uint64_t now() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1000000000 + static_cast<uint64_t>(time.tv_nsec);
}

} // namespace

int main(int argc, char **argv) {
    const Load load = loadOf({argv, static_cast<size_t>(argc)});
    if (load.frames == 0) {
        std::fprintf(stderr, "usage: packet_gen WHERE FRAMES HEX [SOURCES OFFSET...]\n");
        return 2;
    }
    const int fd = packetSocketOpen(argv[1], PacketSocketUse::Send);
    std::array<std::vector<uint8_t>, BATCH> copies;
    std::array<iovec, BATCH> pieces{};
    std::array<mmsghdr, BATCH> messages{};
    for (uint32_t i = 0; i < BATCH; ++i) {
        copies[i] = load.frame;
        pieces[i] = {.iov_base = copies[i].data(), .iov_len = copies[i].size()};
        messages[i].msg_hdr.msg_iov = &pieces[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    const uint64_t start = now();
    for (uint32_t sent = 0; sent < load.frames;) {
        const uint32_t count = load.frames - sent < BATCH ? load.frames - sent : BATCH;
        for (uint32_t i = 0; i < count; ++i)
            putSource(copies[i].data(), load, (sent + i) % load.sources + 1);
        const int taken = sendmmsg(fd, messages.data(), count, 0);
        if (taken <= 0) {
            std::perror("packet_gen");
            return 1;
        }
        sent += static_cast<uint32_t>(taken);
    }
    std::printf("%.1f\n", static_cast<double>(now() - start) / load.frames);
    return 0;
}
