#pragma once
// Text to the user. A stream remembers that a write failed; the program looks at that once, at its end, and not at every line.

#include <cstdio>
#include <string_view>

void outputWrite(FILE *to, std::string_view text);

// The same, and at once: for a terminal.
void outputShow(FILE *to, std::string_view text);
