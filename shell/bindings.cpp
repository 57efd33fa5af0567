#include "shell/bindings.h"

#include <algorithm>
#include <array>

#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "l2/dhcp6snooping/sourceguard/bindings.h"

namespace {

Binding bindingOf(const Ip6SourceGuardBindNode &record) {
    Binding binding = {.address = {}, .mac = {}, .port = record.port, .vlan = record.vlan};
    std::ranges::copy(record.address.bytes, binding.address.begin());
    std::ranges::copy(record.mac, binding.mac.begin());
    return binding;
}

// Appends the page that starts at *position and moves *position to the next one, 0 at the end.
CallEnd readPage(Connection *connection, uint32_t *position, std::vector<Binding> *bindings, std::string *error) {
    uint32_t start = *position;
    uint16_t next = 0;
    uint16_t count = 0;
    std::array<Ip6SourceGuardBindNode, IP6_BIND_PAGE> records = {};
    const CallEnd end = callRun(connection, DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET,
                                {callArgument(&start, sizeof start), callArgument(&next, sizeof next),
                                 callArgument(&count, sizeof count), callArgument(records.data(), sizeof records)},
                                error);
    if (end != CallEnd::done) {
        return end;
    }
    if (count > records.size() || (next != 0 && (count == 0 || next != *position + count))) {
        *error = "the daemon's answer is damaged: from binding " + std::to_string(*position) + " it lists " +
                 std::to_string(count) + " and goes on with " + std::to_string(next);
        connectionClose(connection);
        return CallEnd::unavailable;
    }
    for (uint16_t i = 0; i < count; i++) {
        bindings->push_back(bindingOf(records[i]));
    }
    *position = next;
    return CallEnd::done;
}

} // namespace

std::string bindingText(const Binding &binding) {
    std::string text;
    text += binding.mac != MacAddress{} ? "MAC " + textMac(binding.mac) : "any MAC";
    text += binding.port != 0 ? ", port " + textPort(binding.port) : "";
    text += binding.vlan != 0 ? ", VLAN " + std::to_string(binding.vlan) : "";
    return text;
}

CallEnd bindingAll(Connection *connection, std::vector<Binding> *bindings, std::string *error) {
    CallEnd end = CallEnd::done;
    for (uint32_t position = 1; position != 0 && end == CallEnd::done;) {
        end = readPage(connection, &position, bindings, error);
    }
    return end;
}

CallEnd bindingFind(Connection *connection, const Ipv6Address &address, Binding *binding, std::string *error) {
    Ipv6Address asked = address;
    Ip6SourceGuardBindNode record = {};
    const CallEnd end = callRun(connection, DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET_BY_IP,
                                {callArgument(asked.data(), asked.size()), callArgument(&record, sizeof record)}, error);
    if (end == CallEnd::done) {
        *binding = bindingOf(record);
    }
    return end;
}

CallEnd bindingCount(Connection *connection, uint32_t *count, std::string *error) {
    return callRun(connection, DH6S_FUNC_IP6_SOURCE_GUARD_BIND_ENTRY_NUM_GET, {callArgument(count, sizeof *count)}, error);
}
