#pragma once
// A small MIB module, registered out of order, whose handler the tests make as good or as odd as they need it.

#include <algorithm>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "platform/linux/mibtable.h"

using Oid = std::vector<uint32_t>;

// Places in the registration list: two scalars and a table.
enum : uint32_t { NUMBER, TEXT, INDEX, VALUE, MAC, STATUS, OBJECTS };

extern const CcdObjectRecord RECORDS[OBJECTS];
extern const CcdGroup SCALARS, TABLE;
extern const CcdRegEntry LIST[OBJECTS + 1];

// What the handler of every object does, and how often it was asked.
extern std::function<int32_t(uint32_t, CcdVariable *)> behaviour;
extern uint32_t calls;

// Instances 5 and 7.3 of every object; the value of an integer is its object's number.
int32_t behaveWell(uint32_t kind, CcdVariable *variable);

CcdObjectRecord record(uint32_t number, uint16_t column, uint32_t syntax, uint32_t access);
CcdGroup group(const Oid &arcs, const CcdObjectRecord *objects);

Oid oidOf(uint32_t object, const Oid &index);
Oid oidOf(const LinuxMibMsg &message);
Oid indexOf(const CcdVariable &variable);
void moveTo(CcdVariable *variable, const Oid &index);
LinuxMibMsg messageOf(uint32_t operation, const Oid &oid);

// The result of a request that is refused; it has to leave the message as it was.
int32_t refused(LinuxMibMsg message);
int32_t refused(uint32_t operation, const Oid &oid);

class Mib : public testing::Test {
  protected:
    void SetUp() override {
        linuxMibForget();
        ASSERT_EQ(linuxMibRegister(LIST), 0);
        behaviour = behaveWell;
        calls = 0;
    }
    void TearDown() override { linuxMibForget(); }
};
