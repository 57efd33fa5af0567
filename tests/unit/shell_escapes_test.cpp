// Texts with escapes: what they mean, how bytes are written, and the lines that take them.
#include <gtest/gtest.h>
#include <random>

#include "shell_fake.h"

#include "platform/libvos.h"
#include "shell/escapes.h"
#include "shell/idtemplate.h"

namespace {

TEST(ShellEscapes, EachMeansItsByte) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"plain ! # ? {text}", "plain ! # ? {text}"},
        {R"(\\\n\r\t)", "\\\n\r\t"},
        {R"(\x22\x5c\x01\x7f\xff\xFF\xaB)", "\"\\\x01\x7f\xff\xff\xab"},
        {R"(\\n\\x41)", R"(\n\x41)"},
        {"\xc3\xbc\\xc3\\xbc", "\xc3\xbc\xc3\xbc"},
        {R"(\x411)", "A1"},
    };
    for (const auto &[word, bytes] : cases) {
        std::string read = "untouched";
        std::string error;
        EXPECT_TRUE(escapesRead("the string", word, &read, &error)) << word << ": " << error;
        EXPECT_EQ(read, bytes) << word;
    }
}

TEST(ShellEscapes, WhatIsNoneIsNamed) {
    const std::string none = " is not an escape: allowed are \\\\, \\n, \\r, \\t and \\x with two hexadecimal digits";
    const std::pair<std::string, std::string> cases[] = {
        {"\\", "\"\\\" at column 1 of the string" + none},
        {"a\\", "\"\\\" at column 2 of the string" + none},
        {"\xc3\xbc\\q1", "\"\\q\" at column 2 of the string" + none},
        {"\\N", "\"\\N\" at column 1 of the string" + none},
        {"\\x", "\"\\x\" at column 1 of the string" + none},
        {"\\x1", "\"\\x1\" at column 1 of the string" + none},
        {"\\x1g2", "\"\\x1g\" at column 1 of the string" + none},
        {"\\x-1", "\"\\x-1\" at column 1 of the string" + none},
        {"a\\x00b", "\"\\x00\" at column 2 of the string cannot be kept: a text ends at its first NUL"},
        {"a\nb",
         "the string cannot be kept with \"\\x0a\" at column 2: allowed are printable characters other than double quotes"},
        {"a\"b", "the string cannot be kept with the double quote at column 2: allowed are printable characters other than "
                 "double quotes"},
    };
    for (const auto &[word, sentence] : cases) {
        std::string read = "untouched";
        std::string error;
        EXPECT_FALSE(escapesRead("the string", word, &read, &error)) << word;
        EXPECT_EQ(error, sentence);
        EXPECT_EQ(read, "untouched");
    }
}

TEST(ShellEscapes, OnlyWhatMustBeIsEscaped) {
    EXPECT_EQ(escapesWrite("cellar, rack 7 \xc3\xbc '!#?{}"), "cellar, rack 7 \xc3\xbc '!#?{}");
    EXPECT_EQ(escapesWrite("a\\b\"c\r\n\t\x1b\x7f\xff"), R"(a\\b\x22c\r\n\t\x1b\x7f\xff)");
    EXPECT_EQ(escapesWrite("\xc2\x9b\xe2\x80\xae"), R"(\xc2\x9b\xe2\x80\xae)") << "a control character and a direction";
    EXPECT_EQ(escapesWrite(std::string(1, '\0')), R"(\x00)") << "which no text has, and no reader takes";
}

// Any bytes, with those that mean something more often than others.
std::string randomBytes(std::mt19937 *random, size_t longest) {
    constexpr std::string_view meaning = "\\\"\n\r\tx041{}!#? n";
    std::string bytes;
    for (auto left = (*random)() % (longest + 1); left > 0; left--) {
        const auto byte = static_cast<char>(1 + (*random)() % 255);
        bytes += (*random)() % 2 == 0 ? meaning[(*random)() % meaning.size()] : byte;
    }
    return bytes;
}

TEST(ShellEscapes, AnyBytesAreOneWordAndComeBack) {
    std::mt19937 random(20250611);
    for (int round = 0; round < 20000; round++) {
        const std::string bytes = randomBytes(&random, 128);
        const std::string word = escapesWrite(bytes);
        std::string read;
        std::string error;
        ASSERT_TRUE(escapesRead("the string", word, &read, &error)) << word << ": " << error;
        ASSERT_EQ(read, bytes) << word;
        WordEnd end = WordEnd::plain;
        const std::string line = "string \"" + word + "\"";
        ASSERT_EQ(sessionWords(line, &end), (std::vector<std::string_view>{"string", word})) << line;
        ASSERT_EQ(end, WordEnd::quoted) << line;
        ASSERT_EQ(line.find_first_of("\r\n"), std::string::npos);
    }
}

// Words of any kind are read or refused with a printable sentence.
TEST(ShellEscapes, AnyWordHasAnAnswer) {
    std::mt19937 random(7);
    size_t taken = 0;
    for (int round = 0; round < 20000; round++) {
        const std::string word = randomBytes(&random, 12);
        std::string read;
        std::string error;
        const bool good = escapesRead("the string", word, &read, &error);
        taken += good ? 1 : 0;
        ASSERT_EQ(error.empty(), good) << word;
        for (const char c : error) {
            ASSERT_TRUE(static_cast<uint8_t>(c) >= ' ' && c != 0x7f) << word;
        }
    }
    EXPECT_GT(taken, 100u);
}

// ---- the lines ---------------------------------------------------------------------------------------------------------

class ShellEscapedLines : public FakeSwitchTest {
  protected:
    // The value that a line of remote-id sends.
    std::string sent(const std::string &words, bool oneShot = false) {
        const std::string line = "dhcpv6-snooping information remote-id " + words;
        EXPECT_EQ(oneShot ? sessionRunWords(&session, sessionWords(line)) : sessionRun(&session, line), Outcome::done)
            << line << ": " << session.error;
        const Bytes request = fakeRequests(&daemon).back();
        constexpr size_t lengthAt = sizeof(VosMsgHeader) + 8 + 16 + 16;
        const auto start = request.begin() + lengthAt + 8;
        return {start, start + fakeWord(request, lengthAt)};
    }

    void expectUsage(const std::string &words, const std::string &error) {
        const size_t before = fakeRequests(&daemon).size();
        EXPECT_EQ(sessionRun(&session, "dhcpv6-snooping information remote-id " + words), Outcome::usage) << words;
        EXPECT_EQ(session.error, error);
        EXPECT_EQ(fakeRequests(&daemon).size(), before) << "nothing may be sent";
    }
};

TEST_F(ShellEscapedLines, AStringGoesOutAsItsBytes) {
    using namespace std::string_literals;
    EXPECT_EQ(sent(R"(escaped-string "x\x22\nundo ipv6-source-guard vlan 1-4094\n!")"),
              "x\"\nundo ipv6-source-guard vlan 1-4094\n!\0"s);
    EXPECT_EQ(sent(R"(escaped-string a\x20b\xff)"), "a b\xff\0"s);
    EXPECT_EQ(sent(R"(escaped-s a)"), "a\0"s) << "shortened like any word";
    EXPECT_EQ(sent(R"(escaped-string "")"), "\0"s);
    EXPECT_EQ(sent(R"(escaped-string a\n)", true), "a\n\0"s);
    EXPECT_EQ(sent("escaped-string " + std::string(79, 'x')), std::string(79, 'x') + "\0"s);
    std::string most;
    for (int i = 0; i < 79; i++) {
        most += "\\xff";
    }
    EXPECT_EQ(sent("escaped-string \"" + most + "\""), std::string(79, '\xff') + "\0"s);
    expectUsage("escaped-string \"" + most + "x\"",
                "the string \"" + most.substr(0, 256) + "...\" has 80 bytes: allowed are 0 to 79");
    expectUsage(R"(escaped-string "a\qb")", "\"\\q\" at column 2 of the string is not an escape: allowed are \\\\, \\n, \\r, "
                                            "\\t and \\x with two hexadecimal digits");
    expectUsage(R"(escaped-string "say \"hi\"")", "a blank must stand behind the double quote that closes \"say \\\": there "
                                                  "are no double quotes inside a text");
}

// What looks like an escape is none where the command does not say so: daemons print texts as they are.
TEST_F(ShellEscapedLines, OtherTextsHaveNoEscapes) {
    using namespace std::string_literals;
    EXPECT_EQ(sent(R"(string "C:\new\x41\\")"), R"(C:\new\x41\\)" + "\0"s);
    const std::string text = R"({port}\n\x41)";
    EXPECT_EQ(sent("user-defined \"" + text + "\"").substr(0, text.size() + 1), text + "\0"s);
}

TEST_F(ShellEscapedLines, ATemplateIsReadWithoutItsEscapes) {
    const std::string raw = "\"{hostname}\n{{\xff{vlan-address:10}\\";
    const std::string value = sent(R"(escaped-user-defined "\x22{hostname}\n{{\xff{vlan-address:10}\\")");
    Dhcp6InfoIdTemplate expected = {};
    std::string error;
    ASSERT_TRUE(idTemplateReadBytes(raw, &expected, &error)) << error;
    EXPECT_EQ(value, std::string(reinterpret_cast<const char *>(&expected), sizeof expected));
    EXPECT_EQ(std::string(expected.text), raw);
    EXPECT_EQ(std::string(expected.literal[0]), "\"");
    EXPECT_EQ(std::string(expected.literal[1]), "\n{\xff");
    EXPECT_EQ(std::string(expected.literal[2]), "\\");
    EXPECT_EQ(sent("escaped-user-defined \"\""), std::string(sizeof expected, '\0'));
    expectUsage(R"(escaped-user-defined "\t{hostnam}")",
                "\"{hostnam}\" at column 2 of the template is not an element: nearest is {hostname}; a { that shall stand for "
                "itself is written {{");
    std::string most;
    for (int i = 0; i < 129; i++) {
        most += "\\x01";
    }
    expectUsage("escaped-user-defined \"" + most + "\"", "\"\\x01\" at column 129 of the template is too much: the template "
                                                         "has 129 bytes, allowed are 128");
}

TEST_F(ShellEscapedLines, HelpAndCompletionKnowThem) {
    EXPECT_EQ(sessionRun(&session, "dhcpv6-snooping information remote-id escaped-string ?"), Outcome::done);
    EXPECT_EQ(session.output, "  ESCAPED  0 to 79 bytes; \\n is the end of a line, \\r a carriage return, \\t a tab, \\\\ a "
                              "backslash, \\x22 a double quote, \\xHH any other byte\n");
    EXPECT_EQ(sessionHelp(&session, "dhcpv6-snooping information remote-id escaped-user-defined \"\\n{host"), Outcome::done);
    EXPECT_EQ(session.output, "  {hostname}  host name of the switch\n");
}

TEST(ShellTemplates, AreEqualWhenTheDaemonSeesNoDifference) {
    Dhcp6InfoIdTemplate one = {};
    std::string error;
    ASSERT_TRUE(idTemplateReadBytes("a{port}b{vlan-address:10}c", &one, &error)) << error;
    const auto differs = [&one](void (*change)(Dhcp6InfoIdTemplate * record)) {
        Dhcp6InfoIdTemplate other = one;
        change(&other);
        return !idTemplatesEqual(one, other) || !idTemplatesEqual(other, one);
    };
    EXPECT_FALSE(differs([](Dhcp6InfoIdTemplate *) {}));
    EXPECT_TRUE(differs([](Dhcp6InfoIdTemplate *record) { record->text[0] = 'x'; }));
    EXPECT_TRUE(differs([](Dhcp6InfoIdTemplate *record) { record->literal[0][0] = 'x'; }));
    EXPECT_TRUE(differs([](Dhcp6InfoIdTemplate *record) { record->literal[1][0] = 'x'; }));
    EXPECT_TRUE(differs([](Dhcp6InfoIdTemplate *record) { record->literal[2][1] = 'x'; }));
    EXPECT_TRUE(differs([](Dhcp6InfoIdTemplate *record) { record->elementType[1] = DHCP6_INFO_SLOT; }));
    EXPECT_TRUE(differs([](Dhcp6InfoIdTemplate *record) { record->elementType[3] = DHCP6_INFO_SLOT; }));
    EXPECT_TRUE(differs([](Dhcp6InfoIdTemplate *record) { record->elementType[2] = 0; }));
    EXPECT_TRUE(differs([](Dhcp6InfoIdTemplate *record) { record->elementVlan[2][0] = '2'; }));
    EXPECT_FALSE(differs([](Dhcp6InfoIdTemplate *record) { record->elementVlan[1][0] = '2'; })) << "not of a VLAN";
    EXPECT_FALSE(differs([](Dhcp6InfoIdTemplate *record) { record->elementType[0] = 5; })) << "not used";
    EXPECT_FALSE(differs([](Dhcp6InfoIdTemplate *record) { record->literal[3][0] = 'x'; })) << "of no element";
    EXPECT_FALSE(differs([](Dhcp6InfoIdTemplate *record) { record->text[128] = 'x'; })) << "after the NUL";
}

} // namespace
