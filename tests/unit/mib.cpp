#include "tests/unit/mib.h"

#include <algorithm>
#include <cstring>

#include "l2/dhcp6snooping/mib/objects.h"
#include "tests/unit/infoopt.h"

namespace {

constexpr uint32_t SYNTAX_TEXT = 2, SYNTAX_MAC = 5;
constexpr uint32_t STALE_ARC = 7;
constexpr uint8_t STALE_BYTE = '9';

void clearMib() {
    ip6_source_guard_bind_for_snmp_delete_all();
    snmpIp6Bind = {};
    resetInfoPolicy();
    recordingTake();
}

std::string resultName(int32_t result) {
    if (result == 0)
        return "ok";
    const std::pair<int32_t, const char *> names[] = {
        {ccdErrorNoSuchInstance(), "no such instance"},
        {ccdErrorNoNextInstance(), "no next instance"},
        {ccdErrorInvalidRange(), "invalid range"},
        {ccdErrorInvalidLength(), "invalid length"},
        {ccdErrorWrongValue(), "wrong value"},
        {ccdErrorTooBig(), "too big"},
        {ccdErrorCommitFailed(), "commit failed"},
        {ccdErrorResourceUnavail(), "resource unavailable"},
        {ccdErrorRequestMap(CCD_COMMIT), "not writable"},
    };
    for (const auto &[number, name] : names)
        if (number == result)
            return name;
    return "result " + std::to_string(result);
}

std::string valueOf(const CcdVariable &variable) {
    const uint32_t syntax = tqzL2Dhcp6SnoopingObjects[variable.object].object->syntax;
    if (syntax != SYNTAX_TEXT && syntax != SYNTAX_MAC) {
        EXPECT_EQ(variable.length, 4u);
        return std::to_string(variable.integer);
    }
    EXPECT_LE(variable.length, CCD_OCTETS_MAX);
    EXPECT_EQ(variable.octets[variable.length], 0) << "a text is terminated";
    if (syntax == SYNTAX_TEXT)
        return {reinterpret_cast<const char *>(variable.octets), variable.length};
    EXPECT_EQ(variable.length, 6u);
    char text[18];
    return macToStr(variable.octets, text);
}

std::string indexText(const CcdVariable &variable) {
    std::string text;
    for (uint32_t arc = 0; arc < std::min(variable.indexLength, CCD_INDEX_MAX); arc++)
        text += (arc == 0 ? "" : ".") + std::to_string(variable.index[arc]);
    return text;
}

std::string set(uint32_t kind, CcdVariable variable) {
    const CcdVariable asked = variable;
    const int32_t result = handle(kind, &variable);
    EXPECT_EQ(memcmp(&variable, &asked, sizeof asked), 0) << "a set leaves its variable alone";
    return resultName(result);
}

} // namespace

void MibTest::SetUp() {
    GuardTest::SetUp();
    clearMib();
}

void MibTest::TearDown() {
    recordingFailNone();
    clearMib();
    GuardTest::TearDown();
}

Index macIndex(const std::string &mac) {
    const Bytes bytes = macBytes(mac);
    return {bytes.begin(), bytes.end()};
}

CcdVariable variableAt(uint32_t object, const Index &index) {
    CcdVariable variable = {};
    variable.object = object;
    variable.integer = 0xA5A5A5A5;
    variable.indexLength = static_cast<uint32_t>(index.size());
    std::fill(std::begin(variable.index), std::end(variable.index), STALE_ARC);
    std::copy(index.begin(), index.end(), variable.index);
    memset(variable.octets, STALE_BYTE, sizeof variable.octets);
    return variable;
}

CcdVariable variableOf(uint32_t object, const Index &index, uint32_t value) {
    CcdVariable variable = variableAt(object, index);
    variable.integer = value;
    variable.length = 4;
    return variable;
}

CcdVariable variableOf(uint32_t object, const Index &index, const std::string &text) {
    CcdVariable variable = variableAt(object, index);
    variable.length = static_cast<uint32_t>(text.size());
    memcpy(variable.octets, text.data(), std::min(text.size(), sizeof variable.octets));
    return variable;
}

int32_t handle(uint32_t kind, CcdVariable *variable) {
    return tqzL2Dhcp6SnoopingObjects[variable->object].object->handler(kind, variable);
}

std::string mibGet(uint32_t object, const Index &index) {
    CcdVariable variable = variableAt(object, index);
    const CcdVariable asked = variable;
    const int32_t result = handle(CCD_GET, &variable);
    EXPECT_EQ(variable.indexLength, asked.indexLength);
    EXPECT_EQ(memcmp(variable.index, asked.index, sizeof asked.index), 0) << "a get leaves the index alone";
    return result == 0 ? valueOf(variable) : resultName(result);
}

std::string mibNext(uint32_t object, const Index &index) {
    CcdVariable variable = variableAt(object, index);
    const int32_t result = handle(CCD_GETNEXT, &variable);
    return result == 0 ? indexText(variable) + " = " + valueOf(variable) : resultName(result);
}

std::string mibTest(uint32_t object, const Index &index, uint32_t value) {
    return set(CCD_TEST, variableOf(object, index, value));
}

std::string mibTest(uint32_t object, const Index &index, const std::string &text) {
    return set(CCD_TEST, variableOf(object, index, text));
}

std::string mibCommit(uint32_t object, const Index &index, uint32_t value) {
    return set(CCD_COMMIT, variableOf(object, index, value));
}

std::string mibCommit(uint32_t object, const Index &index, const std::string &text) {
    return set(CCD_COMMIT, variableOf(object, index, text));
}

std::string mibTestLength(uint32_t object, const Index &index, uint32_t value, uint32_t length) {
    CcdVariable variable = variableOf(object, index, value);
    variable.length = length;
    return set(CCD_TEST, variable);
}

Lines mibWalk(uint32_t object, const Index &from) {
    Lines lines;
    CcdVariable variable = variableAt(object, from);
    while (lines.size() <= 5000 && handle(CCD_GETNEXT, &variable) == 0)
        lines.push_back(indexText(variable) + " = " + valueOf(variable));
    return lines;
}

Lines rows() {
    Lines lines;
    for (uint32_t row = 0; row < IP6_SNMP_ROWS; row++)
        if (ip6SourceGuardBindForSnmp[row].status != 0) {
            EXPECT_EQ(ip6SourceGuardBindForSnmp[row].status, 1u);
            lines.push_back(std::to_string(row) + ": " + mibGet(MIB_BIND_ADDRESS, {row + 1}) + " " +
                            mibGet(MIB_BIND_MAC, {row + 1}) + " port " + std::to_string(ip6SourceGuardBindForSnmp[row].port) +
                            " vlan " + std::to_string(ip6SourceGuardBindForSnmp[row].vlan));
        }
    return lines;
}

bool isClear(const Ip6BindSnmpRow &row) {
    const Ip6BindSnmpRow clear = {};
    return memcmp(&row, &clear, sizeof clear) == 0;
}

int32_t addRow(int32_t first, const std::string &address, const std::string &mac, uint32_t port, uint32_t vlan) {
    return ip6_source_guard_bind_for_snmp_add(first, ip6(address), macBytes(mac).data(), port, vlan);
}

void stage(uint32_t index, const std::string &address, const std::string &mac, uint32_t port, uint32_t vlan) {
    EXPECT_EQ(mibCommit(MIB_BIND_INDEX, {index}, index), "ok");
    EXPECT_EQ(mibCommit(MIB_BIND_ADDRESS, {index}, address), "ok");
    EXPECT_EQ(mibCommit(MIB_BIND_MAC, {index}, mac), "ok");
    EXPECT_EQ(mibCommit(MIB_BIND_PORT, {index}, port), "ok");
    EXPECT_EQ(mibCommit(MIB_BIND_VLAN, {index}, vlan), "ok");
}
