// Every AVL tree of up to five levels, with every insertion and every removal. Each result is
// compared, in all its records, with a model: recursive, with heights and without threads, in which
// the successor takes the place of a node with two children.

#include "qv_btree.cpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <deque>
#include <string>
#include <tuple>
#include <vector>

namespace {

void* ptr(intptr_t key) {
    return reinterpret_cast<void*>(key);
}

int32_t compare(const void* a, const void* b) {
    return a < b ? -1 : a == b ? 0 : 1;
}

// --- The model: subtrees that never change, NULL being the empty one --------------------------

struct Model {
    const Model* left;
    intptr_t key;
    const Model* right;
    int height;
};
std::deque<Model> models;  // owns them

int height(const Model* model) {
    return model != nullptr ? model->height : 0;
}

const Model* tree(const Model* left, intptr_t key, const Model* right) {
    models.push_back({left, key, right, 1 + std::max(height(left), height(right))});
    return &models.back();
}

// As tree(), but one side may be too tall by a level: then what lies in the middle changes sides.
const Model* balanced(const Model* left, intptr_t key, const Model* right) {
    if (height(left) > height(right) + 1) {
        const auto* const mid = left->right;
        return height(mid) > height(left->left)
                   ? tree(tree(left->left, left->key, mid->left), mid->key,
                          tree(mid->right, key, right))
                   : tree(left->left, left->key, tree(mid, key, right));
    }
    if (height(right) > height(left) + 1) {
        const auto* const mid = right->left;
        return height(mid) > height(right->right)
                   ? tree(tree(left, key, mid->left), mid->key,
                          tree(mid->right, right->key, right->right))
                   : tree(tree(left, key, mid), right->key, right->right);
    }
    return tree(left, key, right);
}

const Model* with(const Model* model, intptr_t key) {
    return model == nullptr   ? tree(nullptr, key, nullptr)
           : key < model->key ? balanced(with(model->left, key), model->key, model->right)
                              : balanced(model->left, model->key, with(model->right, key));
}

const Model* without(const Model* model, intptr_t key) {
    if (key != model->key) {
        return key < model->key ? balanced(without(model->left, key), model->key, model->right)
                                : balanced(model->left, model->key, without(model->right, key));
    }
    if (model->left == nullptr || model->right == nullptr) {
        return model->left != nullptr ? model->left : model->right;
    }
    const Model* next = model->right;
    while (next->left != nullptr) {
        next = next->left;
    }
    return balanced(model->left, next->key, without(model->right, next->key));
}

std::string text(const Model* model) {
    return model == nullptr
               ? ""
               : '(' + text(model->left) + std::to_string(model->key) + text(model->right) + ')';
}

// --- The map: its nodes lie in an array, each at the index that is its key ----------------------

std::array<qv_btree_node_t, 64> records;
qv_btree_node_t* allocated;
void* released;

qv_btree_node_t* record(const Model* model, qv_btree_node_t* otherwise = nullptr) {
    return model != nullptr ? &records[static_cast<size_t>(model->key)] : otherwise;
}

// Writes the records of a subtree that lies between two nodes.
void write(const Model* model, qv_btree_node_t* before, qv_btree_node_t* after) {
    if (auto* const node = record(model)) {
        *node = {ptr(model->key),
                 nullptr,
                 record(model->left, before),
                 record(model->right, after),
                 static_cast<int8_t>(height(model->right) - height(model->left)),
                 static_cast<uint8_t>(model->left != nullptr),
                 static_cast<uint8_t>(model->right != nullptr)};
        write(model->left, before, node);
        write(model->right, node, after);
    }
}

bool same(const qv_btree_node_t& a, const qv_btree_node_t& b) {
    return std::tie(a.key, a.value, a.left, a.right, a.balance, a.left_child, a.right_child) ==
           std::tie(b.key, b.value, b.left, b.right, b.balance, b.left_child, b.right_child);
}

// --- All trees ---------------------------------------------------------------------------------

// A tree of the given shape with the keys 2, 4, 6...
const Model* numbered(const Model* shape, intptr_t* last) {
    if (shape == nullptr) {
        return nullptr;
    }
    const Model* const left = numbered(shape->left, last);
    const intptr_t key = *last += 2;
    return tree(left, key, numbered(shape->right, last));
}

// Tries all operations on one tree, and returns how many they were.
intptr_t try_operations(const Model* shape) {
    const size_t models_before = models.size();
    intptr_t last = 0;
    const Model* const before = numbered(shape, &last);
    const auto size = static_cast<size_t>(last / 2);
    for (intptr_t key = 1; key <= last + 1 && !testing::Test::HasFailure(); ++key) {
        const bool is_new = key % 2 != 0;
        auto* const node = &records[static_cast<size_t>(key)];
        allocated = node;
        released = nullptr;
        write(before, nullptr, nullptr);
        qv_btree_t map = {record(before), compare, nullptr, nullptr, size};
        is_new ? qv_btree_insert(&map, ptr(key), nullptr)
               : static_cast<void>(qv_btree_remove(&map, ptr(key)));
        const auto actual = records;
        const Model* const expected = is_new ? with(before, key) : without(before, key);
        write(expected, nullptr, nullptr);
        EXPECT_TRUE(map.root == record(expected) && map.nnodes == (is_new ? size + 1 : size - 1) &&
                    std::equal(actual.begin(), actual.end(), records.begin(), same) &&
                    released == (is_new ? nullptr : node))
            << (is_new ? "insert " : "remove ") << key << " in " << text(before);
    }
    models.resize(models_before);
    return last + 1;
}

TEST(Shape, EveryInsertionAndRemovalInEveryTreeIsThatOfTheModel) {
    std::vector<std::vector<const Model*>> of_levels = {{}, {nullptr}};  // None are of -1 levels.
    intptr_t operations = try_operations(nullptr);
    for (size_t levels = 1; levels <= QV_TEST_LEVELS; ++levels) {
        const auto low = of_levels[levels - 1];
        const auto high = of_levels[levels];
        of_levels.emplace_back();
        const auto combine = [&](const auto& lefts, const auto& rights) {
            for (const Model* left : lefts) {
                for (const Model* right : rights) {
                    of_levels.back().push_back(tree(left, 0, right));
                    operations += try_operations(of_levels.back().back());
                }
            }
        };
        combine(high, high);
        combine(high, low);
        combine(low, high);
    }
    EXPECT_EQ(models.size(), QV_TEST_LEVELS == 5 ? 109009U : 334U);
    EXPECT_EQ(operations, QV_TEST_LEVELS == 5 ? 4782184 : 7099);
}

}  // namespace

void* HAL_Malloc(unsigned long /*size*/) {
    return allocated;
}

void HAL_Free(void* ptr) {
    released = ptr;
}
