// What the map promises, case by case; long sequences of operations are in fuzz/corpus.

#include "qv_btree.cpp"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "checked_map.h"

namespace {

int32_t compare_tens(const void* a, const void* b) {
    return static_cast<int32_t>(num(a) / 10 - num(b) / 10);
}

// As far as a value is 7.
std::string entries(qv_btree_t* map) {
    std::string text;
    const auto append = [](void* key, void* value, void* to) {
        *static_cast<std::string*>(to) += event('e', key, "=", num(value));
        return num(value) == 7;
    };
    qv_btree_foreach(map, append, &text);
    return text;
}

#define EXPECT_EVENTS(action, expected) EXPECT_EQ(events([&] { action; }), expected)

class BtreeTest : public testing::Test {
protected:
    BtreeTest() { observed = map; }

    ~BtreeTest() override {
        on_key_dtor = [] {};
        qv_btree_free(map);
        EXPECT_TRUE(live_blocks.empty());
    }

    void fill(std::initializer_list<Int> keys) const {
        for (const Int key : keys) {
            qv_btree_insert(map, ptr(key), ptr(key * 10));
        }
    }

    qv_btree_t* map = qv_btree_new(compare, key_dtor, value_dtor);
};

TEST(CheckedMapTest, EveryInsertionOrderAndEveryRemovalOfSevenKeys) {
    for (Int n = 1; n <= 7; ++n) {
        std::vector<Int> order(static_cast<size_t>(n));
        std::iota(order.begin(), order.end(), 1);
        do {
            for (Int removed = 1; removed <= n; ++removed) {
                CheckedMap map;
                for (const Int key : order) {
                    map.store(key * 2, key, false);
                }
                map.look_up(removed * 2 - 1);
                map.look_up(removed * 2);
                map.remove(removed * 2, 0);
                map.remove(order[0] * 2, 1);
            }
        } while (std::next_permutation(order.begin(), order.end()));
    }
}

const std::set<const void*> null{nullptr};

// Everything that has a neutral result, on a map that is empty or NULL.
bool neutral(qv_btree_t* t) {
    void* key = ptr(7);
    qv_btree_foreach(t, nullptr, nullptr);
    qv_btree_clear(t);
    qv_btree_assign(t, nullptr, key_copy, value_copy);
    const std::set<const void*> results{
        qv_btree_first(t, &key),       key,
        qv_btree_first(t, nullptr),    qv_btree_first_node(t),
        qv_btree_last_node(t),         qv_btree_find(t, ptr(1)),
        qv_btree_low_bound(t, ptr(1)), qv_btree_remove_node(t, nullptr)};
    return results == null && !qv_btree_remove(t, ptr(1)) && !qv_btree_remove_until(t, ptr(1)) &&
           !qv_btree_remove_cmp(t, ptr(1), nullptr) && qv_btree_size(t) == 0 && qv_btree_empty(t);
}

TEST_F(BtreeTest, NullAndEmptyMapsAreNeutral) {
    EXPECT_EVENTS(EXPECT_TRUE(neutral(map) && neutral(nullptr)), "");
    fail_in = 1;
    EXPECT_EVENTS(fill({1}), "x ");
    EXPECT_TRUE(neutral(map));
    fill({1});
    fail_in = 1;
    EXPECT_EVENTS(EXPECT_EQ(qv_btree_new(compare, key_dtor, value_dtor), nullptr), "x ");
    const auto use_null = [this] {
        qv_btree_insert(nullptr, ptr(1), ptr(1));
        qv_btree_replace(nullptr, ptr(1), ptr(1));
        qv_btree_free(nullptr);
        qv_btree_assign(nullptr, map, key_copy, value_copy);
        return std::set<const void*>{
            qv_btree_copy(nullptr, key_copy, value_copy), qv_btree_node_key(nullptr),
            qv_btree_new(nullptr, key_dtor, value_dtor),  qv_btree_node_value(nullptr),
            qv_btree_remove_node(nullptr, map->root),     qv_btree_remove_node(map, nullptr)};
    };
    EXPECT_EVENTS(EXPECT_EQ(use_null(), null), "");
}

TEST_F(BtreeTest, VisitsFirstEntryAndMapsWithoutDestructors) {
    fill({2, 1, 3});
    void* key = nullptr;
    EXPECT_TRUE(qv_btree_first(map, nullptr) == ptr(10) && qv_btree_first(map, &key) == ptr(10));
    EXPECT_EQ(key, ptr(1));
    EXPECT_EQ(entries(map), "e1=10 e2=20 e3=30 ");
    qv_btree_find_node(map, ptr(2))->value = ptr(7);
    EXPECT_EQ(entries(map), "e1=10 e2=7 ");
    map->key_dtor = map->value_dtor = nullptr;
    EXPECT_EVENTS(qv_btree_insert(map, ptr(2), ptr(21)), "c2,2 ");
    EXPECT_EVENTS(qv_btree_replace(map, ptr(2), ptr(22)), "c2,2 ");
    EXPECT_EVENTS(EXPECT_TRUE(qv_btree_remove(map, ptr(2))), "c2,2 f2/3 ");
    EXPECT_EVENTS(qv_btree_clear(map), "f1/2 f3/2 ");
}

// Which of two equal keys survives shows only where equal keys differ.
TEST_F(BtreeTest, EqualKeysAndNullObjects) {
    map->key_compare = compare_tens;
    on_key_dtor = [this] { event_log += '[' + entries(map) + "] "; };
    fill({11});
    EXPECT_EVENTS(qv_btree_insert(map, ptr(12), ptr(2)), "v110/1 k12/1 [e11=2 ] ");
    EXPECT_EVENTS(qv_btree_replace(map, ptr(13), ptr(3)), "v2/1 k11/1 [e11=3 ] ");
    EXPECT_EQ(entries(map), "e13=3 ");
    on_key_dtor = [] {};
    qv_btree_insert(map, nullptr, nullptr);
    EXPECT_EQ(qv_btree_find_node(map, nullptr), map->root->left);
    EXPECT_EQ(qv_btree_find(map, nullptr), nullptr);
    EXPECT_EVENTS(EXPECT_TRUE(qv_btree_remove_until(map, ptr(13))), "");
    EXPECT_EVENTS(EXPECT_TRUE(qv_btree_remove(map, nullptr)), "k0/2 v0/2 f0/2 ");
}

TEST_F(BtreeTest, RemovalBalancesBeforeItDestroys) {
    fill({2, 1, 3, 4});
    on_key_dtor = [this] {
        --map->nnodes;
        const std::string log = event_log;
        event_log = log + '[' + entries(map) + Invariants::broken(map) + "] ";
        ++map->nnodes;
    };
    EXPECT_EVENTS(qv_btree_remove(map, ptr(1)), "c1,2 c1,1 k1/4 [e2=20 e3=30 e4=40 ] v10/4 f1/4 ");
    char* const key = static_cast<char*>(ptr(3));
    EXPECT_EVENTS(qv_btree_remove_internal(map, key, true, compare), "c3,3 f3/3 ");
    on_key_dtor = [] {};
    // Children of balance 0 get one rotation, on either side: the old child is the new root.
    for (const Int way : {1, -1}) {
        qv_btree_clear(map);
        fill({50 - way * 10, 50, 50 + way * 10, 50 + way * 5, 50 + way * 20});
        qv_btree_remove(map, ptr(50 - way * 10));
        EXPECT_EQ(map->root->key, ptr(50 + way * 10));
        EXPECT_EQ(map->root->balance, -way);
    }
}

TEST_F(BtreeTest, RangesAndOtherComparators) {
    fill({1, 2, 3, 4, 5, 6, 7});
    EXPECT_EVENTS(EXPECT_TRUE(qv_btree_remove_until(map, ptr(3))),
                  "c3,4 c3,2 c3,3 c1,4 c1,2 c1,1 k1/7 v10/7 f1/7 c2,4 c2,2 k2/6 v20/6 f2/6 ");
    const auto by_tens = [](const void* tens, const void* key) {
        event_log += event('t', tens, ",", num(key));
        return static_cast<int32_t>(num(tens) - num(key) * 10);
    };
    EXPECT_EVENTS(EXPECT_FALSE(qv_btree_remove_cmp(map, ptr(65), by_tens)), "t65,4 t65,6 t65,7 ");
    EXPECT_EVENTS(EXPECT_TRUE(qv_btree_remove_cmp(map, ptr(60), by_tens)),
                  "t60,4 t60,6 k6/5 v60/5 f6/5 ");
}

// A comparator that breaks its laws costs entries, not memory safety.
TEST_F(BtreeTest, LawlessComparatorEndsARangeRemoval) {
    static const char* answers = "+0++";  // 3 is found; 1 is sought in vain to the right of 3.
    fill({2, 1, 3});
    map->key_compare = [](const void*, const void*) { return *answers++ == '+' ? 1 : 0; };
    EXPECT_FALSE(qv_btree_remove_until(map, ptr(3)));
    EXPECT_EQ(entries(map), "e1=10 e2=20 e3=30 ");
    answers = "+0+00";  // 3 is found, taken out in place of 1, and then 2.
    EXPECT_TRUE(qv_btree_remove_until(map, ptr(3)));
    EXPECT_EQ(entries(map), "e1=10 ");
}

TEST_F(BtreeTest, CopyAndAssignmentCompareAsInsertionDoes) {
    fill({21, 12, 31});
    qv_btree_t* copy = nullptr;
    EXPECT_EVENTS(copy = qv_btree_copy(map, key_copy, nullptr),
                  "m K12 m K21 c1021,1012 m K31 c1031,1012 c1031,1021 m ");
    EXPECT_EQ(copy->key_compare, compare);
    fill({11});
    EXPECT_EVENTS(qv_btree_assign(map, map, key_copy, value_copy), "");
    // Equal for the target, not for the source: the first key stays with the last value.
    copy->key_compare = compare_tens;
    EXPECT_EVENTS(
        qv_btree_assign(copy, map, nullptr, value_copy),
        "k1012/4 f1012/4 k1021/4 f1021/4 k1031/4 f1031/4 V110 m V120 k12/4 V210 m V310 m ");
    EXPECT_EQ(entries(copy), "e11=220 e21=310 e31=410 ");
    qv_btree_free(copy);
}

// No balanced tree in a test's memory is 40 levels deep; a bare chain of right children is.
TEST_F(BtreeTest, NoEntryLiesBelowLevel40) {
    qv_btree_node_t* parent = nullptr;
    for (Int key = 2; key <= 80; key += 2) {
        qv_btree_node_t* const node = qv_btree_node_new(ptr(key), ptr(1));
        node->left = parent;
        node->right_child = key < 80 ? 1 : 0;
        qv_btree_relink(map, parent, false, node);
        parent = node;
        ++map->nnodes;
    }
    const std::string before = entries(map);
    for (const Int key : {79, 81}) {
        const std::string log = events([&] { qv_btree_insert(map, ptr(key), ptr(2)); });
        EXPECT_EQ(std::count(log.begin(), log.end(), ','), 40);
        EXPECT_EQ(log.find_first_of("mkv"), std::string::npos);
        EXPECT_TRUE(entries(map) == before && qv_btree_size(map) == 40);
    }
    qv_btree_replace(map, ptr(80), ptr(3));
    EXPECT_EQ(qv_btree_find(map, ptr(80)), ptr(3));
    qv_btree_insert(map, ptr(77), ptr(2));
    EXPECT_EQ(qv_btree_find(map, ptr(77)), ptr(2));
}

#ifndef NDEBUG
TEST_F(BtreeTest, AssertionsCatchProgrammingErrors) {
    fill({1});
    EXPECT_DEATH(qv_btree_next_node(nullptr), "node");
    EXPECT_DEATH(qv_btree_foreach(map, nullptr, nullptr), "func");
    EXPECT_DEATH(qv_btree_remove_cmp(map, ptr(1), nullptr), "key_compare");
}
#endif

}  // namespace
