#include "shell/information.h"

#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "shell/actions.h"
#include "shell/escapes.h"
#include "shell/idtemplate.h"
#include "shell/values.h"

namespace {

constexpr uint32_t REMOTE_ID = 0; // how DH6S_FUNC_INFO_ID_SET tells the two apart
constexpr uint32_t INTERFACE_ID = 1;

constexpr size_t STRING_MAX = DHCP6_INFO_VALUE - 1;
constexpr const char *STRING = "the string"; // as sentences call it
constexpr const char *TEMPLATE = "the template";

Outcome setOption(Session *session, uint32_t id, const char *number, bool undo) {
    uint32_t enable = undo ? 0 : 1;
    const CallEnd end = callRun(&session->connection, id, {callArgument(&enable, sizeof enable)}, &session->error);
    return actionEnd(session, end, std::string("the daemon refused to turn option ") + number + (undo ? " off" : " on"));
}

Outcome setId(Session *session, uint32_t which, const InformationId &id) {
    uint32_t type = id.type;
    std::vector<uint8_t> value = id.value;
    const CallEnd end = callRun(
        &session->connection, DH6S_FUNC_INFO_ID_SET,
        {callArgument(&which, sizeof which), callArgument(&type, sizeof type), callArgument(value.data(), value.size())},
        &session->error);
    return actionEnd(session, end,
                     std::string("the daemon refused this ") + (which == REMOTE_ID ? "remote-id" : "interface-id") +
                         ": \"show dhcpv6-snooping information\" says what it has now");
}

bool stringLengthIsGood(std::string_view string, size_t smallest, std::string *error) {
    if (string.size() < smallest || string.size() > STRING_MAX) {
        *error = "the string " + textQuoted(string) + " has " + std::to_string(string.size()) + " bytes: allowed are " +
                 std::to_string(smallest) + " to " + std::to_string(STRING_MAX);
        return false;
    }
    return true;
}

bool takeString(std::string_view string, InformationId *id) {
    *id = {.type = DHCP6_INFO_STRING, .value = {string.begin(), string.end()}};
    id->value.push_back(0);
    return true;
}

bool takeTemplate(const Dhcp6InfoIdTemplate &record, InformationId *id) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(&record);
    *id = {.type = DHCP6_INFO_USER_DEFINED, .value = {bytes, bytes + sizeof record}};
    return true;
}

} // namespace

bool informationReadIpv4(std::string_view word, InformationId *id, std::string *error) {
    Ipv4Address address = {};
    if (!valueReadIpv4(word, &address, error)) {
        return false;
    }
    *id = {.type = DHCP6_INFO_IPV4, .value = {address.begin(), address.end()}};
    return true;
}

bool informationReadIpv6(std::string_view word, InformationId *id, std::string *error) {
    Ipv6Address address = {};
    if (!valueReadIpv6(word, &address, error)) {
        return false;
    }
    *id = {.type = DHCP6_INFO_IPV6, .value = {address.begin(), address.end()}};
    return true;
}

bool informationReadString(std::string_view word, InformationId *id, std::string *error) {
    return stringLengthIsGood(word, 1, error) && valueCheckText(STRING, word, error) && takeString(word, id);
}

bool informationReadTemplate(std::string_view word, InformationId *id, std::string *error) {
    Dhcp6InfoIdTemplate record = {};
    return idTemplateRead(word, &record, error) && takeTemplate(record, id);
}

bool informationReadEscapedString(std::string_view word, InformationId *id, std::string *error) {
    std::string bytes;
    return escapesRead(STRING, word, &bytes, error) && stringLengthIsGood(bytes, 0, error) && takeString(bytes, id);
}

bool informationReadEscapedTemplate(std::string_view word, InformationId *id, std::string *error) {
    std::string bytes;
    Dhcp6InfoIdTemplate record = {};
    return escapesRead(TEMPLATE, word, &bytes, error) && idTemplateReadBytes(bytes, &record, error) && takeTemplate(record, id);
}

CallEnd informationRead(Connection *connection, InformationSettings *settings, std::string *error) {
    Dhcp6InfoOptionPolicy policy = {};
    Dhcp6InfoIdTemplate interfaceId = {};
    Dhcp6InfoIdTemplate remoteId = {};
    const CallEnd end = callRun(connection, DH6S_FUNC_INFO_GET,
                                {callArgument(&policy, sizeof policy), callArgument(&interfaceId, sizeof interfaceId),
                                 callArgument(&remoteId, sizeof remoteId)},
                                error);
    // The pointers are the daemon's own: here they only say whether it holds a template.
    *settings = {.strategy = policy.strategy,
                 .interfaceId = {policy.option18Enable, policy.interfaceIdType, std::to_array(policy.interfaceIdValue),
                                 policy.interfaceIdTemplate != nullptr, interfaceId},
                 .remoteId = {policy.option37Enable, policy.remoteIdType, std::to_array(policy.remoteIdValue),
                              policy.remoteIdTemplate != nullptr, remoteId}};
    return end;
}

Outcome actionOption18(Session *session, const Arguments &arguments) {
    return setOption(session, DH6S_FUNC_INFO_OPTION18_ENALBE, "18", arguments.undo);
}

Outcome actionOption37(Session *session, const Arguments &arguments) {
    return setOption(session, DH6S_FUNC_INFO_OPTION37_ENALBE, "37", arguments.undo);
}

Outcome actionInterfaceId(Session *session, const Arguments &arguments) { return setId(session, INTERFACE_ID, arguments.id); }

Outcome actionRemoteId(Session *session, const Arguments &arguments) { return setId(session, REMOTE_ID, arguments.id); }
