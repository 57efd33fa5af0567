#pragma once
// The source guard in words, for tests: bindings, guarded ports, and the lines that a filter call leaves in the transcript.
// Every test starts and ends without bindings, exempt VLANs or guarded ports, and with the filter count at 0.

#include <initializer_list>

#include "l2/dhcp6snooping/sourceguard/bindings.h"
#include "l2/dhcp6snooping/sourceguard/filters.h"
#include "tests/unit/fixture.h"

struct GuardTest : SnoopingTest {
    void SetUp() override;
    void TearDown() override;
};

inline const std::string M1 = "02:00:00:00:00:01", M2 = "02:00:00:00:00:02", M3 = "02:00:00:00:00:03";
inline const std::string A1 = "2001:db8::1", A2 = "2001:db8::2", A3 = "2001:db8::3", NO_ADDRESS = "::";

Ip6Address ip6(const std::string &text);

// Marks ports as guarded in the table, and only there: no filter call is made.
void guard(std::initializer_list<uint32_t> ports);
void unguard(std::initializer_list<uint32_t> ports);

// Adds a binding and throws its transcript away; the test fails unless it is added.
void addBinding(const std::string &address, const std::string &mac = NO_MAC, uint32_t port = 0, uint32_t vlan = 0);

// "2001:db8::1 02:00:00:00:00:01 port 2 vlan 10", newest first. Links and counter are checked on the way.
Lines bindings();

// The lines of forward filters, one per call; a kind leaves out what it does not know.
Lines installed(uint32_t kind, const std::string &address, const std::string &mac, uint32_t port = 0, uint32_t vlan = 0);
Lines removed(uint32_t kind, const std::string &address, const std::string &mac, uint32_t port = 0, uint32_t vlan = 0);
// The same line of a call that was made to fail.
Lines failing(const Lines &call);
Lines saidInstallFailed(int32_t total);
Lines saidRemoveFailed(int32_t total);

Lines denyInstalled(uint32_t port);
Lines denyRemoved(uint32_t port);
inline const Lines ND_INSTALLED = {"FRM_InstallGlobalForwardIcmp6NdFilterResource"};
inline const Lines ND_REMOVED = {"FRM_RemoveGlobalForwardIcmp6NdFilterResource"};
