// libcommon's ordered tree and free list for tests. The tree is a plain sorted chain over left (previous) and right (next):
// slow and easy to see through. The tree's own node holds the first record (as the root too) and the last one.

#include "platform/libcommon.h"
#include "tests/platform/recording.h"

namespace {

// First record whose key is not smaller (`behind` false) or greater (`behind` true) than `key`.
AvlNode *firstFrom(const AvlTree *tree, const void *key, AvlCompare compare, bool behind) {
    for (AvlNode *node = tree->end.left; node != nullptr; node = node->right) {
        const int32_t order = compare(key, node);
        if (order < 0 || (order == 0 && !behind))
            return node;
    }
    return nullptr;
}

AvlNode *findExact(const AvlTree *tree, const void *key, AvlCompare compare) {
    AvlNode *node = firstFrom(tree, key, compare, false);
    return node != nullptr && compare(key, node) == 0 ? node : nullptr;
}

} // namespace

int32_t avlInsert(AvlTree *tree, void *node, const void *key, AvlCompare compare) {
    if (recordingQuietCall("avlInsert"))
        return -1;
    AvlNode *next = firstFrom(tree, key, compare, false);
    if (next != nullptr && compare(key, next) == 0)
        return -1;
    auto *link = static_cast<AvlNode *>(node);
    AvlNode *previous = next != nullptr ? next->left : tree->end.right;
    *link = {.parent = nullptr, .left = previous, .right = next, .balance = 0, .reserved = 0};
    (previous != nullptr ? previous->right : tree->end.left) = link;
    (next != nullptr ? next->left : tree->end.right) = link;
    tree->end.parent = tree->end.left;
    return 0;
}

void *avlDelete(AvlTree *tree, const void *key, AvlCompare compare) {
    if (recordingQuietCall("avlDelete"))
        return nullptr;
    AvlNode *node = findExact(tree, key, compare);
    if (node == nullptr)
        return nullptr;
    (node->left != nullptr ? node->left->right : tree->end.left) = node->right;
    (node->right != nullptr ? node->right->left : tree->end.right) = node->left;
    tree->end.parent = tree->end.left;
    return node;
}

void *avlSearch(AvlTree *tree, const void *key, AvlCompare compare) {
    return recordingQuietCall("avlSearch") ? nullptr : findExact(tree, key, compare);
}

void *avlMinimumGet(AvlTree *tree) { return recordingQuietCall("avlMinimumGet") ? nullptr : tree->end.left; }

void *avlSuccessorGet(AvlTree *tree, const void *key, AvlCompare compare) {
    return recordingQuietCall("avlSuccessorGet") ? nullptr : firstFrom(tree, key, compare, true);
}

void lstInit(LstList *list) {
    recordingQuietCall("lstInit");
    *list = {};
}

void lstAdd(LstList *list, void *node) {
    recordingQuietCall("lstAdd");
    auto *link = static_cast<LstNode *>(node);
    link->next = nullptr;
    link->previous = list->last;
    (list->last != nullptr ? list->last->next : list->first) = link;
    list->last = link;
    list->count++;
}

void *lstGet(LstList *list) {
    if (recordingQuietCall("lstGet") || list->first == nullptr)
        return nullptr;
    LstNode *node = list->first;
    list->first = node->next;
    (node->next != nullptr ? node->next->previous : list->last) = nullptr;
    list->count--;
    return node;
}
