// Delivers a fixed number of messages of one kind and ends: run under an instruction counter with N and with 2N messages, the
// difference is what N messages cost, whatever set-up costs. bench/instructions does that.

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bench/load.h"
#include "fuzz/platform/lean.h"
#include "l2/dhcp6snooping/clients/aging.h"

namespace {

// What has happened to all clients before the messages that count. A kind that changes what the next one finds is delivered
// once per client at most.
struct CountKind {
    const char *name;
    uint32_t prepared; // kinds of the life cycle that went before
    LoadKind kind;
    bool repeatable;
};

constexpr CountKind KINDS[] = {
    {"solicit-new", 0, LOAD_SOLICIT, false}, {"solicit-known", 1, LOAD_SOLICIT, true}, {"reply-new", 1, LOAD_REPLY, false},
    {"reply-renewal", 2, LOAD_REPLY, true},  {"release", 2, LOAD_RELEASE, false},
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
