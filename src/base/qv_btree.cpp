// An AVL tree whose missing child links are threads to the in-order neighbours.
//
// Invariants, true whenever no operation is running:
//
//   1. An in-order walk meets the keys in strictly ascending order under key_compare.
//   2. Every node's balance is the height of its right subtree minus that of its left one, and is
//      -1, 0 or +1. Insertion and removal pass through -2 and +2, until rotations remove them.
//   3. A link whose flag is 0 is a thread: left to the predecessor, right to the successor. Only
//      the first node's left thread and the last node's right thread are NULL.
//   4. nnodes is the number of nodes reachable from root.
//   5. An entry stays in its node: no operation moves a key or a value from one node to another.
//
// Nodes have no parent pointers. What must go back up the tree finds the way in the path of the
// search before it: path[0] is NULL, standing for the parent of the root, and path[n] is the node
// at level n, the root being level 1. Insertion lets no entry lie below level QV_BTREE_MAX_LEVELS,
// so a path has room for every ancestor of every node, and nothing else needs to look at its end.

#include "qv_btree.h"

#include <assert.h>

#include "qv_memory.h"

struct qv_btree_node_s {
    void* key;
    void* value;
    qv_btree_node_t* left;
    qv_btree_node_t* right;
    int8_t balance;
    uint8_t left_child;
    uint8_t right_child;
};

struct qv_btree_s {
    qv_btree_node_t* root;
    qv_comparator_pt key_compare;
    qv_dtor_pt key_dtor;
    qv_dtor_pt value_dtor;
    size_t nnodes;
};

// An AVL tree of 41 levels holds at least 433,494,436 entries.
constexpr size_t QV_BTREE_MAX_LEVELS = 40;

// Up to this many entries a search loses more by mispredicted turns than by waiting for memory. A
// platform that predicts none may set 0, and saves the code for it.
#ifndef QV_BTREE_SMALL_MAP
#define QV_BTREE_SMALL_MAP 4096
#endif

// Asks for an object that will soon be needed; does nothing where the compiler cannot.
static inline void qv_btree_prefetch(const void* object) {
#if defined(__GNUC__)
    __builtin_prefetch(object);
#else
    static_cast<void>(object);
#endif
}

// ---------------------------------------------------------------------------------------------
// Node navigation

qv_btree_node_t* qv_btree_first_node(const qv_btree_t* t) {
    if (t == nullptr || t->root == nullptr) {
        return nullptr;
    }
    qv_btree_node_t* node = t->root;
    while (node->left_child != 0) {
        node = node->left;
    }
    return node;
}

qv_btree_node_t* qv_btree_last_node(const qv_btree_t* t) {
    if (t == nullptr || t->root == nullptr) {
        return nullptr;
    }
    qv_btree_node_t* node = t->root;
    while (node->right_child != 0) {
        node = node->right;
    }
    return node;
}

qv_btree_node_t* qv_btree_next_node(qv_btree_node_t* node) {
    assert(node != nullptr);
    qv_btree_node_t* tmp = node->right;
    if (node->right_child != 0) {
        qv_btree_prefetch(tmp->right);
        while (tmp->left_child != 0) {
            tmp = tmp->left;
            qv_btree_prefetch(tmp->right);
        }
    }
    return tmp;
}

static qv_btree_node_t* qv_btree_node_previous(qv_btree_node_t* node) {
    qv_btree_node_t* tmp = node->left;
    if (node->left_child != 0) {
        while (tmp->right_child != 0) {
            tmp = tmp->right;
        }
    }
    return tmp;
}

void* qv_btree_node_key(qv_btree_node_t* node) {
    return node != nullptr ? node->key : nullptr;
}

void* qv_btree_node_value(qv_btree_node_t* node) {
    return node != nullptr ? node->value : nullptr;
}

// ---------------------------------------------------------------------------------------------
// Search

// Where a search ended: at a node with an equal key, or at one whose link on the key's side is a
// thread. path holds the ancestors of node, and idx is its level.
struct qv_btree_position_t {
    qv_btree_node_t* path[QV_BTREE_MAX_LEVELS];
    size_t idx;
    qv_btree_node_t* node;
    int32_t cmp;
};

// Takes if_left for a mask of zeros and if_right for one of ones: by arithmetic, so that no
// compiler makes it a branch.
static inline uintptr_t qv_btree_select(uintptr_t mask, uintptr_t if_left, uintptr_t if_right) {
    return (if_left & ~mask) | (if_right & mask);
}

template <typename T>
static inline T* qv_btree_select(uintptr_t mask, T* if_left, T* if_right) {
    return reinterpret_cast<T*>(qv_btree_select(mask, reinterpret_cast<uintptr_t>(if_left),
                                                reinterpret_cast<uintptr_t>(if_right)));
}

// The one descent behind every search. In a map with entries it calls key_compare with key first,
// from the root to the end that qv_btree_position_t describes. Unless it is to stop at an equal
// key, it passes it by on the left. A way that is predictable, much the same each time, is left to
// the branch predictor, whatever the size of the map.
static inline void qv_btree_search(const qv_btree_t* t, const void* key,
                                   qv_comparator_pt key_compare, bool stop_at_equal,
                                   bool predictable, qv_btree_position_t* end) {
    qv_btree_node_t* node = t->root;
    size_t idx = 1;
    int32_t cmp = 0;
    end->path[0] = nullptr;
    if (QV_BTREE_SMALL_MAP > 0 && t->nnodes <= QV_BTREE_SMALL_MAP && !predictable) {
        void* node_key = node->key;
        for (;;) {
            // Loaded while the comparator is busy, so that the next comparison only waits for the
            // choice between the two.
            void* const left_key = qv_btree_node_key(node->left);
            void* const right_key = qv_btree_node_key(node->right);
            cmp = key_compare(key, node_key);
            const uintptr_t mask = uintptr_t{0} - static_cast<uintptr_t>(cmp > 0);
            const bool ends = qv_btree_select(mask, node->left_child, node->right_child) == 0;
            if (ends || (cmp == 0 && stop_at_equal)) {
                break;
            }
            end->path[idx++] = node;
            node_key = qv_btree_select(mask, left_key, right_key);
            node = qv_btree_select(mask, node->left, node->right);
        }
    } else {
        for (;;) {
            // Both ways, while the comparator is busy: a guess at one is wrong half of the time.
            qv_btree_prefetch(node->left);
            qv_btree_prefetch(node->right);
            cmp = key_compare(key, node->key);
            if (cmp > 0) {
                if (node->right_child == 0) {
                    break;
                }
                end->path[idx++] = node;
                node = node->right;
            } else if (cmp < 0 || !stop_at_equal) {
                if (node->left_child == 0) {
                    break;
                }
                end->path[idx++] = node;
                node = node->left;
            } else {
                break;
            }
        }
    }
    end->idx = idx;
    end->node = node;
    end->cmp = cmp;
}

// ---------------------------------------------------------------------------------------------
// Rebalancing
//
// The two rotations undo each other. They return the subtree's new root, for the caller to hang
// where the old one hung:
//
//        x                              y
//       / \      rotate_left(x)        / \         .
//      a   y     -------------->      x   c
//         / \    <--------------     / \           .
//        b   c   rotate_right(y)    a   b
//
// Without the inner subtree b, the link in its place is a thread between the same two nodes, which
// turns around with them (dotted):
//
//        x                              y
//       / \      rotate_left(x)        / \         .
//      a   y     -------------->      x   c
//         : \    <--------------     / :
//    x <..:  c   rotate_right(y)    a  :..> y
//
// The new balances of rotate_left follow from the old ones. With a, b and c for the heights, let
// A = 1 + max(b, c) - a be the old balance of x, at least 1, and B = c - b that of y. As
// max(b, c) = b + max(B, 0), the new balances are
//
//     x:  b - a              =  A - 1 - max(B, 0)
//     y:  c - 1 - max(a, b)  =  min(c - a - 1, B - 1)  =  min(A - 2, B - 1)
//
// where for B >= 0, c - a is A - 1; and for B < 0, A >= 1 and with it a <= b make B - 1 the smaller
// term on both sides. rotate_right is the mirror image: signs change, min and max change places.

static qv_btree_node_t* qv_btree_node_rotate_left(qv_btree_node_t* node) {
    qv_btree_node_t* const right = node->right;
    node->right = right->left_child != 0 ? right->left : right;
    node->right_child = right->left_child;
    right->left = node;
    right->left_child = 1;

    const int8_t a_bal = node->balance;
    const int8_t b_bal = right->balance;
    node->balance = static_cast<int8_t>(a_bal - 1 - (b_bal > 0 ? b_bal : 0));
    right->balance = static_cast<int8_t>(a_bal - 2 < b_bal - 1 ? a_bal - 2 : b_bal - 1);
    return right;
}

static qv_btree_node_t* qv_btree_node_rotate_right(qv_btree_node_t* node) {
    qv_btree_node_t* const left = node->left;
    node->left = left->right_child != 0 ? left->right : left;
    node->left_child = left->right_child;
    left->right = node;
    left->right_child = 1;

    const int8_t a_bal = node->balance;
    const int8_t b_bal = left->balance;
    node->balance = static_cast<int8_t>(a_bal + 1 - (b_bal < 0 ? b_bal : 0));
    left->balance = static_cast<int8_t>(a_bal + 2 > b_bal + 1 ? a_bal + 2 : b_bal + 1);
    return left;
}

// Brings a node of balance -2 or +2 back into bounds. A child that leans the other way is turned
// first; one of balance 0, which only a removal can meet, must not be.
static qv_btree_node_t* qv_btree_node_balance(qv_btree_node_t* node) {
    if (node->balance < 0) {
        if (node->left->balance > 0) {
            node->left = qv_btree_node_rotate_left(node->left);
        }
        return qv_btree_node_rotate_right(node);
    }
    if (node->right->balance < 0) {
        node->right = qv_btree_node_rotate_right(node->right);
    }
    return qv_btree_node_rotate_left(node);
}

// Hangs subtree on the left or right of parent, or makes it the whole tree when parent is NULL.
static void qv_btree_relink(qv_btree_t* t, qv_btree_node_t* parent, bool left_node,
                            qv_btree_node_t* subtree) {
    if (parent == nullptr) {
        t->root = subtree;
    } else if (left_node) {
        parent->left = subtree;
    } else {
        parent->right = subtree;
    }
}

// Takes a change of height on one side of parent into its balance.
static void qv_btree_node_lean(qv_btree_node_t* parent, bool left_node, bool grown) {
    if (left_node == grown) {
        --parent->balance;
    } else {
        ++parent->balance;
    }
}

// Balances the tree upwards from path[idx], below which a subtree has grown or shrunk by one level,
// and whose balance says so already. Ends at the first subtree whose own height stays the same.
static void qv_btree_rebalance(qv_btree_t* t, qv_btree_node_t* const* path, size_t idx,
                               bool grown) {
    qv_btree_node_t* node = path[idx];
    while (node != nullptr) {
        qv_btree_node_t* const parent = path[--idx];
        const bool left_node = parent != nullptr && parent->left == node;
        if (node->balance < -1 || node->balance > 1) {
            node = qv_btree_node_balance(node);
            qv_btree_relink(t, parent, left_node, node);
        }
        const bool height_changed = (node->balance != 0) == grown;
        if (!height_changed || parent == nullptr) {
            return;
        }
        qv_btree_node_lean(parent, left_node, grown);
        node = parent;
    }
}

// ---------------------------------------------------------------------------------------------
// Shared insertion and removal

static qv_btree_node_t* qv_btree_node_new(void* key, void* value) {
    // Zeroed memory is a node of balance 0 whose links are two NULL threads.
    auto* const node = static_cast<qv_btree_node_t*>(qv_zalloc(sizeof(qv_btree_node_t)));
    if (node != nullptr) {
        node->key = key;
        node->value = value;
    }
    return node;
}

static void qv_btree_node_overwrite(const qv_btree_t* t, qv_btree_node_t* node, void* key,
                                    void* value, bool replace) {
    if (t->value_dtor != nullptr) {
        t->value_dtor(node->value);
    }
    node->value = value;
    if (t->key_dtor != nullptr) {
        t->key_dtor(replace ? node->key : key);
    }
    if (replace) {
        node->key = key;
    }
}

static void qv_btree_node_destroy_entry(const qv_btree_t* t, const qv_btree_node_t* node) {
    if (t->key_dtor != nullptr) {
        t->key_dtor(node->key);
    }
    if (t->value_dtor != nullptr) {
        t->value_dtor(node->value);
    }
}

// For predictable see qv_btree_search.
static void qv_btree_insert_internal(qv_btree_t* t, void* key, void* value, bool replace,
                                     bool predictable) {
    if (t == nullptr) {
        return;
    }
    if (t->root == nullptr) {
        t->root = qv_btree_node_new(key, value);
        if (t->root != nullptr) {
            ++t->nnodes;
        }
        return;
    }

    qv_btree_position_t at;
    qv_btree_search(t, key, t->key_compare, true, predictable, &at);
    qv_btree_node_t* const node = at.node;
    if (at.cmp == 0) {
        qv_btree_node_overwrite(t, node, key, value, replace);
        return;
    }
    if (at.idx == QV_BTREE_MAX_LEVELS) {
        return;
    }

    qv_btree_node_t* const child = qv_btree_node_new(key, value);
    if (child == nullptr) {
        return;
    }
    // The child takes over the thread that stood in its place; its other one leads to its parent.
    const bool left_node = at.cmp < 0;
    child->left = left_node ? node->left : node;
    child->right = left_node ? node : node->right;
    (left_node ? node->left : node->right) = child;
    (left_node ? node->left_child : node->right_child) = 1;
    ++t->nnodes;
    at.path[at.idx] = node;
    qv_btree_node_lean(node, left_node, true);
    qv_btree_rebalance(t, at.path, at.idx, true);
}

// Takes node, at level idx with its ancestors in path, out of the tree, its children and the
// threads that lead to it. Returns the level from which to rebalance.
static size_t qv_btree_node_unlink(qv_btree_t* t, qv_btree_node_t** path, size_t idx,
                                   qv_btree_node_t* node) {
    qv_btree_node_t* const parent = path[idx - 1];
    const bool left_node = parent != nullptr && parent->left == node;

    if (node->left_child != 0 && node->right_child != 0) {
        // The successor, leftmost in the right subtree, takes the node's place.
        const size_t old_idx = idx;
        qv_btree_node_t* next = node->right;
        while (next->left_child != 0) {
            path[++idx] = next;
            next = next->left;
        }
        qv_btree_node_previous(node)->right = next;
        next->balance = node->balance;
        if (idx == old_idx) {
            // It is the right child itself and keeps its own right side, one level shorter.
            qv_btree_node_lean(next, false, false);
        } else {
            qv_btree_node_t* const nextp = path[idx];
            if (next->right_child != 0) {
                nextp->left = next->right;
            } else {
                nextp->left_child = 0;  // The link still leads to next, now as a thread.
            }
            qv_btree_node_lean(nextp, true, false);
            next->right_child = 1;
            next->right = node->right;
        }
        next->left_child = 1;
        next->left = node->left;
        path[old_idx] = next;
        qv_btree_relink(t, parent, left_node, next);
        return idx;
    }

    if (node->left_child != 0) {
        qv_btree_node_previous(node)->right = node->right;
        qv_btree_relink(t, parent, left_node, node->left);
    } else if (node->right_child != 0) {
        qv_btree_next_node(node)->left = node->left;
        qv_btree_relink(t, parent, left_node, node->right);
    } else {
        // The link to a leaf becomes the leaf's own thread on that side; NULL where it is the root.
        qv_btree_relink(t, parent, left_node, left_node ? node->left : node->right);
        if (parent != nullptr) {
            (left_node ? parent->left_child : parent->right_child) = 0;
        }
    }
    if (parent != nullptr) {
        qv_btree_node_lean(parent, left_node, false);
    }
    return idx - 1;
}

static bool qv_btree_remove_internal(qv_btree_t* t, const char* key, bool steal,
                                     qv_comparator_pt key_compare) {
    if (t == nullptr || t->root == nullptr) {
        return false;
    }
    assert(key_compare != nullptr);

    qv_btree_position_t at;
    qv_btree_search(t, key, key_compare, true, false, &at);
    if (at.cmp != 0) {
        return false;
    }
    qv_btree_node_t* const node = at.node;
    const size_t idx = qv_btree_node_unlink(t, at.path, at.idx, node);
    qv_btree_rebalance(t, at.path, idx, false);

    if (!steal) {
        qv_btree_node_destroy_entry(t, node);
    }
    HAL_Free(node);
    --t->nnodes;
    return true;
}

// ---------------------------------------------------------------------------------------------
// Lifecycle and counters

qv_btree_t* qv_btree_new(qv_comparator_pt key_compare, qv_dtor_pt key_dtor, qv_dtor_pt value_dtor) {
    if (key_compare == nullptr) {
        return nullptr;
    }
    auto* const t = static_cast<qv_btree_t*>(qv_zalloc(sizeof(qv_btree_t)));
    if (t != nullptr) {
        t->key_compare = key_compare;
        t->key_dtor = key_dtor;
        t->value_dtor = value_dtor;
    }
    return t;
}

void qv_btree_free(qv_btree_t* t) {
    if (t == nullptr) {
        return;
    }
    qv_btree_clear(t);
    HAL_Free(t);
}

void qv_btree_clear(qv_btree_t* t) {
    if (t == nullptr) {
        return;
    }
    qv_btree_node_t* node = qv_btree_first_node(t);
    while (node != nullptr) {
        // Links of nodes already released are never read: a successor lies ahead in key order, and
        // so does everything on the way to it.
        qv_btree_node_t* const next = qv_btree_next_node(node);
        qv_btree_node_destroy_entry(t, node);
        HAL_Free(node);
        node = next;
    }
    t->root = nullptr;
    t->nnodes = 0;
}

size_t qv_btree_size(const qv_btree_t* t) {
    return t != nullptr ? t->nnodes : 0;
}

bool qv_btree_empty(const qv_btree_t* t) {
    return qv_btree_size(t) == 0;
}

// ---------------------------------------------------------------------------------------------
// Lookup and visiting

qv_btree_node_t* qv_btree_find_node(const qv_btree_t* t, const void* key) {
    if (t == nullptr || t->root == nullptr) {
        return nullptr;
    }
    qv_btree_position_t at;
    qv_btree_search(t, key, t->key_compare, true, false, &at);
    return at.cmp == 0 ? at.node : nullptr;
}

void* qv_btree_find(qv_btree_t* t, const void* key) {
    return qv_btree_node_value(qv_btree_find_node(t, key));
}

void* qv_btree_first(qv_btree_t* t, void** key) {
    qv_btree_node_t* const node = qv_btree_first_node(t);
    if (key != nullptr) {
        *key = qv_btree_node_key(node);
    }
    return qv_btree_node_value(node);
}

void* qv_btree_low_bound(qv_btree_t* t, const void* key) {
    if (t == nullptr || t->root == nullptr) {
        return nullptr;
    }
    qv_btree_position_t at;
    qv_btree_search(t, key, t->key_compare, false, false, &at);
    // A search that ends on its way to the right stands just below the key: the thread leads on.
    return qv_btree_node_key(at.cmp > 0 ? at.node->right : at.node);
}

void qv_btree_foreach(qv_btree_t* t, qv_key_value_pt func, void* user_data) {
    qv_btree_node_t* node = qv_btree_first_node(t);
    assert(func != nullptr || node == nullptr);
    while (node != nullptr && !func(node->key, node->value, user_data)) {
        node = qv_btree_next_node(node);
    }
}

// ---------------------------------------------------------------------------------------------
// Insertion

void qv_btree_insert(qv_btree_t* t, void* key, void* value) {
    qv_btree_insert_internal(t, key, value, false, false);
}

void qv_btree_replace(qv_btree_t* t, void* key, void* value) {
    qv_btree_insert_internal(t, key, value, true, false);
}

// ---------------------------------------------------------------------------------------------
// Removal

bool qv_btree_remove(qv_btree_t* t, const void* key) {
    return t != nullptr && qv_btree_remove_cmp(t, key, t->key_compare);
}

bool qv_btree_remove_cmp(qv_btree_t* t, const void* key, qv_comparator_pt key_compare) {
    return qv_btree_remove_internal(t, static_cast<const char*>(key), false, key_compare);
}

qv_btree_node_t* qv_btree_remove_node(qv_btree_t* t, qv_btree_node_t* node) {
    if (t == nullptr || node == nullptr) {
        return nullptr;
    }
    qv_btree_node_t* const next = qv_btree_next_node(node);
    qv_btree_remove(t, node->key);
    return next;
}

bool qv_btree_remove_until(qv_btree_t* t, const void* key) {
    qv_btree_node_t* const end_node = qv_btree_find_node(t, key);
    if (end_node == nullptr) {
        return false;
    }
    // Only a comparator that breaks its laws can take end_node away before the walk gets there.
    qv_btree_node_t* start_node = qv_btree_first_node(t);
    while (start_node != nullptr && start_node != end_node && start_node->key != nullptr) {
        qv_btree_node_t* const next = qv_btree_next_node(start_node);
        if (!qv_btree_remove(t, start_node->key)) {
            return false;
        }
        start_node = next;
    }
    return true;
}

// ---------------------------------------------------------------------------------------------
// Copying

static void qv_btree_insert_copies(qv_btree_t* tree, const qv_btree_t* other, qv_copy_pt key_copy,
                                   qv_copy_pt value_copy) {
    qv_btree_node_t* node = qv_btree_first_node(other);
    while (node != nullptr) {
        qv_btree_node_t* const next = qv_btree_next_node(node);
        if (next != nullptr) {
            qv_btree_prefetch(next->key);
        }
        void* const key = key_copy != nullptr ? key_copy(node->key) : node->key;
        void* const value = value_copy != nullptr ? value_copy(node->value) : node->value;
        qv_btree_insert_internal(tree, key, value, false, true);
        node = next;
    }
}

qv_btree_t* qv_btree_copy(const qv_btree_t* tree, qv_copy_pt key_copy, qv_copy_pt value_copy) {
    if (tree == nullptr) {
        return nullptr;
    }
    qv_btree_t* const copy =
        qv_btree_new(tree->key_compare, key_copy != nullptr ? tree->key_dtor : nullptr,
                     value_copy != nullptr ? tree->value_dtor : nullptr);
    if (copy != nullptr) {
        qv_btree_insert_copies(copy, tree, key_copy, value_copy);
    }
    return copy;
}

void qv_btree_assign(qv_btree_t* tree, const qv_btree_t* other, qv_copy_pt key_copy,
                     qv_copy_pt value_copy) {
    if (tree == nullptr || tree == other) {
        return;
    }
    qv_btree_clear(tree);
    qv_btree_insert_copies(tree, other, key_copy, value_copy);
}
