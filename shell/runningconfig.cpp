#include "shell/runningconfig.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::string_view BINDING = "ipv6-source-guard bind ";

// LINUX_RESULT_*, or a sentence for an answer that is none.
CallEnd readPage(Connection *connection, LinuxConfigAsk *ask, std::string *text, int32_t *result, std::string *error) {
    Reply reply;
    if (!connectionExchange(connection, LINUX_MSG_RUNNING_CONFIG, callArgument(ask, sizeof *ask), CONNECTION_TIMEOUT_MS, &reply,
                            error)) {
        return CallEnd::unavailable;
    }
    *result = reply.result;
    if (reply.result == LINUX_RESULT_CHANGED) {
        return CallEnd::done;
    }
    if (reply.result != LINUX_RESULT_OK) {
        *error = "the daemon cannot tell its running configuration: install snoopd6 and snoopctl from the same release";
        return CallEnd::unavailable;
    }
    if (!runningConfigPageTake(reply.payload, ask, text)) {
        *error = "the daemon's answer is damaged: its running configuration cannot be read";
        connectionClose(connection);
        return CallEnd::unavailable;
    }
    return CallEnd::done;
}

CallEnd readText(Connection *connection, std::string *text, std::string *error) {
    for (uint32_t attempt = 0; attempt < CONFIG_ATTEMPTS; attempt++) {
        LinuxConfigAsk ask = {.offset = 0, .generation = 0};
        int32_t result = LINUX_RESULT_OK;
        text->clear();
        do {
            if (readPage(connection, &ask, text, &result, error) != CallEnd::done) {
                return CallEnd::unavailable;
            }
        } while (result == LINUX_RESULT_OK && ask.offset != 0);
        if (result == LINUX_RESULT_OK) {
            return CallEnd::done;
        }
    }
    *error = "the running configuration changed at each of " + std::to_string(CONFIG_ATTEMPTS) +
             " attempts to read it: try again when nobody else configures";
    return CallEnd::unavailable;
}

} // namespace

bool runningConfigPageTake(std::span<const uint8_t> payload, LinuxConfigAsk *ask, std::string *text) {
    LinuxConfigHead head = {};
    if (payload.size() < sizeof head) {
        return false;
    }
    std::memcpy(&head, payload.data(), sizeof head);
    const std::span<const uint8_t> body = payload.subspan(sizeof head);
    if (head.length != body.size() || head.total > CONFIG_MAX || ask->offset > head.total ||
        head.length > head.total - ask->offset || (ask->offset != 0 && head.generation != ask->generation)) {
        return false;
    }
    const uint32_t end = ask->offset + head.length;
    if (head.next != (end < head.total ? end : 0) || (head.next != 0 && head.length == 0)) {
        return false;
    }
    text->append(body.begin(), body.end());
    *ask = {.offset = head.next, .generation = head.generation};
    return true;
}

CallEnd runningConfigRead(Connection *connection, std::vector<std::string> *lines, std::string *error) {
    std::string text;
    const CallEnd end = readText(connection, &text, error);
    lines->clear();
    for (size_t at = 0; end == CallEnd::done && at < text.size();) {
        const size_t stop = std::min(text.find('\n', at), text.size());
        std::string line = text.substr(at, stop - at);
        if (line.ends_with('\r')) {
            line.pop_back();
        }
        lines->push_back(std::move(line));
        at = stop + 1;
    }
    return end;
}

bool runningConfigHas(const std::vector<std::string> &lines, std::string_view line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

std::vector<std::string> runningConfigForReplay(std::vector<std::string> lines) {
    auto first = lines.end();
    while (first != lines.begin() && std::prev(first)->starts_with(BINDING)) {
        first--;
    }
    std::reverse(first, lines.end());
    return lines;
}
