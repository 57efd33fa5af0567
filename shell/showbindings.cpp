// Which sources may pass: what was configured and what was learned, side by side, each with its filter in the kernel.

#include <algorithm>
#include <compare>
#include <map>
#include <set>

#include "l2/dhcp6snooping/sourceguard/filters.h"
#include "shell/actions.h"
#include "shell/bindings.h"
#include "shell/clients.h"
#include "shell/guard.h"
#include "shell/status.h"

namespace {

// Identity of a filter; what its kind does not use is 0.
struct FilterKey {
    uint32_t kind; // IP6_FILTER_*
    uint32_t port;
    uint32_t vlan;
    MacAddress mac;
    Ipv6Address address;
    auto operator<=>(const FilterKey &) const = default;
};

// Everything that the daemon and the kernel have to say. Filters are read last: one that is being taken out meanwhile looks
// missing for a moment, but none that is just being put in does.
struct Sources {
    std::vector<ClientRecord> clients;
    std::vector<Binding> bindings;
    std::set<uint32_t> guarded;         // ports
    std::map<FilterKey, bool> filters;  // wanted; true = in the kernel
    std::set<FilterKey> ownFilters;     // of bindings
    std::set<Ipv6Address> boundAddress; // by bindings
    std::set<MacAddress> boundMac;      // by bindings; the all-zero one is no client's
};

struct SourceLine {
    Binding bound;
    bool learned;
    const char *installed;
};

FilterKey filterOf(const Binding &binding) {
    if (binding.port != 0) {
        return {binding.vlan != 0 ? IP6_FILTER_PORT_VLAN : IP6_FILTER_PORT, binding.port, binding.vlan, binding.mac,
                binding.address};
    }
    return {binding.mac == MacAddress{} ? IP6_FILTER_ADDRESS : IP6_FILTER_MAC_ADDRESS, 0, 0, binding.mac, binding.address};
}

void indexFilters(const std::vector<LinuxFilterStatus> &filters, Sources *sources) {
    for (const LinuxFilterStatus &filter : filters) {
        FilterKey key = {filter.kind, filter.port, filter.vlan, {}, {}};
        std::ranges::copy(filter.mac, key.mac.begin());
        std::ranges::copy(filter.address, key.address.begin());
        sources->filters[key] = filter.installed != 0;
    }
}

void indexBindings(Sources *sources) {
    for (const Binding &binding : sources->bindings) {
        sources->ownFilters.insert(filterOf(binding));
        sources->boundAddress.insert(binding.address);
        sources->boundMac.insert(binding.mac);
    }
}

CallEnd readSources(Session *session, Sources *sources) {
    std::vector<GuardPort> ports;
    std::vector<LinuxFilterStatus> filters;
    CallEnd end = clientAll(&session->connection, &sources->clients, &session->error);
    end = end == CallEnd::done ? bindingAll(&session->connection, &sources->bindings, &session->error) : end;
    end = end == CallEnd::done ? guardPorts(&session->connection, &ports, &session->error) : end;
    end = end == CallEnd::done ? statusFilters(&session->connection, &filters, &session->error) : end;
    for (const GuardPort &port : ports) {
        if (port.guarded) {
            sources->guarded.insert(port.number);
        }
    }
    indexFilters(filters, sources);
    indexBindings(sources);
    return end;
}

bool inKernel(const Sources &sources, const FilterKey &key) {
    const auto found = sources.filters.find(key);
    return found != sources.filters.end() && found->second;
}

const char *stateOfBinding(const Sources &sources, const Binding &binding) {
    const bool wanted = binding.port != 0 ? sources.guarded.contains(binding.port) : !sources.guarded.empty();
    return inKernel(sources, filterOf(binding)) ? "yes" : wanted ? "no" : "not guarded";
}

// A learned address has no filter of its own while a binding covers the address or the MAC. One that a binding of another
// MAC covers keeps the filter it had before.
const char *stateOfLease(const Sources &sources, const Binding &lease) {
    const FilterKey key = filterOf(lease);
    if (inKernel(sources, key) && !sources.ownFilters.contains(key)) {
        return "yes";
    }
    if (!sources.guarded.contains(lease.port)) {
        return "not guarded";
    }
    return sources.boundAddress.contains(lease.address) || sources.boundMac.contains(lease.mac) ? "shadowed" : "no";
}

// By address, what was configured before what was learned.
std::vector<SourceLine> sourceLines(const Sources &sources) {
    std::vector<SourceLine> lines;
    for (const Binding &binding : sources.bindings) {
        lines.push_back({binding, false, stateOfBinding(sources, binding)});
    }
    for (const ClientRecord &client : sources.clients) {
        for (size_t i = 0; i < client.leaseCount; i++) {
            Binding lease = {.address = {}, .mac = client.mac, .port = client.port, .vlan = client.vlan};
            std::ranges::copy(client.leases[i].address, lease.address.begin());
            // Delegated prefixes are no sources of this link.
            if (client.leases[i].prefix_len == 128) {
                lines.push_back({lease, true, stateOfLease(sources, lease)});
            }
        }
    }
    std::ranges::stable_sort(lines, [](const SourceLine &a, const SourceLine &b) {
        return a.bound.address != b.bound.address ? a.bound.address < b.bound.address : a.learned < b.learned;
    });
    return lines;
}

} // namespace

Outcome actionShowBindings(Session *session, const Arguments &) {
    Sources sources;
    const CallEnd end = readSources(session, &sources);
    if (end != CallEnd::done) {
        return actionEnd(session, end, "the daemon refused to list its bindings");
    }
    Report report;
    reportTable(&report, "bindings", "No address is bound, and none has been learned.",
                {{"address", "ADDRESS"},
                 {"mac", "MAC ADDRESS"},
                 {"port", "PORT"},
                 {"vlan", "VLAN"},
                 {"source", "SOURCE"},
                 {"installed", "INSTALLED"}});
    for (const SourceLine &line : sourceLines(sources)) {
        const Binding &bound = line.bound;
        reportRow(&report, {valueText(textIpv6(bound.address, 128)),
                            bound.mac != MacAddress{} ? valueText(textMac(bound.mac)) : valueAny(),
                            bound.port != 0 ? valueText(textPort(bound.port)) : valueAny(),
                            bound.vlan != 0 ? valueNumber(bound.vlan) : valueAny(),
                            valueText(line.learned ? "learned" : "configured"), valueText(line.installed)});
    }
    return actionShow(session, report);
}
