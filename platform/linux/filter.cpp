#include "platform/linux/filter.h"

#include <cerrno>

#include <linux/filter.h>
#include <sys/socket.h>

#include "platform/linux/ipv6walk.h"

namespace {

constexpr uint32_t PROGRAM_MAX = 96;
constexpr uint32_t PASS_ALL = 0x40000; // bytes: more than any frame
constexpr uint16_t LOAD_TYPE = BPF_LD | BPF_H | BPF_ABS;
constexpr uint16_t LOAD_LENGTH = BPF_LD | BPF_LEN;
constexpr uint16_t LOAD_BYTE_X = BPF_LD | BPF_B | BPF_IND;
constexpr uint16_t LOAD_HALF_X = BPF_LD | BPF_H | BPF_IND;
constexpr uint16_t SET_X = BPF_LDX | BPF_W | BPF_IMM;
constexpr uint16_t SUBTRACT_X = BPF_ALU | BPF_SUB | BPF_X;
constexpr uint16_t IF_EQUAL = BPF_JMP | BPF_JEQ | BPF_K;
constexpr uint16_t IF_NOT_LESS = BPF_JMP | BPF_JGE | BPF_K;
constexpr uint16_t RETURN = BPF_RET | BPF_K;

// Offsets without a tag; register X holds the length of the tags that are left in the bytes.
constexpr uint32_t ETHER_TYPE = 12;
constexpr uint32_t TAG = 4;
constexpr uint32_t NEXT_HEADER = 14 + 6;
constexpr uint32_t UDP_PORT = 14 + 40 + 2;
constexpr uint32_t ENOUGH = UDP_PORT + 2; // bytes of a frame that both loads need
constexpr uint8_t UDP = 17;

struct Program {
    sock_filter code[PROGRAM_MAX];
    uint32_t length;
};

void emit(Program *program, uint16_t operation, uint32_t k, uint8_t ifTrue = 0, uint8_t ifFalse = 0) {
    program->code[program->length++] = {.code = operation, .jt = ifTrue, .jf = ifFalse, .k = k};
}

// Finds the IPv6 header behind up to two tags in the bytes; whatever else it is, is rejected. Ends with X set.
// Three tags in all are read although the daemon knows two at most: the trap holds such frames back, so they are counted.
void emitTags(Program *program) {
    emit(program, SET_X, 0);
    emit(program, LOAD_TYPE, ETHER_TYPE);
    emit(program, IF_EQUAL, LINUX_ETHER_IP6, 11, 0); // to the end
    emit(program, IF_EQUAL, LINUX_TPID_8021Q, 1, 0);
    emit(program, IF_EQUAL, LINUX_TPID_8021AD, 0, 8); // or to the rejection
    emit(program, SET_X, TAG);
    emit(program, LOAD_TYPE, ETHER_TYPE + TAG);
    emit(program, IF_EQUAL, LINUX_ETHER_IP6, 6, 0);
    emit(program, IF_EQUAL, LINUX_TPID_8021Q, 1, 0);
    emit(program, IF_EQUAL, LINUX_TPID_8021AD, 0, 3);
    emit(program, SET_X, 2 * TAG);
    emit(program, LOAD_TYPE, ETHER_TYPE + 2 * TAG);
    emit(program, IF_EQUAL, LINUX_ETHER_IP6, 1, 0);
    emit(program, RETURN, 0);
}

Program build(std::span<const uint16_t> ports) {
    Program program{};
    if (ports.empty()) {
        emit(&program, RETURN, 0);
        return program;
    }
    emitTags(&program);
    emit(&program, LOAD_LENGTH, 0);
    emit(&program, SUBTRACT_X, 0);
    emit(&program, IF_NOT_LESS, ENOUGH, 1, 0);
    emit(&program, RETURN, PASS_ALL); // cut off: to be counted
    emit(&program, LOAD_BYTE_X, NEXT_HEADER);
    for (uint8_t next : LINUX_IP6_HARMLESS) {
        emit(&program, IF_EQUAL, next, 0, 1);
        emit(&program, RETURN, 0);
    }
    emit(&program, IF_EQUAL, UDP, 1, 0);
    emit(&program, RETURN, PASS_ALL); // an extension header
    emit(&program, LOAD_HALF_X, UDP_PORT);
    for (uint16_t port : ports) {
        emit(&program, IF_EQUAL, port, 0, 1);
        emit(&program, RETURN, PASS_ALL);
    }
    emit(&program, RETURN, 0);
    return program;
}

} // namespace

int32_t linuxFilterAttach(int fd, std::span<const uint16_t> ports) {
    static_assert(14 + 5 + 2 * LINUX_IP6_HARMLESS.size() + 3 + LINUX_FILTER_PORTS_MAX * 2ul + 1 <= PROGRAM_MAX);
    if (ports.size() > LINUX_FILTER_PORTS_MAX) {
        return -E2BIG;
    }
    Program program = build(ports);
    sock_fprog attached = {.len = static_cast<unsigned short>(program.length), .filter = program.code};
    return setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &attached, sizeof attached) == 0 ? 0 : -errno;
}
