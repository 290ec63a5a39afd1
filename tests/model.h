// A model of a map's tree: recursive, with heights and without threads, in which the successor
// takes the place of a node with two children.
#pragma once

#include <algorithm>
#include <array>
#include <deque>
#include <string>

// Never changes; NULL is the empty tree.
struct Tree {
    std::array<const Tree*, 2> child;
    int key;
    int height;
};
inline std::deque<Tree> trees;  // owns them

inline int height(const Tree* tree) {
    return tree != nullptr ? tree->height : 0;
}

// Its left child is a or, in the mirror image, b.
inline const Tree* tree(const Tree* a, int key, const Tree* b, bool mirrored = false) {
    trees.push_back(
        {{mirrored ? b : a, mirrored ? a : b}, key, std::max(height(a), height(b)) + 1});
    return &trees.back();
}

// As tree(), but one side may be too tall by a level: then its inner subtree changes sides.
inline const Tree* balanced(const Tree* left, int key, const Tree* right) {
    const bool m = height(right) > height(left);
    const Tree* const tall = m ? right : left;
    const Tree* const low = m ? left : right;
    if (height(tall) <= height(low) + 1) {
        return tree(left, key, right);
    }
    const Tree* const outer = tall->child[m ? 1 : 0];
    const Tree* const inner = tall->child[m ? 0 : 1];
    if (height(inner) <= height(outer)) {
        return tree(outer, tall->key, tree(inner, key, low, m), m);
    }
    return tree(tree(outer, tall->key, inner->child[m ? 1 : 0], m), inner->key,
                tree(inner->child[m ? 0 : 1], key, low, m), m);
}

// Without the key where it is stored, and with it where it is not.
inline const Tree* changed(const Tree* before, int key) {
    if (before == nullptr) {
        return tree(nullptr, key, nullptr);
    }
    const auto [left, right] = before->child;
    if (key != before->key) {
        return key < before->key ? balanced(changed(left, key), before->key, right)
                                 : balanced(left, before->key, changed(right, key));
    }
    if (left == nullptr || right == nullptr) {
        return left != nullptr ? left : right;
    }
    const Tree* next = right;
    while (next->child[0] != nullptr) {
        next = next->child[0];
    }
    return balanced(left, next->key, changed(right, next->key));
}

// The same shape with the keys step, 2 * step, 3 * step...
inline const Tree* numbered(const Tree* shape, int step, int* last) {
    if (shape == nullptr) {
        return nullptr;
    }
    const Tree* const left = numbered(shape->child[0], step, last);
    const int key = *last += step;
    return tree(left, key, numbered(shape->child[1], step, last));
}

// Calls use for each key, level by level: inserted in this order, no key needs a rotation.
template <typename Use>
void for_each_level(const Tree* whole, Use use) {
    for (std::deque<const Tree*> level = {whole}; !level.empty(); level.pop_front()) {
        if (level.front() != nullptr) {
            use(level.front()->key);
            level.insert(level.end(), level.front()->child.begin(), level.front()->child.end());
        }
    }
}

inline std::string text(const Tree* tree) {
    return tree == nullptr ? ""
                           : '(' + text(tree->child[0]) + std::to_string(tree->key) +
                                 text(tree->child[1]) + ')';
}

// Returns what of a map's nodes is not as in the model, by the invariants that qv_btree.cpp
// numbers, and at which key; nothing where all is. before and after are the neighbours of the
// subtree.
template <typename Node, typename KeyOf>
std::string difference(const Tree* tree, const Node* node, KeyOf key_of,
                       const Node* before = nullptr, const Node* after = nullptr) {
    if (tree == nullptr) {
        return node == nullptr ? "" : "4: not empty";
    }
    const auto [left, right] = tree->child;
    const char* const broken =
        node == nullptr || key_of(node) != tree->key    ? "1: place of "
        : node->balance != height(right) - height(left) ? "2: balance of "
        : node->left_child != (left != nullptr) || node->right_child != (right != nullptr)
            ? "3: flags of "
        : (!left && node->left != before) || (!right && node->right != after) ? "3: threads of "
                                                                              : nullptr;
    if (broken != nullptr) {
        return broken + std::to_string(tree->key);
    }
    const auto on_left = left ? difference(left, node->left, key_of, before, node) : "";
    return right && on_left.empty() ? difference(right, node->right, key_of, node, after) : on_left;
}
