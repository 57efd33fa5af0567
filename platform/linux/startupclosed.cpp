#include "platform/linux/startupclosed.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <string>

#include "platform/linux/loop.h"
#include "platform/linux/nftset.h"
#include "platform/linux/nfttable.h"
#include "platform/linux/ports.h"

namespace {

constexpr const char *TRUSTED_SET = "startup_trusted";
constexpr const char *BRIDGE_SET = "startup_bridge";
constexpr const char *COUNT_SET = "startup_count";
constexpr uint8_t PACKET_TYPES = 4; // to this host, broadcast, multicast, to another host: one of them is every packet

// The two places are for what only some kernels have: a set of bridges, and the rule that leaves others alone. What is carried
// is what 802.3 LLC/SNAP and a tag can hide. Offsets as in nftrules.cpp.
constexpr const char *RULES = R"nft(
table bridge snoopd6 {
	set startup_trusted { typeof iif; }
	set startup_count { typeof meta pkttype; counter; }
	%s
	chain startup_shut {
		meta pkttype @startup_count drop
		drop
	}
	chain startup_tag_2 {
		@ll,160,16 { 0x86dd, 0x8100, 0x88a8, 0x9100 } goto startup_shut
		@ll,160,16 < 0x0600 @ll,176,16 & 0xfefe == 0xaaaa @ll,224,16 { 0x86dd, 0x8100, 0x88a8, 0x9100 } goto startup_shut
	}
	chain startup_tag_1 {
		@ll,128,16 0x86dd goto startup_shut
		@ll,128,16 { 0x8100, 0x88a8, 0x9100 } goto startup_tag_2
		@ll,128,16 < 0x0600 @ll,144,16 & 0xfefe == 0xaaaa @ll,192,16 { 0x86dd, 0x8100, 0x88a8, 0x9100 } goto startup_shut
	}
	chain startup_failure {
		type filter hook prerouting priority -301; policy accept;
		%s
		iif @startup_trusted accept
		ether type 0x86dd goto startup_shut
		ether type { 0x8100, 0x88a8, 0x9100 } goto startup_tag_1
		ether type < 0x0600 @ll,112,16 & 0xfefe == 0xaaaa @ll,160,16 { 0x86dd, 0x8100, 0x88a8, 0x9100 } goto startup_shut
	}
}
)nft";

constexpr const char *BRIDGE_SET_TEXT = "set startup_bridge { type ifname; }";
constexpr const char *BRIDGE_RULE_TEXT = "meta ibrname != @startup_bridge accept";

constexpr const char *NO_RULES = R"nft(
delete chain bridge snoopd6 startup_failure
delete chain bridge snoopd6 startup_tag_1
delete chain bridge snoopd6 startup_tag_2
delete chain bridge snoopd6 startup_shut
delete set bridge snoopd6 startup_trusted
delete set bridge snoopd6 startup_count
)nft";
constexpr const char *NO_BRIDGE_SET = "delete set bridge snoopd6 startup_bridge\n";

constexpr uint32_t TEXT_MAX = 4096;

using BridgeName = std::array<uint8_t, sizeof(LinuxLink::name)>;
using Indexes = std::array<uint32_t, LINUX_PORTS_MAX>; // by port index, 0 where nothing is open

bool closed;
bool knowsBridge; // the kernel has the set of bridges
uint32_t trustedPorts;
Indexes written;
BridgeName bridgeWritten;

bool isTrusted(uint32_t port0) { return (trustedPorts & (1u << port0)) != 0; }

Indexes indexesNow() {
    Indexes indexes{};
    for (uint32_t port0 = 0; port0 < LINUX_PORTS_MAX; ++port0) {
        const uint32_t link = linuxBridgeLink(port0);
        if (isTrusted(port0) && linuxPortExists(port0 + 1) && link != LINUX_NO_LINK)
            indexes[port0] = linuxLinks[link].ifindex;
    }
    return indexes;
}

BridgeName bridgeNow() {
    BridgeName name{};
    memcpy(name.data(), linuxLinks[LINUX_LINK_BRIDGE].name, name.size());
    return name;
}

bool loadRules(bool withBridge, char *error, uint32_t errorSize) {
    char text[TEXT_MAX];
    snprintf(text, sizeof text, RULES, withBridge ? BRIDGE_SET_TEXT : "", withBridge ? BRIDGE_RULE_TEXT : "");
    knowsBridge = withBridge;
    return linuxNftTableRun(text, error, errorSize);
}

// A bridge that has got another name keeps the element of the old one as well.
int32_t write(const Indexes &indexes, const BridgeName &bridge) {
    linuxNftBegin();
    if (knowsBridge)
        linuxNftAdd(BRIDGE_SET, bridge);
    linuxNftEmpty(TRUSTED_SET);
    for (const uint32_t index : indexes) {
        std::array<uint8_t, sizeof index> key;
        memcpy(key.data(), &index, key.size());
        if (index != 0)
            linuxNftAdd(TRUSTED_SET, key);
    }
    const int32_t error = linuxNftCommit();
    if (error == 0) {
        written = indexes;
        bridgeWritten = bridge;
    }
    return error;
}

int32_t writeCounters() {
    linuxNftBegin();
    for (uint8_t type = 0; type < PACKET_TYPES; ++type)
        linuxNftAdd(COUNT_SET, {&type, 1});
    return linuxNftCommit();
}

} // namespace

bool linuxStartupClose(uint32_t trusted, char *error, uint32_t errorSize) {
    if (closed)
        return true;
    if (!loadRules(true, error, errorSize) && !loadRules(false, error, errorSize))
        return false;
    closed = true; // from here on: what follows opens ports, and counts
    trustedPorts = trusted;
    const int32_t counting = writeCounters();
    const int32_t opening = write(indexesNow(), bridgeNow());
    if (counting != 0 || opening != 0)
        linuxLogError("the closed switch cannot be told its trusted ports, or cannot count: %s",
                      strerror(opening != 0 ? -opening : -counting));
    return true;
}

void linuxStartupUnclose() {
    char error[256];
    if (!closed)
        return;
    closed = false;
    const std::string text = std::string(NO_RULES) + (knowsBridge ? NO_BRIDGE_SET : "");
    if (!linuxNftTableRun(text.c_str(), error, sizeof error))
        linuxLogError("the switch cannot be opened again, restart snoopd6: %s", error);
}

bool linuxStartupIsClosed() { return closed; }

bool linuxStartupShuts(uint32_t port0) { return closed && !isTrusted(port0); }

uint64_t linuxStartupDropped() {
    uint64_t packets = 0;
    for (uint8_t type = 0; closed && type < PACKET_TYPES; ++type) {
        LinuxNftElement element = {};
        if (linuxNftGet(COUNT_SET, {&type, 1}, &element) == 0)
            packets += element.packets;
    }
    return packets;
}

void linuxStartupClosedSettle() {
    if (!closed)
        return;
    const Indexes indexes = indexesNow();
    const BridgeName bridge = bridgeNow();
    if (indexes == written && bridge == bridgeWritten)
        return;
    const int32_t error = write(indexes, bridge);
    if (error != 0)
        linuxLog("the closed switch cannot follow its trusted ports, tried again at the next change: %s", strerror(-error));
}
