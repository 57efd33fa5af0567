#pragma once
// The shell at a terminal: prompt, history kept in a file, Tab to complete, ? for help at any word, Ctrl-C to drop a line,
// Ctrl-D to leave.

#include "shell/session.h"

// Reads and runs lines until the user leaves. False when the terminal cannot be used.
[[nodiscard]] bool interactiveRun(Session *session);

// What Tab adds to a line that ends at the cursor: the rest of the word as far as it is certain, with a space behind it when
// the word is complete. "" when there is nothing certain.
std::string interactiveCompletion(const Session &session, std::string_view line);

// True when a "?" behind this line is a character of a quoted text rather than a question.
bool interactiveTakesQuestionMark(std::string_view line);
