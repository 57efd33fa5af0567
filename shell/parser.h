#pragma once
// Finds the command that a line means, and what may come next in a line that is not finished.
//
// Words may be abbreviated as long as they stay unique among what may stand there; a word written in full always wins over
// longer ones that start with it. The parser knows the command table only; it runs nothing.

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "shell/commands.h"

// One command of a line. A line has several when the first ones enter a place.
struct ParsedCommand {
    const Command *command;
    Arguments arguments;
};

// True and at least one command, or false and one sentence.
[[nodiscard]] bool parserRead(uint32_t place, std::span<const std::string_view> words, std::vector<ParsedCommand> *parsed,
                              std::string *error);

// True when the line is one that would enter a place, however wrong its value: what follows it is meant for that place.
[[nodiscard]] bool parserMeansToEnter(uint32_t place, std::span<const std::string_view> words);

// What PARSER_ENTER stands for: the line may end here.
inline constexpr std::string_view PARSER_ENTER = "<enter>";

// What may stand behind `words` and starts with `partial`, in table order. False and one sentence when the words themselves
// lead nowhere.
[[nodiscard]] bool parserChoices(uint32_t place, std::span<const std::string_view> words, std::string_view partial,
                                 std::vector<Choice> *choices, std::string *error);
