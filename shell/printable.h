#pragma once
// Which characters may reach a terminal, or be kept in a text that is printed later.
//
// A character is printable when it is one whole UTF-8 character, no control character, and none of those that change the
// direction or the look of what stands around them without being seen themselves: what is shown is then what is there.

#include <cstddef>
#include <string>
#include <string_view>

// Bytes of the first character of a text that is not empty; 0 when it is not printable.
size_t printableLength(std::string_view text);

// Characters of a text; a byte that belongs to none counts as one.
size_t printableCount(std::string_view text);
