#include "platform/linux/tomltext.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

static constexpr off_t FILE_MAX = 1 << 20;  // bytes; 28 ports need two thousand
static constexpr uint32_t BRACKETS_MAX = 8; // of one value; a port's is one deep

// ---- Reading -------------------------------------------------------------------------------------------------------

// A FIFO or a device in place of the file must not hold the start-up.
static const char *readOpened(int fd, std::string *text) {
    struct stat file = {};
    if (fstat(fd, &file) != 0 || !S_ISREG(file.st_mode) || file.st_size > FILE_MAX) {
        return "is no ordinary file of at most 1 MiB";
    }
    text->resize(static_cast<size_t>(file.st_size));
    const ssize_t n = read(fd, text->data(), text->size());
    if (n < 0) {
        return strerror(errno);
    }
    text->resize(static_cast<size_t>(n));
    return nullptr;
}

const char *linuxTomlRead(const char *path, std::string *text) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        return strerror(errno);
    }
    const char *fault = readOpened(fd, text);
    close(fd);
    return fault;
}

// ---- Checking ------------------------------------------------------------------------------------------------------

enum class Place { lineStart, plain, comment, basicString, literalString };

struct Scan {
    const std::string *text;
    size_t at;
    uint32_t line;
    Place place;
    uint32_t depth;              // brackets that are open
    char brackets[BRACKETS_MAX]; // what closes them
};

static char charAt(const Scan *scan, size_t at) { return at < scan->text->size() ? (*scan->text)[at] : '\0'; }

static bool isBlank(char c) { return c == ' ' || c == '\t'; }

static bool isDigit(char c) { return c >= '0' && c <= '9'; }

static bool startsKey(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || isDigit(c) || c == '_' || c == '-' || c == '"' || c == '\'';
}

// At a "[" that is the first character of a line.
static bool headerNamesKey(const Scan *scan) {
    size_t at = scan->at + 1;
    if (charAt(scan, at) == '[') {
        at++;
    }
    while (isBlank(charAt(scan, at))) {
        at++;
    }
    return startsKey(charAt(scan, at));
}

// Every bracket closes the one that was opened last.
static bool bracketFits(Scan *scan, char c) {
    if (c == '[' || c == '{') {
        if (scan->depth == BRACKETS_MAX) {
            return false;
        }
        scan->brackets[scan->depth] = c == '[' ? ']' : '}';
        scan->depth++;
        return true;
    }
    if (c == ']' || c == '}') {
        if (scan->depth == 0 || scan->brackets[scan->depth - 1] != c) {
            return false;
        }
        scan->depth--;
    }
    return true;
}

// One character outside of comments and strings.
static const char *scanPlain(Scan *scan, char c) {
    if (c == '\r' && charAt(scan, scan->at + 1) == '\n') {
        return nullptr;
    }
    if (!isBlank(c) && !startsKey(c) && std::string_view("+=.,[]{}#").find(c) == std::string_view::npos) {
        return "only A to Z, digits and _ - + = . , [ ] { } may stand outside of \"quotes\" and comments";
    }
    if (c == '[' && scan->place == Place::lineStart && !headerNamesKey(scan)) {
        return "a line that starts with '[' must name a table, such as [[port]]";
    }
    if (scan->text->compare(scan->at, 3, "\"\"\"") == 0 || scan->text->compare(scan->at, 3, "'''") == 0) {
        return "a text must stand on one line, with one quote at each end";
    }
    const bool opens = c == '"' || c == '\'' || c == '[' || c == '{';
    if (opens && scan->place == Place::plain &&
        std::string_view(" \t=,[{").find(charAt(scan, scan->at - 1)) == std::string_view::npos) {
        return "a quote or bracket may not stand in the middle of a word";
    }
    if (c == '-' && scan->place == Place::plain && isDigit(charAt(scan, scan->at - 1))) {
        return "dates have no place here";
    }
    if (!bracketFits(scan, c)) {
        return "the brackets do not match";
    }
    if (c == '#') {
        scan->place = Place::comment;
    } else if (c == '"') {
        scan->place = Place::basicString;
    } else if (c == '\'') {
        scan->place = Place::literalString;
    } else if (!isBlank(c)) {
        scan->place = Place::plain;
    }
    return nullptr;
}

static void scanString(Scan *scan, char c) {
    const char quote = scan->place == Place::basicString ? '"' : '\'';
    if (c == '\\' && scan->place == Place::basicString && charAt(scan, scan->at + 1) != '\n') {
        scan->at++; // whatever is escaped, it does not end the string
    } else if (c == quote) {
        scan->place = Place::plain;
    }
}

const char *linuxTomlFault(const std::string &text, uint32_t *line) {
    Scan scan = {.text = &text, .at = 0, .line = 1, .place = Place::lineStart, .depth = 0, .brackets = {}};
    const char *fault = nullptr;
    for (; scan.at < text.size() && fault == nullptr; scan.at++) {
        const char c = text[scan.at];
        *line = scan.line;
        if (c == '\n') { // no string of this file goes on behind its line
            scan.place = Place::lineStart;
            scan.line++;
        } else if (scan.place == Place::lineStart || scan.place == Place::plain) {
            fault = scanPlain(&scan, c);
        } else if (scan.place != Place::comment) {
            scanString(&scan, c);
        }
    }
    return fault;
}
