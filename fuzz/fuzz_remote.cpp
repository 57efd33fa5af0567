// Remote calls: messages of every shape through the decoder of the Linux platform, to functions that use all of their slots,
// and to the daemon's own functions while frames and other events go on; and the running configuration that they leave, in
// spaces of every size.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/framescript.h"
#include "fuzz/platform/lean.h"
#include "fuzz/scriptframe.h"
#include "l2/dhcp6snooping/main/Dhcp6Snooping.h"
#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "platform/linux/debugswitch.h"
#include "platform/linux/logline.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// What the decoder needs of the rest of its platform.
bool linuxDebugIsOn(uint32_t) { return true; }

int32_t linuxLogLine(uint32_t, const char *, const char *text, uint32_t length) {
    fuzzCheck(length < 256 && std::strlen(text) == length, "a log line has its length");
    return 0;
}

namespace {

constexpr uint32_t HEADER = sizeof(VosMsgHeader);
constexpr uint8_t SCRIBBLE = 0xC7;
constexpr uint8_t BUILD = 0xF0; // bytes from here on ask for the running configuration
constexpr uint32_t BUILD_COMMANDS = 0x10000;

uint32_t scribbledArguments;

// Stands for a function of the worst manners: it reads and writes all of every slot.
int32_t scribble(void *, SmdRmArg *argv, uint32_t argc) {
    fuzzCheck(argc <= SMD_RM_ARGS, "a call has at most 8 arguments");
    for (uint32_t i = 0; i < argc; i++) {
        auto *slot = static_cast<uint8_t *>(argv[i].data);
        fuzzCheck(reinterpret_cast<uintptr_t>(slot) % 16 == 0 && argv[i].length <= SMD_RM_SLOT,
                  "a slot is aligned and big enough");
        fuzzCheck(std::all_of(slot + argv[i].length, slot + SMD_RM_SLOT, [](uint8_t byte) { return byte == 0; }),
                  "a slot is zero behind the argument");
        std::memset(slot, SCRIBBLE, SMD_RM_SLOT);
    }
    scribbledArguments = argc;
    return 0x5C;
}

void put32(std::vector<uint8_t> *bytes, uint32_t value) {
    for (uint32_t i = 0; i < 4; i++)
        bytes->push_back(static_cast<uint8_t>(value >> (8 * i)));
}

// The bytes of one argument that the input names by its kind: a number, a client's MAC, an address, a VLAN list, or so many
// zeros; of all but MAC and address the first byte comes from the input.
std::vector<uint8_t> takeArgument(FuzzInput *input) {
    static constexpr uint16_t LENGTHS[8] = {4, 6, 16, 512, 200, 4096, 4097, 0};
    const uint8_t kind = fuzzU8(input);
    const uint8_t first = fuzzU8(input);
    std::vector<uint8_t> bytes(kind < 8 ? LENGTHS[kind] : kind);
    if (kind == 1)
        scriptClientMac(first, bytes.data());
    else if (kind == 2)
        scriptAddress(first, bytes.data());
    else if (!bytes.empty())
        bytes[0] = first;
    return bytes;
}

// A well-formed call: u8 identifier, u8 count, the arguments.
std::vector<uint8_t> takeCall(FuzzInput *input) {
    std::vector<uint8_t> payload;
    put32(&payload, fuzzU8(input) % 64);
    const uint32_t count = fuzzU8(input) % 10;
    put32(&payload, count);
    for (uint32_t i = 0; i < count; i++) {
        const std::vector<uint8_t> argument = takeArgument(input);
        put32(&payload, static_cast<uint32_t>(argument.size()));
        put32(&payload, 0);
        payload.insert(payload.end(), argument.begin(), argument.end());
        payload.resize((payload.size() + 7) / 8 * 8);
    }
    return payload;
}

// What came back from a call of scribble: every argument filled, and nothing else changed.
void checkScribbled(std::span<const uint8_t> before, std::span<const uint8_t> after) {
    size_t at = HEADER + 8;
    std::vector<uint8_t> expected(before.begin(), before.end());
    for (uint32_t i = 0; i < scribbledArguments; i++) {
        uint32_t length = 0;
        std::memcpy(&length, &before[at], sizeof length);
        std::fill_n(expected.begin() + static_cast<ptrdiff_t>(at) + 8, length, SCRIBBLE);
        at += 8 + (length + 7) / 8 * 8;
    }
    fuzzCheck(at == before.size() && std::equal(expected.begin(), expected.end(), after.begin()),
              "the arguments come back, and only they");
}

std::vector<uint8_t> messageOf(std::span<const uint8_t> payload, uint16_t claimed) {
    const VosMsgHeader header{.type = VOS_MSG_TYPE_REMOTE_CALL,
                              .version = 1,
                              .requestId = 0,
                              .flags = 0,
                              .payloadLength = claimed,
                              .result = 0,
                              .reserved = 0};
    std::vector<uint8_t> message(HEADER + payload.size());
    std::memcpy(message.data(), &header, HEADER);
    std::copy(payload.begin(), payload.end(), message.begin() + HEADER);
    return message;
}

// Straight into the decoder, in a block that ends where the message ends.
void callDecoder(std::span<const uint8_t> payload) {
    std::vector<uint8_t> before = messageOf(payload, static_cast<uint16_t>(payload.size()));
    auto *exact = static_cast<uint8_t *>(std::malloc(before.size()));
    std::memcpy(exact, before.data(), before.size());
    scribbledArguments = SMD_RM_ARGS + 1;
    const int32_t result = smdCfgRmWrapProcess(exact);
    if (scribbledArguments <= SMD_RM_ARGS) {
        fuzzCheck(result == 0x5C, "the function's answer is passed on");
        checkScribbled(before, {exact, before.size()});
    } else {
        fuzzCheck(result == SMD_RM_BAD_MESSAGE || result == SMD_RM_UNKNOWN, "a call that is not made is refused");
        fuzzCheck(std::equal(before.begin(), before.end(), exact), "a refused message comes back as it went");
    }
    std::free(exact);
}

// Through the daemon's message loop, which must bear a message shorter or longer than it claims.
void callDaemon(std::span<const uint8_t> payload, uint16_t claimed) {
    const std::vector<uint8_t> message = messageOf(payload, claimed);
    if (payload.size() >= 4 && payload[0] == DH6S_FUNC_VLAN_RESET)
        scriptNoteVlanReset();
    leanMessage = message.data();
    leanMessageLength = static_cast<uint32_t>(message.size());
    dhcp6snooping_serve_message(1);
    scriptCheck();
}

// The configuration behind a text that is there already, in a block that ends where the space ends.
void callBuilder(uint32_t space) {
    static constexpr char BEFORE[] = "!!!before\r\n";
    static constexpr size_t START = sizeof BEFORE - 1;
    auto *text = static_cast<char *>(std::malloc(START + std::max(space, 1u)));
    std::memcpy(text, BEFORE, sizeof BEFORE);
    uint32_t left = space;
    const int32_t result = leanSwitch.build(text, &left, BUILD_COMMANDS, 0);
    const size_t written = std::strlen(text) - START;
    const std::string_view config(text + START, written);
    fuzzCheck(std::memcmp(text, BEFORE, START) == 0, "what stood there stays");
    fuzzCheck(written == 0 || config.starts_with("!!!fuzz\r\n"), "a configuration begins with its comment");
    fuzzCheck(config.empty() || config.ends_with("\r\n"), "lines are whole");
    fuzzCheck(result == 0 || result == -1, "the configuration fits or does not");
    if (result == 0)
        fuzzCheck(left == space - written && left > 0, "the space counts down by what was written");
    else
        fuzzCheck(static_cast<int32_t>(left) <= 0, "what does not fit has used up the space");
    std::free(text);
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***argv) {
    uint32_t queueId = 0;
    return dhcp6snooping_startup((*argv)[0], &queueId);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzInput input{{data, size}};
    const bool scribbling = fuzzU8(&input) % 2 == 1;
    if (scribbling) {
        smdRMWrapInit(DH6S_FUNC_COUNT);
        for (uint32_t id = 0; id < DH6S_FUNC_COUNT; id += 2)
            __smdRmWrapRegister(id, 0, scribble, "SCRIBBLE", "scribble");
    } else {
        fuzzCheck(dhcp6snoopingRmWrapFunction() == 0, "the daemon's calls can be registered again");
    }
    scriptBegin();
    while (fuzzMore(&input)) {
        const uint8_t byte = fuzzU8(&input);
        if (byte >= BUILD) {
            callBuilder(fuzzU16(&input));
            continue;
        }
        const uint8_t what = byte % 4;
        if (what == 0 && !scriptStep(&input))
            break;
        if (what == 0)
            continue;
        std::vector<uint8_t> payload;
        if (what == 1) {
            const std::span<const uint8_t> bytes = fuzzTake(&input, fuzzU8(&input));
            payload.assign(bytes.begin(), bytes.end());
        } else {
            payload = takeCall(&input);
        }
        auto claimed = static_cast<uint16_t>(payload.size());
        if (what == 3)
            claimed = static_cast<uint16_t>(claimed + static_cast<int8_t>(fuzzU8(&input)));
        if (scribbling)
            callDecoder(payload);
        else
            callDaemon(payload, claimed);
    }
    scriptEnd();
    return 0;
}
