// Every AVL tree of up to five levels, with every insertion and every removal. Each result is
// compared, in all its records, with a model: a recursive tree that knows heights and no threads,
// and in which the successor takes the place of a node with two children.

#include "qv_btree.cpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <deque>
#include <string>
#include <vector>

namespace {

// A node has one number in the model and in the map: 1 to size in the order of the keys, which are
// 2, 4, 6..., and size + 1 where a new entry comes. Number 0 is no node.
struct ModelNode {
    std::array<size_t, 2> child;
    int height;
    intptr_t key;
};
std::array<ModelNode, 33> model;
std::array<qv_btree_node_t, 33> records;
size_t size;
const void* released;

qv_btree_node_t* record(size_t number) {
    return number != 0 ? &records[number] : nullptr;
}

void* ptr(intptr_t key) {
    return reinterpret_cast<void*>(key);
}

int32_t compare(const void* a, const void* b) {
    return a < b ? -1 : a == b ? 0 : 1;
}

// --- The model. A function that changes a subtree takes its root and returns the new one. ------

size_t measured(size_t root) {
    const auto child = model[root].child;
    model[root].height = 1 + std::max(model[child[0]].height, model[child[1]].height);
    return root;
}

size_t rotated(size_t root, size_t rising_side) {
    const size_t top = model[root].child[rising_side];
    model[root].child[rising_side] = model[top].child[1 - rising_side];
    model[top].child[1 - rising_side] = measured(root);
    return measured(top);
}

size_t balanced(size_t root) {
    for (const size_t side : {0U, 1U}) {
        auto& child = model[root].child;
        const auto& grandchild = model[child[side]].child;
        if (model[child[side]].height > model[child[1 - side]].height + 1) {
            if (model[grandchild[1 - side]].height > model[grandchild[side]].height) {
                child[side] = rotated(child[side], 1 - side);
            }
            return rotated(root, side);
        }
    }
    return measured(root);
}

size_t with(size_t root, intptr_t key) {
    if (root == 0) {
        model[size + 1] = {{}, 1, key};
        return size + 1;
    }
    auto& child = model[root].child[key > model[root].key ? 1 : 0];
    child = with(child, key);
    return balanced(root);
}

size_t without(size_t root, intptr_t key) {
    auto& child = model[root].child;
    if (key != model[root].key) {
        auto& side = child[key > model[root].key ? 1 : 0];
        side = without(side, key);
        return balanced(root);
    }
    if (child[0] == 0 || child[1] == 0) {
        return child[0] + child[1];
    }
    size_t next = child[1];
    while (model[next].child[0] != 0) {
        next = model[next].child[0];
    }
    const size_t rest = without(child[1], model[next].key);
    model[next].child = {child[0], rest};
    return balanced(next);
}

std::string text(size_t root) {
    const auto child = model[root].child;
    return root == 0
               ? ""
               : '(' + text(child[0]) + std::to_string(model[root].key) + text(child[1]) + ')';
}

// --- The map ---------------------------------------------------------------------------------

// Writes the records of a subtree that lies between two nodes.
void write(size_t root, size_t before, size_t after) {
    if (root != 0) {
        const auto child = model[root].child;
        records[root] = {ptr(model[root].key),
                         nullptr,
                         record(child[0] != 0 ? child[0] : before),
                         record(child[1] != 0 ? child[1] : after),
                         static_cast<int8_t>(model[child[1]].height - model[child[0]].height),
                         child[0] != 0 ? uint8_t{1} : uint8_t{0},
                         child[1] != 0 ? uint8_t{1} : uint8_t{0}};
        write(child[0], before, root);
        write(child[1], root, after);
    }
}

bool same(const qv_btree_node_t& a, const qv_btree_node_t& b) {
    return a.key == b.key && a.value == b.value && a.left == b.left && a.right == b.right &&
           a.balance == b.balance && a.left_child == b.left_child && a.right_child == b.right_child;
}

// Tells whether the map is what the model says.
bool agrees(const qv_btree_t& map, size_t root, size_t entries) {
    const auto actual = records;
    write(root, 0, 0);
    return map.root == record(root) && map.nnodes == entries &&
           std::equal(actual.begin(), actual.end(), records.begin(), same);
}

// --- All trees -------------------------------------------------------------------------------

struct Shape {
    const Shape* left;  // NULL without one, and so right
    const Shape* right;
};

size_t plant(const Shape* shape) {
    if (shape == nullptr) {
        return 0;
    }
    const size_t left = plant(shape->left);
    const size_t root = ++size;
    const size_t right = plant(shape->right);
    model[root] = {{left, right}, 0, static_cast<intptr_t>(2 * root)};
    return measured(root);
}

// Tries all operations on one tree, and returns how many they were.
size_t try_operations(const Shape* shape) {
    if (testing::Test::HasFailure()) {
        return 0;  // One is enough to look at.
    }
    size = 0;
    const size_t root = plant(shape);
    write(root, 0, 0);
    const auto model_before = model;
    const auto records_before = records;
    const auto last = static_cast<intptr_t>(2 * size + 1);
    for (intptr_t key = 1; key <= last; ++key) {
        model = model_before;
        records = records_before;
        qv_btree_t map = {record(root), compare, nullptr, nullptr, size};
        const bool is_new = key % 2 != 0;
        size_t expected = 0;
        released = nullptr;
        if (is_new) {
            qv_btree_insert(&map, ptr(key), nullptr);
            expected = with(root, key);
        } else {
            qv_btree_remove(&map, ptr(key));
            expected = without(root, key);
        }
        if (!agrees(map, expected, is_new ? size + 1 : size - 1) ||
            released != (is_new ? nullptr : record(static_cast<size_t>(key / 2)))) {
            model = model_before;
            ADD_FAILURE() << (is_new ? "insert " : "remove ") << key << " in " << text(root);
        }
    }
    return static_cast<size_t>(last);
}

TEST(Shape, EveryInsertionAndRemovalInEveryTreeIsThatOfTheModel) {
    std::deque<Shape> shapes;
    std::vector<std::vector<const Shape*>> of_levels = {{nullptr}};
    size_t operations = try_operations(nullptr);
    for (size_t levels = 1; levels <= QV_TEST_LEVELS; ++levels) {
        std::vector<const Shape*> found;
        const auto combine = [&](size_t left_levels, size_t right_levels) {
            for (const Shape* left : of_levels[left_levels]) {
                for (const Shape* right : of_levels[right_levels]) {
                    shapes.push_back({left, right});
                    found.push_back(&shapes.back());
                    operations += try_operations(found.back());
                }
            }
        };
        combine(levels - 1, levels - 1);
        if (levels > 1) {
            combine(levels - 1, levels - 2);
            combine(levels - 2, levels - 1);
        }
        of_levels.push_back(found);
    }
    EXPECT_EQ(shapes.size(), QV_TEST_LEVELS == 5 ? 109009U : 334U);
    EXPECT_EQ(operations, QV_TEST_LEVELS == 5 ? 4782184U : 7099U);
}

}  // namespace

void* HAL_Malloc(unsigned long /*size*/) {
    return record(size + 1);
}

void HAL_Free(void* ptr) {
    released = ptr;
}
