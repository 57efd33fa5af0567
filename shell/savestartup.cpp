#include "shell/savestartup.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include "platform/linux/protocol.h"
#include "shell/values.h"

namespace {

constexpr size_t PART = 32768; // bytes in one message
constexpr auto PAUSE = std::chrono::milliseconds(10);
constexpr auto PATIENCE = std::chrono::seconds(60); // the daemon gives its disk half of that

using Clock = std::chrono::steady_clock;

// Sends one message and takes its answer.
CallEnd exchange(Connection *connection, uint32_t operation, uint32_t number, std::string_view bytes, LinuxSaveAnswer *answer,
                 std::string *error) {
    const LinuxSaveMsg message = {.operation = operation, .number = number};
    std::vector<uint8_t> payload(sizeof message);
    std::memcpy(payload.data(), &message, sizeof message);
    payload.insert(payload.end(), bytes.begin(), bytes.end());
    Reply reply;
    if (!connectionExchange(connection, LINUX_MSG_SAVE, payload, CONNECTION_TIMEOUT_MS, &reply, error))
        return CallEnd::unavailable;
    if (reply.result == LINUX_RESULT_UNKNOWN) {
        *error = "the daemon cannot save: install snoopd6 and snoopctl from the same release";
        return CallEnd::unavailable;
    }
    if (reply.result == LINUX_RESULT_BAD) {
        *error = "the daemon has given the place to somebody else who saves: try again";
        return CallEnd::refused;
    }
    if (reply.result != LINUX_RESULT_OK || reply.payload.size() != sizeof *answer) {
        *error = "the daemon's answer is damaged: it does not say what became of the save";
        connectionClose(connection);
        return CallEnd::unavailable;
    }
    std::memcpy(answer, reply.payload.data(), sizeof *answer);
    if (answer->state == LINUX_SAVE_FAILED) {
        *error = textPrintable(std::string(textField(answer->sentence)));
        return CallEnd::refused;
    }
    return CallEnd::done;
}

// Repeats a message while the answer is `state`.
CallEnd exchangeWhile(uint32_t state, Connection *connection, uint32_t operation, uint32_t number, LinuxSaveAnswer *answer,
                      std::string *error) {
    const auto deadline = Clock::now() + PATIENCE;
    CallEnd end = exchange(connection, operation, number, "", answer, error);
    while (end == CallEnd::done && answer->state == state) {
        if (Clock::now() > deadline) {
            *error = state == LINUX_SAVE_BUSY ? "somebody else is saving: try again"
                                              : "the daemon is still writing: whether it is saved is not known";
            return CallEnd::refused;
        }
        std::this_thread::sleep_for(PAUSE);
        end = exchange(connection, operation, number, "", answer, error);
    }
    return end;
}

CallEnd waitUntilDone(CallEnd end, Connection *connection, LinuxSaveAnswer *answer, std::string *error) {
    if (end == CallEnd::done && answer->state == LINUX_SAVE_WORKING)
        end = exchangeWhile(LINUX_SAVE_WORKING, connection, LINUX_SAVE_ASK, 0, answer, error);
    return end;
}

} // namespace

CallEnd saveStartup(Connection *connection, std::string_view text, std::string *error) {
    LinuxSaveAnswer answer = {};
    CallEnd end =
        exchangeWhile(LINUX_SAVE_BUSY, connection, LINUX_SAVE_BEGIN, static_cast<uint32_t>(text.size()), &answer, error);
    for (size_t at = 0; at < text.size() && end == CallEnd::done; at += PART)
        end = exchange(connection, LINUX_SAVE_PART, static_cast<uint32_t>(at), text.substr(at, PART), &answer, error);
    if (end == CallEnd::done)
        end = exchange(connection, LINUX_SAVE_COMMIT, 0, "", &answer, error);
    return waitUntilDone(end, connection, &answer, error);
}

CallEnd saveErase(Connection *connection, std::string *error) {
    LinuxSaveAnswer answer = {};
    const CallEnd end = exchangeWhile(LINUX_SAVE_BUSY, connection, LINUX_SAVE_ERASE, 0, &answer, error);
    return waitUntilDone(end, connection, &answer, error);
}

CallEnd saveClear(Connection *connection, std::string *error) {
    LinuxSaveAnswer answer = {};
    return exchangeWhile(LINUX_SAVE_BUSY, connection, LINUX_SAVE_CLEAR, 0, &answer, error);
}
