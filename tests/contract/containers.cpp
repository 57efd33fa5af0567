// The ordered tree and the free list.

#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <random>

#include "platform/libcommon.h"

// A record as the daemon has them: the tree's node in front, the key somewhere behind it.
struct Record {
    AvlNode node;
    uint32_t before;
    uint32_t key;
    uint32_t after;
};

static int32_t compareKeys(const void *key, const void *node) {
    const uint32_t wanted = *static_cast<const uint32_t *>(key);
    const uint32_t present = static_cast<const Record *>(node)->key;
    return wanted < present ? -1 : wanted > present;
}

static int32_t insert(AvlTree *tree, Record *record) { return avlInsert(tree, record, &record->key, compareKeys); }

static void *search(AvlTree *tree, uint32_t key) { return avlSearch(tree, &key, compareKeys); }

static void *remove(AvlTree *tree, uint32_t key) { return avlDelete(tree, &key, compareKeys); }

static void *successor(AvlTree *tree, uint32_t key) { return avlSuccessorGet(tree, &key, compareKeys); }

TEST(Tree, AllZerosIsAnEmptyTree) {
    AvlTree tree = {};
    EXPECT_EQ(avlMinimumGet(&tree), nullptr);
    EXPECT_EQ(search(&tree, 1), nullptr);
    EXPECT_EQ(remove(&tree, 1), nullptr);
    EXPECT_EQ(successor(&tree, 0), nullptr);
}

TEST(Tree, IsEmptyAgainWhenTheLastRecordIsGone) {
    AvlTree tree = {};
    Record record = {.node = {}, .before = 0, .key = 7, .after = 0};
    ASSERT_EQ(insert(&tree, &record), 0);
    EXPECT_EQ(avlMinimumGet(&tree), &record);
    EXPECT_EQ(remove(&tree, 7), &record);
    EXPECT_EQ(avlMinimumGet(&tree), nullptr);
    EXPECT_EQ(search(&tree, 7), nullptr);
    EXPECT_EQ(insert(&tree, &record), 0);
    EXPECT_EQ(search(&tree, 7), &record);
}

TEST(Tree, SuccessorOfAKeyThatIsNotThere) {
    AvlTree tree = {};
    std::array<Record, 3> records = {};
    for (uint32_t i = 0; i < records.size(); i++) {
        records[i].key = 10 * (i + 1);
        ASSERT_EQ(insert(&tree, &records[i]), 0);
    }
    EXPECT_EQ(successor(&tree, 0), &records[0]);
    EXPECT_EQ(successor(&tree, 9), &records[0]);
    EXPECT_EQ(successor(&tree, 10), &records[1]);
    EXPECT_EQ(successor(&tree, 11), &records[1]);
    EXPECT_EQ(successor(&tree, 29), &records[2]);
    EXPECT_EQ(successor(&tree, 30), nullptr);
    EXPECT_EQ(successor(&tree, 0xFFFFFFFF), nullptr);
}

TEST(Tree, SecondRecordOfAKeyIsRefusedAndNothingChanges) {
    AvlTree tree = {};
    Record first = {.node = {}, .before = 1, .key = 5, .after = 2};
    Record second = {.node = {}, .before = 3, .key = 5, .after = 4};
    memset(&second.node, 0xA5, sizeof second.node);
    const Record untouched = second;
    ASSERT_EQ(insert(&tree, &first), 0);
    const AvlTree before = tree;
    EXPECT_NE(insert(&tree, &second), 0);
    EXPECT_EQ(memcmp(&tree, &before, sizeof tree), 0);
    EXPECT_EQ(memcmp(&second, &untouched, sizeof second), 0);
    EXPECT_EQ(search(&tree, 5), &first);
    EXPECT_EQ(successor(&tree, 0), &first);
    EXPECT_EQ(successor(&tree, 5), nullptr);
}

// The daemon puts a record in place first and fills in its key afterwards.
TEST(Tree, TheNewRecordsOwnKeyIsNotRead) {
    AvlTree tree = {};
    std::array<Record, 3> records = {};
    const std::array<uint32_t, 3> keys = {20, 10, 30};
    for (uint32_t i = 0; i < keys.size(); i++) {
        records[i].key = 99;
        ASSERT_EQ(avlInsert(&tree, &records[i], &keys[i], compareKeys), 0);
        records[i].key = keys[i];
    }
    EXPECT_EQ(avlMinimumGet(&tree), &records[1]);
    EXPECT_EQ(successor(&tree, 10), &records[0]);
    EXPECT_EQ(successor(&tree, 20), &records[2]);
}

// A record that was on a list brings stale links in its first bytes.
TEST(Tree, InsertWritesTheWholeNodeAndNothingBehindIt) {
    AvlTree tree = {};
    std::array<Record, 64> records;
    memset(records.data(), 0xA5, sizeof records);
    for (uint32_t i = 0; i < records.size(); i++) {
        records[i].key = i * 37 % 64;
        ASSERT_EQ(insert(&tree, &records[i]), 0);
        EXPECT_EQ(records[i].node.reserved, 0);
    }
    for (uint32_t i = 0; i < records.size(); i++) {
        ASSERT_EQ(remove(&tree, records[i].key), &records[i]);
    }
    for (const Record &record : records) {
        EXPECT_EQ(record.before, 0xA5A5A5A5);
        EXPECT_EQ(record.after, 0xA5A5A5A5);
    }
}

// A walk may take records out, the one it stands on included, and others may come in between.
TEST(Tree, AWalkGoesOnWhileRecordsComeAndGo) {
    AvlTree tree = {};
    std::array<Record, 6> records = {};
    for (uint32_t i = 0; i < 5; i++) {
        records[i].key = 10 * (i + 1);
        ASSERT_EQ(insert(&tree, &records[i]), 0);
    }
    ASSERT_EQ(avlMinimumGet(&tree), &records[0]);
    ASSERT_EQ(successor(&tree, 10), &records[1]);
    ASSERT_EQ(remove(&tree, 20), &records[1]);
    memset(&records[1].node, 0xA5, sizeof records[1].node);
    EXPECT_EQ(successor(&tree, 20), &records[2]) << "the walk stood on what was taken out";
    records[5].key = 35;
    ASSERT_EQ(insert(&tree, &records[5]), 0);
    EXPECT_EQ(successor(&tree, 30), &records[5]) << "what came in right behind";
    ASSERT_EQ(remove(&tree, 35), &records[5]);
    records[5].key = 5;
    ASSERT_EQ(insert(&tree, &records[5]), 0);
    EXPECT_EQ(successor(&tree, 35), &records[3]) << "the record is in the tree again, under another key";
    EXPECT_EQ(successor(&tree, 0), &records[5]) << "from elsewhere";
    EXPECT_EQ(successor(&tree, 40), &records[4]);
    EXPECT_EQ(successor(&tree, 50), nullptr);
    EXPECT_EQ(successor(&tree, 50), nullptr) << "once more at the end";
}

static uint32_t pick(std::mt19937 *random, uint32_t choices) { return static_cast<uint32_t>((*random)() % choices); }

static void expectSame(AvlTree *tree, const std::map<uint32_t, Record *> &model) {
    void *at = avlMinimumGet(tree);
    for (const auto &[key, record] : model) {
        ASSERT_EQ(at, record);
        ASSERT_EQ(record->key, key);
        at = successor(tree, key);
    }
    ASSERT_EQ(at, nullptr);
}

TEST(Tree, AnswersLikeAnOrderedMapThroughRandomUse) {
    std::mt19937 random(20261121);
    std::vector<Record> records(300);
    AvlTree tree = {};
    std::map<uint32_t, Record *> model;
    std::vector<Record *> unused;
    for (Record &record : records) {
        unused.push_back(&record);
    }
    for (uint32_t step = 0; step < 20000; step++) {
        const uint32_t key = pick(&random, 400);
        const auto there = model.find(key);
        const uint32_t action = pick(&random, 4);
        if (action < 2 && !unused.empty()) {
            Record *record = unused.back();
            ASSERT_EQ(avlInsert(&tree, record, &key, compareKeys) == 0, there == model.end());
            if (there == model.end()) {
                unused.pop_back();
                record->key = key;
                model[key] = record;
            }
        } else if (action == 2) {
            ASSERT_EQ(remove(&tree, key), there == model.end() ? nullptr : there->second);
            if (there != model.end()) {
                unused.push_back(there->second);
                model.erase(there);
            }
        } else {
            ASSERT_EQ(search(&tree, key), there == model.end() ? nullptr : there->second);
            const auto behind = model.upper_bound(key);
            ASSERT_EQ(successor(&tree, key), behind == model.end() ? nullptr : behind->second);
        }
        if (step % 500 == 0) {
            expectSame(&tree, model);
        }
    }
    expectSame(&tree, model);
}

// ---- Free list -----------------------------------------------------------------------------------------------------

struct Listed {
    LstNode link;
    std::array<uint8_t, 48> rest;
};

TEST(List, FirstInFirstOut) {
    std::array<Listed, 5> records = {};
    LstList list;
    memset(&list, 0xA5, sizeof list);
    lstInit(&list);
    EXPECT_EQ(lstGet(&list), nullptr);
    for (Listed &record : records) {
        lstAdd(&list, &record);
    }
    EXPECT_EQ(list.count, 5u);
    EXPECT_EQ(lstGet(&list), &records[0]);
    EXPECT_EQ(lstGet(&list), &records[1]);
    lstAdd(&list, &records[0]);
    EXPECT_EQ(lstGet(&list), &records[2]);
    EXPECT_EQ(lstGet(&list), &records[3]);
    EXPECT_EQ(lstGet(&list), &records[4]);
    EXPECT_EQ(lstGet(&list), &records[0]);
    EXPECT_EQ(lstGet(&list), nullptr);
    EXPECT_EQ(list.count, 0u);
    lstAdd(&list, &records[3]);
    EXPECT_EQ(lstGet(&list), &records[3]);
}

TEST(List, InitDoesNotTouchRecords) {
    Listed record = {};
    LstList list = {};
    lstAdd(&list, &record);
    memset(&record, 0xA5, sizeof record);
    const Listed untouched = record;
    lstInit(&list);
    EXPECT_EQ(memcmp(&record, &untouched, sizeof record), 0);
    EXPECT_EQ(lstGet(&list), nullptr);
}

TEST(List, OnlyTheFirstSixteenBytesOfARecordAreUsed) {
    std::array<Listed, 8> records = {};
    for (Listed &record : records) {
        record.rest.fill(0xA5);
    }
    LstList list = {};
    lstInit(&list);
    for (uint32_t round = 0; round < 3; round++) {
        for (Listed &record : records) {
            lstAdd(&list, &record);
        }
        for (Listed &record : records) {
            ASSERT_EQ(lstGet(&list), &record);
        }
    }
    for (const Listed &record : records) {
        for (const uint8_t byte : record.rest) {
            ASSERT_EQ(byte, 0xA5);
        }
    }
}
