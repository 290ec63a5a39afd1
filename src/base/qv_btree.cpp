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
// Nodes have no parent pointers. Insertion and removal climb back up the tree, so they record the
// ancestors in a path on their way down: path[0] is NULL, for the missing parent of the root, and
// path[n] is the node at level n, the root being level 1. Insertion refuses an entry below level
// QV_BTREE_MAX_LEVELS, so a path has room for every ancestor of every node.

#include "qv_btree.h"

#include <assert.h>

#include "qv_memory.h"

struct qv_btree_node_s {
    void* key;               // as stored; only callbacks dereference it
    void* value;             // as stored; only callbacks dereference it
    qv_btree_node_t* left;   // root of the left subtree, or thread to the predecessor
    qv_btree_node_t* right;  // root of the right subtree, or thread to the successor
    int8_t balance;          // height of the right subtree minus height of the left one
    uint8_t left_child;      // 1: left is a child. 0: left is a thread, NULL in the first node
    uint8_t right_child;     // 1: right is a child. 0: right is a thread, NULL in the last node
};

struct qv_btree_s {
    qv_btree_node_t* root;         // NULL when the map is empty
    qv_comparator_pt key_compare;  // orders the keys; never NULL
    qv_dtor_pt key_dtor;           // releases a stored key; NULL when keys stay the caller's
    qv_dtor_pt value_dtor;         // releases a stored value; NULL when values stay the caller's
    size_t nnodes;                 // number of entries
};

// An insertion below this level is refused. The sparsest tree of 40 levels has, with one of 39 and
// one of 38 below its root, 165,580,140 + 102,334,154 + 1 = 267,914,295 entries: no smaller map can
// refuse one.
constexpr size_t QV_BTREE_MAX_LEVELS = 40;

// Loads an object into the cache ahead of its use; does nothing where the compiler cannot.
static inline void qv_btree_prefetch(const void* object) {
#if defined(__GNUC__)
    __builtin_prefetch(object);
#else
    static_cast<void>(object);
#endif
}

// Says that a condition is as often true as false, so that clang selects instead of branching on
// it. Other compilers know no such hint: by them lookups branch, as updates do.
#if defined(__clang__)
#define QV_BTREE_UNPREDICTABLE(condition) __builtin_unpredictable(condition)
constexpr bool QV_BTREE_LOOKUPS_SELECT = true;
#else
#define QV_BTREE_UNPREDICTABLE(condition) (condition)
constexpr bool QV_BTREE_LOOKUPS_SELECT = false;
#endif

// ---------------------------------------------------------------------------------------------
// Node navigation

qv_btree_node_t* qv_btree_first_node(const qv_btree_t* t) {
    qv_btree_node_t* node = t != nullptr ? t->root : nullptr;
    while (node != nullptr && node->left_child != 0) {
        node = node->left;
    }
    return node;
}

qv_btree_node_t* qv_btree_last_node(const qv_btree_t* t) {
    qv_btree_node_t* node = t != nullptr ? t->root : nullptr;
    while (node != nullptr && node->right_child != 0) {
        node = node->right;
    }
    return node;
}

qv_btree_node_t* qv_btree_next_node(qv_btree_node_t* node) {
    assert(node != nullptr);
    qv_btree_node_t* tmp = node->right;
    if (node->right_child != 0) {
        // A walk comes back to every node on this way down and takes its right link. The node there
        // is loaded now, while the walk is busy with the smaller keys.
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
    while (node->left_child != 0 && tmp->right_child != 0) {
        tmp = tmp->right;
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
// thread. In an empty map it ends at NULL with idx 0, as if to the right of it.
typedef struct qv_btree_place_s {
    qv_btree_node_t* node;
    qv_btree_node_t* next;  // where the link of node on the key's side leads
    size_t idx;             // the level of node, and its slot in a path
    int32_t cmp;            // the comparator's last answer, for the key and that of node
} qv_btree_place_t;

// What a search is for. All searches pass the key to the comparator first, a stored key second.
enum class qv_btree_goal_t {
    EQUAL,      // ends at an equal key
    LOW_BOUND,  // goes on to the left at an equal key, as at any larger key
};

// Searches from the root downwards. On the way it records the ancestors of the node at which it
// ends in path, from path[1] on; lookups, which do not climb back, pass NULL.
static inline qv_btree_place_t qv_btree_search(const qv_btree_t* t, const void* key,
                                               qv_comparator_pt key_compare, qv_btree_goal_t goal,
                                               qv_btree_node_t** path) {
    qv_btree_node_t* node = t->root;
    if (node == nullptr) {
        return {nullptr, nullptr, 0, 1};
    }
    const void* stored_key = node->key;
    for (size_t idx = 1;; ++idx) {
        // Both nodes that may come next are loaded while the comparator is busy.
        qv_btree_node_t* const left = node->left;
        qv_btree_node_t* const right = node->right;
        qv_btree_prefetch(left);
        qv_btree_prefetch(right);
        const int32_t cmp = key_compare(key, stored_key);
        const bool is_equal = goal == qv_btree_goal_t::EQUAL && cmp == 0;
        // A selection waits for the comparator. A branch does not where it is predicted, but costs
        // more where it is predicted wrongly: lookups, which come in any order, select; updates,
        // which often come in the order of the keys, branch.
        qv_btree_node_t* next = left;
        if (QV_BTREE_LOOKUPS_SELECT && path == nullptr) {
            bool is_end = node->left_child == 0;
            if (QV_BTREE_UNPREDICTABLE(cmp > 0)) {
                next = right;
                is_end = node->right_child == 0;
            }
            if (is_equal || is_end) {
                return {node, next, idx, cmp};
            }
        } else if (cmp > 0) {
            next = right;
            if (node->right_child == 0) {
                return {node, next, idx, cmp};
            }
        } else if (node->left_child == 0 || is_equal) {
            return {node, next, idx, cmp};
        }
        stored_key = next->key;  // before all else, as the next comparison waits for it
        if (path != nullptr) {
            assert(idx < QV_BTREE_MAX_LEVELS);  // node has a child, so it is above the last level.
            path[idx] = node;
        }
        node = next;
    }
}

// ---------------------------------------------------------------------------------------------
// Rebalancing

/*
 * The two rotations undo each other. Each returns the new root of the subtree:
 *
 *        x                              y
 *       / \      rotate_left(x)        / \
 *      a   y     -------------->      x   c
 *         / \    <--------------     / \
 *        b   c   rotate_right(y)    a   b
 *
 * Where b is missing, its link is a thread between x and y, and changes sides as b would.
 *
 * In heights, before rotate_left: y_balance = c - b, and x_balance = 1 + max(b, c) - a >= 1, where
 * max(b, c) = b + max(y_balance, 0). After it,
 *
 *     x->balance = b - a              =  x_balance - 1 - max(y_balance, 0)
 *     y->balance = c - 1 - max(a, b)  =  min(x_balance - 2, y_balance - 1)
 *
 * The last step where y_balance >= 0: max(b, c) is c, so c - 1 - a is x_balance - 2, and c - 1 - b
 * is y_balance - 1. Where y_balance < 0: max(b, c) is b, so x_balance >= 1 says that a <= b. Then
 * c - 1 - max(a, b) is y_balance - 1, which is the minimum, as x_balance - 2 >= -1 > y_balance - 1.
 *
 * rotate_right is the mirror image: signs change, min and max change places.
 */

static inline int qv_btree_min(int a, int b) {
    return a < b ? a : b;
}

static inline int qv_btree_max(int a, int b) {
    return a > b ? a : b;
}

static qv_btree_node_t* qv_btree_node_rotate_left(qv_btree_node_t* x) {
    assert(x->right_child != 0 && x->balance >= 1);  // y exists: the right side is taller.
    qv_btree_node_t* const y = x->right;
    x->right = y->left_child != 0 ? y->left : y;
    x->right_child = y->left_child;
    y->left = x;
    y->left_child = 1;

    const int8_t x_balance = x->balance;
    const int8_t y_balance = y->balance;
    x->balance = static_cast<int8_t>(x_balance - 1 - qv_btree_max(y_balance, 0));
    y->balance = static_cast<int8_t>(qv_btree_min(x_balance - 2, y_balance - 1));
    return y;
}

static qv_btree_node_t* qv_btree_node_rotate_right(qv_btree_node_t* y) {
    assert(y->left_child != 0 && y->balance <= -1);  // x exists: the left side is taller.
    qv_btree_node_t* const x = y->left;
    y->left = x->right_child != 0 ? x->right : x;
    y->left_child = x->right_child;
    x->right = y;
    x->right_child = 1;

    const int8_t y_balance = y->balance;
    const int8_t x_balance = x->balance;
    y->balance = static_cast<int8_t>(y_balance + 1 - qv_btree_min(x_balance, 0));
    x->balance = static_cast<int8_t>(qv_btree_max(y_balance + 2, x_balance + 1));
    return x;
}

// Brings a balance of -2 or +2 back into bounds, and returns the root of the subtree. A child with
// the opposite sign is rotated first; one of balance 0, which only a removal can meet, must not be.
static qv_btree_node_t* qv_btree_node_balance(qv_btree_node_t* node) {
    if (node->balance < -1) {
        if (node->left->balance > 0) {
            node->left = qv_btree_node_rotate_left(node->left);
        }
        node = qv_btree_node_rotate_right(node);
    } else if (node->balance > 1) {
        if (node->right->balance < 0) {
            node->right = qv_btree_node_rotate_right(node->right);
        }
        node = qv_btree_node_rotate_left(node);
    }
    return node;
}

// Puts subtree in the place of node, a child of parent or, where parent is NULL, the root. The flag
// of a left link does not matter: a left thread of parent never leads to a child of it.
static void qv_btree_replace_child(qv_btree_t* t, qv_btree_node_t* parent,
                                   const qv_btree_node_t* node, qv_btree_node_t* subtree) {
    if (parent == nullptr) {
        t->root = subtree;
    } else if (parent->left == node) {
        parent->left = subtree;
    } else {
        parent->right = subtree;
    }
}

// Climbs from path[idx], one of whose subtrees is taller (change is +1) or lower (-1) than it was:
// adjusts the balances, and rotates where one is out of bounds.
static void qv_btree_rebalance(qv_btree_t* t, qv_btree_node_t* const* path, size_t idx,
                               bool left_changed, int change) {
    // Loop invariant: the left subtree of path[idx], or its right one where left_changed is false,
    // has changed its height by change; all balances below path[idx] are right.
    for (; idx > 0; --idx) {
        qv_btree_node_t* const node = path[idx];
        qv_btree_node_t* const parent = path[idx - 1];
        const bool left_node = parent != nullptr && parent->left == node;
        node->balance = static_cast<int8_t>(node->balance + (left_changed ? -change : change));
        qv_btree_node_t* subtree = node;
        if (node->balance < -1 || node->balance > 1) {
            subtree = qv_btree_node_balance(node);
            qv_btree_replace_child(t, parent, node, subtree);
        }
        // Where one side has grown, the subtree is as tall as before only if its balance is 0 now;
        // where one has shrunk, only if its balance is not 0.
        const bool height_is_unchanged = change > 0 ? subtree->balance == 0 : subtree->balance != 0;
        if (height_is_unchanged) {
            return;  // No balance above it changes.
        }
        left_changed = left_node;
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

static void qv_btree_drop(qv_dtor_pt dtor, void* object) {
    if (dtor != nullptr) {
        dtor(object);
    }
}

static void qv_btree_node_overwrite(const qv_btree_t* t, qv_btree_node_t* node, void* key,
                                    void* value, bool replace) {
    qv_btree_drop(t->value_dtor, node->value);
    node->value = value;
    qv_btree_drop(t->key_dtor, replace ? node->key : key);
    if (replace) {
        node->key = key;
    }
}

static void qv_btree_insert_internal(qv_btree_t* t, void* key, void* value, bool replace) {
    if (t == nullptr) {
        return;
    }
    qv_btree_node_t* path[QV_BTREE_MAX_LEVELS];
    path[0] = nullptr;
    const qv_btree_place_t end =
        qv_btree_search(t, key, t->key_compare, qv_btree_goal_t::EQUAL, path);
    qv_btree_node_t* const node = end.node;
    if (end.cmp == 0) {
        qv_btree_node_overwrite(t, node, key, value, replace);
        return;
    }
    qv_btree_node_t* const child =
        end.idx < QV_BTREE_MAX_LEVELS ? qv_btree_node_new(key, value) : nullptr;
    if (child == nullptr) {
        return;
    }
    ++t->nnodes;
    if (node == nullptr) {
        t->root = child;
        return;
    }
    // The child takes over the thread in whose place it comes; its other thread leads to its
    // parent.
    const bool is_left = end.cmp < 0;
    child->left = is_left ? end.next : node;
    child->right = is_left ? node : end.next;
    *(is_left ? &node->left : &node->right) = child;
    *(is_left ? &node->left_child : &node->right_child) = 1;
    path[end.idx] = node;  // The search does not: at the lowest level a node has no slot.
    qv_btree_rebalance(t, path, end.idx, /*left_changed=*/is_left, +1);
}

/*
 * Puts next, the successor of a node with two children, in the place of that node. In the second
 * drawing next lies deeper, and leaves its old parent nextp:
 *
 *       node               next                  node                next
 *      /    \             /    \                /    \              /    \
 *     a      next   =>   a      c              a      d     =>     a      d
 *      \         \        \                     \    /               \    /
 *       prev      c        prev              prev  nextp        prev  nextp
 *                                                  /                  /
 *                                              next                  c
 *                                                  \
 *                                                   c
 *
 * The right thread of prev, the predecessor, led to node and leads to next afterwards. Where c is
 * missing, the left link of nextp becomes a thread to next.
 */
static void qv_btree_node_replace_by_successor(qv_btree_t* t, qv_btree_node_t** path,
                                               const qv_btree_place_t& found) {
    qv_btree_node_t* const node = found.node;
    qv_btree_node_t* const parent = path[found.idx - 1];
    qv_btree_node_t* const prev = qv_btree_node_previous(node);
    qv_btree_node_t* nextp = node;
    qv_btree_node_t* next = node->right;
    size_t idx = found.idx;  // the level of nextp
    while (next->left_child != 0) {
        assert(idx + 1 < QV_BTREE_MAX_LEVELS);  // next has a child, so it is above the last level.
        path[++idx] = next;
        nextp = next;
        next = next->left;
    }
    path[found.idx] = next;
    const bool is_deeper = nextp != node;
    if (is_deeper) {
        if (next->right_child != 0) {
            nextp->left = next->right;
        } else {
            nextp->left_child = 0;  // The link still leads to next, now as a thread.
        }
        next->right_child = 1;
        next->right = node->right;
    }
    prev->right = next;
    next->left_child = 1;
    next->left = node->left;
    next->balance = node->balance;
    qv_btree_replace_child(t, parent, node, next);
    // In the first drawing the right subtree of next is lower than that of node was, in the second
    // one the left subtree of nextp is lower.
    qv_btree_rebalance(t, path, idx, /*left_changed=*/is_deeper, -1);
}

// Takes a node with at most one child out of the tree: the child takes its place or, where there is
// none, a thread.
static void qv_btree_node_unlink(qv_btree_t* t, qv_btree_node_t** path,
                                 const qv_btree_place_t& found) {
    qv_btree_node_t* const node = found.node;
    qv_btree_node_t* const parent = path[found.idx - 1];
    const bool left_node = parent != nullptr && parent->left == node;

    if (node->left_child != 0) {
        qv_btree_node_previous(node)->right = node->right;
        qv_btree_replace_child(t, parent, node, node->left);
    } else if (node->right_child != 0) {
        qv_btree_next_node(node)->left = node->left;
        qv_btree_replace_child(t, parent, node, node->right);
    } else if (parent == nullptr) {
        t->root = nullptr;
    } else if (left_node) {
        parent->left = node->left;
        parent->left_child = 0;
    } else {
        parent->right = node->right;
        parent->right_child = 0;
    }
    qv_btree_rebalance(t, path, found.idx - 1, /*left_changed=*/left_node, -1);
}

// Only hands key to key_compare: the type does not mean a string. With steal the entry is taken out
// without its destructors; no public function asks for that.
static bool qv_btree_remove_internal(qv_btree_t* t, const char* key, bool steal,
                                     qv_comparator_pt key_compare) {
    if (t == nullptr) {
        return false;
    }
    // In an empty map there is nothing to compare.
    assert(key_compare != nullptr || t->root == nullptr);
    qv_btree_node_t* path[QV_BTREE_MAX_LEVELS];
    path[0] = nullptr;
    const qv_btree_place_t found =
        qv_btree_search(t, key, key_compare, qv_btree_goal_t::EQUAL, path);
    qv_btree_node_t* const node = found.node;
    if (found.cmp != 0) {
        return false;
    }
    if (node->left_child != 0 && node->right_child != 0) {
        qv_btree_node_replace_by_successor(t, path, found);
    } else {
        qv_btree_node_unlink(t, path, found);
    }
    if (!steal) {
        qv_btree_drop(t->key_dtor, node->key);
        qv_btree_drop(t->value_dtor, node->value);
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
    if (t != nullptr) {
        qv_btree_clear(t);
        HAL_Free(t);
    }
}

void qv_btree_clear(qv_btree_t* t) {
    if (t == nullptr) {
        return;
    }
    qv_btree_node_t* node = qv_btree_first_node(t);
    while (node != nullptr) {
        // Links of released nodes are never read: a successor and all nodes on the way to it are
        // later in key order.
        qv_btree_node_t* const next = qv_btree_next_node(node);
        qv_btree_drop(t->key_dtor, node->key);
        qv_btree_drop(t->value_dtor, node->value);
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
    if (t == nullptr) {
        return nullptr;
    }
    const qv_btree_place_t end =
        qv_btree_search(t, key, t->key_compare, qv_btree_goal_t::EQUAL, nullptr);
    return end.cmp == 0 ? end.node : nullptr;
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
    if (t == nullptr) {
        return nullptr;
    }
    const qv_btree_place_t end =
        qv_btree_search(t, key, t->key_compare, qv_btree_goal_t::LOW_BOUND, nullptr);
    // A search that ends on its way to the right ends just below the key: the thread leads on.
    if (QV_BTREE_UNPREDICTABLE(end.cmp > 0 && end.next == nullptr)) {
        return nullptr;
    }
    return (end.cmp > 0 ? end.next : end.node)->key;
}

void qv_btree_foreach(qv_btree_t* t, qv_key_value_pt func, void* user_data) {
    qv_btree_node_t* node = qv_btree_first_node(t);
    // In an empty map there is nothing to visit.
    assert(func != nullptr || node == nullptr);
    while (node != nullptr && !func(node->key, node->value, user_data)) {
        node = qv_btree_next_node(node);
    }
}

// ---------------------------------------------------------------------------------------------
// Insertion

void qv_btree_insert(qv_btree_t* t, void* key, void* value) {
    qv_btree_insert_internal(t, key, value, /*replace=*/false);
}

void qv_btree_replace(qv_btree_t* t, void* key, void* value) {
    qv_btree_insert_internal(t, key, value, /*replace=*/true);
}

// ---------------------------------------------------------------------------------------------
// Removal

bool qv_btree_remove(qv_btree_t* t, const void* key) {
    return t != nullptr && qv_btree_remove_cmp(t, key, t->key_compare);
}

bool qv_btree_remove_cmp(qv_btree_t* t, const void* key, qv_comparator_pt key_compare) {
    return qv_btree_remove_internal(t, static_cast<const char*>(key), /*steal=*/false, key_compare);
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
    // Only a callback that breaks the rules can take end_node away before the walk gets there.
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
    for (auto* node = qv_btree_first_node(other); node != nullptr;
         node = qv_btree_next_node(node)) {
        qv_btree_prefetch(qv_btree_node_key(node->right));  // the next key, or one soon after it
        void* const key = key_copy != nullptr ? key_copy(node->key) : node->key;
        void* const value = value_copy != nullptr ? value_copy(node->value) : node->value;
        qv_btree_insert(tree, key, value);
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
    if (tree != nullptr && tree != other) {
        qv_btree_clear(tree);
        qv_btree_insert_copies(tree, other, key_copy, value_copy);
    }
}
