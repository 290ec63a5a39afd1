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
// QV_BTREE_MAX_LEVELS, so a path has room for every ancestor of every node, and nothing else tests
// for its end.

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

// An insertion below this level is refused. The sparsest tree of 40 levels has 267,914,295 entries:
// no smaller map can refuse one.
constexpr size_t QV_BTREE_MAX_LEVELS = 40;

// Up to this many entries a lookup loses more time to mispredicted branches than to cache misses. A
// platform without branch prediction may set 0, and saves the code of one of the two searches.
#ifndef QV_BTREE_SMALL_MAP
#define QV_BTREE_SMALL_MAP 4096
#endif

// Loads an object into the cache ahead of its use; does nothing where the compiler cannot.
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
// thread. In an empty map it ends at NULL on level 0, as if to the left of it.
typedef struct qv_btree_place_s {
    qv_btree_node_t* node;
    size_t level;  // of node
    int32_t cmp;   // the comparator's last answer, for the key and that of node
} qv_btree_place_t;

// What a search is for. All searches compare from the root downwards, with key first.
enum class qv_btree_goal {
    EQUAL,      // ends at an equal key
    LOW_BOUND,  // goes on to the left at an equal key, as at any larger key
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

// There are two searches. In a small map, which the cache holds, a lookup spends most of its time
// on mispredicted branches, so it has none. A larger map waits for memory, and an update for the
// work after the search: branch prediction lets the processor begin both before the comparator
// answers.

static inline qv_btree_place_t qv_btree_search_without_branches(const qv_btree_t* t,
                                                                const void* key,
                                                                qv_comparator_pt key_compare,
                                                                qv_btree_goal goal) {
    qv_btree_node_t* node = t->root;
    void* node_key = node->key;
    for (size_t level = 1;; ++level) {
        // Both keys that may come next are loaded while the comparator is busy, so that the next
        // comparison only waits for the choice between them. Where a link is a thread or NULL the
        // search ends, and what was loaded through it is not used.
        void* const left_key = qv_btree_node_key(node->left);
        void* const right_key = qv_btree_node_key(node->right);
        const int32_t cmp = key_compare(key, node_key);
        const uintptr_t mask = uintptr_t{0} - static_cast<uintptr_t>(cmp > 0);
        const bool is_child = qv_btree_select(mask, node->left_child, node->right_child) != 0;
        if (!is_child || (cmp == 0 && goal == qv_btree_goal::EQUAL)) {
            return {node, level, cmp};
        }
        node_key = qv_btree_select(mask, left_key, right_key);
        node = qv_btree_select(mask, node->left, node->right);
    }
}

// Records the ancestors of where it ends, unless path is NULL.
static inline qv_btree_place_t qv_btree_search_with_branches(const qv_btree_t* t, const void* key,
                                                             qv_comparator_pt key_compare,
                                                             qv_btree_goal goal,
                                                             qv_btree_node_t** path) {
    qv_btree_node_t* node = t->root;
    if (path != nullptr) {
        path[0] = nullptr;
    }
    for (size_t level = 1;; ++level) {
        // Both nodes that may come next are loaded while the comparator is busy.
        qv_btree_prefetch(node->left);
        qv_btree_prefetch(node->right);
        const int32_t cmp = key_compare(key, node->key);
        const bool is_child = (cmp > 0 ? node->right_child : node->left_child) != 0;
        if (!is_child || (cmp == 0 && goal == qv_btree_goal::EQUAL)) {
            return {node, level, cmp};
        }
        if (path != nullptr) {
            path[level] = node;
        }
        node = cmp > 0 ? node->right : node->left;
    }
}

// Records the ancestors of where it ends in path; lookups, which do not climb back, pass NULL.
static inline qv_btree_place_t qv_btree_search(const qv_btree_t* t, const void* key,
                                               qv_comparator_pt key_compare, qv_btree_goal goal,
                                               qv_btree_node_t** path) {
    if (t->root == nullptr) {
        return {nullptr, 0, -1};
    }
    if (QV_BTREE_SMALL_MAP > 0 && t->nnodes <= QV_BTREE_SMALL_MAP && path == nullptr) {
        return qv_btree_search_without_branches(t, key, key_compare, goal);
    }
    return qv_btree_search_with_branches(t, key, key_compare, goal, path);
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
 * The last step: if y_balance >= 0, c - 1 - a is x_balance - 2. If not, a <= b, and both minima are
 * y_balance - 1. rotate_right is the mirror image: signs change, min and max change places.
 */

static inline int qv_btree_min(int a, int b) {
    return a < b ? a : b;
}

static inline int qv_btree_max(int a, int b) {
    return a > b ? a : b;
}

static qv_btree_node_t* qv_btree_node_rotate_left(qv_btree_node_t* x) {
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

// Brings the balance of node back into bounds where it is out of them, and returns the root of the
// subtree. A child with the opposite sign is rotated first; one of balance 0, which only a removal
// can meet, must not be.
static qv_btree_node_t* qv_btree_node_balance(qv_btree_node_t* node) {
    if (node->balance < -1) {
        if (node->left->balance > 0) {
            node->left = qv_btree_node_rotate_left(node->left);
        }
        return qv_btree_node_rotate_right(node);
    }
    if (node->balance > 1) {
        if (node->right->balance < 0) {
            node->right = qv_btree_node_rotate_right(node->right);
        }
        return qv_btree_node_rotate_left(node);
    }
    return node;
}

// Returns whether node, a child of parent or the root, is a left child. The flag of the link does
// not matter: a left thread of parent leads to a node outside its subtree, which node is not.
static inline bool qv_btree_is_left_node(const qv_btree_node_t* parent,
                                         const qv_btree_node_t* node) {
    return parent != nullptr && parent->left == node;
}

// Makes subtree the left or right child of parent, or the whole tree where parent is NULL.
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

// Adjusts the balances from path[level] upwards, and rotates where one is out of bounds. The height
// of that node's left subtree, or else of its right one, has changed by change: +1 or -1.
static void qv_btree_rebalance(qv_btree_t* t, qv_btree_node_t* const* path, size_t level,
                               bool left_node, int change) {
    for (qv_btree_node_t* node = path[level]; node != nullptr; node = path[level]) {
        qv_btree_node_t* const parent = path[--level];
        node->balance = static_cast<int8_t>(node->balance + (left_node ? -change : change));
        left_node = qv_btree_is_left_node(parent, node);
        node = qv_btree_node_balance(node);
        qv_btree_relink(t, parent, left_node, node);
        // A subtree in which one side has grown is taller unless its balance is 0 now; one in which
        // a side has shrunk is shorter only if its balance is 0 now.
        if ((node->balance == 0) == (change > 0)) {
            return;  // Its height is unchanged, and so are all balances above.
        }
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

static void qv_btree_insert_internal(qv_btree_t* t, void* key, void* value, bool replace) {
    if (t == nullptr) {
        return;
    }
    qv_btree_node_t* path[QV_BTREE_MAX_LEVELS];
    const qv_btree_place_t end =
        qv_btree_search(t, key, t->key_compare, qv_btree_goal::EQUAL, path);
    qv_btree_node_t* const node = end.node;
    if (end.cmp == 0) {
        qv_btree_node_overwrite(t, node, key, value, replace);
        return;
    }
    if (end.level == QV_BTREE_MAX_LEVELS) {
        return;
    }
    qv_btree_node_t* const child = qv_btree_node_new(key, value);
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
    const bool left_node = end.cmp < 0;
    child->left = left_node ? node->left : node;
    child->right = left_node ? node : node->right;
    (left_node ? node->left : node->right) = child;
    (left_node ? node->left_child : node->right_child) = 1;
    path[end.level] = node;  // Not recorded by the search: at the lowest level it has no slot.
    qv_btree_rebalance(t, path, end.level, left_node, +1);
}

// Puts the successor of a node with two children in its place.
static void qv_btree_node_replace_by_successor(qv_btree_t* t, qv_btree_node_t** path,
                                               const qv_btree_place_t& found) {
    qv_btree_node_t* const node = found.node;
    qv_btree_node_t* const parent = path[found.level - 1];

    // The successor is the leftmost node of the right subtree.
    size_t level = found.level;
    qv_btree_node_t* next = node->right;
    while (next->left_child != 0) {
        path[++level] = next;
        next = next->left;
    }
    path[found.level] = next;
    const bool is_deeper = level > found.level;
    if (is_deeper) {
        qv_btree_node_t* const nextp = path[level];
        if (next->right_child != 0) {
            nextp->left = next->right;
        } else {
            nextp->left_child = 0;  // The link still leads to next, now as a thread.
        }
        next->right_child = 1;
        next->right = node->right;
    }
    qv_btree_node_previous(node)->right = next;
    next->left_child = 1;
    next->left = node->left;
    next->balance = node->balance;
    qv_btree_relink(t, parent, qv_btree_is_left_node(parent, node), next);
    // The left subtree of nextp is lower now or, where next was the right child, its own right one.
    qv_btree_rebalance(t, path, level, is_deeper, -1);
}

// Takes a node with at most one child out of the tree: the child takes its place or, where there is
// none, a thread.
static void qv_btree_node_unlink(qv_btree_t* t, qv_btree_node_t** path,
                                 const qv_btree_place_t& found) {
    qv_btree_node_t* const node = found.node;
    qv_btree_node_t* const parent = path[found.level - 1];
    const bool left_node = qv_btree_is_left_node(parent, node);

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
    qv_btree_rebalance(t, path, found.level - 1, left_node, -1);
}

static bool qv_btree_remove_internal(qv_btree_t* t, const char* key, bool steal,
                                     qv_comparator_pt key_compare) {
    if (t == nullptr) {
        return false;
    }
    assert(key_compare != nullptr || t->root == nullptr);
    qv_btree_node_t* path[QV_BTREE_MAX_LEVELS];
    const qv_btree_place_t found = qv_btree_search(t, key, key_compare, qv_btree_goal::EQUAL, path);
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
        // Links of released nodes are never read: a successor and all nodes on the way to it are
        // later in key order.
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
    if (t == nullptr) {
        return nullptr;
    }
    const qv_btree_place_t end =
        qv_btree_search(t, key, t->key_compare, qv_btree_goal::EQUAL, nullptr);
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
        qv_btree_search(t, key, t->key_compare, qv_btree_goal::LOW_BOUND, nullptr);
    // A search that ends on its way to the right ends just below the key: the thread leads on.
    return qv_btree_node_key(end.cmp > 0 ? end.node->right : end.node);
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
    for (; node != nullptr; node = qv_btree_next_node(node)) {
        qv_btree_prefetch(qv_btree_node_key(qv_btree_next_node(node)));  // for the next round
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
    if (tree == nullptr || tree == other) {
        return;
    }
    qv_btree_clear(tree);
    qv_btree_insert_copies(tree, other, key_copy, value_copy);
}
