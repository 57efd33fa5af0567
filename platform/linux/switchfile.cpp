#include "platform/linux/switchfile.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>

#include "platform/linux/loop.h"
#include "platform/linux/protocol.h"
#include "platform/linux/tomltext.h"

// In a release the parser turns what it takes for granted into promises to the compiler. Here each stays a check, and ends the
// start-up like any other wrong file; linuxTomlFault leaves few for it, with a better sentence.
#undef NDEBUG
#define NO_TOML linuxFatal("%s is no TOML that can be read; look for misplaced quotes", linuxSwitchFilePath())
#define TOML_ASSERT(expr) ((expr) ? void() : NO_TOML)
#define TOML_EXCEPTIONS 0
#define TOML_HEADER_ONLY 1
#define TOML_ENABLE_FORMATTERS 0
#include <toml++/impl/preprocessor.h>
#undef TOML_UNREACHABLE
#define TOML_UNREACHABLE NO_TOML
#include <toml++/toml.h>

static constexpr uint32_t ENTERPRISE_DEFAULT = 47119;
static constexpr char TITLE_DEFAULT[] = "DHCPv6 snooping";

LinuxSwitchConfig linuxSwitch;

const char *linuxSwitchFilePath() {
    const char *path = getenv("SNOOPD6_SWITCH");
    return path != nullptr && path[0] != '\0' ? path : "/etc/snoopd6/switch.toml";
}

// ---- Errors --------------------------------------------------------------------------------------------------------

// One reading of one file. Every function that finds something wrong says so here and returns false.
// Line 0 stands for the file as a whole.
struct Reading {
    const char *path;
    LinuxSwitchConfig *config;
    char *error;
    uint32_t errorSize;
};

static bool wrong(const Reading *reading, uint32_t line, const char *fmt, ...) __attribute__((format(printf, 3, 4)));

static bool wrong(const Reading *reading, uint32_t line, const char *fmt, ...) {
    char what[256];
    va_list args;
    va_start(args, fmt);
    vsnprintf(what, sizeof what, fmt, args);
    va_end(args);
    for (char *c = what; *c != '\0'; c++) { // the parser quotes what it stumbled over, line ends included
        if (static_cast<unsigned char>(*c) < 0x20 || *c == 0x7F) {
            *c = ' ';
        }
    }
    char place[16] = "";
    if (line > 0) {
        snprintf(place, sizeof place, "%u:", line);
    }
    snprintf(reading->error, reading->errorSize, "%s:%s %s", reading->path, place, what);
    return false;
}

static uint32_t lineOf(const toml::node &node) { return node.source().begin.line; }

// ---- Single values -------------------------------------------------------------------------------------------------

static bool takeInteger(const Reading *reading, const char *name, const toml::node &node, uint32_t low, uint32_t high,
                        uint32_t *out) {
    const toml::value<int64_t> *value = node.as_integer();
    if (value == nullptr || value->get() < low || value->get() > high) {
        return wrong(reading, lineOf(node), "%s must be a whole number from %u to %u", name, low, high);
    }
    *out = static_cast<uint32_t>(value->get());
    return true;
}

static bool takeSwitch(const Reading *reading, const char *name, const toml::node &node, uint32_t *out) {
    const toml::value<bool> *value = node.as_boolean();
    if (value == nullptr) {
        return wrong(reading, lineOf(node), "%s must be true or false", name);
    }
    *out = value->get() ? 1 : 0;
    return true;
}

// The kernel's rules for the name of an interface.
static bool isInterfaceName(const std::string &text) {
    return !text.empty() && text.size() <= 15 && text != "." && text != ".." &&
           std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 0x7F && c != '/' && c != ':'; });
}

static bool takeInterface(const Reading *reading, const char *name, const toml::node &node, char (*out)[16]) {
    const toml::value<std::string> *value = node.as_string();
    if (value == nullptr || !isInterfaceName(value->get())) {
        return wrong(reading, lineOf(node),
                     "%s must be the name of a network interface: a text of 1 to 15 characters without '/', ':' and blanks",
                     name);
    }
    memset(*out, 0, sizeof *out);
    memcpy(*out, value->get().data(), value->get().size());
    return true;
}

// Control characters are those below a blank, DEL, and U+0080 to U+009F, which UTF-8 writes as C2 80 to C2 9F.
static bool hasControl(const std::string &text) {
    for (size_t i = 0; i < text.size(); i++) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
        if (byte < 0x20 || byte == 0x7F || (byte == 0xC2 && next >= 0x80 && next <= 0x9F)) {
            return true;
        }
    }
    return false;
}

static bool takeTitle(const Reading *reading, const toml::node &node) {
    const toml::value<std::string> *value = node.as_string();
    char(*out)[64] = &reading->config->title;
    if (value == nullptr || value->get().empty() || value->get().size() >= sizeof *out || hasControl(value->get())) {
        return wrong(reading, lineOf(node), "title must be a text of 1 to %zu bytes without control characters",
                     sizeof *out - 1);
    }
    memset(*out, 0, sizeof *out);
    memcpy(*out, value->get().data(), value->get().size());
    return true;
}

static bool takeBridgeNetfilter(const Reading *reading, const toml::node &node) {
    const toml::value<std::string> *value = node.as_string();
    if (value == nullptr || (value->get() != "off" && value->get() != "keep")) {
        return wrong(reading, lineOf(node), "bridge_netfilter must be \"off\" or \"keep\"");
    }
    reading->config->keepBridgeNetfilter = value->get() == "keep" ? 1 : 0;
    return true;
}

static bool takeStartupPolicy(const Reading *reading, const toml::node &node) {
    const toml::value<std::string> *value = node.as_string();
    const auto *word =
        value == nullptr ? std::end(LINUX_STARTUP_POLICIES) : std::ranges::find(LINUX_STARTUP_POLICIES, value->get());
    if (word == std::end(LINUX_STARTUP_POLICIES))
        return wrong(reading, lineOf(node), "on_startup_failure must be \"last-good\", \"closed\" or \"open\"");
    reading->config->onStartupFailure = static_cast<uint32_t>(word - std::begin(LINUX_STARTUP_POLICIES));
    return true;
}

static bool takeVlans(const Reading *reading, const toml::node &node) {
    const toml::array *list = node.as_array();
    if (list == nullptr || list->empty()) {
        return wrong(reading, lineOf(node), "vlans must be a list of one or more VLAN numbers, such as [1, 10]");
    }
    memset(reading->config->vlans, 0, sizeof reading->config->vlans);
    for (const toml::node &entry : *list) {
        uint32_t vlan = 0;
        if (!takeInteger(reading, "a number in vlans", entry, 1, 4094, &vlan)) {
            return false;
        }
        reading->config->vlans[vlan / 8] = static_cast<uint8_t>(reading->config->vlans[vlan / 8] | (0x80u >> (vlan % 8)));
    }
    return true;
}

// ---- xPON ----------------------------------------------------------------------------------------------------------

static bool isAlnum(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

static int hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

static bool readSerial(const std::string &text, uint8_t serial[8]) {
    if (text.size() != 12 || !std::all_of(text.begin(), text.begin() + 4, isAlnum)) {
        return false;
    }
    memcpy(serial, text.data(), 4);
    for (size_t i = 0; i < 4; i++) {
        const int high = hexDigit(text[4 + 2 * i]);
        const int low = hexDigit(text[5 + 2 * i]);
        if (high < 0 || low < 0) {
            return false;
        }
        serial[4 + i] = static_cast<uint8_t>(high << 4 | low);
    }
    return true;
}

static bool takeSerial(const Reading *reading, const toml::node &node, uint8_t serial[8]) {
    const toml::value<std::string> *value = node.as_string();
    if (value == nullptr || !readSerial(value->get(), serial)) {
        return wrong(reading, lineOf(node),
                     "serial must be a text of 4 letters or digits and 8 hexadecimal digits, such as \"ABCD12345678\"");
    }
    return true;
}

static bool takeXpon(const Reading *reading, const toml::node &node, LinuxPortConfig *port) {
    const toml::table *table = node.as_table();
    if (table == nullptr || table->size() != 3 || !table->contains("pon") || !table->contains("onu") ||
        !table->contains("serial")) {
        return wrong(reading, lineOf(node), "xpon must hold pon, onu and serial and nothing else");
    }
    port->xpon = 1;
    return takeInteger(reading, "pon", *table->get("pon"), 0, 255, &port->pon) &&
           takeInteger(reading, "onu", *table->get("onu"), 0, 8191, &port->onu) &&
           takeSerial(reading, *table->get("serial"), port->serial);
}

// ---- Ports ---------------------------------------------------------------------------------------------------------

static bool takePortKey(const Reading *reading, const toml::key &key, const toml::node &node, LinuxPortConfig *port,
                        uint32_t *number) {
    if (key == "number")
        return takeInteger(reading, "number", node, 1, LINUX_PORTS_MAX, number);
    if (key == "interface")
        return takeInterface(reading, "interface", node, &port->interface);
    if (key == "ra_guard")
        return takeSwitch(reading, "ra_guard", node, &port->raGuard);
    if (key == "xpon")
        return takeXpon(reading, node, port);
    return wrong(reading, key.source().begin.line,
                 "unknown key \"%s\" in a port; known are number, interface, ra_guard and xpon",
                 std::string(key.str()).c_str());
}

static bool takePort(const Reading *reading, const toml::table &table) {
    LinuxPortConfig port = {};
    uint32_t number = 0;
    for (const auto &[key, node] : table) {
        if (!takePortKey(reading, key, node, &port, &number)) {
            return false;
        }
    }
    if (number == 0) {
        return wrong(reading, lineOf(table), "number is missing: a port needs one from 1 to %u", LINUX_PORTS_MAX);
    }
    if (port.interface[0] == '\0') {
        return wrong(reading, lineOf(table), "interface is missing: port %u needs the name of its network interface", number);
    }
    if (strcmp(port.interface, reading->config->bridge) == 0) {
        return wrong(reading, lineOf(table), "interface %s is the bridge itself; a port is an interface in it", port.interface);
    }
    if (reading->config->ports[number - 1].exists == 1) {
        return wrong(reading, lineOf(table), "port %u is described twice", number);
    }
    for (uint32_t i = 0; i < LINUX_PORTS_MAX; i++) {
        if (strcmp(reading->config->ports[i].interface, port.interface) == 0) {
            return wrong(reading, lineOf(table), "interface %s is port %u already", port.interface, i + 1);
        }
    }
    port.exists = 1;
    reading->config->ports[number - 1] = port;
    reading->config->portMax = std::max(reading->config->portMax, number);
    return true;
}

// ---- Trunks --------------------------------------------------------------------------------------------------------

static bool takeTrunkKey(const Reading *reading, const toml::key &key, const toml::node &node, LinuxTrunkConfig *trunk,
                         bool *numbered) {
    if (key == "interface") {
        return takeInterface(reading, "interface", node, &trunk->interface);
    }
    if (key == "id") {
        *numbered = true;
        return takeInteger(reading, "id", node, 0, 65534, &trunk->id);
    }
    return wrong(reading, key.source().begin.line, "unknown key \"%s\" in a trunk; known are interface and id",
                 std::string(key.str()).c_str());
}

static bool takeTrunk(const Reading *reading, const toml::table &table) {
    LinuxTrunkConfig trunk = {};
    bool numbered = false;
    for (const auto &[key, node] : table) {
        if (!takeTrunkKey(reading, key, node, &trunk, &numbered)) {
            return false;
        }
    }
    if (trunk.interface[0] == '\0' || !numbered) {
        return wrong(reading, lineOf(table), "a trunk needs interface, the name of its bond, and id, a number from 0 to 65534");
    }
    for (const LinuxPortConfig &port : reading->config->ports) {
        if (strcmp(port.interface, trunk.interface) == 0) {
            return wrong(reading, lineOf(table), "interface %s is a port; the ports of a trunk are the members of its bond",
                         trunk.interface);
        }
    }
    uint32_t count = 0;
    for (; reading->config->trunks[count].interface[0] != '\0'; count++) {
        if (reading->config->trunks[count].id == trunk.id) {
            return wrong(reading, lineOf(table), "trunk id %u is taken by %s", trunk.id,
                         reading->config->trunks[count].interface);
        }
        if (strcmp(reading->config->trunks[count].interface, trunk.interface) == 0) {
            return wrong(reading, lineOf(table), "trunk %s is described twice", trunk.interface);
        }
    }
    if (count == LINUX_PORTS_MAX) {
        return wrong(reading, lineOf(table), "more than %u trunks", LINUX_PORTS_MAX);
    }
    reading->config->trunks[count] = trunk;
    return true;
}

// ---- The file ------------------------------------------------------------------------------------------------------

// One [[name]] after the other; a file may do without.
static bool takeTables(const Reading *reading, const char *name, const toml::node *node,
                       bool (*take)(const Reading *, const toml::table &)) {
    if (node == nullptr) {
        return true;
    }
    const toml::array *list = node->as_array();
    if (list == nullptr || !list->is_homogeneous(toml::node_type::table)) {
        return wrong(reading, lineOf(*node), "%s must be written as [[%s]], once for each", name, name);
    }
    for (const toml::node &entry : *list) {
        if (!take(reading, *entry.as_table())) {
            return false;
        }
    }
    return true;
}

static bool takeTopKey(const Reading *reading, const toml::key &key, const toml::node &node) {
    if (key == "bridge")
        return takeInterface(reading, "bridge", node, &reading->config->bridge);
    if (key == "bridge_netfilter")
        return takeBridgeNetfilter(reading, node);
    if (key == "enterprise")
        return takeInteger(reading, "enterprise", node, 1, UINT32_MAX, &reading->config->enterprise);
    if (key == "on_startup_failure")
        return takeStartupPolicy(reading, node);
    if (key == "title")
        return takeTitle(reading, node);
    if (key == "vlans")
        return takeVlans(reading, node);
    if (key == "port" || key == "trunk")
        return true; // their turn comes when the bridge's name is known
    return wrong(reading, key.source().begin.line,
                 "unknown key \"%s\"; known are bridge, bridge_netfilter, enterprise, on_startup_failure, title, vlans, "
                 "[[port]] and [[trunk]]",
                 std::string(key.str()).c_str());
}

static bool takeFile(const Reading *reading, const toml::table &table) {
    LinuxSwitchConfig *config = reading->config;
    *config = LinuxSwitchConfig{};
    memcpy(config->title, TITLE_DEFAULT, sizeof TITLE_DEFAULT);
    config->enterprise = ENTERPRISE_DEFAULT;
    config->vlans[0] = 0x80u >> 1;
    for (const auto &[key, node] : table) {
        if (!takeTopKey(reading, key, node)) {
            return false;
        }
    }
    if (config->bridge[0] == '\0') {
        return wrong(reading, 1, "bridge is missing: write bridge = \"NAME\" with the name of the kernel bridge");
    }
    if (!takeTables(reading, "port", table.get("port"), takePort) ||
        !takeTables(reading, "trunk", table.get("trunk"), takeTrunk)) {
        return false;
    }
    if (config->portMax == 0) {
        return wrong(reading, 1, "no port is described: write [[port]] with number and interface for each");
    }
    return true;
}

bool linuxSwitchFileRead(const char *path, LinuxSwitchConfig *config, char *error, uint32_t errorSize) {
    const Reading reading = {path, config, error, errorSize};
    std::string text;
    uint32_t line = 0;
    const char *fault = linuxTomlRead(path, &text);
    if (fault != nullptr) {
        return wrong(&reading, 0, "%s", fault);
    }
    fault = linuxTomlFault(text, &line);
    if (fault != nullptr) {
        return wrong(&reading, line, "%s", fault);
    }
    const toml::parse_result result = toml::parse(text);
    if (!result) {
        return wrong(&reading, result.error().source().begin.line, "%s", std::string(result.error().description()).c_str());
    }
    return takeFile(&reading, result.table());
}
