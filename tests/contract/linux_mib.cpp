#include "tests/contract/linux_mib.h"

std::function<int32_t(uint32_t, CcdVariable *)> behaviour;
uint32_t calls;

static int32_t answer(uint32_t kind, CcdVariable *variable) {
    calls++;
    return behaviour(kind, variable);
}

CcdObjectRecord record(uint32_t number, uint16_t column, uint32_t syntax, uint32_t access) {
    return {.number = static_cast<uint16_t>(number),
            .column = column,
            .maxSize = 4,
            .low = 1,
            .high = 2,
            .syntax = syntax,
            .access = access,
            .flags = 1,
            .handler = answer,
            .reserved = 0,
            .name = "little:object"};
}

CcdGroup group(const Oid &arcs, const CcdObjectRecord *objects) {
    CcdGroup made = {.arcs = {},
                     .reserved0 = 0,
                     .arcCount = static_cast<uint32_t>(arcs.size()),
                     .indexColumns = 0,
                     .indexLength = 1,
                     .indexName = nullptr,
                     .reserved1 = {},
                     .objects = objects};
    std::copy_n(arcs.begin(), std::min<size_t>(arcs.size(), 32), made.arcs);
    return made;
}

const CcdObjectRecord RECORDS[OBJECTS] = {record(NUMBER, 9, 1, 3), record(TEXT, 1, 2, 3), record(INDEX, 1, 1, 1),
                                          record(VALUE, 2, 1, 3),  record(MAC, 3, 5, 3),  record(STATUS, 6, 13, 3)};
const CcdGroup SCALARS = group({1, 1, 3, 6, 99}, RECORDS);
const CcdGroup TABLE = group({1, 1, 3, 6, 99, 7, 1}, RECORDS + INDEX);
// Out of order; the first stored arc is no part of the name.
const CcdRegEntry LIST[OBJECTS + 1] = {{&TABLE, &RECORDS[MAC]},    {&SCALARS, &RECORDS[NUMBER]}, {&TABLE, &RECORDS[INDEX]},
                                       {&TABLE, &RECORDS[STATUS]}, {&SCALARS, &RECORDS[TEXT]},   {&TABLE, &RECORDS[VALUE]},
                                       {nullptr, nullptr}};

static Oid objectOid(uint32_t object) {
    const Oid oids[OBJECTS] = {{1, 3, 6, 99, 9},       {1, 3, 6, 99, 1},       {1, 3, 6, 99, 7, 1, 1},
                               {1, 3, 6, 99, 7, 1, 2}, {1, 3, 6, 99, 7, 1, 3}, {1, 3, 6, 99, 7, 1, 6}};
    return oids[object];
}

Oid oidOf(uint32_t object, const Oid &index) {
    Oid oid = objectOid(object);
    oid.insert(oid.end(), index.begin(), index.end());
    return oid;
}

LinuxMibMsg messageOf(uint32_t operation, const Oid &oid) {
    LinuxMibMsg message = {};
    message.operation = operation;
    message.oidLength = static_cast<uint32_t>(oid.size());
    std::copy(oid.begin(), oid.end(), message.oid);
    return message;
}

Oid oidOf(const LinuxMibMsg &message) { return {message.oid, message.oid + message.oidLength}; }

Oid indexOf(const CcdVariable &variable) { return {variable.index, variable.index + variable.indexLength}; }

void moveTo(CcdVariable *variable, const Oid &index) {
    variable->indexLength = static_cast<uint32_t>(index.size());
    std::copy(index.begin(), index.end(), variable->index);
}

int32_t behaveWell(uint32_t kind, CcdVariable *variable) {
    const Oid instances[] = {{5}, {7, 3}};
    const Oid asked = indexOf(*variable);
    const auto *found = kind == CCD_GETNEXT ? std::upper_bound(std::begin(instances), std::end(instances), asked)
                                            : std::find(std::begin(instances), std::end(instances), asked);
    if (found == std::end(instances)) {
        return kind == CCD_GETNEXT ? ccdErrorNoNextInstance() : ccdErrorNoSuchInstance();
    }
    moveTo(variable, *found);
    variable->integer = variable->object;
    variable->length = 3;
    memcpy(variable->octets, "abc", 4);
    return 0;
}

int32_t refused(LinuxMibMsg message) {
    const LinuxMibMsg asked = message;
    const int32_t result = linuxMibRequest(&message);
    EXPECT_NE(result, 0);
    EXPECT_EQ(memcmp(&message, &asked, sizeof asked), 0);
    return result;
}

int32_t refused(uint32_t operation, const Oid &oid) { return refused(messageOf(operation, oid)); }
