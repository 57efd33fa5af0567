// The language of user-defined ids: what becomes of a text, and what is refused, where.
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <random>

#include "shell/idtemplate.h"

namespace {

const std::map<uint32_t, std::string> KEYWORDS = {
    {1, "switch-address"}, {2, "hostname"}, {3, "port-name"}, {4, "port-kind"},   {5, "system-mac"},  {6, "chassis"},
    {7, "slot"},           {8, "subslot"},  {9, "port"},      {10, "outer-vlan"}, {11, "inner-vlan"}, {12, "client-mac"},
    {13, "vlan-address"},  {14, "pon"},     {15, "onu"},      {16, "serial"},     {17, "onu-id"},
};

struct Element {
    uint32_t type;
    std::string vlan; // of type 13, else ""
    bool operator==(const Element &) const = default;
};

// What a template means: literals.size() is elements.size() + 1.
struct Meaning {
    std::vector<std::string> literals = {""};
    std::vector<Element> elements;
    bool operator==(const Meaning &) const = default;
};

void PrintTo(const Meaning &meaning, std::ostream *out) {
    *out << '[' << meaning.literals[0] << ']';
    for (size_t i = 0; i < meaning.elements.size(); i++) {
        *out << meaning.elements[i].type << ' ' << meaning.elements[i].vlan << '[' << meaning.literals[i + 1] << ']';
    }
}

// A field up to its NUL, which must be there; nothing may stand behind it.
template <size_t N> std::string field(const char (&bytes)[N]) {
    const char *end = std::find(bytes, bytes + N, '\0');
    EXPECT_NE(end, bytes + N);
    EXPECT_TRUE(std::all_of(end, bytes + N, [](char c) { return c == '\0'; }));
    return {bytes, end};
}

// Reads a record as the daemon does, and looks that nothing stands where it does not look.
Meaning meaningOf(const Dhcp6InfoIdTemplate &record) {
    Meaning meaning = {.literals = {field(record.literal[0])}, .elements = {}};
    EXPECT_EQ(record.elementType[0], 0u);
    uint32_t k = 1;
    for (; k < DHCP6_INFO_ELEMENTS && record.elementType[k] != 0; k++) {
        meaning.elements.push_back({record.elementType[k], field(record.elementVlan[k])});
        meaning.literals.push_back(field(record.literal[k]));
    }
    for (; k < DHCP6_INFO_ELEMENTS; k++) {
        EXPECT_EQ(record.elementType[k], 0u);
        EXPECT_EQ(field(record.literal[k]) + field(record.elementVlan[k]), "");
    }
    return meaning;
}

std::string textOf(const Meaning &meaning) {
    std::string text;
    for (size_t i = 0; i < meaning.literals.size(); i++) {
        if (i > 0) {
            const Element &element = meaning.elements[i - 1];
            text += '{' + KEYWORDS.at(element.type) + (element.type == 13 ? ":" + element.vlan : "") + '}';
        }
        for (const char c : meaning.literals[i]) {
            text += c == '{' ? "{{" : std::string(1, c);
        }
    }
    return text;
}

Meaning read(const std::string &text) {
    Dhcp6InfoIdTemplate record;
    std::memset(&record, 0xa5, sizeof record);
    std::string error;
    EXPECT_TRUE(idTemplateRead(text, &record, &error)) << text << ": " << error;
    EXPECT_EQ(error, "");
    EXPECT_EQ(field(record.text), text);
    return meaningOf(record);
}

std::string refusal(std::string_view text) {
    Dhcp6InfoIdTemplate record;
    Dhcp6InfoIdTemplate untouched;
    std::memset(&record, 0xa5, sizeof record);
    std::memset(&untouched, 0xa5, sizeof untouched);
    std::string error;
    EXPECT_FALSE(idTemplateRead(text, &record, &error)) << text;
    EXPECT_EQ(std::memcmp(&record, &untouched, sizeof record), 0) << text;
    return error;
}

std::string times(size_t count, const std::string &text) {
    std::string out;
    for (size_t i = 0; i < count; i++) {
        out += text;
    }
    return out;
}

const std::string BRACE = "; a { that shall stand for itself is written {{";

TEST(ShellIdTemplate, EveryElement) {
    ASSERT_EQ(idElements().size(), KEYWORDS.size());
    for (const auto &[type, keyword] : KEYWORDS) {
        const std::string vlan = type == 13 ? "4094" : "";
        EXPECT_EQ(read('{' + keyword + (type == 13 ? ":4094}" : "}")), (Meaning{{"", ""}, {{type, vlan}}}));
    }
}

TEST(ShellIdTemplate, LiteralsStandWhereTheyWere) {
    EXPECT_EQ(read("{hostname}/{port-name}:{outer-vlan}"), (Meaning{{"", "/", ":", ""}, {{2, ""}, {3, ""}, {10, ""}}}));
    EXPECT_EQ(read("a b{port}{port} \\"), (Meaning{{"a b", "", " \\"}, {{9, ""}, {9, ""}}}));
    EXPECT_EQ(read("only text"), (Meaning{{"only text"}, {}}));
    EXPECT_EQ(read("Z\xc3\xbcrich{port}"), (Meaning{{"Z\xc3\xbcrich", ""}, {{9, ""}}}));
    EXPECT_EQ(read("{vlan-address:0010}"), (Meaning{{"", ""}, {{13, "10"}}}));
}

TEST(ShellIdTemplate, Braces) {
    EXPECT_EQ(read("{{"), (Meaning{{"{"}, {}}));
    EXPECT_EQ(read("}"), (Meaning{{"}"}, {}}));
    EXPECT_EQ(read("{{hostname}"), (Meaning{{"{hostname}"}, {}}));
    EXPECT_EQ(read("{{{hostname}}"), (Meaning{{"{", "}"}, {{2, ""}}}));
    EXPECT_EQ(read("{{{{{port}{{"), (Meaning{{"{{", "{"}, {{9, ""}}}));
    EXPECT_EQ(read("{port}}}"), (Meaning{{"", "}}"}, {{9, ""}}}));
}

TEST(ShellIdTemplate, WhatJustFits) {
    EXPECT_EQ(read(times(17, "{port}")).elements.size(), 17u);
    EXPECT_EQ(read(times(17, "{pon}") + std::string(43, 'x')).literals[17], std::string(43, 'x'));
    EXPECT_EQ(read(std::string(64, 'a') + "{port}" + std::string(58, 'b')).literals[0], std::string(64, 'a'));
    EXPECT_EQ(read("{port}" + times(61, "{{")).literals[1], std::string(61, '{'));
}

TEST(ShellIdTemplate, WhatDoesNotFitIsRefusedWithItsPlace) {
    EXPECT_EQ(refusal(times(17, "{port}") + "-{slot}"),
              "\"{slot}\" at column 104 of the template is one element too many: allowed are 17");
    EXPECT_EQ(refusal("{port}" + std::string(65, 'a') + "{port}"),
              "\"" + std::string(64, 'a') +
                  "...\" at column 7 of the template is too long: it stands for 65 bytes, allowed are 64 in one piece");
    EXPECT_EQ(refusal("{port}" + times(32, "\xc3\xbc") + "x"),
              "\"" + times(32, "\xc3\xbc") +
                  "x\" at column 7 of the template is too long: it stands for 65 bytes, allowed are 64 in one piece");
    EXPECT_EQ(refusal(std::string(60, 'a') + "{port}" + std::string(60, 'b') + "{slot}"),
              "\"lot}\" at column 129 of the template is too much: the template has 132 bytes, allowed are 128");
    EXPECT_EQ(refusal(std::string(127, 'a') + "\xc3\xbc"),
              "\"\xc3\xbc\" at column 128 of the template is too much: the template has 129 bytes, allowed are 128");
    EXPECT_EQ(refusal(""), "the template is empty: it takes at least one character");
}

TEST(ShellIdTemplate, WrongElementsAreNamedWithTheirNeighbours) {
    EXPECT_EQ(refusal("{hostnme}"),
              "\"{hostnme}\" at column 1 of the template is not an element: nearest is {hostname}" + BRACE);
    EXPECT_EQ(refusal("\xc3\xbc {port-}"),
              "\"{port-}\" at column 3 of the template is not an element: nearest are {port-name} and "
              "{port-kind}" +
                  BRACE);
    EXPECT_EQ(refusal("{Port}"), "\"{Port}\" at column 1 of the template is not an element: nearest is {port}" + BRACE);
    EXPECT_EQ(refusal("{vlan}"),
              "\"{vlan}\" at column 1 of the template is not an element: nearest is {vlan-address:10}" + BRACE);
    EXPECT_EQ(refusal("{ port}"), "\"{ port}\" at column 1 of the template is not an element: nearest is {port}" + BRACE);
    const std::string all =
        "allowed are {switch-address}, {hostname}, {port-name}, {port-kind}, {system-mac}, {chassis}, {slot}, "
        "{subslot}, {port}, {outer-vlan}, {inner-vlan}, {client-mac}, {vlan-address:10}, {pon}, {onu}, "
        "{serial} and {onu-id}";
    EXPECT_EQ(refusal("{}"), "\"{}\" at column 1 of the template is not an element: " + all + BRACE);
    EXPECT_EQ(refusal("{:}"), "\"{:}\" at column 1 of the template is not an element: " + all + BRACE);
    EXPECT_EQ(refusal("{qqqqqqqq}"), "\"{qqqqqqqq}\" at column 1 of the template is not an element: " + all + BRACE);
    EXPECT_EQ(refusal("{port:1}"), "\"{port:1}\" at column 1 of the template is not an element: it is written {port}");
    EXPECT_EQ(refusal("{port:}"), "\"{port:}\" at column 1 of the template is not an element: it is written {port}");
}

TEST(ShellIdTemplate, OpenElements) {
    EXPECT_EQ(refusal("a{"), "\"{\" at column 2 of the template is not closed with a }: " +
                                 refusal("{}").substr(refusal("{}").find("allowed")));
    EXPECT_EQ(refusal("a{sys"), "\"{sys\" at column 2 of the template is not closed with a }: nearest is {system-mac}" + BRACE);
    EXPECT_EQ(refusal("{port{slot}"), "\"{port\" at column 1 of the template is not closed with a }: nearest are {port-name}, "
                                      "{port-kind} and {port}" +
                                          BRACE);
    EXPECT_EQ(refusal("{vlan-address:10"),
              "\"{vlan-address:10\" at column 1 of the template is not closed with a }: nearest is {vlan-address:10}" + BRACE);
    EXPECT_EQ(idTemplateOpenElement("a{sys"), "{sys");
    EXPECT_EQ(idTemplateOpenElement("{port}{"), "{");
    EXPECT_EQ(idTemplateOpenElement("{port}{{sys"), "");
    EXPECT_EQ(idTemplateOpenElement("{port}{{{sys"), "{sys");
    EXPECT_EQ(idTemplateOpenElement("{port}"), "");
    EXPECT_EQ(idTemplateOpenElement(""), "");
}

TEST(ShellIdTemplate, VlansOfAnAddress) {
    for (const char *text :
         {"{vlan-address}", "{vlan-address:}", "{vlan-address:0}", "{vlan-address:4095}", "{vlan-address:-1}",
          "{vlan-address: 1}", "{vlan-address:1:2}", "{vlan-address:ten}", "{vlan-address:4294967306}"}) {
        EXPECT_EQ(refusal(text), "\"" + std::string(text) +
                                     "\" at column 1 of the template names no VLAN: it is written like {vlan-address:10}, and "
                                     "allowed are 1 to 4094");
    }
}

TEST(ShellIdTemplate, CharactersThatCannotBeKept) {
    EXPECT_EQ(refusal("{port}\"x"), "the template cannot be kept with the double quote at column 7: allowed are printable "
                                    "characters other than double quotes");
    EXPECT_EQ(refusal(std::string_view("{port}\0", 7)), "the template cannot be kept with \"\\x00\" at column 7: allowed are "
                                                        "printable characters other than double quotes");
}

// ---- properties ----------------------------------------------------------------------------------------------------

Meaning randomMeaning(std::mt19937 *random) {
    const std::vector<std::string> characters = {"a", "/", ":", "{", "}", " ", "\\", "'", "?", "\xc3\xbc", "\xe6\x9d\xb1"};
    const auto literal = [&]() {
        std::string text;
        for (auto count = (*random)() % 4 == 0 ? (*random)() % 70 : (*random)() % 5; count > 0; count--) {
            text += characters[(*random)() % characters.size()];
        }
        return text;
    };
    Meaning meaning = {.literals = {literal()}, .elements = {}};
    for (auto count = (*random)() % 20; count > 0; count--) {
        const auto type = static_cast<uint32_t>(1 + (*random)() % 17);
        meaning.elements.push_back({type, type == 13 ? std::to_string(1 + (*random)() % 4094) : ""});
        meaning.literals.push_back((*random)() % 2 == 0 ? "" : literal());
    }
    return meaning;
}

// What was meant arrives, whole, exactly when the record can hold it.
TEST(ShellIdTemplate, RandomTemplates) {
    std::mt19937 random(18);
    size_t taken = 0;
    size_t refused = 0;
    for (int round = 0; round < 20000; round++) {
        const Meaning meant = randomMeaning(&random);
        const std::string text = textOf(meant);
        const bool fits = !text.empty() && text.size() <= 128 && meant.elements.size() <= 17 &&
                          std::ranges::all_of(meant.literals, [](const std::string &literal) { return literal.size() <= 64; });
        if (fits) {
            EXPECT_EQ(read(text), meant) << text;
            taken++;
        } else {
            EXPECT_NE(refusal(text), "");
            refused++;
        }
    }
    EXPECT_GT(taken, 2000u);
    EXPECT_GT(refused, 2000u);
}

// Any bytes: a record that means the same when it is written out and read again, or a sentence that can be printed.
TEST(ShellIdTemplate, RandomBytes) {
    std::mt19937 random(37);
    size_t taken = 0;
    for (int round = 0; round < 50000; round++) {
        std::string text = round % 2 == 0 ? textOf(randomMeaning(&random)) : std::string(random() % 140, 'x');
        for (auto changes = random() % (round % 4 == 0 ? 3 : 20); changes > 0 && !text.empty(); changes--) {
            const char *const likely = "{}:-\"";
            text[random() % text.size()] = random() % 2 == 0 ? likely[random() % 5] : static_cast<char>(random());
        }
        Dhcp6InfoIdTemplate record = {};
        std::string error;
        idTemplateOpenElement(text);
        if (idTemplateRead(text, &record, &error)) {
            const Meaning meaning = meaningOf(record);
            EXPECT_EQ(field(record.text), text);
            EXPECT_EQ(read(textOf(meaning)), meaning) << text;
            taken++;
        } else {
            EXPECT_FALSE(error.empty());
            EXPECT_TRUE(std::ranges::none_of(error, [](char c) { return c >= 0 && (c < ' ' || c == 0x7f); })) << error;
        }
    }
    EXPECT_GT(taken, 1000u);
}

} // namespace
