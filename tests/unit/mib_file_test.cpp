// The module's file for managers against the object table: the same objects with the same OID, access and kind of syntax, each
// in a table with the same index, and no other.

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <sstream>
#include <string>

#include "l2/dhcp6snooping/mib/objects.h"
#include "tests/unit/mib.h"

namespace {

constexpr uint32_t INTEGER = 1, TEXT = 2, MAC = 5, ROW_STATUS = 13;

struct MibFileTest : MibTest {};

struct FileObject {
    std::string syntax, access, index, parent; // `index` is a row's alone
    uint32_t arc = 0;
};

// The file's words, punctuation apart, without comments and texts.
Lines fileWords() {
    std::ifstream in(MIB_FILE);
    std::string bare;
    bool quoted = false;
    for (std::string line; std::getline(in, line); bare += ' ') {
        for (char character : quoted ? line : line.substr(0, line.find("--"))) {
            quoted = quoted != (character == '"');
            const bool apart = strchr("{}(),", character) != nullptr;
            bare += quoted || character == '"' ? "" : apart ? std::string{' ', character, ' '} : std::string{character};
        }
    }
    std::istringstream words(bare);
    return {std::istream_iterator<std::string>(words), {}};
}

// The words from `at` up to this one.
std::string upTo(const Lines &words, size_t *at, const std::string &end) {
    std::string found;
    for (; *at < words.size() && words[*at] != end; ++*at) {
        found += found.empty() ? words[*at] : " " + words[*at];
    }
    return found;
}

// Everything with an OID, by name. Each ends with "::= { PARENT ARC }".
std::map<std::string, FileObject> fileObjects() {
    std::map<std::string, FileObject> found;
    const Lines words = fileWords();
    for (size_t at = 1; at + 1 < words.size(); ++at) {
        const bool object = words[at] == "OBJECT-TYPE" && words[at + 1] == "SYNTAX";
        const bool node = words[at] == "OBJECT" || (words[at] == "MODULE-IDENTITY" && words[at + 1] == "LAST-UPDATED");
        if (!object && !node) {
            continue;
        }
        FileObject &entry = found[words[at - 1]];
        if (object) {
            at += 2;
            entry.syntax = upTo(words, &at, "MAX-ACCESS");
            entry.access = words.at(at + 1);
        }
        for (; at + 3 < words.size() && words[at] != "::="; ++at) {
            if (words[at] == "INDEX") {
                entry.index = words[at + 2];
            }
        }
        entry.parent = words.at(at + 2);
        entry.arc = static_cast<uint32_t>(strtoul(words.at(at + 3).c_str(), nullptr, 10));
    }
    return found;
}

std::string oidIn(const std::map<std::string, FileObject> &file, const std::string &name) {
    if (name == "enterprises") {
        return "1.3.6.1.4.1";
    }
    const auto found = file.find(name);
    return found == file.end() ? "?" + name : oidIn(file, found->second.parent) + "." + std::to_string(found->second.arc);
}

std::string oidOf(const CcdRegEntry &entry) {
    std::string oid;
    for (uint32_t arc = 1; arc < entry.group->arcCount; ++arc) { // the first one is the library's
        oid += std::to_string(entry.group->arcs[arc]) + ".";
    }
    return oid + std::to_string(entry.object->column);
}

uint32_t syntaxOf(const FileObject &object) {
    const auto begins = [&](const char *with) { return object.syntax.rfind(with, 0) == 0; };
    if (begins("RowStatus")) {
        return ROW_STATUS;
    }
    // A binding's MAC address is set as a text of 17 characters.
    if (begins("MacAddress") || begins("OCTET STRING ( SIZE ( 6 | 17 ) )")) {
        return MAC;
    }
    return begins("DisplayString") || begins("OCTET STRING") ? TEXT : INTEGER;
}

// The numbers of "Integer32 ( LOW..HIGH )" or "... ( SIZE ( LOW..HIGH ) )"; false for a syntax without a range.
bool rangeOf(const FileObject &object, uint32_t *low, uint32_t *high) {
    const size_t at = object.syntax.find("..");
    if (at == std::string::npos) {
        return false;
    }
    const size_t start = object.syntax.rfind(' ', at) + 1;
    *low = static_cast<uint32_t>(strtoul(object.syntax.c_str() + start, nullptr, 10));
    *high = static_cast<uint32_t>(strtoul(object.syntax.c_str() + at + 2, nullptr, 10));
    return true;
}

std::string plainName(const char *name) {
    const char *colon = strchr(name, ':');
    return colon == nullptr ? name : colon + 1;
}

} // namespace

TEST(MibFile, HasEveryObjectAsItIs) {
    const std::map<std::string, FileObject> file = fileObjects();
    for (const CcdRegEntry *entry = tqzL2Dhcp6SnoopingObjects; entry->object != nullptr; ++entry) {
        const std::string name = plainName(entry->object->name);
        SCOPED_TRACE(name);
        const auto found = file.find(name);
        ASSERT_NE(found, file.end());
        const FileObject &object = found->second;
        EXPECT_EQ(oidIn(file, name), oidOf(*entry));
        EXPECT_EQ(syntaxOf(object), entry->object->syntax);
        EXPECT_EQ(object.access == "read-only" ? 1u : 3u, entry->object->access);
        const bool table = entry->group->indexColumns != 0;
        const FileObject &parent = file.at(object.parent);
        EXPECT_EQ(parent.index, table ? plainName(entry->group->indexName) : "");
        if (table) {
            const uint32_t arcs = syntaxOf(file.at(parent.index)) == MAC ? 6 : 1;
            EXPECT_EQ(arcs, entry->group->indexLength);
            EXPECT_EQ(parent.index == name, (entry->object->flags & 0x10) != 0);
            EXPECT_EQ(object.access == "read-create", object.parent == "dhcp6snoopingBindEntry");
        }
    }
}

// The file's ranges are those of the handlers, whatever the object table declares: managers' tools check values by the file
// before they send them.
TEST_F(MibFileTest, HasTheRangesThatTheHandlersKeep) {
    const std::map<std::string, FileObject> file = fileObjects();
    uint32_t tested = 0;
    for (const CcdRegEntry *entry = tqzL2Dhcp6SnoopingObjects; entry->object != nullptr; ++entry) {
        const std::string name = plainName(entry->object->name);
        uint32_t low = 0, high = 0;
        if (file.at(name).access == "read-only" || !rangeOf(file.at(name), &low, &high)) {
            continue;
        }
        SCOPED_TRACE(name);
        ++tested;
        const uint32_t number = entry->object->number;
        const Index instance = entry->group->indexColumns == 0 ? SCALAR : Index{10};
        if (syntaxOf(file.at(name)) == TEXT) {
            EXPECT_EQ(low, 0u);
            EXPECT_EQ(mibTest(number, instance, ""), "ok");
            EXPECT_EQ(mibTest(number, instance, std::string(high, '1')), "ok");
            EXPECT_NE(mibTest(number, instance, std::string(high + 1, '1')), "ok");
            continue;
        }
        EXPECT_EQ(mibTest(number, instance, high), "ok");
        EXPECT_NE(mibTest(number, instance, high + 1), "ok");
        // Any port is only ever read: a column that was not set.
        EXPECT_EQ(mibTest(number, instance, low) == "ok", name != "ip6BindPortId");
        if (low != 0) {
            EXPECT_NE(mibTest(number, instance, low - 1), "ok");
        }
    }
    EXPECT_EQ(tested, 9u);
}

TEST(MibFile, HasNoOtherObject) {
    size_t accessible = 0;
    for (const auto &[name, object] : fileObjects()) {
        if (object.access.empty() || object.access == "not-accessible") {
            continue;
        }
        ++accessible;
        const CcdRegEntry *entry = tqzL2Dhcp6SnoopingObjects;
        while (entry->object != nullptr && plainName(entry->object->name) != name) {
            ++entry;
        }
        EXPECT_NE(entry->object, nullptr) << name;
    }
    EXPECT_EQ(accessible, 28u);
}
