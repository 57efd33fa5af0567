#pragma once
// Remote calls as the shell makes them: arguments go out, the same arguments come back with the daemon's answers in them.
//
// An answer is taken only when it repeats the call exactly: identifier, number of arguments, length of each, and nothing
// behind them. Anything else leaves the caller's arguments untouched.

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

#include "shell/connection.h"

// For calls that may move many filters of the switch: the daemon gives that up to 30 seconds before it answers.
inline constexpr uint32_t CALL_FILTERS_TIMEOUT_MS = 40000;

// One argument: the caller's own bytes, sent and then overwritten by the answer.
using CallArgument = std::span<uint8_t>;

// How an exchange with the daemon ended.
enum class CallEnd : uint32_t {
    done,        // result 0, arguments hold the answer
    refused,     // the daemon said no; what that means is the caller's to say
    unavailable, // no usable answer; *error says why
};

// A number or record as an argument: its address and size in bytes.
CallArgument callArgument(void *object, size_t size);

std::vector<uint8_t> callEncode(uint32_t id, std::span<const CallArgument> arguments);

[[nodiscard]] bool callDecode(std::span<const uint8_t> payload, uint32_t id, std::span<const CallArgument> arguments);

// Makes the call. *result is what the daemon answered, and the arguments hold its answer whatever that was. Ends `done` or
// `unavailable`.
[[nodiscard]] CallEnd callAsk(Connection *connection, uint32_t id, std::initializer_list<CallArgument> arguments,
                              int32_t *result, std::string *error, uint32_t timeoutMs = CONNECTION_TIMEOUT_MS);

// The same for calls that answer 0 for yes; anything else is `refused`.
[[nodiscard]] CallEnd callRun(Connection *connection, uint32_t id, std::initializer_list<CallArgument> arguments,
                              std::string *error, uint32_t timeoutMs = CONNECTION_TIMEOUT_MS);
