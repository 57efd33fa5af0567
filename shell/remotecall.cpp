#include "shell/remotecall.h"

#include <cstring>

#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "platform/libsmd.h"
#include "platform/libvos.h"

namespace {

// In front of the arguments, and of each argument.
struct PairOfWords {
    uint32_t first;  // identifier; length in bytes
    uint32_t second; // number of arguments; 0
};

size_t paddedLength(size_t length) { return (length + 7) / 8 * 8; }

void appendWords(std::vector<uint8_t> *out, const PairOfWords &words) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(&words);
    out->insert(out->end(), bytes, bytes + sizeof words);
}

bool takeWords(std::span<const uint8_t> *rest, PairOfWords *words) {
    if (rest->size() < sizeof *words) {
        return false;
    }
    std::memcpy(words, rest->data(), sizeof *words);
    *rest = rest->subspan(sizeof *words);
    return true;
}

} // namespace

CallArgument callArgument(void *object, size_t size) { return {static_cast<uint8_t *>(object), size}; }

std::vector<uint8_t> callEncode(uint32_t id, std::span<const CallArgument> arguments) {
    std::vector<uint8_t> payload;
    appendWords(&payload, {.first = id, .second = static_cast<uint32_t>(arguments.size())});
    for (const CallArgument &argument : arguments) {
        appendWords(&payload, {.first = static_cast<uint32_t>(argument.size()), .second = 0});
        payload.insert(payload.end(), argument.begin(), argument.end());
        payload.resize(payload.size() + paddedLength(argument.size()) - argument.size(), 0);
    }
    return payload;
}

bool callDecode(std::span<const uint8_t> payload, uint32_t id, std::span<const CallArgument> arguments) {
    std::span<const uint8_t> rest = payload;
    PairOfWords words = {};
    if (!takeWords(&rest, &words) || words.first != id || words.second != arguments.size()) {
        return false;
    }
    std::vector<std::span<const uint8_t>> answers;
    for (const CallArgument &argument : arguments) {
        if (!takeWords(&rest, &words) || words.first != argument.size() || rest.size() < paddedLength(argument.size())) {
            return false;
        }
        answers.push_back(rest.first(argument.size()));
        rest = rest.subspan(paddedLength(argument.size()));
    }
    if (!rest.empty()) {
        return false;
    }
    for (size_t i = 0; i < arguments.size(); i++) {
        std::memcpy(arguments[i].data(), answers[i].data(), answers[i].size());
    }
    return true;
}

CallEnd callAsk(Connection *connection, uint32_t id, std::initializer_list<CallArgument> arguments, int32_t *result,
                std::string *error, uint32_t timeoutMs) {
    const std::span<const CallArgument> list(arguments.begin(), arguments.size());
    Reply reply;
    if (!connectionExchange(connection, VOS_MSG_TYPE_REMOTE_CALL, callEncode(id, list), timeoutMs, &reply, error)) {
        return CallEnd::unavailable;
    }
    if (reply.result == SMD_RM_BAD_MESSAGE) {
        *error = "the daemon does not take remote call " + std::to_string(id) +
                 " in this form: install snoopd6 and snoopctl from the same release";
        return CallEnd::unavailable;
    }
    if (!callDecode(reply.payload, id, list)) {
        *error = "the daemon's answer is damaged: it does not repeat remote call " + std::to_string(id);
        connectionClose(connection);
        return CallEnd::unavailable;
    }
    *result = reply.result;
    return CallEnd::done;
}

CallEnd callRun(Connection *connection, uint32_t id, std::initializer_list<CallArgument> arguments, std::string *error,
                uint32_t timeoutMs) {
    int32_t result = 0;
    const CallEnd end = callAsk(connection, id, arguments, &result, error, timeoutMs);
    return end == CallEnd::done && result != 0 ? CallEnd::refused : end;
}
