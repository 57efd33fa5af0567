#pragma once
// What a `show` command has to say, before anybody decides how it looks: labelled facts, then at most one table,
// or lines of text.
//
// A command fills one report; reportText and reportJson are the only two ways out of it. A fact is therefore in both forms or
// in neither, and under the same condition. People get labels, aligned columns, durations and "on"; programs get keys,
// numbers of seconds and true. A row of the table may have sub-rows (the leases of a client): people see them as lines of
// their own under the same row, programs as a list inside the row's object.
//
// Keys and labels are literals of the program and are kept by pointer.

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

enum class ValueKind : uint32_t {
    nothing, // "-"; null
    any,     // "any"; null
    text,
    number,
    onOff,    // "on" or "off"; true or false
    yesNo,    // "yes" or "no"; true or false
    duration, // "1h59m"; seconds
    ports,    // "0/1-0/3, 0/7", or "none"; list of the single ports
    vlans,    // "1,3-5", or "none"; list of the single VLANs
    texts,    // "eth1, eth2", or "none"; list of them
};

struct Value {
    ValueKind kind = ValueKind::nothing;
    uint64_t number = 0;             // number, duration; 0 or 1 for onOff and yesNo
    std::string text = {};           // text
    std::vector<uint32_t> list = {}; // ports, vlans; ascending
    std::vector<std::string> texts = {};
};

Value valueNothing();
Value valueAny();
Value valueText(std::string_view text);
Value valueNumber(uint64_t number);
Value valueOnOff(bool on);
Value valueYesNo(bool yes);
Value valueDuration(uint64_t seconds);
Value valuePorts(std::vector<uint32_t> ports);
Value valueVlans(std::vector<uint32_t> vlans);
Value valueTexts(std::vector<std::string> texts);

struct Fact {
    const char *key;
    const char *label;
    Value value;
};

struct Column {
    const char *key;
    const char *heading;
};

struct Row {
    std::vector<Value> cells;                // one per column
    std::vector<std::vector<Value>> subRows; // each one per sub-column
};

struct Table {
    const char *key = nullptr;       // null: the report has no table
    const char *emptyText = nullptr; // the sentence in place of an empty table
    std::vector<Column> columns = {};
    const char *subKey = nullptr; // null: no sub-rows
    std::vector<Column> subColumns = {};
    std::vector<Row> rows = {};
};

struct Report {
    std::vector<Fact> facts;
    Table table;
    const char *linesKey = nullptr; // null: the report has no lines
    std::vector<std::string> lines = {};
};

void reportFact(Report *report, const char *key, const char *label, Value value);
void reportTable(Report *report, const char *key, const char *emptyText, std::initializer_list<Column> columns);
void reportSubTable(Report *report, const char *key, std::initializer_list<Column> columns);
void reportRow(Report *report, std::vector<Value> cells);
void reportSubRow(Report *report, std::vector<Value> cells); // of the last row

// Text of others, line by line, behind everything else.
void reportLines(Report *report, const char *key, std::vector<std::string> lines);

// How people read one value; the terminal-safe form of texts.
std::string reportValueText(const Value &value);

std::string reportText(const Report &report);
std::string reportJson(const Report &report); // one object in ASCII, ends with a newline
