// libcommon's tree of the lean switch: a search tree balanced by height.
//
// The height of a record's subtree stands in AvlNode::balance. Only AvlTree::end.parent is used of the tree's own node: the
// root, whose parent is that node again.

#include <algorithm>

#include "platform/libcommon.h"

static int32_t height(const AvlNode *node) { return node == nullptr ? 0 : node->balance; }

// Puts `now` (may be null) where `old` hangs below `parent`.
static void replaceChild(AvlTree *tree, AvlNode *parent, const AvlNode *old, AvlNode *now) {
    if (parent == &tree->end)
        tree->end.parent = now;
    else if (parent->left == old)
        parent->left = now;
    else
        parent->right = now;
    if (now != nullptr)
        now->parent = parent;
}

static void measure(AvlNode *node) { node->balance = 1 + std::max(height(node->left), height(node->right)); }

// Turns the subtree at `top` so that one of its children comes on top. Returns the new top.
static AvlNode *rotate(AvlTree *tree, AvlNode *top, bool leftChildUp) {
    AvlNode *up = leftChildUp ? top->left : top->right;
    AvlNode *inner = leftChildUp ? up->right : up->left;
    replaceChild(tree, top->parent, top, up);
    (leftChildUp ? top->left : top->right) = inner;
    if (inner != nullptr)
        inner->parent = top;
    (leftChildUp ? up->right : up->left) = top;
    top->parent = up;
    measure(top);
    measure(up);
    return up;
}

static void rebalance(AvlTree *tree, AvlNode *node) {
    while (node != &tree->end) {
        measure(node);
        const int32_t tilt = height(node->left) - height(node->right);
        if (tilt > 1) {
            if (height(node->left->left) < height(node->left->right))
                rotate(tree, node->left, false);
            node = rotate(tree, node, true);
        } else if (tilt < -1) {
            if (height(node->right->right) < height(node->right->left))
                rotate(tree, node->right, true);
            node = rotate(tree, node, false);
        }
        node = node->parent;
    }
}

static AvlNode *leftmost(AvlNode *node) {
    while (node->left != nullptr)
        node = node->left;
    return node;
}

extern "C" {

int32_t avlInsert(AvlTree *tree, void *record, const void *key, AvlCompare compare) {
    AvlNode *parent = &tree->end;
    AvlNode **slot = &tree->end.parent;
    while (*slot != nullptr) {
        const int32_t order = compare(key, *slot);
        if (order == 0)
            return -1;
        parent = *slot;
        slot = order < 0 ? &parent->left : &parent->right;
    }
    auto *node = static_cast<AvlNode *>(record);
    *node = {.parent = parent, .left = nullptr, .right = nullptr, .balance = 1, .reserved = 0};
    *slot = node;
    rebalance(tree, parent);
    return 0;
}

void *avlDelete(AvlTree *tree, const void *key, AvlCompare compare) {
    auto *node = static_cast<AvlNode *>(avlSearch(tree, key, compare));
    if (node == nullptr)
        return nullptr;
    AvlNode *unbalanced = node->parent;
    if (node->left == nullptr || node->right == nullptr) {
        replaceChild(tree, node->parent, node, node->left != nullptr ? node->left : node->right);
    } else {
        AvlNode *next = leftmost(node->right);
        unbalanced = next;
        if (next->parent != node) {
            unbalanced = next->parent;
            replaceChild(tree, next->parent, next, next->right);
            next->right = node->right;
            next->right->parent = next;
        }
        next->left = node->left;
        next->left->parent = next;
        replaceChild(tree, node->parent, node, next);
    }
    rebalance(tree, unbalanced);
    return node;
}

void *avlSearch(AvlTree *tree, const void *key, AvlCompare compare) {
    AvlNode *node = tree->end.parent;
    while (node != nullptr) {
        const int32_t order = compare(key, node);
        if (order == 0)
            return node;
        node = order < 0 ? node->left : node->right;
    }
    return nullptr;
}

void *avlMinimumGet(AvlTree *tree) { return tree->end.parent == nullptr ? nullptr : leftmost(tree->end.parent); }

void *avlSuccessorGet(AvlTree *tree, const void *key, AvlCompare compare) {
    AvlNode *best = nullptr;
    for (AvlNode *node = tree->end.parent; node != nullptr;) {
        if (compare(key, node) < 0) {
            best = node;
            node = node->left;
        } else {
            node = node->right;
        }
    }
    return best;
}

} // extern "C"
