// Checks a map against the invariants numbered in qv_btree.cpp, which must be included before this
// header: the structures are there.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>

// Returns which invariant is broken first, and where: entries are counted in key order, from 1.
// Empty when all hold.
inline std::string broken_invariant(const qv_btree_t* map) {
    using Node = qv_btree_node_t;
    std::string broken;
    const Node* last = nullptr;
    size_t count = 0;
    const auto require = [&](bool holds, const char* what, size_t entry) {
        if (!holds && broken.empty()) {
            broken = "invariant " + std::string(what) + ' ' + std::to_string(entry);
        }
    };
    const std::function<int(Node*, size_t)> height = [&](Node* node, size_t level) {
        require(node != nullptr && level <= QV_BTREE_MAX_LEVELS, "2: NULL or too deep", count);
        if (!broken.empty()) {
            return 0;
        }
        const int left = node->left_child != 0 ? height(node->left, level + 1) : 0;
        const Node* const previous = std::exchange(last, node);
        const size_t entry = ++count;
        require(node->left_child <= 1 && node->right_child <= 1, "3: flags of entry", entry);
        require(!broken.empty() || qv_btree_node_previous(node) == previous,
                "3: predecessor of entry", entry);
        require(previous == nullptr || previous->right_child != 0 || previous->right == node,
                "3: right thread to entry", entry);
        require(previous == nullptr || map->key_compare(previous->key, node->key) < 0,
                "1: order before entry", entry);
        const int right = node->right_child != 0 ? height(node->right, level + 1) : 0;
        require(node->balance == right - left && std::abs(right - left) <= 1, "2: balance of entry",
                entry);
        return std::max(left, right) + 1;
    };
    if (map->root != nullptr) {
        height(map->root, 1);
    }
    require(!broken.empty() || last == qv_btree_last_node(map), "3: last node, entry", count);
    require(last == nullptr || last->right == nullptr, "3: right thread of entry", count);
    require(count == map->nnodes, "4: nnodes", map->nnodes);
    return broken;
}
