#include "shell/runningconfig.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

constexpr std::string_view L2_RELAY = "dhcpv6-snooping l2-relay";
constexpr std::array<std::string_view, 3> TAIL = {"dhcpv6-snooping information ", "undo ipv6-source-guard vlan ",
                                                  "ipv6-source-guard bind "}; // how lines after the head start

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

} // namespace

std::string runningConfigUnsteady() {
    return "the running configuration changed at each of " + std::to_string(CONFIG_ATTEMPTS) +
           " attempts to read it: try again when nobody else configures";
}

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

CallEnd runningConfigRead(Connection *connection, std::string *text, std::string *error) {
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
    *error = runningConfigUnsteady();
    return CallEnd::unavailable;
}

std::vector<std::string> runningConfigLines(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        line.remove_suffix(line.ends_with('\r') ? 1 : 0);
        lines.emplace_back(line);
    }
    return lines;
}

std::string_view runningConfigHead(std::string_view text) {
    size_t at = 0;
    while (at < text.size()) {
        const std::string_view rest = text.substr(at);
        if (std::any_of(TAIL.begin(), TAIL.end(), [rest](std::string_view start) { return rest.starts_with(start); })) {
            break;
        }
        at += std::min(rest.find('\n'), rest.size() - 1) + 1;
    }
    return text.substr(0, at);
}

CallEnd runningConfigL2Relay(Connection *connection, bool *on, std::string *error) {
    std::string text;
    const CallEnd end = runningConfigRead(connection, &text, error);
    const std::vector<std::string> lines = runningConfigLines(runningConfigHead(text));
    *on = std::find(lines.begin(), lines.end(), L2_RELAY) != lines.end();
    return end;
}
