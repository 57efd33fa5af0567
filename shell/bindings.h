#pragma once
// The source guard's configured bindings as the shell reads them: page by page, newest first.
//
// Pages must go forward by what they hold, so that no peer can keep the shell reading for ever. Positions have 16 bits: of a
// longer list only about the newest BINDINGS_LISTED_MAX are read.

#include <cstdint>
#include <string>
#include <vector>

#include "shell/remotecall.h"
#include "shell/values.h"

inline constexpr uint32_t BINDINGS_LISTED_MAX = 65535;

struct Binding {
    Ipv6Address address;
    MacAddress mac; // all zeros: any
    uint32_t port;  // 0: any
    uint32_t vlan;  // 0: any
};

// What an address is bound to: "MAC 02:00:00:00:00:05, port 0/1, VLAN 10", "any MAC, port 0/1".
std::string bindingText(const Binding &binding);

[[nodiscard]] CallEnd bindingAll(Connection *connection, std::vector<Binding> *bindings, std::string *error);

// CallEnd::refused when the address is not bound.
[[nodiscard]] CallEnd bindingFind(Connection *connection, const Ipv6Address &address, Binding *binding, std::string *error);

[[nodiscard]] CallEnd bindingCount(Connection *connection, uint32_t *count, std::string *error);
