#include "platform/linux/filter.h"

#include <cerrno>
#include <iterator>

#include <linux/filter.h>
#include <sys/socket.h>

#include "platform/linux/ipv6walk.h"

namespace {

constexpr uint32_t PROGRAM_MAX = 160;
constexpr uint32_t PASS_ALL = 0x40000; // bytes: more than any frame
constexpr uint16_t LOAD_HALF = BPF_LD | BPF_H | BPF_ABS;
constexpr uint16_t LOAD_LENGTH = BPF_LD | BPF_LEN;
constexpr uint16_t LOAD_BYTE_X = BPF_LD | BPF_B | BPF_IND;
constexpr uint16_t LOAD_HALF_X = BPF_LD | BPF_H | BPF_IND;
constexpr uint16_t SET_X = BPF_LDX | BPF_W | BPF_IMM;
constexpr uint16_t SUBTRACT_X = BPF_ALU | BPF_SUB | BPF_X;
constexpr uint16_t AND = BPF_ALU | BPF_AND | BPF_K;
constexpr uint16_t JUMP = BPF_JMP | BPF_JA;
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

// An 802.3 frame: passes when LLC/SNAP carries what the trap holds back, so that it is counted.
void emitLlc(Program *program, uint32_t llc) {
    constexpr uint16_t CARRIED[] = {LINUX_ETHER_IP6, LINUX_TPID_8021Q, LINUX_TPID_8021AD, LINUX_TPID_9100};
    emit(program, LOAD_HALF, llc);
    emit(program, AND, LINUX_LLC_MASK);
    emit(program, IF_EQUAL, LINUX_LLC_SNAP, 1, 0);
    emit(program, RETURN, 0);
    emit(program, LOAD_HALF, llc + LINUX_SNAP_TYPE);
    uint8_t left = std::size(CARRIED);
    for (const uint16_t type : CARRIED)
        emit(program, IF_EQUAL, type, left--, 0);
    emit(program, RETURN, 0);
    emit(program, RETURN, PASS_ALL);
}

// Finds the IPv6 header after the tags in the bytes, and ends with X set; other frames end here. The first tag of a frame is
// not in its bytes. More tags than are read pass, to be counted, because the trap holds them back.
void emitTags(Program *program) {
    uint32_t found[LINUX_TAGS_READ]; // jumps to the end
    for (uint32_t tags = 0; tags < LINUX_TAGS_READ; ++tags) {
        const uint32_t type = ETHER_TYPE + TAG * tags;
        emit(program, SET_X, TAG * tags);
        emit(program, LOAD_HALF, type);
        emit(program, IF_EQUAL, LINUX_ETHER_IP6, 0, 1);
        found[tags] = program->length;
        emit(program, JUMP, 0);
        const uint32_t tagTests = program->length;
        emit(program, IF_EQUAL, LINUX_TPID_8021Q);
        emit(program, IF_EQUAL, LINUX_TPID_8021AD);
        emit(program, IF_NOT_LESS, LINUX_ETHER_MIN, 0, 1);
        emit(program, RETURN, 0);
        emitLlc(program, type + 2);
        for (uint32_t test = tagTests; test < tagTests + 2; ++test)
            program->code[test].jt = static_cast<uint8_t>(program->length - test - 1);
    }
    emit(program, RETURN, PASS_ALL);
    for (const uint32_t jump : found)
        program->code[jump].k = program->length - jump - 1;
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
    constexpr uint32_t TAGS = LINUX_TAGS_READ * 19 + 1;
    static_assert(TAGS + 5 + 2 * LINUX_IP6_HARMLESS.size() + 3 + LINUX_FILTER_PORTS_MAX * 2ul + 1 <= PROGRAM_MAX);
    if (ports.size() > LINUX_FILTER_PORTS_MAX) {
        return -E2BIG;
    }
    Program program = build(ports);
    sock_fprog attached = {.len = static_cast<unsigned short>(program.length), .filter = program.code};
    return setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &attached, sizeof attached) == 0 ? 0 : -errno;
}
