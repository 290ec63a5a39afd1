// Every AVL tree of up to five levels, with every insertion and every removal. The results are
// those of a model: recursive, with heights and without threads, in which the successor takes the
// place of a node with two children.

#include "qv_btree.cpp"

#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <vector>

#include "invariants.h"

namespace {

// --- The model: subtrees that never change, NULL being the empty one --------------------------

struct Model {
    std::array<const Model*, 2> child;
    intptr_t key;
    int height;
};
std::deque<Model> models;  // owns them

int height(const Model* model) {
    return model != nullptr ? model->height : 0;
}

// Its left child is a or, in the mirror image, b.
const Model* tree(const Model* a, intptr_t key, const Model* b, bool mirrored = false) {
    models.push_back(
        {{mirrored ? b : a, mirrored ? a : b}, key, std::max(height(a), height(b)) + 1});
    return &models.back();
}

// As tree(), but one side may be too tall by a level: then its inner subtree changes sides.
const Model* balanced(const Model* left, intptr_t key, const Model* right) {
    const bool m = height(right) > height(left);
    const Model* const tall = m ? right : left;
    const Model* const low = m ? left : right;
    if (height(tall) <= height(low) + 1) {
        return tree(left, key, right);
    }
    const Model* const outer = tall->child[m ? 1 : 0];
    const Model* const inner = tall->child[m ? 0 : 1];
    if (height(inner) <= height(outer)) {
        return tree(outer, tall->key, tree(inner, key, low, m), m);
    }
    return tree(tree(outer, tall->key, inner->child[m ? 1 : 0], m), inner->key,
                tree(inner->child[m ? 0 : 1], key, low, m), m);
}

// Without the key where it is stored, and with it where it is not.
const Model* changed(const Model* model, intptr_t key) {
    if (model == nullptr) {
        return tree(nullptr, key, nullptr);
    }
    const auto [left, right] = model->child;
    if (key != model->key) {
        return key < model->key ? balanced(changed(left, key), model->key, right)
                                : balanced(left, model->key, changed(right, key));
    }
    if (left == nullptr || right == nullptr) {
        return left != nullptr ? left : right;
    }
    const Model* next = right;
    while (next->child[0] != nullptr) {
        next = next->child[0];
    }
    return balanced(left, next->key, changed(right, next->key));
}

std::string text(const Model* model) {
    return model == nullptr ? ""
                            : '(' + text(model->child[0]) + std::to_string(model->key) +
                                  text(model->child[1]) + ')';
}

bool same(const Model* a, const Model* b) {
    return a == b || (a != nullptr && b != nullptr && a->key == b->key &&
                      same(a->child[0], b->child[0]) && same(a->child[1], b->child[1]));
}

// --- The map: the entry of a key is the node at that index --------------------------------------

std::array<qv_btree_node_t, 64> nodes;
qv_btree_node_t* allocated;

int32_t compare(const void* a, const void* b) {
    return a < b ? -1 : a == b ? 0 : 1;
}

void insert(qv_btree_t* map, intptr_t key) {
    allocated = &nodes[static_cast<size_t>(key)];
    qv_btree_insert(map, reinterpret_cast<void*>(key), nullptr);
}

// The tree of the map, with the indices of its nodes for keys; of a broken one, the upper levels.
const Model* model_of(bool exists, const qv_btree_node_t* node, int levels = 8) {
    return exists && node != nullptr && levels > 0
               ? tree(model_of(node->left_child != 0, node->left, levels - 1), node - nodes.data(),
                      model_of(node->right_child != 0, node->right, levels - 1))
               : nullptr;
}

// --- All trees ---------------------------------------------------------------------------------

// A tree of the given shape with the keys 2, 4, 6...
const Model* numbered(const Model* shape, intptr_t* last) {
    if (shape == nullptr) {
        return nullptr;
    }
    const Model* const left = numbered(shape->child[0], last);
    const intptr_t key = *last += 2;
    return tree(left, key, numbered(shape->child[1], last));
}

intptr_t operations;

void try_operations(const Model* shape) {
    const size_t models_before = models.size();
    intptr_t last = 0;
    const Model* const before = numbered(shape, &last);
    qv_btree_t built = {nullptr, compare, nullptr, nullptr, 0};
    std::deque<const Model*> level = {before};  // Level by level, no insertion rotates.
    for (; !level.empty(); level.pop_front()) {
        if (const Model* const model = level.front()) {
            insert(&built, model->key);
            level.insert(level.end(), model->child.begin(), model->child.end());
        }
    }
    const auto built_nodes = nodes;
    for (intptr_t key = 1; key <= last + 1; ++key) {
        const bool is_new = key % 2 != 0;
        qv_btree_t map = built;
        nodes = built_nodes;
        is_new ? insert(&map, key) : void(qv_btree_remove(&map, reinterpret_cast<void*>(key)));
        const std::string broken = broken_invariant(&map);
        const Model* const expected = changed(before, key);
        const Model* const actual = model_of(map.root != nullptr, map.root);
        ASSERT_TRUE(broken.empty() && same(expected, actual))
            << (is_new ? "insert " : "remove ") << key << " in " << text(before)
            << "\nexpected: " << text(expected) << "\n but got: " << text(actual) << ' ' << broken;
    }
    models.resize(models_before);
    operations += last + 1;
}

TEST(EveryTree, InsertionAndRemoval) {
    std::vector<std::vector<const Model*>> of_levels = {{}, {nullptr}};  // [n + 1]: n levels
    try_operations(nullptr);
    for (size_t low = 0; low < QV_TEST_LEVELS; ++low) {
        of_levels.emplace_back();
        for (const auto& [l, r] : {std::pair{low + 1, low + 1}, {low + 1, low}, {low, low + 1}}) {
            for (const Model* left : of_levels[l]) {
                for (const Model* right : of_levels[r]) {
                    of_levels.back().push_back(tree(left, 0, right));
                    ASSERT_NO_FATAL_FAILURE(try_operations(of_levels.back().back()));
                }
            }
        }
    }
    EXPECT_EQ(operations, QV_TEST_LEVELS == 5 ? 4782184 : 7099);
}

}  // namespace

void* HAL_Malloc(unsigned long /*size*/) {
    return allocated;
}

void HAL_Free(void* /*ptr*/) {}
