#pragma once
// libcommon: containers, value accessors and texts that the switch's programs share.
//
// Nothing here blocks or keeps a pointer longer than said. Every text is terminated inside the stated bound.

#include <cstddef>
#include <cstdint>

#include "libccd.h"

// ---- Ordered tree --------------------------------------------------------------------------------------------------
//
// A balanced search tree of records that stay where they are. A record starts with an AvlNode; the tree finds the rest of it
// through the caller's comparison. Deleting relinks nodes and never moves a record's contents, so pointers to other records
// stay good. The tree is the caller's; all zeros is an empty tree.

struct AvlNode {
    AvlNode *parent;
    AvlNode *left;
    AvlNode *right;
    int32_t balance;
    int32_t reserved;
};
static_assert(sizeof(AvlNode) == 32);

struct AvlTree {
    AvlNode end;   // the tree's own node: its parent is the root, left and right the first and the last record
    AvlNode *walk; // where a walk may be: the record that avlMinimumGet or avlSuccessorGet found last, or null
};

// Compares a key with a record: negative when the key comes first, 0 when they are equal, positive otherwise.
typedef int32_t (*AvlCompare)(const void *key, const void *node);

// ---- Free list -----------------------------------------------------------------------------------------------------
//
// First in, first out. A record on a list lends it its first 16 bytes, and nothing behind them is touched.

struct LstNode {
    LstNode *next;
    LstNode *previous;
};
static_assert(sizeof(LstNode) == 16);

struct LstList {
    LstNode *first;
    LstNode *last;
    uint32_t count;
    uint32_t reserved;
};
static_assert(sizeof(LstList) == 24);

inline constexpr uint32_t PORT_TEXT_MAX = 64;   // buffer of transPort2EtherPort and transPort2String, bytes
inline constexpr uint32_t PORT_DESC_MAX = 256;  // buffer of transPort2InterfaceDesc, bytes
inline constexpr uint32_t VLAN_TEXT_MAX = 128;  // bytes of one text of vidArray2vlanList
inline constexpr uint32_t VLAN_TEXTS_MAX = 410; // texts of one call of it

extern "C" {

// Puts a record under `key`, which is compared with the other records only: the new record's own contents are not read, and
// all of its AvlNode is written. 0 on success; non-zero when the key is present already, and nothing has changed then.
int32_t avlInsert(AvlTree *tree, void *node, const void *key, AvlCompare compare);
// Takes the record with this key out of the tree and returns it; null when there is none.
void *avlDelete(AvlTree *tree, const void *key, AvlCompare compare);
// The record with this key, or null.
void *avlSearch(AvlTree *tree, const void *key, AvlCompare compare);
// The first record, or null.
void *avlMinimumGet(AvlTree *tree);
// The first record behind `key`, which need not be in the tree; null when there is none.
void *avlSuccessorGet(AvlTree *tree, const void *key, AvlCompare compare);

// Empties a list (its records are not touched).
void lstInit(LstList *list);
// Puts a record at the end.
void lstAdd(LstList *list, void *node);
// Takes the first record; null when the list is empty.
void *lstGet(LstList *list);

// The value of a variable. The integer is 32 bits whatever the manager sent. octetSet copies at most CCD_OCTETS_MAX bytes and
// terminates; octetGet returns the bytes, which stay the variable's, and their number.
uint32_t ulongGet(const CcdVariable *variable);
void ulongSet(CcdVariable *variable, uint32_t value);
const uint8_t *octetGet(const CcdVariable *variable, uint32_t *length);
void octetSet(CcdVariable *variable, const void *bytes, uint32_t length);

// Texts of a port (from 1): "0/3", "interface ethernet 0/3", "0/3". Each returns buf; empty for a port that does not exist.
char *transPort2EtherPort(uint32_t port, char *buf);     // buf: PORT_TEXT_MAX bytes
char *transPort2InterfaceDesc(uint32_t port, char *buf); // buf: PORT_DESC_MAX bytes
char *transPort2String(uint32_t port, char *buf);        // buf: PORT_TEXT_MAX bytes

// A MAC address as six index arcs and back; of each arc the low 8 bits count. Always 0.
int32_t miscMacIndex2OctetString(const uint32_t arcs[6], uint8_t mac[6]);
int32_t miscOctetString2MacIndex(const uint8_t mac[6], uint32_t arcs[6]);

// Reads a list like "1,3-5" into `out`: at most `max` numbers, each from low to high, in the order written, each once, the rest
// of `out` set to 0. A trailing "," is accepted, and an empty text is the empty list. 0 on success. Non-zero when the text is
// not such a list, a number is out of range, or there are more than max; out is all 0 then.
int32_t Str2ShortArray(const char *text, uint16_t *out, uint32_t max, uint32_t low, uint32_t high);

// Writes VLANs as list texts: `vids` is [count, first, ..., last, 0], ascending. Every text has at most `chunk` characters
// (110 at most), and every one but the last ends with ",", so that the texts joined are one list. `zero` is 0.
// Returns the number of texts, at most VLAN_TEXTS_MAX.
uint32_t vidArray2vlanList(const uint16_t *vids, char (*out)[VLAN_TEXT_MAX], uint32_t chunk, uint32_t zero);

// Reads a dotted quad, strictly: four decimal numbers from 0 to 255 without leading zeros and nothing else. 0 and the
// address in host order when valid, non-zero otherwise.
int32_t strtoipAddr(const char *text, uint32_t *address);

// The switch's own MAC address. 0 on success; non-zero leaves zeros.
int32_t getSysMacAdress(uint8_t mac[6]);

// MAC address as "00:1a:2b:3c:4d:5e" into 18 bytes. Returns text.
char *macToStr(const uint8_t mac[6], char *text);

} // extern "C"
