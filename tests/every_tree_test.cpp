// Every AVL tree of up to five levels, with every insertion and every removal, beside the model.

#include "qv_btree.cpp"

#include <gtest/gtest.h>

#include <vector>

#include "model.h"

namespace {

std::array<qv_btree_node_t, 64> nodes;  // The entry of a key is the node at that index.
qv_btree_node_t* allocated;
int operations;

int32_t compare(const void* a, const void* b) {
    return a < b ? -1 : a == b ? 0 : 1;
}

void* ptr(int key) {
    return reinterpret_cast<void*>(intptr_t{key});
}

void insert(qv_btree_t* map, int key) {
    allocated = &nodes[static_cast<size_t>(key)];
    qv_btree_insert(map, ptr(key), nullptr);
}

void try_operations(const Tree* shape) {
    const size_t trees_before = trees.size();
    int last = 0;
    const Tree* const before = numbered(shape, 2, &last);
    qv_btree_t built = {nullptr, compare, nullptr, nullptr, 0};
    for_each_level(before, [&](int key) { insert(&built, key); });
    const auto built_nodes = nodes;
    for (int key = 1; key <= last + 1; ++key) {
        const bool is_new = key % 2 != 0;
        qv_btree_t map = built;
        nodes = built_nodes;
        is_new ? insert(&map, key) : void(qv_btree_remove(&map, ptr(key)));
        const Tree* const expected = changed(before, key);
        const auto key_of = [](const auto* node) { return static_cast<int>(node - nodes.data()); };
        const std::string wrong = difference(expected, map.root, key_of);
        ASSERT_EQ(wrong, "") << (is_new ? "insert " : "remove ") << key << " in " << text(before)
                             << "\nexpected: " << text(expected);
        ASSERT_EQ(map.nnodes, is_new ? built.nnodes + 1 : built.nnodes - 1);
    }
    trees.resize(trees_before);
    operations += last + 1;
}

TEST(EveryTree, InsertionAndRemoval) {
    std::vector<std::vector<const Tree*>> of_levels = {{}, {nullptr}};  // [n + 1]: n levels
    try_operations(nullptr);
    for (size_t low = 0; low < QV_TEST_LEVELS; ++low) {
        of_levels.emplace_back();
        for (const auto& [l, r] : {std::pair{low + 1, low + 1}, {low + 1, low}, {low, low + 1}}) {
            for (const Tree* left : of_levels[l]) {
                for (const Tree* right : of_levels[r]) {
                    of_levels.back().push_back(tree(left, 0, right));
                    ASSERT_NO_FATAL_FAILURE(try_operations(of_levels.back().back()));
                }
            }
        }
    }
    EXPECT_EQ(operations, QV_TEST_LEVELS == 5 ? 4782184 : 7099);
}

}  // namespace

void* HAL_Malloc(unsigned long size) {
    return size == sizeof(qv_btree_node_t) ? allocated : nullptr;
}

void HAL_Free(void* /*ptr*/) {}
