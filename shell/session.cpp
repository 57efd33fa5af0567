#include "shell/session.h"

#include <algorithm>

#include "shell/parser.h"
#include "shell/values.h"

namespace {

constexpr std::string_view BLANKS = " \t\r\n";

// What may stand at the end of `words`, one choice a line.
Outcome runHelp(Session *session, std::vector<std::string_view> words) {
    std::string_view partial = words.back();
    partial.remove_suffix(1);
    words.pop_back();
    std::vector<Choice> choices;
    if (!parserChoices(session->place.kind, words, partial, &choices, &session->error)) {
        return Outcome::usage;
    }
    if (choices.empty()) {
        session->error = "nothing that starts with " + textQuoted(partial) + " may stand here";
        return Outcome::usage;
    }
    size_t width = 0;
    for (const Choice &choice : choices) {
        width = std::max(width, choice.word.size());
    }
    for (const Choice &choice : choices) {
        std::string word(choice.word);
        word.resize(width, ' ');
        session->output += "  " + word + "  " + std::string(choice.help) + '\n';
    }
    return Outcome::done;
}

} // namespace

std::vector<std::string_view> sessionWords(std::string_view line) {
    std::vector<std::string_view> words;
    for (size_t at = line.find_first_not_of(BLANKS); at != std::string_view::npos; at = line.find_first_not_of(BLANKS, at)) {
        if (words.empty() && (line[at] == '!' || line[at] == '#')) {
            break;
        }
        const size_t end = std::min(line.find_first_of(BLANKS, at), line.size());
        words.push_back(line.substr(at, end - at));
        at = end;
    }
    return words;
}

Outcome sessionRun(Session *session, std::string_view line) {
    session->output.clear();
    session->error.clear();
    if (line.size() > SESSION_LINE_MAX) {
        session->error = "the line is too long: it has " + std::to_string(line.size()) + " characters, allowed are " +
                         std::to_string(SESSION_LINE_MAX);
        return Outcome::usage;
    }
    const std::vector<std::string_view> words = sessionWords(line);
    if (words.empty()) {
        return Outcome::done;
    }
    if (words.back().ends_with('?')) {
        return runHelp(session, words);
    }
    std::vector<ParsedCommand> commands;
    if (!parserRead(session->place.kind, words, &commands, &session->error)) {
        return Outcome::usage;
    }
    const Place start = session->place;
    Outcome outcome = Outcome::done;
    for (size_t i = 0; i < commands.size() && outcome == Outcome::done; i++) {
        outcome = commands[i].command->run(session, commands[i].arguments);
    }
    // Entering and configuring on one line is for that line only.
    if (commands.size() > 1) {
        session->place = start;
    }
    return outcome;
}

std::string sessionPrompt(const Session &session) {
    switch (session.place.kind) {
    case PLACE_INTERFACE: return "snoopd6(" + textPort(session.place.number) + ")> ";
    case PLACE_VLAN: return "snoopd6(vlan" + std::to_string(session.place.number) + ")> ";
    default: return "snoopd6> ";
    }
}
