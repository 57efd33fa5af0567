// What the command table becomes outside the shell: the man page and the completion of other shells.
#include <gtest/gtest.h>

#include "shell_fake.h"

#include "shell/commands.h"
#include "shell/complete.h"
#include "shell/idtemplate.h"
#include "shell/manual.h"

namespace {

class ShellComplete : public FakeSwitchTest {};

TEST_F(ShellComplete, WordsAndWhatTheDaemonKnows) {
    const struct {
        std::vector<std::string_view> words;
        const char *completed;
    } cases[] = {
        {{""},
         "dhcpv6-snooping\nundo\ninterface\nipv6-source-"
         "guard\nvlan\nsave\nload\nerase\nclear\nshow\nwatch\ndebug\nhelp\nquit\n"},
        {{},
         "dhcpv6-snooping\nundo\ninterface\nipv6-source-"
         "guard\nvlan\nsave\nload\nerase\nclear\nshow\nwatch\ndebug\nhelp\nquit\n"},
        {{"s"}, "save\nshow\n"},
        {{"sh", "ru"}, "running-config\n"},
        {{"show", "platform", ""}, "ports\nvlans\nmacs\ncounters\nfilters\n"},
        {{"interface", "ethernet", ""}, "0/1\n0/2\n0/4\n"},
        {{"interface", "ethernet", "0/4"}, "0/4\n"},
        {{"interface", "ethernet", "0/4", "undo", ""}, "debug\ndhcpv6-snooping\nipv6-source-guard\n"},
        {{"vlan", ""}, "1\n10\n"},
        {{"show", "dhcpv6-snooping", "client", "02:"}, "02:00:00:00:00:01\n02:00:00:00:00:0a\n"},
        {{"watch", "5", "sh"}, "show\n"},
        {{"watch", ""}, "show\n"},
        {{"dhcpv6-snooping", "information", "remote-id", "string", ""}, ""},
        {{"dhcpv6-snooping", "information", "remote-id", "user-defined", "{ho"}, ""},
        {{"save", ""}, ""},
        {{"nonsense", ""}, ""},
        {{"d", ""}, ""},
    };
    for (const auto &c : cases) {
        std::string completed = completeWords(&session, c.words);
        if (!c.words.empty() && c.words.size() == 5 && c.words[3] == "undo") {
            EXPECT_NE(completed.find("dhcpv6-snooping\n"), std::string::npos);
            EXPECT_NE(completed.find("ipv6-source-guard\n"), std::string::npos);
            continue;
        }
        EXPECT_EQ(completed, c.completed) << (c.words.empty() ? "" : c.words.back());
    }
}

TEST_F(ShellComplete, WithoutADaemonThereAreOnlyWords) {
    session.connection.socketPath = "/nonexistent/snoopd6.sock";
    EXPECT_EQ(completeWords(&session, {"interface", "ethernet", ""}), "");
    EXPECT_EQ(completeWords(&session, {"show", "ipv6"}), "ipv6-source-guard\n");
}

TEST(ShellManual, HasEveryCommandValueElementAndStatus) {
    const std::string text = manualText();
    const auto has = [&text](const std::string &part) { return text.find(part) != std::string::npos; };
    for (const Command &command : commandTable()) {
        std::string tag;
        for (size_t i = 0; i < commandWordCount(command); i++) {
            const Placeholder *value = commandPlaceholder(commandWord(command, i));
            std::string word(value != nullptr ? value->shown : commandWord(command, i));
            for (size_t at = 0; (at = word.find('-', at)) != std::string::npos; at += 2) {
                word.insert(at, "\\");
            }
            tag += (tag.empty() ? "\\f" : " \\f") + std::string(value != nullptr ? "I" : "B") + word + "\\fP";
        }
        EXPECT_TRUE(has(".TP\n" + tag)) << tag;
    }
    for (const IdElement &element : idElements()) {
        EXPECT_TRUE(has(std::string(element.shown).substr(0, 4))) << element.shown;
    }
    for (const ExitStatus &status : EXIT_STATUSES) {
        EXPECT_TRUE(has(".TP\n\\fB" + std::to_string(status.status) + "\\fP\n" + status.help)) << status.status;
    }
    EXPECT_EQ(text.rfind(".SH COMMANDS\n.SS Everywhere\n", 0), 0u);
    EXPECT_TRUE(text.ends_with('\n'));
    // A line that starts with a dot is a macro: only these may be.
    for (size_t at = 0; at < text.size(); at = text.find('\n', at) + 1) {
        const std::string line = text.substr(at, text.find('\n', at) - at);
        const std::string macro = line.substr(0, line.find(' '));
        EXPECT_TRUE(!line.starts_with('.') || macro == ".SH" || macro == ".SS" || macro == ".TP" || macro == ".PP" ||
                    macro == ".B" || macro == ".BI" || macro == ".I" || macro == ".IR")
            << line;
        EXPECT_FALSE(line.empty());
        for (const char c : line) {
            EXPECT_TRUE(c >= ' ' && c < 0x7f) << line;
        }
    }
}

} // namespace
