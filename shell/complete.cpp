#include "shell/complete.h"

#include <algorithm>
#include <array>

#include "shell/clients.h"
#include "shell/parser.h"
#include "shell/status.h"

namespace {

std::vector<std::string> knownPorts(Connection *connection) {
    std::vector<uint32_t> numbers;
    std::vector<std::string> words;
    std::string ignored;
    if (statusPortNumbers(connection, &numbers, &ignored) == CallEnd::done) {
        std::ranges::transform(numbers, std::back_inserter(words), textPort);
    }
    return words;
}

std::vector<std::string> knownVlans(Connection *connection) {
    std::vector<LinuxVlanStatus> vlans;
    std::vector<std::string> words;
    std::string ignored;
    if (statusVlans(connection, &vlans, &ignored) == CallEnd::done) {
        std::ranges::transform(vlans, std::back_inserter(words),
                               [](const LinuxVlanStatus &status) { return std::to_string(status.vlan); });
    }
    return words;
}

std::vector<std::string> knownClients(Connection *connection) {
    std::vector<ClientRecord> clients;
    std::vector<std::string> words;
    std::string ignored;
    if (clientAll(connection, &clients, &ignored) == CallEnd::done) {
        std::ranges::transform(clients, std::back_inserter(words),
                               [](const ClientRecord &client) { return textMac(client.mac); });
    }
    return words;
}

struct KnownValues {
    std::string_view placeholder;
    std::vector<std::string> (*list)(Connection *connection);
};

constexpr std::array KNOWN = {
    KnownValues{"<port>", knownPorts},
    KnownValues{"<vlan>", knownVlans},
    KnownValues{"<mac>", knownClients},
};

std::vector<std::string> wordsOf(Session *session, const Choice &choice) {
    if (choice.kind == ChoiceKind::word) {
        return {std::string(choice.word)};
    }
    for (const KnownValues &known : KNOWN) {
        if (choice.value != nullptr && known.placeholder == choice.value->word) {
            return known.list(&session->connection);
        }
    }
    return {};
}

} // namespace

std::string completeWords(Session *session, std::vector<std::string_view> words) {
    const std::string partial(words.empty() ? "" : words.back());
    if (!words.empty()) {
        words.pop_back();
    }
    std::vector<Choice> choices;
    std::string error;
    std::string text;
    if (!parserChoices(session->place.kind, words, partial, &choices, &error)) {
        return text;
    }
    for (const Choice &choice : choices) {
        for (const std::string &word : wordsOf(session, choice)) {
            text += word.starts_with(partial) ? word + '\n' : "";
        }
    }
    return text;
}
