// Options 18 and 37 in a client message: any policy, any template, any message, each frame in a block of exactly its size.
// What leaves must be, byte for byte, what the model says.

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "fuzz/check.h"
#include "fuzz/framescript.h"
#include "fuzz/infomodel.h"
#include "fuzz/input.h"
#include "fuzz/platform/lean.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/infoopt/insertion.h"
#include "l2/dhcp6snooping/infoopt/policy.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// First byte of an input: what is switched on. The second: strategy and what else is unusual.
enum : uint8_t {
    OPTION18 = 1,
    OPTION37 = 2,
    RELAY = 4,
    SECOND_TAG = 8,
    XPON = 16,
    LONG_NAME = 32,
    NO_ANSWERS = 64,
    LYING = 128
};

// At most `max` bytes, as many as the next byte says.
static std::span<const uint8_t> takeUpTo(FuzzInput *input, size_t max) {
    return fuzzTake(input, fuzzU8(input) % static_cast<uint32_t>(max + 1));
}

static uint8_t *frameBlock;
static InfoFrame frame;

static void readTemplate(FuzzInput *input, Dhcp6InfoIdTemplate *out) {
    const uint32_t elements = fuzzU8(input) % DHCP6_INFO_ELEMENTS;
    for (uint32_t k = 0; k <= elements; k++) {
        out->elementType[k] = fuzzU8(input) % 19;
        const std::span<const uint8_t> literal = takeUpTo(input, sizeof out->literal[k]);
        std::copy(literal.begin(), literal.end(), out->literal[k]);
        if (out->elementType[k] != DHCP6_INFO_VLAN_ADDRESS)
            continue;
        const std::span<const uint8_t> vlan = takeUpTo(input, sizeof out->elementVlan[k]);
        std::copy(vlan.begin(), vlan.end(), out->elementVlan[k]);
    }
}

// A value comes with 80 bytes, and a NUL behind them only where the length leaves room for it.
static void setId(FuzzInput *input, int32_t which) {
    const uint32_t type = fuzzU8(input) % 7;
    if (type == DHCP6_INFO_USER_DEFINED) {
        static Dhcp6InfoIdTemplate idTemplate;
        idTemplate = {};
        readTemplate(input, &idTemplate);
        dhcp6_info_id_set(which, type, &idTemplate);
        return;
    }
    uint8_t value[DHCP6_INFO_VALUE] = {};
    const std::span<const uint8_t> given = takeUpTo(input, sizeof value);
    std::copy(given.begin(), given.end(), value);
    dhcp6_info_id_set(which, type, value);
}

static void append(std::vector<uint8_t> *bytes, std::span<const uint8_t> more) {
    bytes->insert(bytes->end(), more.begin(), more.end());
}

// Pieces until the input ends: loose bytes, an option written out, or a long option of one repeated byte.
static void readMessage(FuzzInput *input, std::vector<uint8_t> *bytes) {
    while (fuzzMore(input) && bytes->size() < 2100) {
        const uint8_t kind = fuzzU8(input);
        if (kind % 4 == 0) {
            append(bytes, fuzzTake(input, fuzzU8(input)));
            continue;
        }
        constexpr uint8_t CODES[] = {1, 3, 9, 18, 37};
        const uint8_t code = kind % 4 == 3 ? fuzzU8(input) : CODES[kind / 4 % sizeof CODES];
        const uint32_t length = kind % 4 == 1 ? fuzzU8(input) : fuzzU16(input) % 2000u;
        const uint8_t header[] = {0, code, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)};
        append(bytes, header);
        if (kind % 4 == 1)
            append(bytes, fuzzTake(input, length));
        else
            bytes->insert(bytes->end(), length, fuzzU8(input));
    }
}

static void readFrame(FuzzInput *input, uint8_t bits) {
    frame.secondTag = (bits & SECOND_TAG) != 0 ? 4 : 0;
    const uint32_t ip6 = 18 + frame.secondTag;
    frame.vlan = fuzzU16(input);
    frame.port = fuzzU8(input) % 40;
    frame.access = (bits & XPON) != 0 ? 1 : 2;
    frame.ponValue = fuzzU8(input);
    frame.ponId = fuzzU16(input);
    const std::span<const uint8_t> serial = fuzzTake(input, sizeof frame.serial);
    std::copy(serial.begin(), serial.end(), frame.serial);
    frame.msgOffset = ip6 + 48 + fuzzU8(input) * 8u; // behind extension headers
    frame.bytes.assign(frame.msgOffset, 0);
    for (uint32_t at = 0; at < frame.msgOffset; at++)
        frame.bytes[at] = static_cast<uint8_t>(at * 37);
    readMessage(input, &frame.bytes);
    const auto udp = static_cast<uint32_t>(frame.bytes.size()) - frame.msgOffset + 8;
    const uint32_t lie = (bits & LYING) != 0 ? 0x8123 : 0;
    for (uint32_t i = 0; i < 2; i++) {
        frame.bytes[frame.msgOffset - 4 + i] = static_cast<uint8_t>((udp + lie) >> (8 - 8 * i));
        frame.bytes[ip6 + 4 + i] = static_cast<uint8_t>((frame.bytes.size() - ip6 - 40 + lie) >> (8 - 8 * i));
    }
}

static void insert() {
    const std::vector<uint8_t> expected = infoModel(frame);
    const size_t length = frame.bytes.size();
    frameBlock = static_cast<uint8_t *>(std::malloc(length + 2));
    std::memcpy(frameBlock + 2, frame.bytes.data(), length);
    Dhcp6PacketDescriptor packet = {.data = frameBlock + 2, .length = static_cast<uint32_t>(length), .info = {}, .ctl = {}};
    packet.ctl.flags = frame.secondTag != 0 ? SMD_CTL_DOUBLE_TAGGED : 0;
    packet.info.access = frame.access;
    packet.info.ponValue = frame.ponValue;
    packet.info.ponId = frame.ponId;
    std::memcpy(packet.info.serial, frame.serial, sizeof frame.serial);
    const Dhcp6PacketDescriptor *done = dhcp6snooping_packet_add_info_option(&packet, frame.msgOffset, frame.vlan, frame.port);
    fuzzCheck((done == nullptr) == expected.empty(), "what is dropped, and nothing else, is dropped");
    fuzzCheck(std::memcmp(frameBlock + 2, frame.bytes.data(), length) == 0, "the frame that came stays as it is");
    if (done != nullptr) {
        fuzzCheck(done->length == expected.size() && done->length <= 2048, "a frame has the length that it should have");
        fuzzCheck(std::memcmp(done->data, expected.data(), expected.size()) == 0, "a frame has the bytes that it should have");
    }
    std::free(frameBlock);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzInput input{{data, size}};
    leanReset();
    scriptResetInformation();
    leanSwitch.debug = 1;
    const uint8_t bits = fuzzU8(&input);
    dhcp6_info_option18_enable((bits & OPTION18) != 0 ? 1 : 0);
    dhcp6_info_option37_enable((bits & OPTION37) != 0 ? 1 : 0);
    dhcp6snooping_l2Relay_enable(bits & RELAY);
    leanSwitch.longHostName = bits & LONG_NAME;
    leanSwitch.identityFails = bits & NO_ANSWERS;
    dhcp6InfoOptionPolicy.strategy = fuzzU8(&input) % 5;
    setId(&input, 0);
    setId(&input, 1);
    readFrame(&input, bits);
    insert();
    return 0;
}
