// The command table and the parser over it: every line, abbreviations, wrong words, wrong values, what may come next.
#include <gtest/gtest.h>
#include <set>

#include "shell/interactive.h"
#include "shell/parser.h"

namespace {

struct ReadCase {
    uint32_t place;
    const char *line;
    const char *meant; // forms, joined by " | "; or null
    const char *error; // for null
};

void PrintTo(const ReadCase &c, std::ostream *out) { *out << c.line; }

class ShellParserRead : public testing::TestWithParam<ReadCase> {};

TEST_P(ShellParserRead, Line) {
    const ReadCase &c = GetParam();
    std::vector<ParsedCommand> parsed;
    std::string error;
    const bool good = parserRead(c.place, sessionWords(c.line), &parsed, &error);
    EXPECT_EQ(good, c.meant != nullptr) << error;
    if (good) {
        std::string forms;
        for (const ParsedCommand &command : parsed) {
            forms += (forms.empty() ? "" : " | ") + std::string(command.command->form);
        }
        EXPECT_EQ(forms, c.meant);
    } else {
        EXPECT_EQ(error, c.error);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Understood, ShellParserRead,
    testing::Values(
        ReadCase{PLACE_TOP, "dhcpv6-snooping", "dhcpv6-snooping", nullptr},
        ReadCase{PLACE_TOP, "  dhcpv6-snooping\t ", "dhcpv6-snooping", nullptr},
        ReadCase{PLACE_TOP, "dh", "dhcpv6-snooping", nullptr},
        ReadCase{PLACE_TOP, "un dh port fast", "undo dhcpv6-snooping port-down-action fast-remove", nullptr},
        ReadCase{PLACE_TOP, "undo debug dhcpv6-snooping", "undo debug dhcpv6-snooping", nullptr},
        ReadCase{PLACE_TOP, "in e 0/4", "interface ethernet <port>", nullptr},
        ReadCase{PLACE_TOP, "interface ethernet 0/4 dhcpv6-snooping trust", "interface ethernet <port> | dhcpv6-snooping trust",
                 nullptr},
        ReadCase{PLACE_INTERFACE, "vlan 10 dh max 7", "vlan <vlan> | dhcpv6-snooping max-clients <limit>", nullptr},
        ReadCase{PLACE_INTERFACE, "undo dhcpv6-snooping max-clients", "undo dhcpv6-snooping max-clients", nullptr},
        ReadCase{PLACE_VLAN, "sh dh clients", "show dhcpv6-snooping clients", nullptr},
        ReadCase{PLACE_TOP, "show dhcpv6-snooping client 2:0:0:0:0:1", "show dhcpv6-snooping client <mac>", nullptr},
        ReadCase{PLACE_TOP, "clear dh cl ip 2001:db8::1", "clear dhcpv6-snooping clients ip <ipv6>", nullptr},
        ReadCase{PLACE_TOP, "in e 0/4 ip", "interface ethernet <port> | ipv6-source-guard", nullptr},
        ReadCase{PLACE_INTERFACE, "un ip", "undo ipv6-source-guard", nullptr},
        ReadCase{PLACE_TOP, "ip bind ip 2001:db8::1 mac 2:0:0:0:0:1", "ipv6-source-guard bind ip <source> mac <mac>", nullptr},
        ReadCase{PLACE_TOP, "un ip b a", "undo ipv6-source-guard bind all", nullptr},
        ReadCase{PLACE_TOP, "undo ipv6-source-guard vlan 1,3-5,", "undo ipv6-source-guard vlan <vlans>", nullptr},
        ReadCase{PLACE_TOP, "dh inf op 18", "dhcpv6-snooping information option 18", nullptr},
        ReadCase{PLACE_TOP, "un dh inf int", "undo dhcpv6-snooping information interface-id", nullptr},
        ReadCase{PLACE_TOP, "dh inf rem st \"two words\"", "dhcpv6-snooping information remote-id string <string>", nullptr},
        ReadCase{PLACE_TOP, "help", "help", nullptr}, ReadCase{PLACE_TOP, "help show dhcp whatever", "help <words>", nullptr},
        ReadCase{PLACE_TOP, "un a", "undo all", nullptr}, ReadCase{PLACE_VLAN, "sa", "save", nullptr},
        ReadCase{PLACE_TOP, "save \"my file\"", "save <file>", nullptr},
        ReadCase{PLACE_TOP, "l x.conf", "load <file>", nullptr}, ReadCase{PLACE_VLAN, "sh run", "show running-config", nullptr},
        ReadCase{PLACE_TOP, "w sh dh clients", "watch | show dhcpv6-snooping clients", nullptr},
        ReadCase{PLACE_VLAN, "watch 5 show dh client 2:0:0:0:0:1", "watch <seconds> | show dhcpv6-snooping client <mac>",
                 nullptr},
        ReadCase{PLACE_VLAN, "q", "quit", nullptr}));

INSTANTIATE_TEST_SUITE_P(
    NotUnderstood, ShellParserRead,
    testing::Values(
        ReadCase{PLACE_TOP, "d", nullptr, "\"d\" is ambiguous: it may mean dhcpv6-snooping or debug"},
        ReadCase{PLACE_TOP, "show dhcpv6-snooping cl", nullptr,
                 "\"cl\" is ambiguous behind \"show dhcpv6-snooping\": it may mean clients or client"},
        ReadCase{PLACE_TOP, "show platform p v", nullptr,
                 "nothing may stand behind \"show platform ports\", but there is \"v\""},
        ReadCase{PLACE_TOP, "sh d x", nullptr,
                 "\"x\" is not known behind \"show dhcpv6-snooping\": allowed are clients, client, interfaces, vlans and "
                 "information"},
        ReadCase{PLACE_TOP, "clear dhcpv6-snooping x", nullptr,
                 "\"x\" is not known behind \"clear dhcpv6-snooping\": allowed is clients"},
        ReadCase{PLACE_TOP, "clear \"\"", nullptr,
                 "\"\" is not known behind \"clear\": allowed are dhcpv6-snooping and startup-failure"},
        ReadCase{PLACE_TOP, "dhcpv6-snooping information remote-id string two words", nullptr,
                 "nothing may stand behind \"dhcpv6-snooping information remote-id string two\", but there is \"words\": a "
                 "text with blanks is put in double quotes"},
        ReadCase{PLACE_VLAN, "dhcpv6-snooping information remote-id string \"two words\"", nullptr,
                 "\"dhcpv6-snooping information remote-id string \"two words\"\" belongs to the top: say \"quit\" first"},
        ReadCase{PLACE_TOP, "watch", nullptr, "the line is not complete: \"watch\" wants 1-3600 or show behind it"},
        ReadCase{PLACE_TOP, "watch 5", nullptr, "the line is not complete: \"watch 5\" wants show behind it"},
        ReadCase{PLACE_TOP, "watch 0 show platform", nullptr, "\"0\" is not a number of seconds: allowed are 1 to 3600"},
        ReadCase{PLACE_TOP, "watch 5 clear", nullptr, "\"clear\" is not known here: allowed is show"},
        ReadCase{PLACE_TOP, "watch watch show", nullptr, "\"watch\" is not a number of seconds: allowed are 1 to 3600"},
        ReadCase{PLACE_TOP, "load", nullptr, "the line is not complete: \"load\" wants FILE behind it"},
        ReadCase{PLACE_TOP, "save a b", nullptr,
                 "nothing may stand behind \"save a\", but there is \"b\": a text with blanks is put in double quotes"},
        ReadCase{PLACE_VLAN, "undo all", nullptr, "\"undo all\" belongs to the top: say \"quit\" first"},
        ReadCase{PLACE_TOP, "clear", nullptr,
                 "the line is not complete: \"clear\" wants dhcpv6-snooping or startup-failure behind it"},
        ReadCase{PLACE_TOP, "interface ethernet", nullptr,
                 "the line is not complete: \"interface ethernet\" wants 0/N behind it"},
        ReadCase{PLACE_TOP, "interface ethernet 4", nullptr, "\"4\" is not a port: allowed are 0/1 to 0/28"},
        ReadCase{PLACE_TOP, "vlan 4095", nullptr, "\"4095\" is not a VLAN: allowed are 1 to 4094"},
        ReadCase{PLACE_VLAN, "dhcpv6-snooping max-clients 2049", nullptr,
                 "\"2049\" is not a number of clients: allowed are 0 to 2048"},
        ReadCase{PLACE_TOP, "dhcpv6-snooping trust", nullptr,
                 "\"dhcpv6-snooping trust\" belongs to a port: say \"interface ethernet 0/N\" first"},
        ReadCase{PLACE_TOP, "dhcpv6-snooping max-clients 5", nullptr,
                 "\"dhcpv6-snooping max-clients 5\" belongs to a port: say \"interface ethernet 0/N\" first, or to a VLAN: "
                 "say \"vlan N\" first"},
        ReadCase{PLACE_VLAN, "dhcpv6-snooping", nullptr, "\"dhcpv6-snooping\" belongs to the top: say \"quit\" first"},
        ReadCase{
            PLACE_TOP, "DHCPV6-SNOOPING", nullptr,
            "\"DHCPV6-SNOOPING\" is not known here: allowed are dhcpv6-snooping, undo, interface, ipv6-source-guard, vlan, "
            "save, load, erase, clear, show, watch, debug, help and quit"}));

TEST(ShellParser, ValuesArriveWhereTheyBelong) {
    std::vector<ParsedCommand> parsed;
    std::string error;
    ASSERT_TRUE(parserRead(PLACE_TOP, sessionWords("vlan 10 undo dhcpv6-snooping max-clients"), &parsed, &error));
    ASSERT_EQ(parsed.size(), 2u);
    EXPECT_EQ(parsed[0].arguments.vlan, 10u);
    EXPECT_FALSE(parsed[0].arguments.undo);
    EXPECT_TRUE(parsed[1].arguments.undo);
    ASSERT_TRUE(parserRead(PLACE_INTERFACE, sessionWords("dhcpv6-snooping max-clients 9"), &parsed, &error));
    EXPECT_EQ(parsed[0].arguments.limit, 9u);
    ASSERT_TRUE(parserRead(PLACE_TOP, sessionWords("help show  platform"), &parsed, &error));
    EXPECT_EQ(parsed[0].arguments.words, "show platform");
}

TEST(ShellParser, CommentsAndEmptyLinesHaveNoWords) {
    EXPECT_TRUE(sessionWords("").empty());
    EXPECT_TRUE(sessionWords(" \t\r\n").empty());
    EXPECT_TRUE(sessionWords("!!!DHCPv6 snooping\r\n").empty());
    EXPECT_TRUE(sessionWords("  # interface ethernet 0/1").empty());
    EXPECT_EQ(sessionWords("help !").size(), 2u);
}

TEST(ShellParser, QuotesHoldWordsTogether) {
    using Words = std::vector<std::string_view>;
    const struct {
        const char *line;
        Words words;
        WordEnd end;
    } cases[] = {
        {"a b", {"a", "b"}, WordEnd::plain},
        {"a \"b  c\" d", {"a", "b  c", "d"}, WordEnd::plain},
        {"a \"b\\n\\\"\t", {"a", "b\\n\\"}, WordEnd::quoted},
        {"\" ! \"", {" ! "}, WordEnd::quoted},
        {"a \"\"", {"a", ""}, WordEnd::quoted},
        {"a \"b c", {"a", "b c"}, WordEnd::open},
        {"a \"", {"a", ""}, WordEnd::open},
        {"a \"b\"c d", {"a", "b"}, WordEnd::glued},
        {"a \"b\"\"c\"", {"a", "b"}, WordEnd::glued},
        {"a b\"c d\"", {"a", "b\"c", "d\""}, WordEnd::plain},
        {"! \"", {}, WordEnd::plain},
    };
    for (const auto &c : cases) {
        WordEnd end = WordEnd::open;
        EXPECT_EQ(sessionWords(c.line, &end), c.words) << c.line;
        EXPECT_EQ(end, c.end) << c.line;
    }
}

// Words of every form, values replaced by good ones.
std::vector<std::string> goodWords(const Command &command) {
    std::vector<std::string> words;
    for (size_t i = 0; i < commandWordCount(command); i++) {
        const std::string word(commandWord(command, i));
        words.push_back(word == "<port>"      ? "0/28"
                        : word == "<vlan>"    ? "4094"
                        : word == "<vlans>"   ? "1,3-5,4094,"
                        : word == "<limit>"   ? "2048"
                        : word == "<mac>"     ? "02:00:00:00:00:01"
                        : word == "<ipv6>"    ? "2001:db8::1"
                        : word == "<source>"  ? "2001:db8::1"
                        : word == "<id-ipv4>" ? "10.0.0.1"
                        : word == "<id-ipv6>" ? "2001:db8::1"
                        : word == "<seconds>" ? "5"
                                              : word);
    }
    if (command.enters == PLACE_WATCH) {
        words.insert(words.end(), {"show", "platform"});
    }
    return words;
}

TEST(ShellParser, EveryCommandIsFoundInItsPlacesOnly) {
    std::set<std::pair<uint32_t, std::string>> seen;
    for (const Command &command : commandTable()) {
        EXPECT_FALSE(std::string_view(command.help).empty());
        const std::vector<std::string> words = goodWords(command);
        const std::vector<std::string_view> views(words.begin(), words.end());
        for (const uint32_t place : {PLACE_TOP, PLACE_INTERFACE, PLACE_VLAN}) {
            std::vector<ParsedCommand> parsed;
            std::string error;
            const bool found = parserRead(place, views, &parsed, &error);
            if ((command.places & place) != 0) {
                ASSERT_TRUE(found) << command.form << ": " << error;
                EXPECT_EQ(command.enters == PLACE_WATCH ? parsed.front().command : parsed.back().command, &command);
                EXPECT_TRUE(seen.insert({place, command.form}).second) << command.form << " is there twice";
            } else if (found) {
                EXPECT_STREQ(parsed.back().command->form, command.form) << "found as something else";
            }
        }
    }
}

// Every prefix of every line leads somewhere: help never leaves a user alone.
TEST(ShellParser, EveryWordHasHelp) {
    for (const Command &command : commandTable()) {
        const std::vector<std::string> words = goodWords(command);
        const std::vector<std::string_view> views(words.begin(), words.end());
        const uint32_t place = (command.places & PLACE_TOP) != 0 ? PLACE_TOP : command.places;
        for (size_t count = 0; count <= views.size(); count++) {
            std::vector<Choice> choices;
            std::string error;
            ASSERT_TRUE(parserChoices(place, std::span(views).first(count), "", &choices, &error)) << error;
            EXPECT_FALSE(choices.empty()) << command.form;
            for (const Choice &choice : choices) {
                EXPECT_FALSE(choice.help.empty()) << choice.word << " in " << command.form;
            }
        }
    }
}

TEST(ShellParser, ChoicesBehindAPlaceAreThatPlaces) {
    std::vector<Choice> choices;
    std::string error;
    ASSERT_TRUE(parserChoices(PLACE_TOP, sessionWords("interface ethernet 0/4 dhcpv6-snooping"), "", &choices, &error));
    ASSERT_EQ(choices.size(), 2u);
    EXPECT_EQ(choices[0].word, "trust");
    EXPECT_EQ(choices[1].word, "max-clients");
    ASSERT_TRUE(parserChoices(PLACE_TOP, sessionWords("show dhcpv6-snooping"), "", &choices, &error));
    ASSERT_EQ(choices.size(), 6u);
    EXPECT_EQ(choices[0].word, PARSER_ENTER);
    ASSERT_TRUE(parserChoices(PLACE_TOP, sessionWords("show dhcpv6-snooping"), "cl", &choices, &error));
    ASSERT_EQ(choices.size(), 2u);
    EXPECT_FALSE(parserChoices(PLACE_TOP, sessionWords("show nothing"), "", &choices, &error));
}

TEST(ShellParser, LinesThatMeanToEnterAPlace) {
    EXPECT_TRUE(parserMeansToEnter(PLACE_TOP, sessionWords("interface ethernet 0/99")));
    EXPECT_TRUE(parserMeansToEnter(PLACE_TOP, sessionWords("vlan")));
    EXPECT_TRUE(parserMeansToEnter(PLACE_INTERFACE, sessionWords("vl 5000")));
    EXPECT_FALSE(parserMeansToEnter(PLACE_TOP, sessionWords("vlan 10 dhcpv6-snooping max-clients 1")));
    EXPECT_FALSE(parserMeansToEnter(PLACE_TOP, sessionWords("show platform")));
    EXPECT_FALSE(parserMeansToEnter(PLACE_TOP, sessionWords("")));
}

TEST(ShellCompletion, AddsWhatIsCertain) {
    Session session;
    EXPECT_EQ(interactiveCompletion(session, "sh"), "ow ");
    EXPECT_EQ(interactiveCompletion(session, "show"), " ");
    EXPECT_EQ(interactiveCompletion(session, "show "), "");
    EXPECT_EQ(interactiveCompletion(session, "d"), "");
    EXPECT_EQ(interactiveCompletion(session, "show dhcpv6-snooping c"), "lient");
    EXPECT_EQ(interactiveCompletion(session, "show dhcpv6-snooping clients"), " ");
    EXPECT_EQ(interactiveCompletion(session, "clear d"), "hcpv6-snooping ");
    EXPECT_EQ(interactiveCompletion(session, "clear "), "");
    EXPECT_EQ(interactiveCompletion(session, "vlan "), "");
    EXPECT_EQ(interactiveCompletion(session, "vlan 10 dh"), "cpv6-snooping ");
    EXPECT_EQ(interactiveCompletion(session, "nonsense "), "");
    EXPECT_EQ(interactiveCompletion(session, "zz"), "");
    session.place = {.kind = PLACE_INTERFACE, .number = 1};
    EXPECT_EQ(interactiveCompletion(session, "dh"), "cpv6-snooping ");
    EXPECT_EQ(interactiveCompletion(session, "dhcpv6-snooping t"), "rust ");
}

TEST(ShellCompletion, ElementsOfATemplate) {
    Session session;
    const std::string line = "dh inf int user ";
    EXPECT_EQ(interactiveCompletion(session, line), "");
    EXPECT_EQ(interactiveCompletion(session, line + "{"), "");
    EXPECT_EQ(interactiveCompletion(session, line + "{ho"), "stname}");
    EXPECT_EQ(interactiveCompletion(session, line + "\"two {ho"), "stname}");
    EXPECT_EQ(interactiveCompletion(session, line + "\"{port}/{po"), "");
    EXPECT_EQ(interactiveCompletion(session, line + "\"{port}/{port-n"), "ame}");
    EXPECT_EQ(interactiveCompletion(session, line + "{in"), "ner-vlan}");
    EXPECT_EQ(interactiveCompletion(session, line + "{sl"), "ot}");
    EXPECT_EQ(interactiveCompletion(session, line + "{vl"), "an-address:");
    EXPECT_EQ(interactiveCompletion(session, line + "{vlan-address:1"), "");
    EXPECT_EQ(interactiveCompletion(session, line + "{{ho"), "") << "no element";
    EXPECT_EQ(interactiveCompletion(session, line + "{zz"), "");
    EXPECT_EQ(interactiveCompletion(session, line + "\"{port}\""), "");
    EXPECT_EQ(interactiveCompletion(session, line + "\"{port}\"{ho"), "");
    EXPECT_EQ(interactiveCompletion(session, "dh inf int string \"{ho"), "");
    EXPECT_EQ(interactiveCompletion(session, "dh inf int escaped-u \"\\n{ho"), "stname}");
    EXPECT_EQ(interactiveCompletion(session, "dh inf int escaped-string \"\\n{ho"), "");
    EXPECT_EQ(interactiveCompletion(session, "dh inf int e"), "scaped-");
    EXPECT_EQ(interactiveCompletion(session, "\"sh"), "ow ") << "a quoted word is a word";
}

TEST(ShellCompletion, AQuestionMarkInsideQuotesIsText) {
    EXPECT_TRUE(interactiveTakesQuestionMark("dh inf rem string \"really"));
    EXPECT_TRUE(interactiveTakesQuestionMark("dh inf rem string \""));
    EXPECT_TRUE(interactiveTakesQuestionMark("dh inf rem user \"{port}{{ho"));
    EXPECT_FALSE(interactiveTakesQuestionMark("dh inf rem user \"{port}{ho"));
    EXPECT_FALSE(interactiveTakesQuestionMark("dh inf rem string \"really\""));
    EXPECT_FALSE(interactiveTakesQuestionMark("dh inf rem string really"));
    EXPECT_FALSE(interactiveTakesQuestionMark(""));
}

} // namespace
