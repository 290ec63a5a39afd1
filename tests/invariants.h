// Checks a map against the invariants numbered in qv_btree.cpp, which must be included before this
// header, for the records.
#ifndef QV_TESTS_INVARIANTS_H
#define QV_TESTS_INVARIANTS_H

#include <algorithm>
#include <cstdlib>

class Invariants {
public:
    // Names the first invariant that is broken by its number; empty when all hold.
    static const char* broken(const qv_btree_t* map) {
        Invariants check(map);
        if (map->root != nullptr) {
            check.height(map->root, 1);
        }
        const qv_btree_node_t* const last = check.last_;
        check.require(last == nullptr || last->right == nullptr, "3: last right thread");
        check.require(check.count_ == map->nnodes, "4: count");
        return check.broken_;
    }

private:
    explicit Invariants(const qv_btree_t* map) : map_(map) {}

    void require(bool holds, const char* what) {
        if (!holds && *broken_ == '\0') {
            broken_ = what;
        }
    }

    int height(const qv_btree_node_t* node, size_t level) {
        require(level <= QV_BTREE_MAX_LEVELS && node != nullptr, "2: too deep, or a NULL child");
        if (*broken_ != '\0') {
            return 0;
        }
        const int left = node->left_child != 0 ? height(node->left, level + 1) : 0;
        require(node->left_child <= 1 && node->right_child <= 1, "3: flags");
        require(node->left_child != 0 || node->left == last_, "3: left thread");
        if (last_ != nullptr) {
            require(last_->right_child != 0 || last_->right == node, "3: right thread");
            require(map_->key_compare(last_->key, node->key) < 0 &&
                        map_->key_compare(node->key, last_->key) > 0,
                    "1: order");
        }
        last_ = node;
        ++count_;
        const int right = node->right_child != 0 ? height(node->right, level + 1) : 0;
        require(node->balance == right - left && std::abs(right - left) <= 1, "2: balance");
        return std::max(left, right) + 1;
    }

    const qv_btree_t* map_;
    const qv_btree_node_t* last_ = nullptr;
    size_t count_ = 0;
    const char* broken_ = "";
};

#endif  // QV_TESTS_INVARIANTS_H
