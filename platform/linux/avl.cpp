// The ordered tree of libcommon. Boost.Intrusive rebalances; the searches are our own, because its comparisons are two-way
// and would ask twice at every step.

#include "platform/libcommon.h"

#include <boost/intrusive/avltree_algorithms.hpp>

namespace {

// How Boost finds its way around an AvlNode.
struct AvlTraits {
    using node = AvlNode;
    using node_ptr = AvlNode *;
    using const_node_ptr = const AvlNode *;
    using balance = int32_t;

    static node_ptr get_parent(const_node_ptr n) { return n->parent; }
    static void set_parent(node_ptr n, node_ptr parent) { n->parent = parent; }
    static node_ptr get_left(const_node_ptr n) { return n->left; }
    static void set_left(node_ptr n, node_ptr left) { n->left = left; }
    static node_ptr get_right(const_node_ptr n) { return n->right; }
    static void set_right(node_ptr n, node_ptr right) { n->right = right; }
    static balance get_balance(const_node_ptr n) { return n->balance; }
    static void set_balance(node_ptr n, balance b) { n->balance = b; }
    static balance negative() { return -1; }
    static balance zero() { return 0; }
    static balance positive() { return 1; }
};

using Avl = boost::intrusive::avltree_algorithms<AvlTraits>;

} // namespace

// All zeros is an empty tree to the caller; to the algorithms an empty tree points to itself.
static AvlNode *treeEnd(AvlTree *tree) {
    if (tree->end.left == nullptr) {
        Avl::init_header(&tree->end);
    }
    return &tree->end;
}

static AvlNode *find(AvlTree *tree, const void *key, AvlCompare compare) {
    AvlNode *at = tree->end.parent;
    while (at != nullptr) {
        const int32_t order = compare(key, at);
        if (order == 0) {
            return at;
        }
        at = order < 0 ? at->left : at->right;
    }
    return nullptr;
}

int32_t avlInsert(AvlTree *tree, void *node, const void *key, AvlCompare compare) {
    Avl::insert_commit_data place;
    place.node = treeEnd(tree);
    place.link_left = true;
    for (AvlNode *at = tree->end.parent; at != nullptr;) {
        const int32_t order = compare(key, at);
        if (order == 0) {
            return -1;
        }
        place.node = at;
        place.link_left = order < 0;
        at = place.link_left ? at->left : at->right;
    }
    AvlNode *fresh = static_cast<AvlNode *>(node);
    *fresh = AvlNode{};
    Avl::insert_unique_commit(&tree->end, fresh, place);
    return 0;
}

void *avlDelete(AvlTree *tree, const void *key, AvlCompare compare) {
    AvlNode *found = find(tree, key, compare);
    if (found != nullptr) {
        if (tree->walk == found) {
            tree->walk = nullptr;
        }
        Avl::erase(&tree->end, found);
    }
    return found;
}

void *avlSearch(AvlTree *tree, const void *key, AvlCompare compare) { return find(tree, key, compare); }

void *avlMinimumGet(AvlTree *tree) {
    AvlNode *end = treeEnd(tree);
    tree->walk = end->left == end ? nullptr : end->left;
    return tree->walk;
}

static AvlNode *searchBehind(const AvlTree *tree, const void *key, AvlCompare compare) {
    AvlNode *behind = nullptr;
    for (AvlNode *at = tree->end.parent; at != nullptr;) {
        if (compare(key, at) < 0) {
            behind = at;
            at = at->left;
        } else {
            at = at->right;
        }
    }
    return behind;
}

// Who walks asks with the key of the record that he got last: from there it is a step, and not a search.
void *avlSuccessorGet(AvlTree *tree, const void *key, AvlCompare compare) {
    if (tree->walk != nullptr && compare(key, tree->walk) == 0) {
        AvlNode *next = Avl::next_node(tree->walk);
        tree->walk = next == &tree->end ? nullptr : next;
    } else {
        tree->walk = searchBehind(tree, key, compare);
    }
    return tree->walk;
}
