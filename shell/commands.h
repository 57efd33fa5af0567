#pragma once
// The command table: every line that the shell understands, once. The parser, the help, the completion and the man page are
// made from it.
//
// A form is the line's words; a word in angle brackets stands for a value. A form that starts with "undo" runs the same
// function as the line that it takes back. A command that enters a place may be followed on the same line by a command of
// that place.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "shell/information.h"
#include "shell/session.h"
#include "shell/values.h"

// Values of a line, filled in as its words are read; each form has every kind at most once.
struct Arguments {
    bool undo = false;
    uint32_t port = 0;
    uint32_t vlan = 0;
    uint32_t limit = 0;
    VlanList vlans = {};
    MacAddress mac = {};
    Ipv6Address address = {};
    uint32_t seconds = 0;
    InformationId id = {};
    std::string file;
    std::string words; // separated by single spaces
};

struct Command {
    uint32_t places; // PLACE_* where it may stand
    uint32_t enters; // PLACE_* that it leads to, 0 = none; PLACE_WATCH only together with a command of that place
    const char *form;
    const char *help;
    Outcome (*run)(Session *session, const Arguments &arguments);
};

// In the order in which help lists them.
std::span<const Command> commandTable();

// Whether the kernel's filter rules carry out what the command sets.
bool commandUsesRules(const Command &command);

size_t commandWordCount(const Command &command);
std::string_view commandWord(const Command &command, size_t index); // index below commandWordCount

// What a word that starts several commands is about; "" when there is nothing to add.
std::string_view commandWordHelp(std::string_view word);

// Something that may stand next in a line.
enum class ChoiceKind : uint32_t {
    word,  // may be typed as it stands
    value, // stands for a value: cannot be completed
    part,  // belongs inside the value that is being typed, at its open brace
};

struct Placeholder;

struct Choice {
    std::string_view word; // what to type; for a value, how it is written
    std::string_view help;
    ChoiceKind kind;
    const Placeholder *value = nullptr; // of a value
};

// Kinds of values.
struct Placeholder {
    const char *word;  // as in forms: "<port>"
    const char *shown; // what help shows in its place: "0/N"
    const char *help;
    bool (*read)(std::string_view word, Arguments *arguments, std::string *error);
    // Values with a language of their own: what may come in a value that has been typed so far. Else null.
    void (*choices)(const Placeholder &placeholder, std::string_view partial, std::vector<Choice> *choices);
    const char *excess; // what to say when there is too much behind the value; "" = nothing
};

// In the order in which the man page lists them.
std::span<const Placeholder> commandPlaceholders();

// The placeholder that a form's word names, or null for a word that stands for itself.
const Placeholder *commandPlaceholder(std::string_view word);

// Takes all words up to the end of the line, one at least.
inline constexpr std::string_view COMMAND_REST = "<words>";
