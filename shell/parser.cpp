#include "shell/parser.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace {

// A walk along the words of a line, through all commands that still fit.
struct Walk {
    uint32_t place;
    size_t depth = 0; // words of the current command that were read
    std::vector<const Command *> open;
    Arguments arguments;
    std::string read; // those words, written out, for errors
};

void walkStart(Walk *walk, uint32_t place) {
    *walk = {.place = place, .depth = 0, .open = {}, .arguments = {}, .read = {}};
    for (const Command &command : commandTable()) {
        if ((command.places & place) != 0) {
            walk->open.push_back(&command);
        }
    }
}

bool takesRest(const Command &command) { return commandWord(command, commandWordCount(command) - 1) == COMMAND_REST; }

// Whether a command has another word at this depth.
bool goesOn(const Command &command, size_t depth) { return depth < commandWordCount(command) || takesRest(command); }

std::string_view wordAt(const Command &command, size_t depth) {
    return commandWord(command, std::min(depth, commandWordCount(command) - 1));
}

bool mayEnd(const Command &command, size_t depth) {
    return depth == commandWordCount(command) || (takesRest(command) && depth > commandWordCount(command));
}

// The command that the words read so far are, or null.
const Command *walkComplete(const Walk &walk) {
    for (const Command *command : walk.open) {
        if (mayEnd(*command, walk.depth)) {
            return command;
        }
    }
    return nullptr;
}

// Whether a line may end with this command. "watch" wants one behind it.
bool mayStandLast(const Command *command) { return command != nullptr && command->enters != PLACE_WATCH; }

// Whether the word starts a command of the place rather than being a value of the command that is being read.
bool startsIn(uint32_t place, std::string_view typed) {
    const std::span<const Command> table = commandTable();
    return !typed.empty() && std::any_of(table.begin(), table.end(), [place, typed](const Command &command) {
        return (command.places & place) != 0 && commandWord(command, 0).starts_with(typed);
    });
}

// The different words that may stand next, each once.
std::vector<std::string_view> nextWords(const Walk &walk) {
    std::vector<std::string_view> words;
    for (const Command *command : walk.open) {
        if (goesOn(*command, walk.depth)) {
            const std::string_view word = wordAt(*command, walk.depth);
            if (std::find(words.begin(), words.end(), word) == words.end()) {
                words.push_back(word);
            }
        }
    }
    return words;
}

std::string shownWord(std::string_view word) {
    const Placeholder *placeholder = commandPlaceholder(word);
    return std::string(placeholder != nullptr ? placeholder->shown : word);
}

std::string joinWords(const std::vector<std::string_view> &words, const char *last) {
    std::string text;
    for (size_t i = 0; i < words.size(); i++) {
        text += (i == 0 ? "" : i + 1 == words.size() ? last : ", ") + shownWord(words[i]);
    }
    return text;
}

// A word as it is typed: in quotes when it would fall into several, or be none.
std::string typedWord(std::string_view word) {
    const bool whole = !word.empty() && word.find(' ') == std::string_view::npos;
    return whole ? textPrintable(word) : '"' + textPrintable(word) + '"';
}

std::string behind(const Walk &walk) { return walk.read.empty() ? "" : " behind \"" + walk.read + "\""; }

// The one word of `allowed` that the typed word means, "" and a sentence when there is none or more than one.
std::string_view chooseWord(const Walk &walk, const std::vector<std::string_view> &allowed, std::string_view typed,
                            std::string *error) {
    std::vector<std::string_view> fitting;
    for (const std::string_view word : allowed) {
        if (word == typed || commandPlaceholder(word) != nullptr) {
            return word;
        }
        if (!typed.empty() && word.starts_with(typed)) {
            fitting.push_back(word);
        }
    }
    if (fitting.size() == 1) {
        return fitting[0];
    }
    if (allowed.empty()) {
        const Placeholder *last = commandPlaceholder(wordAt(*walk.open.front(), walk.depth - 1));
        *error =
            "nothing may stand" + behind(walk) + ", but there is " + textQuoted(typed) + (last != nullptr ? last->excess : "");
    } else if (fitting.empty()) {
        *error = textQuoted(typed) + " is not known" + (walk.read.empty() ? " here" : behind(walk)) + ": allowed " +
                 (allowed.size() == 1 ? "is " : "are ") + joinWords(allowed, " and ");
    } else {
        *error = textQuoted(typed) + " is ambiguous" + behind(walk) + ": it may mean " + joinWords(fitting, " or ");
    }
    return "";
}

bool walkStep(Walk *walk, std::string_view typed, std::string *error) {
    const std::string_view word = chooseWord(*walk, nextWords(*walk), typed, error);
    if (word.empty()) {
        return false;
    }
    const Placeholder *placeholder = commandPlaceholder(word);
    if (placeholder != nullptr && !placeholder->read(typed, &walk->arguments, error)) {
        return false;
    }
    walk->arguments.undo = walk->arguments.undo || (walk->depth == 0 && word == "undo");
    std::erase_if(walk->open, [walk, word](const Command *command) {
        return !goesOn(*command, walk->depth) || wordAt(*command, walk->depth) != word;
    });
    walk->depth++;
    walk->read += walk->read.empty() ? "" : " ";
    walk->read += placeholder != nullptr ? typedWord(typed) : std::string(word);
    return true;
}

// Walks all words; commands that enter a place and are followed by more are put into *parsed on the way.
bool walkAll(Walk *walk, uint32_t place, std::span<const std::string_view> words, std::vector<ParsedCommand> *parsed,
             std::string *error) {
    walkStart(walk, place);
    for (const std::string_view word : words) {
        const Command *complete = walkComplete(*walk);
        if (complete != nullptr && complete->enters != 0 && (nextWords(*walk).empty() || startsIn(complete->enters, word))) {
            parsed->push_back({complete, walk->arguments});
            walkStart(walk, complete->enters);
        }
        if (!walkStep(walk, word, error)) {
            return false;
        }
    }
    return true;
}

// Help of one next word: that of the command when the word leads to one only, else what the word is about.
std::string_view choiceHelp(const Walk &walk, std::string_view word) {
    const Placeholder *placeholder = commandPlaceholder(word);
    if (placeholder != nullptr) {
        return placeholder->help;
    }
    const Command *only = nullptr;
    for (const Command *command : walk.open) {
        if (goesOn(*command, walk.depth) && wordAt(*command, walk.depth) == word) {
            if (only != nullptr) {
                return commandWordHelp(word);
            }
            only = command;
        }
    }
    return only != nullptr ? only->help : "";
}

void addChoices(const Walk &walk, std::string_view partial, std::vector<Choice> *choices) {
    for (const std::string_view word : nextWords(walk)) {
        const Placeholder *placeholder = commandPlaceholder(word);
        if (placeholder != nullptr && placeholder->choices != nullptr) {
            placeholder->choices(*placeholder, partial, choices);
        } else if (placeholder != nullptr) {
            choices->push_back({placeholder->shown, placeholder->help, ChoiceKind::value, placeholder});
        } else if (word.starts_with(partial)) {
            choices->push_back({word, choiceHelp(walk, word), ChoiceKind::word});
        }
    }
}

struct PlaceHint {
    uint32_t kind;
    const char *way;
};

constexpr std::array PLACE_HINTS = {
    PlaceHint{PLACE_TOP, "the top: say \"quit\" first"},
    PlaceHint{PLACE_INTERFACE, "a port: say \"interface ethernet 0/N\" first"},
    PlaceHint{PLACE_VLAN, "a VLAN: say \"vlan N\" first"},
};

// A sentence when the line would be right elsewhere, which is the commonest mistake of newcomers; else "".
std::string elsewhere(uint32_t place, std::span<const std::string_view> words) {
    std::string ways;
    for (const PlaceHint &hint : PLACE_HINTS) {
        Walk walk;
        std::vector<ParsedCommand> parsed;
        std::string error;
        if (hint.kind != place && walkAll(&walk, hint.kind, words, &parsed, &error) && mayStandLast(walkComplete(walk))) {
            ways += (ways.empty() ? "" : ", or to ") + std::string(hint.way);
        }
    }
    if (ways.empty()) {
        return "";
    }
    std::string line;
    for (const std::string_view word : words) {
        line += (line.empty() ? "" : " ") + typedWord(word);
    }
    return textQuoted(line) + " belongs to " + ways;
}

} // namespace

bool parserRead(uint32_t place, std::span<const std::string_view> words, std::vector<ParsedCommand> *parsed,
                std::string *error) {
    Walk walk;
    parsed->clear();
    const bool known = walkAll(&walk, place, words, parsed, error);
    const Command *complete = known ? walkComplete(walk) : nullptr;
    if (mayStandLast(complete)) {
        parsed->push_back({complete, walk.arguments});
        return true;
    }
    if (known) {
        std::vector<std::string_view> wanted = nextWords(walk);
        if (complete != nullptr) {
            Walk entered;
            walkStart(&entered, complete->enters);
            std::ranges::copy(nextWords(entered), std::back_inserter(wanted));
        }
        *error = "the line is not complete: \"" + walk.read + "\" wants " + joinWords(wanted, " or ") + " behind it";
    }
    if (const std::string hint = elsewhere(place, words); !hint.empty()) {
        *error = hint;
    }
    return false;
}

bool parserMeansToEnter(uint32_t place, std::span<const std::string_view> words) {
    Walk walk;
    std::string error;
    walkStart(&walk, place);
    if (words.empty() || !walkStep(&walk, words[0], &error)) {
        return false;
    }
    return std::any_of(walk.open.begin(), walk.open.end(), [words](const Command *command) {
        return (command->enters & PLACE_ANY) != 0 && words.size() <= commandWordCount(*command);
    });
}

bool parserChoices(uint32_t place, std::span<const std::string_view> words, std::string_view partial,
                   std::vector<Choice> *choices, std::string *error) {
    Walk walk;
    std::vector<ParsedCommand> entered;
    choices->clear();
    if (!walkAll(&walk, place, words, &entered, error)) {
        return false;
    }
    const Command *complete = walkComplete(walk);
    if (mayStandLast(complete) && partial.empty() && !words.empty()) {
        choices->push_back({PARSER_ENTER, complete->help, ChoiceKind::value});
    }
    if (complete != nullptr && complete->enters != 0) {
        addChoices(walk, partial, choices);
        walkStart(&walk, complete->enters);
    }
    addChoices(walk, partial, choices);
    return true;
}
