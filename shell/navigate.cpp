#include <algorithm>

#include "shell/actions.h"
#include "shell/status.h"

namespace {

// The form of a command as people read it.
std::string shownForm(const Command &command) {
    std::string text;
    for (size_t i = 0; i < commandWordCount(command); i++) {
        const std::string_view word = commandWord(command, i);
        const Placeholder *placeholder = commandPlaceholder(word);
        text += (text.empty() ? "" : " ") + std::string(placeholder != nullptr ? placeholder->shown : word);
    }
    return text + (command.enters == PLACE_WATCH ? " show ..." : "");
}

// True when the typed words, abbreviated or not, are the first words of the command.
bool startsWith(const Command &command, const std::vector<std::string_view> &words) {
    if (words.size() > commandWordCount(command)) {
        return false;
    }
    for (size_t i = 0; i < words.size(); i++) {
        if (!commandWord(command, i).starts_with(words[i])) {
            return false;
        }
    }
    return true;
}

// The commands of exactly these places that start with the words, under a heading. Nothing when there are none.
std::string helpSection(const char *heading, uint32_t place, bool sharedToo, const std::vector<std::string_view> &words) {
    const auto wanted = [=](const Command &command) {
        return (command.places & place) != 0 && (sharedToo || command.places == place) && startsWith(command, words);
    };
    size_t width = 0;
    for (const Command &command : commandTable()) {
        width = wanted(command) ? std::max(width, shownForm(command).size()) : width;
    }
    std::string text;
    for (const Command &command : commandTable()) {
        if (wanted(command)) {
            std::string form = shownForm(command);
            form.resize(width, ' ');
            text += "  " + form + "  " + command.help + '\n';
        }
    }
    return text.empty() ? "" : std::string(heading) + '\n' + text;
}

} // namespace

Outcome actionEnd(Session *session, CallEnd end, std::string refusal) {
    switch (end) {
    case CallEnd::done: return Outcome::done;
    case CallEnd::refused: session->error = std::move(refusal); return Outcome::refused;
    case CallEnd::unavailable: break;
    }
    return Outcome::unreachable;
}

Outcome actionPortEnd(Session *session, CallEnd end, uint32_t port, std::string refusal) {
    std::vector<uint32_t> numbers;
    std::string ignored;
    if (end != CallEnd::done || statusPortNumbers(&session->connection, &numbers, &ignored) != CallEnd::done) {
        return actionEnd(session, end, std::move(refusal));
    }
    if (std::find(numbers.begin(), numbers.end(), port) == numbers.end()) {
        session->output += "The setting is kept, but this switch has no port " + textPort(port) + ": its ports are " +
                           reportValueText(valuePorts(numbers)) + ".\n";
    }
    return Outcome::done;
}

Outcome actionShow(Session *session, const Report &report) {
    session->output = session->json ? reportJson(report) : reportText(report);
    return Outcome::done;
}

Outcome actionEnterInterface(Session *session, const Arguments &arguments) {
    session->place = {.kind = PLACE_INTERFACE, .number = arguments.port};
    return Outcome::done;
}

Outcome actionEnterVlan(Session *session, const Arguments &arguments) {
    session->place = {.kind = PLACE_VLAN, .number = arguments.vlan};
    return Outcome::done;
}

Outcome actionQuit(Session *session, const Arguments &) {
    session->ended = session->place.kind == PLACE_TOP;
    session->place = {};
    return Outcome::done;
}

Outcome actionHelp(Session *session, const Arguments &arguments) {
    const std::vector<std::string_view> words = sessionWords(arguments.words);
    session->output = helpSection("Commands here:", session->place.kind, true, words);
    if (session->place.kind == PLACE_TOP) {
        session->output += helpSection("Behind \"interface ethernet 0/N\":", PLACE_INTERFACE, false, words);
        session->output += helpSection("Behind \"vlan N\":", PLACE_VLAN, false, words);
    }
    if (session->output.empty()) {
        session->error = "no command starts with " + textQuoted(arguments.words);
        return Outcome::usage;
    }
    session->output += "Words may be shortened while they stay unique; ? shows what may come next.\n";
    return Outcome::done;
}
