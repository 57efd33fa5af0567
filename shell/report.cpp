#include "shell/report.h"

#include <algorithm>
#include <cassert>
#include <nlohmann/json.hpp>

#include "shell/printable.h"
#include "shell/values.h"

namespace {

constexpr size_t COLUMN_GAP = 2; // spaces between columns

struct Line {
    std::vector<std::string> cells; // columns, then sub-columns
};

std::string joined(const std::vector<std::string> &texts) {
    std::string all;
    for (const std::string &text : texts) {
        all += (all.empty() ? "" : ", ") + textPrintable(text);
    }
    return all;
}

bool alignsRight(const Value &value) { return value.kind == ValueKind::number; }

// The lines of the table as people see them: a row and its first sub-row share one.
std::vector<Line> tableLines(const Table &table) {
    std::vector<Line> lines;
    for (const Row &row : table.rows) {
        Line line;
        for (const Value &cell : row.cells) {
            line.cells.push_back(reportValueText(cell));
        }
        if (table.subKey != nullptr && row.subRows.empty()) {
            line.cells.resize(table.columns.size() + table.subColumns.size(), "-");
        }
        for (const std::vector<Value> &subRow : row.subRows) {
            line.cells.resize(table.columns.size());
            for (const Value &cell : subRow) {
                line.cells.push_back(reportValueText(cell));
            }
            lines.push_back(line);
            line.cells.assign(table.columns.size(), "");
        }
        if (row.subRows.empty()) {
            lines.push_back(line);
        }
    }
    return lines;
}

// A column of numbers stands right, so that digits stand under digits.
std::vector<bool> tableRightAligned(const Table &table) {
    std::vector<bool> right(table.columns.size() + table.subColumns.size(), false);
    for (const Row &row : table.rows) {
        for (size_t i = 0; i < row.cells.size(); i++) {
            right[i] = right[i] || alignsRight(row.cells[i]);
        }
        for (const std::vector<Value> &subRow : row.subRows) {
            for (size_t i = 0; i < subRow.size(); i++) {
                right[table.columns.size() + i] = right[table.columns.size() + i] || alignsRight(subRow[i]);
            }
        }
    }
    return right;
}

void appendLine(std::string *out, const Line &line, const std::vector<size_t> &widths, const std::vector<bool> &right) {
    std::string text;
    for (size_t i = 0; i < line.cells.size(); i++) {
        const size_t pad = widths[i] - printableCount(line.cells[i]);
        text.append(i == 0 ? 0 : COLUMN_GAP, ' ');
        text += right[i] ? std::string(pad, ' ') + line.cells[i] : line.cells[i] + std::string(pad, ' ');
    }
    text.erase(text.find_last_not_of(' ') + 1);
    *out += text + '\n';
}

void appendTable(std::string *out, const Table &table) {
    if (table.rows.empty()) {
        *out += std::string(table.emptyText) + '\n';
        return;
    }
    Line heading;
    for (const Column &column : table.columns) {
        heading.cells.emplace_back(column.heading);
    }
    for (const Column &column : table.subColumns) {
        heading.cells.emplace_back(column.heading);
    }
    const std::vector<Line> lines = tableLines(table);
    const std::vector<bool> right = tableRightAligned(table);
    std::vector<size_t> widths(heading.cells.size(), 0);
    for (size_t i = 0; i < widths.size(); i++) {
        widths[i] = heading.cells[i].size();
        for (const Line &line : lines) {
            widths[i] = std::max(widths[i], printableCount(line.cells[i]));
        }
    }
    appendLine(out, heading, widths, right);
    for (const Line &line : lines) {
        appendLine(out, line, widths, right);
    }
}

nlohmann::ordered_json jsonValue(const Value &value) {
    switch (value.kind) {
    case ValueKind::nothing:
    case ValueKind::any: return nullptr;
    case ValueKind::text: return value.text;
    case ValueKind::onOff:
    case ValueKind::yesNo: return value.number != 0;
    case ValueKind::number:
    case ValueKind::duration: return value.number;
    case ValueKind::vlans: return value.list;
    case ValueKind::texts: return value.texts;
    case ValueKind::ports: break;
    }
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const uint32_t port : value.list) {
        list.push_back(textPort(port));
    }
    return list;
}

nlohmann::ordered_json jsonObject(const std::vector<Column> &columns, const std::vector<Value> &cells) {
    nlohmann::ordered_json object = nlohmann::ordered_json::object();
    for (size_t i = 0; i < cells.size(); i++) {
        object[columns[i].key] = jsonValue(cells[i]);
    }
    return object;
}

nlohmann::ordered_json jsonTable(const Table &table) {
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (const Row &row : table.rows) {
        nlohmann::ordered_json object = jsonObject(table.columns, row.cells);
        if (table.subKey != nullptr) {
            nlohmann::ordered_json &list = object[table.subKey] = nlohmann::ordered_json::array();
            for (const std::vector<Value> &subRow : row.subRows) {
                list.push_back(jsonObject(table.subColumns, subRow));
            }
        }
        rows.push_back(object);
    }
    return rows;
}

} // namespace

Value valueNothing() { return {}; }
Value valueAny() { return {.kind = ValueKind::any}; }
Value valueText(std::string_view text) { return {.kind = ValueKind::text, .text = std::string(text)}; }
Value valueNumber(uint64_t number) { return {.kind = ValueKind::number, .number = number}; }
Value valueOnOff(bool on) { return {.kind = ValueKind::onOff, .number = on ? 1u : 0u}; }
Value valueYesNo(bool yes) { return {.kind = ValueKind::yesNo, .number = yes ? 1u : 0u}; }
Value valueDuration(uint64_t seconds) { return {.kind = ValueKind::duration, .number = seconds}; }
Value valuePorts(std::vector<uint32_t> ports) { return {.kind = ValueKind::ports, .list = std::move(ports)}; }
Value valueVlans(std::vector<uint32_t> vlans) { return {.kind = ValueKind::vlans, .list = std::move(vlans)}; }
Value valueTexts(std::vector<std::string> texts) { return {.kind = ValueKind::texts, .texts = std::move(texts)}; }

void reportFact(Report *report, const char *key, const char *label, Value value) {
    report->facts.push_back({key, label, std::move(value)});
}

void reportTable(Report *report, const char *key, const char *emptyText, std::initializer_list<Column> columns) {
    report->table = {.key = key, .emptyText = emptyText, .columns = columns};
}

void reportSubTable(Report *report, const char *key, std::initializer_list<Column> columns) {
    report->table.subKey = key;
    report->table.subColumns = columns;
}

void reportRow(Report *report, std::vector<Value> cells) {
    assert(cells.size() == report->table.columns.size());
    report->table.rows.push_back({.cells = std::move(cells), .subRows = {}});
}

void reportSubRow(Report *report, std::vector<Value> cells) {
    assert(cells.size() == report->table.subColumns.size() && !report->table.rows.empty());
    report->table.rows.back().subRows.push_back(std::move(cells));
}

void reportLines(Report *report, const char *key, std::vector<std::string> lines) {
    report->linesKey = key;
    report->lines = std::move(lines);
}

std::string reportValueText(const Value &value) {
    switch (value.kind) {
    case ValueKind::nothing: return "-";
    case ValueKind::any: return "any";
    case ValueKind::text: return textPrintable(value.text);
    case ValueKind::number: return std::to_string(value.number);
    case ValueKind::onOff: return value.number != 0 ? "on" : "off";
    case ValueKind::yesNo: return value.number != 0 ? "yes" : "no";
    case ValueKind::duration: return textDuration(value.number);
    case ValueKind::ports: return value.list.empty() ? "none" : textPorts(value.list);
    case ValueKind::vlans: return value.list.empty() ? "none" : textVlans(value.list);
    case ValueKind::texts: return value.texts.empty() ? "none" : joined(value.texts);
    }
    return "";
}

std::string reportText(const Report &report) {
    std::string out;
    size_t width = 0;
    for (const Fact &fact : report.facts) {
        width = std::max(width, std::string_view(fact.label).size());
    }
    for (const Fact &fact : report.facts) {
        std::string label = fact.label;
        label.resize(width + COLUMN_GAP, ' ');
        out += label + reportValueText(fact.value) + '\n';
    }
    if (report.table.key != nullptr) {
        out += report.facts.empty() ? "" : "\n";
        appendTable(&out, report.table);
    }
    for (const std::string &line : report.lines) {
        out += textPrintable(line) + '\n';
    }
    return out;
}

std::string reportJson(const Report &report) {
    nlohmann::ordered_json object = nlohmann::ordered_json::object();
    for (const Fact &fact : report.facts) {
        object[fact.key] = jsonValue(fact.value);
    }
    if (report.table.key != nullptr) {
        object[report.table.key] = jsonTable(report.table);
    }
    if (report.linesKey != nullptr) {
        object[report.linesKey] = report.lines;
    }
    // Names come from outside: they need not be UTF-8, and may have characters that steer a terminal.
    return object.dump(2, ' ', true, nlohmann::ordered_json::error_handler_t::replace) + '\n';
}
