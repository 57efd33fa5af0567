#pragma once
// Requests on the MIB in words, for tests. Every request runs through the handler that the object is registered with, on a
// variable whose unused parts hold garbage: a handler that reads an arc or a byte too many shows.
//
// Every test starts and ends with no bindings, rows or exempt VLANs, an empty scratch row and the policy of a fresh process.

#include "l2/dhcp6snooping/mib/handlers.h"
#include "l2/dhcp6snooping/sourceguard/snmprows.h"
#include "tests/unit/guard.h"

using Index = std::vector<uint32_t>;

struct MibTest : GuardTest {
    void SetUp() override;
    void TearDown() override;
};

inline const Index SCALAR = {0};
Index macIndex(const std::string &mac);

// A variable with nothing but its index, and with a value; `length` instead of a value's own.
CcdVariable variableAt(uint32_t object, const Index &index);
CcdVariable variableOf(uint32_t object, const Index &index, uint32_t value);
CcdVariable variableOf(uint32_t object, const Index &index, const std::string &text);

// What the object's handler answers, unchanged.
int32_t handle(uint32_t kind, CcdVariable *variable);

// "7", "text", "02:00:00:00:00:01" or the name of an error: "no such instance", "no next instance", "invalid range",
// "invalid length", "wrong value", "too big", "commit failed", "resource unavailable", "not writable"; any other answer that is
// not 0 as "result -1". Beside the answer these check what every request owes: a get leaves the index alone, an integer is 4
// bytes long, a text ends with a 0.
std::string mibGet(uint32_t object, const Index &index = SCALAR);
std::string mibNext(uint32_t object, const Index &index = {}); // "3.1 = 7": the instance and its value
// "ok" or the error's name. The variable must come back as it was.
std::string mibTest(uint32_t object, const Index &index, uint32_t value);
std::string mibTest(uint32_t object, const Index &index, const std::string &text);
std::string mibCommit(uint32_t object, const Index &index, uint32_t value);
std::string mibCommit(uint32_t object, const Index &index, const std::string &text);
// A test of an integer whose length is not 4.
std::string mibTestLength(uint32_t object, const Index &index, uint32_t value, uint32_t length);

// All instances behind `from`, in the order of a walk, as mibNext gives them.
Lines mibWalk(uint32_t object, const Index &from = {});

// ---- Rows of the binding table ----

// "4: 2001:db8::1 02:00:00:00:00:01 port 2 vlan 10" for each row in use, by its number from 0.
Lines rows();
bool isClear(const Ip6BindSnmpRow &row);
int32_t addRow(int32_t first, const std::string &address, const std::string &mac = NO_MAC, uint32_t port = 0,
               uint32_t vlan = 0);
// Commits the columns of a row to be made.
void stage(uint32_t index, const std::string &address, const std::string &mac = M1, uint32_t port = 2, uint32_t vlan = 10);
