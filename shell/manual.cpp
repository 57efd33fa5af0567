#include "shell/manual.h"

#include "shell/commands.h"
#include "shell/idtemplate.h"

namespace {

constexpr const char *TERMINAL =
    ".SH AT A TERMINAL\n"
    "The prompt shows where you are: at the top, in a port or in a VLAN.\n"
    ".B quit\n"
    "leads back.\n"
    "A line that enters a port or a VLAN and goes on with a command there is for that command only.\n"
    "Tab completes a word;\n"
    ".B ?\n"
    "tells what may stand next; Ctrl-C drops the line; Ctrl-D leaves.\n"
    ".PP\n"
    "Lines are remembered in\n"
    ".I snoopctl/history\n"
    "in the folder that XDG_STATE_HOME names, by default\n"
    ".IR \\(ti/.local/state .\n"
    ".PP\n"
    ".B watch\n"
    "redraws what it shows until a key is pressed.\n"
    "When its output is no terminal, each run is written behind the last one, under the time.\n"
    "The option\n"
    ".BI \\-n\\~ count\n"
    "ends it after so many runs.\n";

// Text that means nothing to roff.
std::string plain(std::string_view text) {
    std::string out;
    for (const char c : text) {
        out += c == '-' ? "\\-" : c == '\\' ? "\\e" : c == '"' ? "\\(dq" : c == '\'' ? "\\(aq" : std::string(1, c);
    }
    return out.starts_with('.') ? "\\&" + out : out;
}

std::string item(const std::string &tag, std::string_view help) { return ".TP\n" + tag + '\n' + plain(help) + ".\n"; }

std::string formTag(const Command &command) {
    std::string tag;
    for (size_t i = 0; i < commandWordCount(command); i++) {
        const std::string_view word = commandWord(command, i);
        const Placeholder *placeholder = commandPlaceholder(word);
        tag += tag.empty() ? "" : " ";
        tag += placeholder != nullptr ? "\\fI" + plain(placeholder->shown) + "\\fP" : "\\fB" + plain(word) + "\\fP";
    }
    return tag + (command.enters == PLACE_WATCH ? " \\fBshow\\fP ..." : "");
}

// The commands of exactly these places.
std::string commandList(const char *heading, uint32_t places) {
    std::string text = std::string(".SS ") + heading + '\n';
    for (const Command &command : commandTable()) {
        if ((command.places & PLACE_ANY) == places) {
            text += item(formTag(command), command.help);
        }
    }
    return text;
}

std::string valueList() {
    std::string text = ".SH VALUES\n";
    for (const Placeholder &placeholder : commandPlaceholders()) {
        const std::string tag = "\\fI" + plain(placeholder.shown) + "\\fP";
        if (text.find(tag + '\n') == std::string::npos) { // some are written alike
            text += item(tag, placeholder.help);
        }
    }
    return text;
}

std::string elementList() {
    std::string text = ".SH TEMPLATE ELEMENTS\n"
                       "A user\\-defined id is text with these elements in it; {{ is a brace.\n"
                       "An element that has nothing to say on a port is left out, together with the text behind it.\n";
    for (const IdElement &element : idElements()) {
        text += item("\\fB" + plain(element.shown) + "\\fP", element.help);
    }
    return text;
}

std::string statusList() {
    std::string text = ".SH EXIT STATUS\nThat of a file is the status of the first line that failed.\n";
    for (const ExitStatus &status : EXIT_STATUSES) {
        text += item("\\fB" + std::to_string(status.status) + "\\fP", status.help);
    }
    return text;
}

} // namespace

std::string manualText() {
    return ".SH COMMANDS\n" + commandList("Everywhere", PLACE_ANY) + commandList("At the top", PLACE_TOP) +
           commandList("Behind \\(dqinterface ethernet 0/N\\(dq", PLACE_INTERFACE) +
           commandList("Behind \\(dqvlan N\\(dq", PLACE_VLAN) + valueList() + elementList() + TERMINAL + statusList();
}
