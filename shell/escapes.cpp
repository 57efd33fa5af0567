#include "shell/escapes.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "shell/printable.h"
#include "shell/values.h"

namespace {

struct Escape {
    char letter; // after the backslash
    char byte;
};

constexpr std::array ESCAPES = {Escape{'\\', '\\'}, Escape{'n', '\n'}, Escape{'r', '\r'}, Escape{'t', '\t'}};
constexpr size_t HEX_ESCAPE = 4; // characters of "\xHH"

std::string writeByte(char byte) {
    for (const Escape &escape : ESCAPES)
        if (escape.byte == byte)
            return {'\\', escape.letter};
    constexpr std::string_view digits = "0123456789abcdef";
    const auto value = static_cast<uint8_t>(byte);
    return {'\\', 'x', digits[value >> 4], digits[value & 15]};
}

// Reads the escape that `rest` starts with. Returns its length in characters, or 0 when it is none.
size_t readOne(std::string_view rest, char *byte) {
    for (const Escape &escape : ESCAPES)
        if (rest.size() > 1 && rest[1] == escape.letter) {
            *byte = escape.byte;
            return 2;
        }
    if (rest.size() < HEX_ESCAPE || rest[1] != 'x')
        return 0;
    uint8_t value = 0;
    const char *end = rest.data() + HEX_ESCAPE;
    const auto [stop, code] = std::from_chars(rest.data() + 2, end, value, 16);
    *byte = static_cast<char>(value);
    return code == std::errc() && stop == end ? HEX_ESCAPE : 0;
}

} // namespace

std::string escapesWrite(std::string_view bytes) {
    std::string word;
    while (!bytes.empty()) {
        const bool itself = bytes[0] != '"' && bytes[0] != '\\';
        const size_t length = itself ? printableLength(bytes) : 0;
        word += length != 0 ? std::string(bytes.substr(0, length)) : writeByte(bytes[0]);
        bytes.remove_prefix(std::max<size_t>(length, 1));
    }
    return word;
}

bool escapesRead(const char *what, std::string_view word, std::string *bytes, std::string *error) {
    if (!valueCheckText(what, word, error))
        return false;
    std::string read;
    for (size_t at = 0; at < word.size();) {
        char byte = word[at];
        const size_t length = byte == '\\' ? readOne(word.substr(at), &byte) : 1;
        if (length == 0 || byte == '\0') {
            const size_t shown = length != 0 ? length : word.substr(at, 2) == "\\x" ? HEX_ESCAPE : 2;
            *error = textQuoted(word.substr(at, shown)) + " at column " +
                     std::to_string(printableCount(word.substr(0, at)) + 1) + " of " + what +
                     (length == 0 ? " is not an escape: allowed are \\\\, \\n, \\r, \\t and \\x with two hexadecimal digits"
                                  : " cannot be kept: a text ends at its first NUL");
            return false;
        }
        read += byte;
        at += length;
    }
    *bytes = read;
    return true;
}
