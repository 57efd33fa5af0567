// MIB requests: a random stream of them on the daemon's own objects, while frames and other events go on.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <span>

#include "fuzz/check.h"
#include "fuzz/framescript.h"
#include "fuzz/mibstate.h"
#include "fuzz/platform/lean.h"
#include "fuzz/scriptframe.h"
#include "l2/dhcp6snooping/clients/table.h"
#include "l2/dhcp6snooping/main/Dhcp6Snooping.h"
#include "l2/dhcp6snooping/mib/handlers.h"
#include "l2/dhcp6snooping/mib/objects.h"
#include "platform/linux/protocol.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

enum Event : uint8_t {
    SCRIPT = 0,  // an event of the frame script
    REQUEST = 1, // u8 operation, u8 object, u8 kind of index and what it asks for, the value
    ONWARD = 2,  // get-next from where the last request stands
    SET = 3,     // a test, and the commit when it passed; as REQUEST without the operation
    WALK = 4,    // all of the module
    PAYLOAD = 5, // u16 length, bytes
    EVENTS = 6,
};

// Instances that a walk can meet: 9 scalars, and every row of the five tables.
constexpr uint32_t INSTANCES_MAX = 9 + 4 * 28 + 2 * 4094 + 7 * DHCP6SNOOPING_CLIENTS_MAX + 6 * 240;
constexpr uint32_t REQUEST_SIZES = sizeof(LinuxMibMsg) + 8; // one of them is right
constexpr uint32_t WALKS_MAX = 2;                           // of one input; more would only be slow
constexpr uint32_t CROWDED = 64;                            // clients that a walk still visits
constexpr uint8_t CUT_OIDS = 224;                           // object bytes from here on ask for a piece of a name

LinuxMibMsg last; // the last request, as it came back
uint32_t walksLeft;

std::span<const uint32_t> oidOf(const LinuxMibMsg &message) { return {message.oid, message.oidLength}; }

bool ascends(const LinuxMibMsg &from, const LinuxMibMsg &to) {
    return std::lexicographical_compare(from.oid, from.oid + from.oidLength, to.oid, to.oid + to.oidLength);
}

// The request in a block of its own size, and so the answer.
int32_t ask(std::span<const uint8_t> payload, LinuxMibMsg *answer) {
    auto *request = static_cast<uint8_t *>(std::malloc(std::max<size_t>(payload.size(), 1)));
    auto *reply = static_cast<uint8_t *>(std::malloc(sizeof *answer));
    std::copy(payload.begin(), payload.end(), request);
    uint32_t length = 0;
    const int32_t result =
        leanMibRequest(request, static_cast<uint32_t>(payload.size()), reply, static_cast<uint32_t>(sizeof *answer), &length);
    fuzzCheck(length == 0 || length == sizeof *answer, "an answer is a whole record or nothing");
    if (length != 0)
        std::memcpy(answer, reply, sizeof *answer);
    std::free(request);
    std::free(reply);
    return result;
}

int32_t ask(LinuxMibMsg *message) { return ask({reinterpret_cast<const uint8_t *>(message), sizeof *message}, message); }

void checkValue(const LinuxMibMsg &message) {
    const bool integer = message.type == LINUX_MIB_INTEGER;
    fuzzCheck(integer || message.type == LINUX_MIB_OCTETS, "a value has a type");
    fuzzCheck(message.length <= CCD_OCTETS_MAX && (!integer || message.length == 4), "a value has a length");
    fuzzCheck(std::all_of(message.octets + (integer ? 0 : message.length), std::end(message.octets),
                          [](uint8_t byte) { return byte == 0; }),
              "nothing stands behind a value");
}

// What a walk names can be got, and has the same value there.
void checkCanBeGot(const LinuxMibMsg &named) {
    LinuxMibMsg got = named;
    got.operation = LINUX_MIB_GET;
    fuzzCheck(ask(&got) == 0, "an instance that a walk names is there");
    got.operation = named.operation;
    fuzzCheck(std::memcmp(&got, &named, sizeof got) == 0, "and has the value that the walk brought");
}

void checkAnswer(const LinuxMibMsg &asked, const LinuxMibMsg &answer, int32_t result) {
    const bool asks = asked.operation != LINUX_MIB_COMMIT;
    if (asks)
        fuzzCheck(mibStateIsSame(), "who only asks changes nothing");
    if (asked.oidLength > LINUX_MIB_OID_MAX || asked.operation == LINUX_MIB_ROOT)
        return;
    const bool gets = asked.operation == LINUX_MIB_GET || asked.operation == LINUX_MIB_GETNEXT;
    if (!gets || result != 0) {
        fuzzCheck(std::memcmp(&asked, &answer, sizeof asked) == 0, "a request without an answer comes back as it went");
        return;
    }
    checkValue(answer);
    if (asked.operation == LINUX_MIB_GET)
        fuzzCheck(std::ranges::equal(oidOf(asked), oidOf(answer)), "a get stays where it is");
    else
        fuzzCheck(ascends(asked, answer), "a walk goes forward");
}

int32_t request(const LinuxMibMsg &asked) {
    mibStateRemember();
    last = asked;
    const int32_t result = ask(&last);
    checkAnswer(asked, last, result);
    if (asked.operation == LINUX_MIB_GETNEXT && result == 0)
        checkCanBeGot(last);
    if (last.oidLength > LINUX_MIB_OID_MAX)
        last = {};
    return result;
}

// The arcs behind an object: none, a number, a client's, or any.
uint32_t takeIndex(FuzzInput *input, uint32_t *arcs) {
    const uint8_t kind = fuzzU8(input);
    switch (kind % 8) {
    case 0: return 0;
    case 1: arcs[0] = fuzzU8(input); return 1;
    case 2: arcs[0] = fuzzU16(input); return 1;
    case 3: arcs[0] = 0; return 1;
    case 4: {
        uint8_t mac[6];
        scriptClientMac(fuzzU8(input), mac);
        std::copy(mac, mac + 6, arcs);
        return 6;
    }
    case 5:
        for (uint32_t arc = 0; arc < 6; arc++)
            arcs[arc] = fuzzU16(input) % 300;
        return 6;
    case 6: {
        const uint32_t count = kind / 8u;
        for (uint32_t arc = 0; arc < count; arc++)
            arcs[arc] = fuzzU8(input);
        return count;
    }
    default: arcs[0] = fuzzU32(input); return 1;
    }
}

void takeValue(FuzzInput *input, LinuxMibMsg *message) {
    const uint8_t kind = fuzzU8(input);
    if ((kind & 1) == 0) {
        const std::span<const uint8_t> text = fuzzTake(input, fuzzU8(input));
        std::copy(text.begin(), text.end(), message->octets);
        message->type = LINUX_MIB_OCTETS;
        message->length = static_cast<uint32_t>(text.size());
    } else {
        message->type = LINUX_MIB_INTEGER;
        message->length = 4;
        message->integer = (kind & 2) != 0 ? fuzzU32(input) : fuzzU8(input);
    }
    if ((kind & 4) != 0)
        message->length = fuzzU16(input); // a lie
}

// An object's OID from the module's own table, its index and a value.
LinuxMibMsg takeRequest(FuzzInput *input, uint32_t operation) {
    LinuxMibMsg message{};
    message.operation = operation;
    const uint8_t number = fuzzU8(input);
    const CcdRegEntry &entry = tqzL2Dhcp6SnoopingObjects[number % MIB_OBJECTS];
    const uint32_t arcs = entry.group->arcCount;
    std::copy(entry.group->arcs + 1, entry.group->arcs + arcs, message.oid);
    message.oid[arcs - 1] = entry.object->column;
    message.oidLength = arcs + takeIndex(input, message.oid + arcs);
    if (number >= CUT_OIDS)
        message.oidLength = number % 32u;
    takeValue(input, &message);
    return message;
}

// Objects that tell what they were set to, whatever else is configured.
bool tellsWhatWasSet(uint32_t object) {
    return object == MIB_SNOOPING_ON_OFF || object == MIB_PORT_DOWN_ACTION || object == MIB_PORT_TRUST_MODE ||
           object == MIB_PORT_SOURCE_GUARD_MODE || object == MIB_PORT_MAX_NUM || object == MIB_VLAN_MAX_NUM ||
           object == MIB_OPTION18_ENABLE || object == MIB_OPTION37_ENABLE;
}

void set(FuzzInput *input) {
    const uint8_t number = fuzzMore(input) ? input->left.front() : 0;
    LinuxMibMsg message = takeRequest(input, LINUX_MIB_TEST);
    if (request(message) != 0)
        return;
    message.operation = LINUX_MIB_COMMIT;
    if (request(message) != 0 || number >= CUT_OIDS || !tellsWhatWasSet(number % MIB_OBJECTS))
        return;
    LinuxMibMsg got = message;
    got.operation = LINUX_MIB_GET;
    fuzzCheck(ask(&got) == 0 && got.integer == message.integer, "what was set is told");
}

void walk() {
    mibStateRemember();
    LinuxMibMsg at{};
    at.operation = LINUX_MIB_GETNEXT;
    for (uint32_t met = 0;; met++) {
        fuzzCheck(met <= INSTANCES_MAX, "a walk ends");
        const LinuxMibMsg asked = at;
        if (ask(&at) != 0)
            break;
        checkValue(at);
        fuzzCheck(ascends(asked, at), "a walk goes forward");
    }
    fuzzCheck(mibStateIsSame(), "a walk changes nothing");
}

void payload(FuzzInput *input) {
    const std::span<const uint8_t> bytes = fuzzTake(input, fuzzU16(input) % REQUEST_SIZES);
    LinuxMibMsg answer{};
    if (bytes.size() == sizeof(LinuxMibMsg)) {
        std::memcpy(&answer, bytes.data(), sizeof answer);
        request(answer);
        return;
    }
    mibStateRemember();
    fuzzCheck(ask(bytes, &answer) == LINUX_RESULT_BAD && mibStateIsSame(), "what is no request is refused");
}

// False at the end of the input, or when the frame script has used up its bound.
bool step(FuzzInput *input) {
    switch (fuzzU8(input) % EVENTS) {
    case SCRIPT: return scriptStep(input);
    case REQUEST: {
        const uint8_t operation = fuzzU8(input);
        request(takeRequest(input, operation % 8));
        break;
    }
    case ONWARD: {
        LinuxMibMsg message = last;
        message.operation = LINUX_MIB_GETNEXT;
        request(message);
        break;
    }
    case SET: set(input); break;
    case WALK:
        if (walksLeft != 0 && DHCP6SNOOPING_CLIENTS_MAX - listDhcp6SnoopingAvlNode.count <= CROWDED) {
            walk();
            walksLeft--;
        }
        break;
    default: payload(input);
    }
    scriptCheck();
    return true;
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***argv) {
    uint32_t queueId = 0;
    return dhcp6snooping_startup((*argv)[0], &queueId);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzInput input{{data, size}};
    scriptBegin();
    mibStateReset();
    last = {};
    walksLeft = WALKS_MAX;
    while (fuzzMore(&input) && step(&input)) {
    }
    scriptEnd();
    return 0;
}
