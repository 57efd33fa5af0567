#include "shell/session.h"

#include <algorithm>

#include "shell/parser.h"
#include "shell/status.h"
#include "shell/values.h"
#include "shell/watch.h"

namespace {

constexpr std::string_view BLANKS = " \t\r\n";

bool isBlank(char c) { return BLANKS.find(c) != std::string_view::npos; }

// What may stand behind `words` and starts with `partial`, one choice a line.
Outcome runHelp(Session *session, std::span<const std::string_view> words, std::string_view partial) {
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

// False and a sentence when the quotes of a line are not as they must be.
bool quotesAreGood(Session *session, std::string_view last, WordEnd end) {
    if (end == WordEnd::open) {
        session->error = "the double quote in front of " + textQuoted(last) + " is never closed";
    } else if (end == WordEnd::glued) {
        session->error = "a blank must stand behind the double quote that closes " + textQuoted(last) +
                         ": there are no double quotes inside a text";
    }
    return session->error.empty();
}

bool lengthIsGood(Session *session, size_t length) {
    if (length > SESSION_LINE_MAX) {
        session->error = "the line is too long: it has " + std::to_string(length) + " characters, allowed are " +
                         std::to_string(SESSION_LINE_MAX);
    }
    return session->error.empty();
}

// A setting that was made does nothing while the rules are gone, and one that was refused may have been for that reason.
Outcome endWithRules(Session *session, Outcome outcome) {
    const std::string lost = sessionRulesLost(session);
    if (lost.empty()) {
        return outcome;
    }
    session->error = outcome == Outcome::done ? "the setting is made, but " + lost : session->error + "; " + lost;
    return Outcome::refused;
}

Outcome runWords(Session *session, std::vector<std::string_view> words, WordEnd end) {
    std::vector<ParsedCommand> commands;
    const bool known = parserRead(session->place.kind, words, &commands, &session->error);
    const bool asks = end == WordEnd::plain && words.back().ends_with('?');
    if (asks && (!known || words.back() == "?")) {
        session->error.clear();
        std::string_view partial = words.back();
        partial.remove_suffix(1);
        words.pop_back();
        return runHelp(session, words, partial);
    }
    if (!known) {
        return Outcome::usage;
    }
    const Place start = session->place;
    Outcome outcome = Outcome::done;
    for (size_t i = 0; i < commands.size() && outcome == Outcome::done; i++) {
        outcome = session->watchSeconds != 0 ? watchRun(session, commands[i])
                                             : commands[i].command->run(session, commands[i].arguments);
        const bool asked = outcome == Outcome::done || outcome == Outcome::refused;
        session->rulesUsed = session->rulesUsed || (asked && commandUsesRules(*commands[i].command));
    }
    session->watchSeconds = 0;
    // Entering and configuring on one line is for that line only.
    if (commands.size() > 1) {
        session->place = start;
    }
    return session->batch ? outcome : endWithRules(session, outcome);
}

} // namespace

std::vector<std::string_view> sessionWords(std::string_view line, WordEnd *last) {
    std::vector<std::string_view> words;
    WordEnd end = WordEnd::plain;
    for (size_t at = line.find_first_not_of(BLANKS); at < line.size() && end != WordEnd::open && end != WordEnd::glued;
         at = std::min(line.find_first_not_of(BLANKS, at), line.size())) {
        if (words.empty() && (line[at] == '!' || line[at] == '#')) {
            break;
        }
        const bool quoted = line[at] == '"';
        at += quoted ? 1 : 0;
        const size_t stop = std::min(quoted ? line.find('"', at) : line.find_first_of(BLANKS, at), line.size());
        words.push_back(line.substr(at, stop - at));
        at = quoted ? std::min(stop + 1, line.size()) : stop;
        end = !quoted                                  ? WordEnd::plain
              : stop == line.size()                    ? WordEnd::open
              : at < line.size() && !isBlank(line[at]) ? WordEnd::glued
                                                       : WordEnd::quoted;
    }
    if (last != nullptr) {
        *last = end;
    }
    return words;
}

TypedLine sessionTyped(std::string_view line) {
    TypedLine typed = {};
    typed.words = sessionWords(line, &typed.end);
    const bool inWord = typed.end == WordEnd::plain && !line.empty() && !isBlank(line.back());
    if (!typed.words.empty() && (inWord || typed.end == WordEnd::open)) {
        typed.partial = typed.words.back();
        typed.words.pop_back();
    }
    return typed;
}

Outcome sessionRun(Session *session, std::string_view line) {
    session->output.clear();
    session->error.clear();
    if (!lengthIsGood(session, line.size())) {
        return Outcome::usage;
    }
    line = line.substr(0, line.find_last_not_of(BLANKS) + 1);
    WordEnd end = WordEnd::plain;
    const std::vector<std::string_view> words = sessionWords(line, &end);
    if (words.empty()) {
        return Outcome::done;
    }
    return quotesAreGood(session, words.back(), end) ? runWords(session, words, end) : Outcome::usage;
}

Outcome sessionRunWords(Session *session, std::vector<std::string_view> words) {
    session->output.clear();
    session->error.clear();
    size_t length = words.size();
    for (const std::string_view word : words) {
        length += word.size();
    }
    return lengthIsGood(session, length) ? runWords(session, std::move(words), WordEnd::plain) : Outcome::usage;
}

std::string sessionRulesLost(Session *session) {
    LinuxSwitchStatus status = {};
    std::string ignored;
    if (!session->rulesUsed) {
        return "";
    }
    session->rulesUsed = false;
    if (statusSwitch(&session->connection, &status, &ignored) != CallEnd::done || status.rules != 0) {
        return "";
    }
    return "the kernel has lost the daemon's filter rules, or some of them: ports may be open, and DHCPv6 may pass; "
           "restart snoopd6 to load them "
           "again";
}

Outcome sessionHelp(Session *session, std::string_view line) {
    session->output.clear();
    session->error.clear();
    const TypedLine typed = sessionTyped(line);
    if (typed.end == WordEnd::glued && !quotesAreGood(session, typed.words.back(), typed.end)) {
        return Outcome::usage;
    }
    return lengthIsGood(session, line.size()) ? runHelp(session, typed.words, typed.partial) : Outcome::usage;
}

std::string sessionPrompt(const Session &session) {
    switch (session.place.kind) {
    case PLACE_INTERFACE: return "snoopd6(" + textPort(session.place.number) + ")> ";
    case PLACE_VLAN: return "snoopd6(vlan" + std::to_string(session.place.number) + ")> ";
    default: return "snoopd6> ";
    }
}
