#include "platform/linux/startupjudge.h"

#include <charconv>
#include <vector>

#include "platform/linux/switchfile.h"

namespace {

constexpr std::string_view BLANKS = " \t\r";
constexpr size_t PORT_WORDS = 3; // "interface ethernet 0/N"

// Control characters other than blanks and line ends, and the two bytes that neither UTF-8 nor any common text has: flash
// memory that was erased is full of one of them.
bool isText(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte >= 0xFE || byte == 0x7F ? false : byte >= 0x20 || byte == '\t' || byte == '\r' || byte == '\n';
}

std::string_view trimmed(std::string_view line) {
    const size_t first = line.find_first_not_of(BLANKS);
    return first == std::string_view::npos ? std::string_view{} : line.substr(first, line.find_last_not_of(BLANKS) - first + 1);
}

// Takes the first line off the text, without its end and the blanks around it.
std::string_view takeLine(std::string_view *text) {
    const size_t end = text->find('\n');
    const std::string_view line = trimmed(text->substr(0, end));
    text->remove_prefix(end == std::string_view::npos ? text->size() : end + 1);
    return line;
}

LinuxStartupVerdict damaged(std::string reason) {
    return {.kind = LinuxStartupKind::damaged, .lines = 0, .reason = std::move(reason)};
}

std::vector<std::string_view> wordsOf(std::string_view line) {
    std::vector<std::string_view> words;
    for (size_t at = line.find_first_not_of(BLANKS); at != std::string_view::npos; at = line.find_first_not_of(BLANKS)) {
        line.remove_prefix(at);
        words.push_back(line.substr(0, line.find_first_of(BLANKS)));
        line.remove_prefix(words.back().size());
    }
    return words;
}

// The port index of "interface ethernet 0/N", or LINUX_PORTS_MAX.
uint32_t portOf(const std::vector<std::string_view> &words) {
    uint32_t port = 0;
    if (words.size() < PORT_WORDS || words[0] != "interface" || words[1] != "ethernet" || !words[2].starts_with("0/"))
        return LINUX_PORTS_MAX;
    const char *end = words[2].data() + words[2].size();
    const auto [stop, code] = std::from_chars(words[2].data() + 2, end, port);
    return code == std::errc() && stop == end && port >= 1 && port <= LINUX_PORTS_MAX ? port - 1 : LINUX_PORTS_MAX;
}

bool isTrust(const std::vector<std::string_view> &words, size_t from) {
    return words.size() == from + 2 && words[from] == "dhcpv6-snooping" && words[from + 1] == "trust";
}

} // namespace

LinuxStartupVerdict linuxStartupJudge(std::string_view text) {
    if (text.size() > LINUX_STARTUP_BYTES_MAX)
        return damaged("is larger than " + std::to_string(LINUX_STARTUP_BYTES_MAX >> 20) + " MiB");
    LinuxStartupVerdict verdict = {.kind = LinuxStartupKind::byHand, .lines = 0, .reason = {}};
    bool blank = true;
    bool head = false;
    bool end = false;
    uint32_t number = 0;
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view line = takeLine(&rest);
        ++number;
        for (const char character : line)
            if (!isText(character))
                return damaged("is not text: line " + std::to_string(number) + " has bytes that no line may have");
        if (number > LINUX_STARTUP_LINES_MAX)
            return damaged("has more than " + std::to_string(LINUX_STARTUP_LINES_MAX) + " lines");
        head = head || (number == 1 && line == LINUX_STARTUP_HEAD);
        end = end || line == LINUX_STARTUP_END;
        blank = blank && line.empty();
        verdict.lines += line.empty() || line[0] == '!' || line[0] == '#' ? 0 : 1;
    }
    if (blank)
        return damaged("is empty");
    if (LINUX_STARTUP_HEAD.starts_with(text) || (head && !end))
        return damaged("is cut off: its last line is missing");
    if (!head && end)
        return damaged("is cut off: its first line is missing");
    verdict.kind = head ? LinuxStartupKind::complete : LinuxStartupKind::byHand;
    return verdict;
}

const char *linuxStartupRefusal(std::string_view text) {
    uint32_t lines = 0;
    if (text.size() + LINUX_STARTUP_HEAD.size() + LINUX_STARTUP_END.size() + 2 > LINUX_STARTUP_BYTES_MAX)
        return "is too long for a file";
    if (!text.empty() && text.back() != '\n')
        return "ends in the middle of a line";
    while (!text.empty()) {
        const std::string_view line = takeLine(&text);
        for (const char character : line)
            if (!isText(character))
                return "has bytes that no line may have";
        if (line == LINUX_STARTUP_HEAD || line == LINUX_STARTUP_END)
            return "has the marks of a saved file in it";
        if (++lines > LINUX_STARTUP_LINES_MAX - 2)
            return "has too many lines for a file";
    }
    return nullptr;
}

std::string linuxStartupMarked(std::string_view text) {
    std::string marked(LINUX_STARTUP_HEAD);
    marked += '\n';
    marked += text;
    marked += LINUX_STARTUP_END;
    return marked + '\n';
}

uint32_t linuxStartupTrusted(std::string_view text) {
    uint32_t trusted = 0;
    uint32_t place = LINUX_PORTS_MAX; // the port that the lines are about
    while (!text.empty()) {
        const std::vector<std::string_view> words = wordsOf(takeLine(&text));
        const uint32_t port = portOf(words);
        if (words.empty())
            continue;
        if (words[0] == "quit" || words[0] == "vlan" || words[0] == "interface")
            place = port;
        const size_t from = port == LINUX_PORTS_MAX ? 0 : PORT_WORDS;
        if (place == LINUX_PORTS_MAX)
            continue;
        if (isTrust(words, from))
            trusted |= 1u << place;
        else if (words.size() > from && words[from] == "undo" && isTrust(words, from + 1))
            trusted &= ~(1u << place);
        if (words.size() > PORT_WORDS && from != 0)
            place = LINUX_PORTS_MAX;
    }
    return trusted;
}
