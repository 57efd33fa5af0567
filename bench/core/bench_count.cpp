// Delivers a fixed number of messages of one kind and ends: run under an instruction counter with N and with 2N messages, the
// difference is what N messages cost, whatever set-up costs. bench/run does that.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "bench/core/load.h"
#include "fuzz/platform/lean.h"
#include "l2/dhcp6snooping/clients/aging.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/infoopt/policy.h"

namespace {

// What has happened to all clients before the messages that count. A kind that changes what the next one finds is delivered
// once per client at most.
struct CountKind {
    const char *name;
    uint32_t prepared; // kinds of the life cycle that went before
    LoadKind kind;
    bool repeatable;
    void (*configure)(); // null: options 18 and 37 are off
};

void addOption18() { dhcp6_info_option18_enable(1); }

void addBoth() {
    dhcp6_info_option18_enable(1);
    dhcp6_info_option37_enable(1);
}

void addAndRelay() {
    addOption18();
    dhcp6snooping_l2Relay_enable(1);
}

// Host name, port and VLAN, with a character between them.
void addTemplate() {
    static Dhcp6InfoIdTemplate idTemplate = {};
    constexpr uint32_t ELEMENTS[] = {DHCP6_INFO_HOST_NAME, DHCP6_INFO_PORT_NAME, DHCP6_INFO_INNER_VLAN};
    for (uint32_t k = 0; k < std::size(ELEMENTS); k++) {
        idTemplate.elementType[k + 1] = ELEMENTS[k];
        idTemplate.literal[k + 1][0] = '-';
    }
    dhcp6_info_id_set(1, DHCP6_INFO_USER_DEFINED, &idTemplate);
    addOption18();
}

constexpr CountKind KINDS[] = {
    {"solicit-new", 0, LOAD_SOLICIT, false, nullptr},
    {"solicit-known", 1, LOAD_SOLICIT, true, nullptr},
    {"request", 1, LOAD_REQUEST, true, nullptr},
    {"advertise", 1, LOAD_ADVERTISE, true, nullptr},
    {"reply-new", 1, LOAD_REPLY, false, nullptr},
    {"reply-renewal", 2, LOAD_REPLY, true, nullptr},
    {"release", 2, LOAD_RELEASE, false, nullptr},
    {"solicit-18", 1, LOAD_SOLICIT, true, addOption18},
    {"solicit-18-37", 1, LOAD_SOLICIT, true, addBoth},
    {"solicit-template", 1, LOAD_SOLICIT, true, addTemplate},
    {"solicit-relayed", 1, LOAD_SOLICIT, true, addAndRelay},
    {"reply-unwrapped", 2, LOAD_RELAY_REPLY, false, addAndRelay},
};

const CountKind *kindOf(const char *name) {
    for (const CountKind &kind : KINDS)
        if (std::strcmp(kind.name, name) == 0)
            return &kind;
    return nullptr;
}

int usage() {
    std::fprintf(stderr, "usage: bench_count KIND CLIENTS MESSAGES, or bench_count aging LEASES PASSES\nkinds:");
    for (const CountKind &kind : KINDS)
        std::fprintf(stderr, " %s", kind.name);
    std::fprintf(stderr, "\n");
    return 2;
}

int countMessages(const CountKind *kind, uint32_t clients, uint32_t messages) {
    if (clients == 0 || clients > LOAD_CLIENTS_MAX || (!kind->repeatable && messages > clients))
        return usage();
    loadBuild(clients, 1);
    for (uint32_t prepared = 0; prepared < kind->prepared; prepared++)
        loadDeliverAll(static_cast<LoadKind>(prepared));
    if (kind->configure != nullptr)
        kind->configure();
    for (uint32_t i = 0; i < messages; i++)
        loadDeliver(kind->kind, i % clients);
    loadExpectClients(kind->kind == LOAD_RELEASE ? clients - messages : kind->prepared == 0 ? messages : clients);
    return 0;
}

int countAging(uint32_t leases, uint32_t passes) {
    if (leases == 0 || leases > 64)
        return usage();
    loadBuild(LOAD_CLIENTS_MAX, leases - 1);
    loadDeliverAll(LOAD_SOLICIT);
    loadDeliverAll(LOAD_REPLY);
    for (uint32_t i = 0; i < passes; i++) {
        leanSwitch.now += 10;
        dhcp6snooping_timer();
    }
    loadExpectClients(LOAD_CLIENTS_MAX);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 4)
        return usage();
    const auto first = static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10));
    const auto second = static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10));
    loadBegin();
    if (std::strcmp(argv[1], "aging") == 0)
        return countAging(first, second);
    const CountKind *kind = kindOf(argv[1]);
    return kind == nullptr ? usage() : countMessages(kind, first, second);
}
