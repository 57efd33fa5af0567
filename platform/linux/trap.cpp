#include "platform/linux/trap.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/linux/loglimit.h"
#include "platform/linux/nftset.h"
#include "platform/linux/portnames.h"
#include "platform/linux/ports.h"

namespace {

constexpr const char *TRAP_SET = "trap_if";
constexpr const char *NAME_SET = "trap_name";

// Interfaces that stand for the ports in the bridge, each once, and the names that they may come back under.
struct Interfaces {
    uint32_t count;
    std::array<uint32_t, LINUX_PORTS_MAX> ifindex;
    LinuxPortNames names;
};

bool captured;   // a capture wants the frames for itself
bool redirected; // asked for apart from any capture
Interfaces held; // in the kernel's set

Interfaces wanted() {
    Interfaces found{};
    for (uint32_t p = 0; p < LINUX_PORTS_MAX && linuxTrapHolds(); p++) {
        if (!linuxPortExists(p + 1)) {
            continue;
        }
        linuxPortNamesAdd(&found.names, p);
        uint32_t link = linuxBridgeLink(p);
        uint32_t ifindex = linuxLinks[link == LINUX_NO_LINK ? p : link].ifindex; // held before it enters the bridge
        bool known = ifindex == 0;
        for (uint32_t i = 0; i < found.count; i++) {
            known = known || found.ifindex[i] == ifindex;
        }
        if (!known) {
            found.ifindex[found.count++] = ifindex;
        }
    }
    return found;
}

void queueInterfaces(const Interfaces &interfaces) {
    linuxNftEmpty(TRAP_SET);
    linuxNftEmpty(NAME_SET);
    for (uint32_t i = 0; i < interfaces.count; i++) {
        linuxNftAdd(TRAP_SET, {reinterpret_cast<const uint8_t *>(&interfaces.ifindex[i]), sizeof(uint32_t)});
    }
}

void queueNames(const Interfaces &interfaces) {
    for (const LinuxPortName &name : linuxPortNamesAll(interfaces.names)) {
        linuxNftAdd(NAME_SET, name);
    }
}

// Puts the sets in force, in one step. When the trap is about to hold, the names follow in a second one: messages that pass
// between the sockets' filters and the trap come twice, so the first step is kept short.
int32_t install(const Interfaces &interfaces) {
    const bool first = held.count == 0;
    linuxNftBegin();
    queueInterfaces(interfaces);
    if (!first) {
        queueNames(interfaces);
    }
    int32_t error = linuxNftCommit();
    if (error == 0) {
        held = interfaces;
    }
    if (error == 0 && first) {
        linuxNftBegin();
        queueNames(interfaces);
        error = linuxNftCommit();
        held.names.count = error == 0 ? held.names.count : 0; // written with the next change
    }
    if (error != 0) {
        linuxLogLimited("cannot change the kernel's DHCPv6 trap: %s", strerror(-error));
        return -1;
    }
    return 0;
}

bool same(const Interfaces &a, const Interfaces &b) {
    return a.count == b.count && memcmp(a.ifindex.data(), b.ifindex.data(), a.count * sizeof a.ifindex[0]) == 0 &&
           std::ranges::equal(linuxPortNamesAll(a.names), linuxPortNamesAll(b.names));
}

// Sets one of the two reasons.
int32_t want(bool *reason, bool wantedNow) {
    const bool before = *reason;
    *reason = wantedNow;
    Interfaces interfaces = wanted();
    if (!same(interfaces, held) && install(interfaces) != 0) {
        *reason = before;
        return -1;
    }
    return 0;
}

} // namespace

int32_t linuxTrapHold(bool hold) { return want(&captured, hold); }

int32_t linuxTrapRedirect(bool redirect) { return redirected == redirect && !redirect ? -1 : want(&redirected, redirect); }

bool linuxTrapHolds() { return captured || redirected; }

void linuxTrapSettle() {
    Interfaces interfaces = wanted();
    if (!same(interfaces, held)) {
        static_cast<void>(install(interfaces)); // logged; tried again at the next change
    }
}
