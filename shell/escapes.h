#pragma once
// Escapes: how a line says bytes that cannot be typed, or that would end the line or the word that they are in.
//
//     \\ backslash    \n end of line    \r carriage return    \t tab    \xHH the byte with these two hexadecimal digits
//
// Any other printable character means itself, except the double quote, which is written \x22: the words of a line are told
// apart before anybody looks for escapes. There is no \x00, because the daemon's texts end at their first NUL.
//
// Escapes are read only where a command says so. In all other texts a backslash is a backslash, as the daemon prints it.

#include <string>
#include <string_view>

// Printable characters and no double quotes; escapesRead makes the same bytes of it.
std::string escapesWrite(std::string_view bytes);

// False and a sentence when the word is not such a text. `what` is how the sentence calls it: "the string".
[[nodiscard]] bool escapesRead(const char *what, std::string_view word, std::string *bytes, std::string *error);
