#pragma once
// libccd: the SNMP sub-agent. The daemon hands it constant tables that describe its MIB module; the library calls the
// handler of an object for every request on it.

#include <cstddef>
#include <cstdint>

inline constexpr uint32_t CCD_INDEX_MAX = 32;   // arcs of one index
inline constexpr uint32_t CCD_OCTETS_MAX = 255; // bytes of one text value

// Request kinds.
inline constexpr uint32_t CCD_GETNEXT = 1;
inline constexpr uint32_t CCD_GET = 2;
inline constexpr uint32_t CCD_PHASE = 4; // a phase of a set without work for the handler
inline constexpr uint32_t CCD_TEST = 5;
inline constexpr uint32_t CCD_COMMIT = 6;

// The variable of one request. The library fills in the object, the index, and for a set the value; the handler writes the
// value of a get, and for a get-next the index it moved to. One request at a time; nothing of it lives on afterwards.
struct CcdVariable {
    uint32_t object;                    // object number within the module
    uint32_t integer;                   // value of an integer object
    uint32_t length;                    // of the value: 4 for integers, bytes for octets
    uint32_t indexLength;               // arcs in use, at most CCD_INDEX_MAX
    uint32_t index[CCD_INDEX_MAX];      // the instance's arcs; those behind indexLength are 0
    uint8_t octets[CCD_OCTETS_MAX + 1]; // value of a text object, always followed by a 0
};
static_assert(sizeof(CcdVariable) == 16 + 4 * 32 + 256);

typedef int32_t (*CcdHandler)(uint32_t kind, CcdVariable *variable);

// One object. The objects of a group follow one another and end with an all-zero record; the word in front of the first one
// points to the module's name.
struct CcdObjectRecord {
    uint16_t number;    // object number within the module, equal to its place in the registration list
    uint16_t column;    // last arc of the object's OID under its group
    uint32_t maxSize;   // bytes: 4 integer, 6 MAC address, 255 text
    uint32_t low, high; // allowed integer values; high < low or both 0: no range
    uint32_t syntax;    // 1 integer, 2 octet string, 5 MAC address, 13 row status
    uint32_t access;    // 1 read-only, 3 read-write or read-create
    uint64_t flags;     // 0x1, and 0x10 for a table's index column
    CcdHandler handler;
    uint64_t reserved; // 0
    const char *name;  // "module:object"
};
static_assert(sizeof(CcdObjectRecord) == 56);
static_assert(offsetof(CcdObjectRecord, column) == 2);
static_assert(offsetof(CcdObjectRecord, maxSize) == 4);
static_assert(offsetof(CcdObjectRecord, low) == 8);
static_assert(offsetof(CcdObjectRecord, high) == 12);
static_assert(offsetof(CcdObjectRecord, syntax) == 16);
static_assert(offsetof(CcdObjectRecord, access) == 20);
static_assert(offsetof(CcdObjectRecord, flags) == 24);
static_assert(offsetof(CcdObjectRecord, handler) == 32);
static_assert(offsetof(CcdObjectRecord, name) == 48);

// One group: the scalars below one arc, or a table.
struct CcdGroup {
    uint32_t arcs[32];              // OID; the first arc is the library's own and not part of the registered name
    uint32_t reserved0;             // 0
    uint32_t arcCount;              // arcs in use
    uint32_t indexColumns;          // 0 for scalars, 1 for a table
    uint32_t indexLength;           // arcs of the index: 1 for an integer, 6 for a MAC address
    const char *indexName;          // name of the index column, null for scalars
    uint8_t reserved1[64];          // 0
    const CcdObjectRecord *objects; // the group's first object
};
static_assert(sizeof(CcdGroup) == 224);
static_assert(offsetof(CcdGroup, arcCount) == 132);
static_assert(offsetof(CcdGroup, indexColumns) == 136);
static_assert(offsetof(CcdGroup, indexLength) == 140);
static_assert(offsetof(CcdGroup, indexName) == 144);
static_assert(offsetof(CcdGroup, objects) == 216);

// One entry of the registration list; the list ends with a pair of nulls.
struct CcdRegEntry {
    const CcdGroup *group;
    const CcdObjectRecord *object;
};
static_assert(sizeof(CcdRegEntry) == 16);

extern "C" {

// Prepares the sub-agent side; called with 300 and 4. 0 on success.
int32_t ccdInit(uint32_t a, uint32_t b);

// Registers a module; the name and the list must live as long as the module is registered. 0 on success.
int32_t ccdModuleRegister(const char *module, const CcdRegEntry *list);
int32_t ccdModuleDeRegister(const char *module);

// Checks the index of a request on a scalar object. -1 refuses the request, 0 lets it go on.
int32_t ccdScalarValidate(uint32_t kind, CcdVariable *variable);

// Moves a get-next to the scalar's only instance, or to the next integer index. 0 when moved.
int32_t ccdNextScalarIndex(CcdVariable *variable);
int32_t ccdNextSimpleIndex(CcdVariable *variable);

// The answers of a handler that refuses; none is 0.
int32_t ccdErrorNoSuchInstance(void);
int32_t ccdErrorNoNextInstance(void);
int32_t ccdErrorInvalidRange(void);
int32_t ccdErrorInvalidLength(void);
int32_t ccdErrorWrongValue(void);
int32_t ccdErrorTooBig(void);
int32_t ccdErrorCommitFailed(void);
int32_t ccdErrorResourceUnavail(void);
// What a refused scalar request of this kind answers: no next instance, no such instance, or not writable.
int32_t ccdErrorRequestMap(uint32_t kind);

} // extern "C"
