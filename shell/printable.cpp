#include "shell/printable.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace {

struct CodeRange {
    uint32_t first;
    uint32_t last;
};

constexpr std::array UNSEEN = {
    CodeRange{0x80, 0x9f},       // control characters
    CodeRange{0xad, 0xad},       // soft hyphen
    CodeRange{0x61c, 0x61c},     // direction mark
    CodeRange{0x200b, 0x200f},   // without width; direction marks
    CodeRange{0x2028, 0x202e},   // line and paragraph ends; embeddings and overrides of direction
    CodeRange{0x2060, 0x206f},   // without width; isolates
    CodeRange{0xd800, 0xdfff},   // surrogates: not UTF-8
    CodeRange{0xfeff, 0xfeff},   // byte order mark
    CodeRange{0xfff9, 0xfffb},   // annotations
    CodeRange{0xe0000, 0xe007f}, // tags
};

constexpr uint32_t CODE_LAST = 0x10ffff;

// Bytes of a UTF-8 character by its first one; 0 when none starts so.
size_t lengthByLead(uint8_t lead) {
    if (lead < 0x80) {
        return 1;
    }
    return lead < 0xc0 || lead > 0xf7 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
}

} // namespace

size_t printableLength(std::string_view text) {
    constexpr std::array<uint32_t, 5> smallest = {0, 0, 0x80, 0x800, 0x10000}; // less was written longer than it is
    const auto lead = static_cast<uint8_t>(text[0]);
    const size_t length = lengthByLead(lead);
    if (length <= 1) {
        return lead >= 0x20 && lead < 0x7f ? 1 : 0;
    }
    if (text.size() < length) {
        return 0;
    }
    uint32_t code = lead & (0x7fu >> length);
    for (size_t i = 1; i < length; i++) {
        const auto byte = static_cast<uint8_t>(text[i]);
        if ((byte & 0xc0) != 0x80) {
            return 0;
        }
        code = (code << 6) | (byte & 0x3fu);
    }
    const bool unseen = std::any_of(UNSEEN.begin(), UNSEEN.end(),
                                    [code](const CodeRange &range) { return code >= range.first && code <= range.last; });
    return code < smallest[length] || code > CODE_LAST || unseen ? 0 : length;
}

size_t printableCount(std::string_view text) {
    size_t count = 0;
    for (; !text.empty(); count++) {
        text.remove_prefix(std::max<size_t>(printableLength(text), 1));
    }
    return count;
}
