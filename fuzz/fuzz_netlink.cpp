// What the kernel tells of interfaces, VLANs and MAC addresses, in any order and shape: the table that is made of it, and the
// answers that the daemon gets from the table. The rest of the platform, which acts on the table, is played here.

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>

#include "fuzz/check.h"
#include "fuzz/netlinkscript.h"
#include "platform/liblacp.h"
#include "platform/libvlan.h"
#include "platform/linux/capture.h"
#include "platform/linux/guard.h"
#include "platform/linux/links.h"
#include "platform/linux/loglimit.h"
#include "platform/linux/loop.h"
#include "platform/linux/maccache.h"
#include "platform/linux/mactable.h"
#include "platform/linux/netlink.h"
#include "platform/linux/ports.h"
#include "platform/linux/send.h"
#include "platform/linux/startupclosed.h"
#include "platform/linux/trap.h"
#include "platform/linux/vlans.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

LinuxSwitchConfig linuxSwitch;

namespace {

// Further things that an input does, behind the kinds of messages.
enum : uint32_t { READ = NETLINK_KINDS, CATCH_UP, LOOK_UP, ACTIONS };

constexpr uint32_t ANSWERS_MAX = 32; // messages of one reply
constexpr uint32_t PORTS[] = {1, 2, 4, 5, 28};
constexpr uint32_t TRUNK_ID_MAX = 65534;

FuzzInput script;                    // the input that is read, also by the kernel's replies
uint32_t toldState[LINUX_PORTS_MAX]; // of each port's link

bool isSet(const uint8_t *bits, uint32_t vlan) { return (bits[vlan / 8] & (0x80u >> (vlan % 8))) != 0; }

bool isBondPlace(uint32_t link) { return link >= LINUX_LINK_BOND0 && link < LINUX_LINK_BRIDGE; }

// ---- What must hold after every change -----------------------------------------------------------------------------

void checkPlaces() {
    for (uint32_t i = 0; i < LINUX_LINKS; i++) {
        const LinuxLink &link = linuxLinks[i];
        fuzzCheck(memchr(link.name, 0, sizeof link.name) != nullptr, "a name ends");
        fuzzCheck(link.ifindex == 0 || linuxLinkByIfindex(link.ifindex) == i, "an index is one interface's");
        fuzzCheck(link.ifindex != 0 || (link.master == 0 && link.running == 0), "what is not there is nowhere");
        if (!isBondPlace(i) && link.ifindex == 0)
            fuzzCheck(strcmp(link.name, i < LINUX_PORTS_MAX ? linuxSwitch.ports[i].interface : linuxSwitch.bridge) == 0,
                      "a place without an interface waits for its own");
        if (!isBondPlace(i))
            continue;
        fuzzCheck(link.ifindex == 0 || link.name[0] != 0, "a bond that is there has a name");
        for (uint32_t other = 0; other < LINUX_LINKS && link.name[0] != 0; other++) {
            fuzzCheck(other == i || strcmp(linuxLinks[other].name, link.name) != 0, "a name is one interface's");
            fuzzCheck(other == i || !isBondPlace(other) || linuxLinks[other].name[0] == 0 ||
                          linuxLinks[other].trunk != link.trunk,
                      "a trunk id is one bond's");
        }
        fuzzCheck(link.name[0] == 0 || link.trunk <= TRUNK_ID_MAX, "a trunk id is in its range");
    }
}

void checkVlans(const LinuxLink &link) {
    for (uint32_t byte = 0; byte < sizeof link.member; byte++)
        fuzzCheck((link.untagged[byte] & ~link.member[byte]) == 0, "who leaves without a tag is a member");
    fuzzCheck(!isSet(link.member, 0) && !isSet(link.member, LINUX_VLAN_MAX + 1), "there are VLANs from 1 to 4094");
    fuzzCheck(link.nativeVlan <= LINUX_VLAN_MAX, "the native VLAN is one");
    fuzzCheck(link.nativeVlan == 0 || isSet(link.member, link.nativeVlan), "the port is a member of its native VLAN");
}

// The answers that are kept, against the table.
void checkList(uint32_t vlan) {
    SmdPortList list;
    SmdPortList sendable;
    const uint32_t from = vlan % LINUX_PORTS_MAX;
    fuzzCheck(VLAN_Api_PortList_Get(vlan, &list, 0) == 0, "every VLAN has a list");
    fuzzCheck(lac_ap_2_ag_hi_hi_excpt_cur(&list, &sendable, from) == 0, "every list can be made sendable");
    bool kept[LINUX_PORTS_MAX] = {};
    for (uint32_t p = 0; p < LINUX_PORTS_MAX; p++) {
        const uint32_t link = linuxBridgeLink(p);
        const bool in = link != LINUX_NO_LINK && linuxLinkSends(link) && linuxVlanForwards(link, vlan);
        fuzzCheck(isSet(list.bits, p) == in, "the list of a VLAN's ports is the table's");
        const uint32_t trunk = linuxPortTrunk(p);
        if (in && trunk == LINUX_NO_TRUNK)
            kept[p] = true;
        else if (in && trunk != linuxPortTrunk(from))
            kept[linuxTrunkLowest(trunk)] = true;
    }
    for (uint32_t p = 0; p < 8 * sizeof sendable.bits; p++)
        fuzzCheck(isSet(sendable.bits, p) == (p < LINUX_PORTS_MAX && kept[p]), "of each trunk the lowest member stays");
}

void checkPort(uint32_t port0) {
    const uint32_t link = linuxBridgeLink(port0);
    const uint32_t trunk = linuxPortTrunk(port0);
    fuzzCheck(link == LINUX_NO_LINK || link == port0 || isBondPlace(link), "a port is in the bridge by itself or by a bond");
    fuzzCheck((trunk != LINUX_NO_TRUNK) == (link != LINUX_NO_LINK && link != port0), "who is in by a bond has a trunk");
    fuzzCheck(lac_channel_get_from_port(port0 + 1) == (trunk == LINUX_NO_TRUNK ? -1 : static_cast<int32_t>(trunk)),
              "a port's trunk is told");
    if (trunk == LINUX_NO_TRUNK)
        return;
    uint32_t lowest = LINUX_PORTS_MAX;
    fuzzCheck(lac_get_channel_ag(static_cast<uint16_t>(trunk), &lowest) == 0 && lowest <= port0, "a trunk has a lowest member");
    fuzzCheck(linuxTrunkLink(trunk) == link, "all members of a trunk are in by the same bond");
}

void checkTable() {
    checkPlaces();
    for (const LinuxLink &link : linuxLinks)
        checkVlans(link);
    for (uint32_t p = 0; p < LINUX_PORTS_MAX; p++)
        checkPort(p);
    for (const uint32_t vlan : {1u, 2u, 10u, 4094u, 4095u})
        checkList(vlan);
}

int32_t onLinkChange(uint32_t port, uint32_t state) {
    fuzzCheck(port >= 1 && port <= linuxSwitch.portMax && linuxLinks[port - 1].running == state, "a change is told as it is");
    fuzzCheck(toldState[port - 1] != state, "a change is one");
    toldState[port - 1] = state;
    return 0;
}

void lookUp() {
    SmdMacQuery query{};
    query.vlan = fuzzU16(&script);
    query.mac[0] = 2;
    query.mac[5] = fuzzU8(&script);
    const uint32_t port0 = fuzzU8(&script) % LINUX_PORTS_MAX;
    if (smdVDMacGet(&query) == 0) {
        fuzzCheck(linuxPortExists(query.port), "a station is behind a port");
        const bool onTrunk = (query.flags & SMD_MAC_ON_TRUNK) != 0;
        fuzzCheck(!onTrunk || linuxTrunkLowest(query.trunk) == query.port - 1, "or behind a trunk's lowest member");
    }
    static_cast<void>(linuxMacIsBehind(port0, query.mac, query.vlan));
}

void readAll() {
    if (linuxLinksRead() != 0)
        return;
    char error[256];
    fuzzCheck(linuxLinksBridgeCheck(error, sizeof error) || std::strlen(error) > 0, "a missing bridge is said");
}

void step() {
    const uint32_t action = fuzzU8(&script) % ACTIONS;
    const uint32_t before = linuxPortsChange;
    static LinuxLink linksBefore[LINUX_LINKS];
    std::memcpy(linksBefore, linuxLinks, sizeof linuxLinks);
    const LinuxBridge bridgeBefore = linuxBridge;
    switch (action) {
    case READ: readAll(); break;
    case CATCH_UP: linuxLinksCatchUp(); break;
    case LOOK_UP: lookUp(); break;
    default: netlinkTell(action, &script, linuxLinksApply, nullptr); break;
    }
    const bool changed = std::memcmp(linksBefore, linuxLinks, sizeof linuxLinks) != 0 ||
                         std::memcmp(&bridgeBefore, &linuxBridge, sizeof linuxBridge) != 0;
    fuzzCheck(!changed || linuxPortsChange != before, "a change of the table is counted");
    checkTable();
    for (uint32_t i = LINUX_LINK_BOND0; i < LINUX_LINK_BRIDGE; i++)
        fuzzCheck((linuxLinks[i].ifindex != 0) == (linuxLinks[i].name[0] != 0), "a place is taken while its bond is there");
}

__attribute__((format(printf, 1, 0))) void checkLine(const char *fmt, va_list args) {
    char line[512];
    const int length = std::vsnprintf(line, sizeof line, fmt, args);
    fuzzCheck(length > 0 && length < static_cast<int>(sizeof line), "a log line has its length");
}

} // namespace

// ---- The rest of the platform --------------------------------------------------------------------------------------

void linuxCaptureSettle() { checkTable(); } // in the middle of a change too the table is one
void linuxSendSettle() {}
void linuxTrapSettle() {}
void linuxGuardSettle() {}
void linuxStartupClosedSettle() {}
void linuxMacCacheForget() {}
void linuxMacCacheKeep(const uint8_t *, uint16_t, LinuxMacPlace) {}
bool linuxMacCacheFind(const uint8_t *, uint16_t, LinuxMacPlace *) { return false; }

void linuxLog(const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    checkLine(fmt, args);
    va_end(args);
}

void linuxLogLimited(const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    checkLine(fmt, args);
    va_end(args);
}

// The kernel's reply: u8 count, so many messages, u8 error.
int32_t linuxNetlinkAsk(LinuxNetlinkQuestion *question, LinuxNetlinkAnswer answer, void *user) {
    static constexpr int32_t ERRORS[] = {0, -EINTR, -ENOBUFS, -EOPNOTSUPP};
    const auto *asked = reinterpret_cast<const nlmsghdr *>(question->bytes);
    fuzzCheck(asked->nlmsg_len <= sizeof question->bytes, "a question fits its room");
    for (uint32_t left = fuzzU8(&script) % ANSWERS_MAX; left > 0 && fuzzMore(&script); left--)
        netlinkTell(fuzzU8(&script), &script, answer, user);
    return ERRORS[fuzzU8(&script) % std::size(ERRORS)];
}

int LLVMFuzzerInitialize(int *, char ***) {
    std::strcpy(linuxSwitch.bridge, NETLINK_BRIDGE);
    for (const uint32_t port : PORTS) {
        linuxSwitch.ports[port - 1].exists = 1;
        std::snprintf(linuxSwitch.ports[port - 1].interface, sizeof linuxSwitch.ports[0].interface, "p%u", port);
    }
    linuxSwitch.portMax = PORTS[std::size(PORTS) - 1];
    linuxSwitch.vlans[0] = 0x40; // VLAN 1
    linuxSwitch.trunks[0] = {.interface = "uplink", .id = 7};
    linuxSwitch.trunks[1] = {.interface = "bond12", .id = TRUNK_ID_MAX};
    linuxPortsInit();
    linuxPortsStart();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    script = {};
    std::memset(linuxLinks, 0, sizeof linuxLinks);
    linuxPortsInit();
    static_cast<void>(linuxLinksRead()); // an empty machine: what the last input left is forgotten
    std::memset(toldState, 0, sizeof toldState);
    linuxPortsOnLinkChange(onLinkChange);
    script = {{data, size}};
    while (fuzzMore(&script))
        step();
    linuxPortsOnLinkChange(nullptr);
    return 0;
}
