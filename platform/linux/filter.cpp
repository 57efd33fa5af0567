#include "platform/linux/filter.h"

#include <cerrno>

#include <linux/filter.h>
#include <sys/socket.h>

#include "platform/linux/ipv6walk.h"

namespace {

constexpr uint32_t PROGRAM_MAX = 96;
constexpr uint32_t PASS_ALL = 0x40000; // bytes: more than any frame
constexpr uint16_t LOAD_HALF = BPF_LD | BPF_H | BPF_ABS;
constexpr uint16_t LOAD_LENGTH = BPF_LD | BPF_LEN;
constexpr uint16_t LOAD_BYTE_X = BPF_LD | BPF_B | BPF_IND;
constexpr uint16_t LOAD_HALF_X = BPF_LD | BPF_H | BPF_IND;
constexpr uint16_t SET_X = BPF_LDX | BPF_W | BPF_IMM;
constexpr uint16_t SUBTRACT_X = BPF_ALU | BPF_SUB | BPF_X;
constexpr uint16_t AND = BPF_ALU | BPF_AND | BPF_K;
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

// Where a test goes on: with the next instruction, or to a place that is known only later. It has to be less than 256 away.
enum Target : uint8_t { ON, TAGGED, FOUND, REJECT, PASS };

struct Program {
    sock_filter code[PROGRAM_MAX];
    Target ifTrue[PROGRAM_MAX];
    Target ifFalse[PROGRAM_MAX];
    uint32_t length;
};

void emit(Program *program, uint16_t operation, uint32_t k, Target ifTrue = ON, Target ifFalse = ON) {
    program->ifTrue[program->length] = ifTrue;
    program->ifFalse[program->length] = ifFalse;
    program->code[program->length++] = {.code = operation, .jt = 0, .jf = 0, .k = k};
}

// The target is the instruction that comes next.
void place(Program *program, Target target) {
    for (uint32_t at = 0; at < program->length; ++at) {
        const uint8_t distance = static_cast<uint8_t>(program->length - at - 1);
        sock_filter *test = &program->code[at];
        if (program->ifTrue[at] == target)
            test->jt = distance;
        if (program->ifFalse[at] == target)
            test->jf = distance;
        program->ifTrue[at] = program->ifTrue[at] == target ? ON : program->ifTrue[at];
        program->ifFalse[at] = program->ifFalse[at] == target ? ON : program->ifFalse[at];
    }
}

// Finds the IPv6 header after the tags in the bytes, and goes on with X set; other frames end here. The first tag of a frame is
// not in its bytes. What the trap holds back unread passes, to be counted: more tags than are read, and LLC/SNAP, of which the
// walk looks at the rest.
void emitTags(Program *program) {
    for (uint32_t tags = 0; tags < LINUX_TAGS_READ; ++tags) {
        const uint32_t type = ETHER_TYPE + TAG * tags;
        emit(program, SET_X, TAG * tags);
        emit(program, LOAD_HALF, type);
        emit(program, IF_EQUAL, LINUX_ETHER_IP6, FOUND);
        emit(program, IF_EQUAL, LINUX_TPID_8021Q, TAGGED);
        emit(program, IF_EQUAL, LINUX_TPID_8021AD, TAGGED);
        emit(program, IF_NOT_LESS, LINUX_ETHER_MIN, REJECT);
        emit(program, LOAD_HALF, type + 2);
        emit(program, AND, LINUX_LLC_MASK);
        emit(program, IF_EQUAL, LINUX_LLC_SNAP, PASS, REJECT);
        place(program, TAGGED);
    }
    emit(program, RETURN, PASS_ALL);
    place(program, FOUND);
}

// Short, because the kernel compiles it anew for each port whenever snooping goes on.
Program build(std::span<const uint16_t> ports) {
    Program program{};
    if (!ports.empty()) {
        emitTags(&program);
        emit(&program, LOAD_LENGTH, 0);
        emit(&program, SUBTRACT_X, 0);
        emit(&program, IF_NOT_LESS, ENOUGH, ON, PASS); // cut off: to be counted
        emit(&program, LOAD_BYTE_X, NEXT_HEADER);
        for (const uint8_t next : LINUX_IP6_HARMLESS)
            emit(&program, IF_EQUAL, next, REJECT);
        emit(&program, IF_EQUAL, UDP, ON, PASS); // an extension header passes
        emit(&program, LOAD_HALF_X, UDP_PORT);
        for (const uint16_t port : ports)
            emit(&program, IF_EQUAL, port, PASS);
    }
    place(&program, REJECT);
    emit(&program, RETURN, 0);
    place(&program, PASS);
    emit(&program, RETURN, PASS_ALL);
    return program;
}

} // namespace

int32_t linuxFilterAttach(int fd, std::span<const uint16_t> ports) {
    static_assert(LINUX_TAGS_READ * 9 + 1 + 6 + LINUX_IP6_HARMLESS.size() + LINUX_FILTER_PORTS_MAX + 2 <= PROGRAM_MAX);
    if (ports.size() > LINUX_FILTER_PORTS_MAX) {
        return -E2BIG;
    }
    Program program = build(ports);
    sock_fprog attached = {.len = static_cast<unsigned short>(program.length), .filter = program.code};
    return setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &attached, sizeof attached) == 0 ? 0 : -errno;
}
