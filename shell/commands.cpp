#include "shell/commands.h"

#include <algorithm>
#include <array>

#include "shell/actions.h"
#include "shell/idtemplate.h"

namespace {

constexpr uint32_t PLACE_SHOW = PLACE_ANY | PLACE_WATCH; // where a `show` may stand

constexpr std::array COMMANDS = {
    Command{PLACE_TOP, 0, "dhcpv6-snooping", "turn DHCPv6 snooping on", actionSnooping},
    Command{PLACE_TOP, 0, "undo dhcpv6-snooping", "turn DHCPv6 snooping off", actionSnooping},
    Command{PLACE_TOP, 0, "dhcpv6-snooping port-down-action fast-remove",
            "remove a port's clients as soon as its link goes down (default)", actionFastRemove},
    Command{PLACE_TOP, 0, "undo dhcpv6-snooping port-down-action fast-remove",
            "keep a port's clients when its link goes down, until their leases end", actionFastRemove},
    Command{PLACE_TOP, 0, "dhcpv6-snooping l2-relay", "be a layer 2 relay agent: speak relay messages with the servers",
            actionL2Relay},
    Command{PLACE_TOP, 0, "undo dhcpv6-snooping l2-relay", "pass messages on without relay headers (default)", actionL2Relay},
    Command{PLACE_TOP, 0, "dhcpv6-snooping information option 18", "add option 18, Interface-Id, to clients' messages",
            actionOption18},
    Command{PLACE_TOP, 0, "undo dhcpv6-snooping information option 18", "do not add option 18 (default)", actionOption18},
    Command{PLACE_TOP, 0, "dhcpv6-snooping information option 37", "add option 37, Remote-Id, to clients' messages",
            actionOption37},
    Command{PLACE_TOP, 0, "undo dhcpv6-snooping information option 37", "do not add option 37 (default)", actionOption37},
    Command{PLACE_TOP, 0, "dhcpv6-snooping information interface-id ipv4-address <id-ipv4>",
            "option 18 holds this IPv4 address, as 4 bytes", actionInterfaceId},
    Command{PLACE_TOP, 0, "dhcpv6-snooping information interface-id ipv6-address <id-ipv6>",
            "option 18 holds this IPv6 address, as 16 bytes", actionInterfaceId},
    Command{PLACE_TOP, 0, "dhcpv6-snooping information interface-id string <string>", "option 18 holds this text",
            actionInterfaceId},
    Command{PLACE_TOP, 0, "dhcpv6-snooping information interface-id user-defined <template>",
            "option 18 holds a text that is made for each message", actionInterfaceId},
    Command{PLACE_TOP, 0, "dhcpv6-snooping information interface-id escaped-string <escaped>",
            "option 18 holds this text, written with escapes", actionInterfaceId},
    Command{PLACE_TOP, 0, "dhcpv6-snooping information interface-id escaped-user-defined <escaped-template>",
            "option 18 holds a text that is made for each message, written with escapes", actionInterfaceId},
    Command{PLACE_TOP, 0, "undo dhcpv6-snooping information interface-id",
            "option 18 holds port number and host name (default)", actionInterfaceId},
    Command{PLACE_TOP, 0, "dhcpv6-snooping information remote-id ipv4-address <id-ipv4>",
            "option 37 holds this IPv4 address, as 4 bytes", actionRemoteId},
    Command{PLACE_TOP, 0, "dhcpv6-snooping information remote-id ipv6-address <id-ipv6>",
            "option 37 holds this IPv6 address, as 16 bytes", actionRemoteId},
    Command{PLACE_TOP, 0, "dhcpv6-snooping information remote-id string <string>", "option 37 holds this text", actionRemoteId},
    Command{PLACE_TOP, 0, "dhcpv6-snooping information remote-id user-defined <template>",
            "option 37 holds a text that is made for each message", actionRemoteId},
    Command{PLACE_TOP, 0, "dhcpv6-snooping information remote-id escaped-string <escaped>",
            "option 37 holds this text, written with escapes", actionRemoteId},
    Command{PLACE_TOP, 0, "dhcpv6-snooping information remote-id escaped-user-defined <escaped-template>",
            "option 37 holds a text that is made for each message, written with escapes", actionRemoteId},
    Command{PLACE_TOP, 0, "undo dhcpv6-snooping information remote-id", "option 37 holds port number and host name (default)",
            actionRemoteId},
    Command{PLACE_ANY, PLACE_INTERFACE, "interface ethernet <port>", "configure a port", actionEnterInterface},
    Command{PLACE_INTERFACE, 0, "dhcpv6-snooping trust", "servers live behind this port: trust their messages", actionTrust},
    Command{PLACE_INTERFACE, 0, "undo dhcpv6-snooping trust", "clients live behind this port (default)", actionTrust},
    Command{PLACE_INTERFACE, 0, "dhcpv6-snooping max-clients <limit>", "the most clients that this port may have",
            actionPortLimit},
    Command{PLACE_INTERFACE, 0, "undo dhcpv6-snooping max-clients", "back to the default of 2048 clients", actionPortLimit},
    Command{PLACE_INTERFACE, 0, "ipv6-source-guard", "let only bound IPv6 sources in through this port", actionGuard},
    Command{PLACE_INTERFACE, 0, "undo ipv6-source-guard", "let every IPv6 source in through this port (default)", actionGuard},
    Command{PLACE_TOP, 0, "ipv6-source-guard bind ip <source>", "an address that may pass everywhere", actionBind},
    Command{PLACE_TOP, 0, "ipv6-source-guard bind ip <source> mac <mac>", "an address that may pass with this MAC address",
            actionBind},
    Command{PLACE_TOP, 0, "ipv6-source-guard bind ip <source> mac <mac> interface ethernet <port>",
            "an address that may pass with this MAC address on this port", actionBind},
    Command{PLACE_TOP, 0, "ipv6-source-guard bind ip <source> mac <mac> interface ethernet <port> vlan <vlan>",
            "an address that may pass with this MAC address on this port in this VLAN", actionBind},
    Command{PLACE_TOP, 0, "ipv6-source-guard bind ip <source> mac <mac> vlan <vlan>",
            "an address that may pass with this MAC address in every VLAN: a VLAN counts only together with a port",
            actionBind},
    Command{PLACE_TOP, 0, "ipv6-source-guard bind ip <source> interface ethernet <port>",
            "an address that may pass on this port, with any MAC address", actionBind},
    Command{PLACE_TOP, 0, "ipv6-source-guard bind ip <source> interface ethernet <port> vlan <vlan>",
            "an address that may pass on this port in this VLAN, with any MAC address", actionBind},
    Command{PLACE_TOP, 0, "ipv6-source-guard bind ip <source> vlan <vlan>",
            "an address that may pass everywhere: a VLAN counts only together with a port", actionBind},
    Command{PLACE_TOP, 0, "undo ipv6-source-guard bind ip <ipv6>", "the address may no longer pass", actionUnbind},
    Command{PLACE_TOP, 0, "undo ipv6-source-guard bind all", "no configured address may pass any longer", actionUnbindAll},
    Command{PLACE_TOP, 0, "undo ipv6-source-guard vlan <vlans>", "let these VLANs through whole, whatever the source",
            actionExempt},
    Command{PLACE_TOP, 0, "ipv6-source-guard vlan <vlans>", "guard these VLANs (default)", actionExempt},
    Command{PLACE_ANY, PLACE_VLAN, "vlan <vlan>", "configure a VLAN", actionEnterVlan},
    Command{PLACE_VLAN, 0, "dhcpv6-snooping max-clients <limit>", "the most clients that this VLAN may have", actionVlanLimit},
    Command{PLACE_VLAN, 0, "undo dhcpv6-snooping max-clients", "back to the default of 2048 clients", actionVlanLimit},
    Command{PLACE_TOP, 0, "undo all",
            "take every setting back to its default and forget all bindings; asks first when it is typed into the shell",
            actionUndoAll},
    Command{PLACE_ANY, 0, "save", "have the daemon keep the running configuration for its next start", actionSave},
    Command{PLACE_ANY, 0, "save <file>", "write the running configuration to a file, never through a symbolic link",
            actionSave},
    Command{PLACE_ANY, 0, "load <file>", "run the lines of a file; those that fail are named, the others run", actionLoad},
    Command{
        PLACE_ANY, 0, "erase startup",
        "remove the saved configuration and the last good one, so that the next start of the daemon begins with nothing; asks "
        "first when it is typed into the shell",
        actionEraseStartup},
    Command{PLACE_ANY, 0, "clear dhcpv6-snooping clients all", "forget every client", actionClearAll},
    Command{PLACE_ANY, 0, "clear dhcpv6-snooping clients interface ethernet <port>", "forget the clients of a port",
            actionClearPort},
    Command{PLACE_ANY, 0, "clear dhcpv6-snooping clients vlan <vlan>", "forget the clients of a VLAN", actionClearVlan},
    Command{PLACE_ANY, 0, "clear dhcpv6-snooping clients mac <mac>", "forget one client", actionClearMac},
    Command{PLACE_ANY, 0, "clear dhcpv6-snooping clients ip <ipv6>", "forget one address or prefix", actionClearAddress},
    Command{PLACE_ANY, 0, "clear startup-failure",
            "open the switch that a failure of the startup file has closed (on_startup_failure of the switch file)",
            actionClearStartupFailure},
    Command{PLACE_SHOW, 0, "show dhcpv6-snooping", "what is switched on", actionShowSnooping},
    Command{PLACE_SHOW, 0, "show dhcpv6-snooping clients", "every client with its addresses, prefixes and remaining time",
            actionShowClients},
    Command{PLACE_SHOW, 0, "show dhcpv6-snooping client <mac>", "one client", actionShowClient},
    Command{PLACE_SHOW, 0, "show dhcpv6-snooping interfaces", "trust, limit and clients of every port", actionShowInterfaces},
    Command{PLACE_SHOW, 0, "show dhcpv6-snooping vlans", "limit and clients of every VLAN", actionShowVlans},
    Command{PLACE_SHOW, 0, "show dhcpv6-snooping information", "what options 18 and 37 carry, and whether they are added",
            actionShowInformation},
    Command{PLACE_SHOW, 0, "show ipv6-source-guard", "guarded ports, bindings and exempt VLANs", actionShowGuard},
    Command{PLACE_SHOW, 0, "show ipv6-source-guard interfaces", "guard and blocked packets of every port",
            actionShowGuardInterfaces},
    Command{PLACE_SHOW, 0, "show ipv6-source-guard bindings",
            "configured and learned addresses, and whether the kernel has them", actionShowBindings},
    Command{PLACE_SHOW, 0, "show ipv6-source-guard vlans", "the VLANs that are let through whole", actionShowGuardVlans},
    Command{PLACE_SHOW, 0, "show platform", "the daemon and the bridge that it runs", actionShowPlatform},
    Command{PLACE_SHOW, 0, "show platform ports", "interface, link and state of every port", actionShowPlatformPorts},
    Command{PLACE_SHOW, 0, "show platform vlans", "which ports are in which VLAN", actionShowPlatformVlans},
    Command{PLACE_SHOW, 0, "show platform macs", "which MAC address was seen behind which port", actionShowPlatformMacs},
    Command{PLACE_SHOW, 0, "show platform counters", "frames taken, sent and dropped on every port",
            actionShowPlatformCounters},
    Command{PLACE_SHOW, 0, "show platform filters", "the sources that shall pass, and whether the kernel has them",
            actionShowPlatformFilters},
    Command{PLACE_SHOW, 0, "show running-config", "the lines that make the daemon what it is now", actionShowRunning},
    Command{PLACE_ANY, PLACE_WATCH, "watch", "run a show every 2 seconds, until a key is pressed", actionWatch},
    Command{PLACE_ANY, PLACE_WATCH, "watch <seconds>", "run a show that often, until a key is pressed", actionWatch},
    Command{PLACE_ANY, 0, "debug dhcpv6-snooping", "log a line for every message and every client", actionDebug},
    Command{PLACE_ANY, 0, "undo debug dhcpv6-snooping", "stop those lines", actionDebug},
    Command{PLACE_ANY, 0, "help", "list the commands that may stand here", actionHelp},
    Command{PLACE_ANY, 0, "help <words>", "list the commands that start with these words", actionHelp},
    Command{PLACE_ANY, 0, "quit", "leave the port or VLAN; at the top, leave the shell", actionQuit},
};

struct WordHelp {
    std::string_view word;
    std::string_view help;
};

constexpr std::array WORD_HELP = {
    WordHelp{"undo", "take a setting back"},
    WordHelp{"dhcpv6-snooping", "DHCPv6 snooping"},
    WordHelp{"information", "options 18 and 37 in messages to the servers"},
    WordHelp{"option", "which of the two is added"},
    WordHelp{"interface-id", "what option 18 carries"},
    WordHelp{"remote-id", "what option 37 carries"},
    WordHelp{"ipv6-source-guard", "IPv6 source guard"},
    WordHelp{"bind", "source addresses that may pass"},
    WordHelp{"ip", "the address"},
    WordHelp{"mac", "its MAC address"},
    WordHelp{"interface", "its port"},
    WordHelp{"ethernet", "an Ethernet port"},
    WordHelp{"clear", "forget what was learned"},
    WordHelp{"clients", "the clients that were learned"},
    WordHelp{"erase", "remove what was saved"},
    WordHelp{"save", "keep the running configuration"},
    WordHelp{"show", "look at something"},
    WordHelp{"watch", "look at something again and again, until a key is pressed"},
    WordHelp{"platform", "the switch itself"},
    WordHelp{"help", "list commands"},
};

bool readPort(std::string_view word, Arguments *arguments, std::string *error) {
    return valueReadPort(word, &arguments->port, error);
}

bool readVlan(std::string_view word, Arguments *arguments, std::string *error) {
    return valueReadVlan(word, &arguments->vlan, error);
}

bool readVlans(std::string_view word, Arguments *arguments, std::string *error) {
    return valueReadVlans(word, &arguments->vlans, error);
}

bool readLimit(std::string_view word, Arguments *arguments, std::string *error) {
    return valueReadLimit(word, &arguments->limit, error);
}

bool readMac(std::string_view word, Arguments *arguments, std::string *error) {
    return valueReadMac(word, &arguments->mac, error);
}

bool readIpv6(std::string_view word, Arguments *arguments, std::string *error) {
    return valueReadIpv6(word, &arguments->address, error);
}

bool readSource(std::string_view word, Arguments *arguments, std::string *error) {
    return valueReadSource(word, &arguments->address, error);
}

bool readIdIpv4(std::string_view word, Arguments *arguments, std::string *error) {
    return informationReadIpv4(word, &arguments->id, error);
}

bool readIdIpv6(std::string_view word, Arguments *arguments, std::string *error) {
    return informationReadIpv6(word, &arguments->id, error);
}

bool readString(std::string_view word, Arguments *arguments, std::string *error) {
    return informationReadString(word, &arguments->id, error);
}

bool readTemplate(std::string_view word, Arguments *arguments, std::string *error) {
    return informationReadTemplate(word, &arguments->id, error);
}

bool readEscapedString(std::string_view word, Arguments *arguments, std::string *error) {
    return informationReadEscapedString(word, &arguments->id, error);
}

bool readEscapedTemplate(std::string_view word, Arguments *arguments, std::string *error) {
    return informationReadEscapedTemplate(word, &arguments->id, error);
}

// Inside an element, those that start so; elsewhere all of them, to be read.
void listElements(const Placeholder &placeholder, std::string_view partial, std::vector<Choice> *choices) {
    const std::string_view open = idTemplateOpenElement(partial);
    if (open.empty()) {
        choices->push_back({placeholder.shown, placeholder.help, ChoiceKind::value});
    }
    for (const IdElement &element : idElements()) {
        const std::string_view shown = element.shown;
        const size_t fixed = std::min(shown.find(':'), shown.size() - 1) + 1; // what is the same for every VLAN
        if (open.empty() || (open.size() >= fixed && open.starts_with(shown.substr(0, fixed)))) {
            choices->push_back({shown, element.help, ChoiceKind::value});
        } else if (shown.substr(0, fixed).starts_with(open)) {
            choices->push_back({shown.substr(0, fixed), element.help, ChoiceKind::part});
        }
    }
}

bool readSeconds(std::string_view word, Arguments *arguments, std::string *error) {
    return valueReadSeconds(word, &arguments->seconds, error);
}

bool readFile(std::string_view word, Arguments *arguments, std::string *error) {
    if (word.empty() || word.find('\0') != std::string_view::npos) {
        *error = textQuoted(word) + " is not the name of a file";
        return false;
    }
    arguments->file = word;
    return true;
}

bool readWord(std::string_view word, Arguments *arguments, std::string *) {
    arguments->words += arguments->words.empty() ? "" : " ";
    arguments->words += word;
    return true;
}

constexpr const char *BLANKS_HINT = ": a text with blanks is put in double quotes";

constexpr const char *ESCAPES_HELP =
    "0 to 79 bytes; \\n is the end of a line, \\r a carriage return, \\t a tab, \\\\ a backslash, \\x22 a double quote, "
    "\\xHH any other byte";

constexpr std::array PLACEHOLDERS = {
    Placeholder{"<port>", "0/N", "a port, 0/1 to 0/28", readPort, nullptr, ""},
    Placeholder{"<vlan>", "1-4094", "a VLAN", readVlan, nullptr, ""},
    Placeholder{"<vlans>", "1,3-5", "one or more VLANs", readVlans, nullptr, ""},
    Placeholder{"<limit>", "0-2048", "a number of clients", readLimit, nullptr, ""},
    Placeholder{"<mac>", "MAC", "a MAC address, like 02:00:5e:10:00:01", readMac, nullptr, ""},
    Placeholder{"<ipv6>", "IPV6", "an IPv6 address, like 2001:db8::1", readIpv6, nullptr, ""},
    Placeholder{"<source>", "SOURCE", "an IPv6 address that packets may come from: not ::, ::1, multicast or IPv4-mapped",
                readSource, nullptr, ""},
    Placeholder{"<id-ipv4>", "IPV4", "an IPv4 address, like 10.0.0.1", readIdIpv4, nullptr, ""},
    Placeholder{"<id-ipv6>", "IPV6", "an IPv6 address, like 2001:db8::1", readIdIpv6, nullptr, ""},
    Placeholder{"<string>", "TEXT", "1 to 79 bytes, in double quotes when there are blanks", readString, nullptr, BLANKS_HINT},
    Placeholder{"<template>", "TEMPLATE", "text with elements like {hostname} in it, in double quotes when there are blanks",
                readTemplate, listElements, BLANKS_HINT},
    Placeholder{"<escaped>", "ESCAPED", ESCAPES_HELP, readEscapedString, nullptr, BLANKS_HINT},
    Placeholder{"<escaped-template>", "ESCAPED-TEMPLATE", "a TEMPLATE in which \\ starts an escape as in ESCAPED",
                readEscapedTemplate, listElements, BLANKS_HINT},
    Placeholder{"<seconds>", "1-3600", "seconds from one look to the next", readSeconds, nullptr, ""},
    Placeholder{"<file>", "FILE", "a file, in double quotes when there are blanks in its name", readFile, nullptr, BLANKS_HINT},
    Placeholder{COMMAND_REST.data(), "WORDS", "the first words of a command", readWord, nullptr, ""},
};

} // namespace

std::span<const Command> commandTable() { return COMMANDS; }

size_t commandWordCount(const Command &command) {
    const std::string_view form = command.form;
    size_t count = 1;
    for (const char c : form) {
        count += c == ' ' ? 1 : 0;
    }
    return count;
}

bool commandUsesRules(const Command &command) {
    constexpr std::array ACTIONS = {actionSnooping, actionGuard, actionBind, actionUnbind, actionUnbindAll, actionExempt};
    return std::ranges::find(ACTIONS, command.run) != ACTIONS.end();
}

std::string_view commandWord(const Command &command, size_t index) {
    std::string_view form = command.form;
    for (size_t i = 0; i < index; i++) {
        form.remove_prefix(form.find(' ') + 1);
    }
    return form.substr(0, form.find(' '));
}

std::string_view commandWordHelp(std::string_view word) {
    for (const WordHelp &entry : WORD_HELP) {
        if (entry.word == word) {
            return entry.help;
        }
    }
    return "";
}

std::span<const Placeholder> commandPlaceholders() { return PLACEHOLDERS; }

const Placeholder *commandPlaceholder(std::string_view word) {
    for (const Placeholder &placeholder : PLACEHOLDERS) {
        if (word == placeholder.word) {
            return &placeholder;
        }
    }
    return nullptr;
}
