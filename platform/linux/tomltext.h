#pragma once
// A look at the text of the switch file before the TOML parser gets it.
//
// The parser takes for granted what a mistyped file breaks: that a table header names a key, that letters beyond ASCII stand
// in quotes or comments, that brackets match, that dates and times are complete. What is refused here is no valid switch file
// either way; refusing it first keeps the parser to what it was made for.

#include <cstdint>
#include <string>

// Reads the file. Null on success, otherwise what is wrong; static storage.
const char *linuxTomlRead(const char *path, std::string *text);

// Null when the text may be parsed. Otherwise what is wrong, in a sentence, and the line (from 1).
const char *linuxTomlFault(const std::string &text, uint32_t *line);
