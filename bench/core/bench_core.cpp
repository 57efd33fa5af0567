// The core alone, in time: one message through the whole packet path, with the tree of the Linux platform and everything else
// of the lean switch, so that neither kernel nor netlink is in the figures.

#include <benchmark/benchmark.h>
#include <cstring>
#include <ctime>

#include "bench/core/load.h"
#include "fuzz/platform/lean.h"
#include "l2/dhcp6snooping/base/lease.h"
#include "l2/dhcp6snooping/clients/aging.h"
#include "l2/dhcp6snooping/clients/table.h"

namespace {

uint32_t clientsOf(const benchmark::State &state) { return static_cast<uint32_t>(state.range(0)); }

void countMessages(benchmark::State &state, uint32_t perIteration) {
    state.SetItemsProcessed(state.iterations() * perIteration);
}

// A SOLICIT of a client that is in the table: found, refreshed, forwarded.
void solicitKnown(benchmark::State &state) {
    const uint32_t clients = clientsOf(state);
    loadBuild(clients, 1);
    loadDeliverAll(LOAD_SOLICIT);
    loadExpectClients(clients);
    uint32_t client = 0;
    for (auto _ : state) {
        loadDeliver(LOAD_SOLICIT, client);
        client = client + 1 < clients ? client + 1 : 0;
    }
    countMessages(state, 1);
}

// The same REPLY again: the stored leases are overwritten.
void replyRenewal(benchmark::State &state) {
    const uint32_t clients = clientsOf(state);
    loadBuild(clients, 1);
    loadDeliverAll(LOAD_SOLICIT);
    loadDeliverAll(LOAD_REPLY);
    loadExpectClients(clients);
    uint32_t client = 0;
    for (auto _ : state) {
        loadDeliver(LOAD_REPLY, client);
        client = client + 1 < clients ? client + 1 : 0;
    }
    countMessages(state, 1);
}

// Of this thread, so that other work on the machine is not measured.
double cpuSeconds() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Three messages of a kind that changes what the next one finds go round: SOLICIT makes the record, REPLY fills it, RELEASE
// deletes it. One of them is on the clock, for all clients in a row; with fewer than 16 the clock itself would be measured.
void lifeCycle(benchmark::State &state, LoadKind measured) {
    const uint32_t clients = clientsOf(state);
    loadBuild(clients, 1);
    for (auto _ : state) {
        for (const LoadKind kind : {LOAD_SOLICIT, LOAD_REPLY, LOAD_RELEASE}) {
            const double begin = cpuSeconds();
            loadDeliverAll(kind);
            const double took = cpuSeconds() - begin;
            loadExpectClients(kind == LOAD_RELEASE ? 0 : clients);
            if (kind == measured)
                state.SetIterationTime(took);
        }
    }
    countMessages(state, clients);
}

void solicitNew(benchmark::State &state) { lifeCycle(state, LOAD_SOLICIT); }
void replyNew(benchmark::State &state) { lifeCycle(state, LOAD_REPLY); }
void release(benchmark::State &state) { lifeCycle(state, LOAD_RELEASE); }

// One pass over 2,048 clients, ten seconds after the last; nothing expires. The argument is the number of leases a client
// has, one of them a prefix.
void agingPass(benchmark::State &state) {
    loadBuild(LOAD_CLIENTS_MAX, clientsOf(state) - 1);
    loadDeliverAll(LOAD_SOLICIT);
    loadDeliverAll(LOAD_REPLY);
    for (auto _ : state) {
        leanSwitch.now += 10;
        dhcp6snooping_timer();
    }
    loadExpectClients(LOAD_CLIENTS_MAX);
    countMessages(state, LOAD_CLIENTS_MAX);
}

// A record that holds so many addresses beside those of the message: one REPLY of 250 addresses that renews them.
void replyToRecord(benchmark::State &state) {
    loadBuild(1, 250);
    loadDeliverAll(LOAD_SOLICIT);
    Dhcp6SnoopingNode *client = dhcp6snooping_first_avlnode();
    for (uint32_t number = 0; number < clientsOf(state); ++number) {
        Dhcp6LeaseAttr lease = {.address = {0xFD},
                                .prefix_len = DHCP6_ADDRESS_PREFIX_LEN,
                                .preferred_lifetime = 3600,
                                .valid_lifetime = 7200,
                                .learned_at = 0,
                                .status = 0};
        memcpy(lease.address + 12, &number, sizeof number);
        dhcp6snooping_attr_array_add(&client->leases, &lease, sizeof lease);
    }
    for (auto _ : state)
        loadDeliver(LOAD_REPLY, 0);
    loadExpectClients(1);
    countMessages(state, 1);
}

BENCHMARK(solicitKnown)->Arg(1)->Arg(128)->Arg(2048);
BENCHMARK(replyRenewal)->Arg(1)->Arg(128)->Arg(2048);
BENCHMARK(replyToRecord)->Arg(1)->Arg(256)->Arg(100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(solicitNew)->Arg(16)->Arg(128)->Arg(2048)->UseManualTime();
BENCHMARK(replyNew)->Arg(16)->Arg(128)->Arg(2048)->UseManualTime();
BENCHMARK(release)->Arg(16)->Arg(128)->Arg(2048)->UseManualTime();
BENCHMARK(agingPass)->Arg(1)->Arg(10)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char **argv) {
    loadBegin();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
