// What the map promises, one promise after the other. For the shapes of trees see
// every_tree_test.cpp, for long sequences of operations fuzz/btree_fuzz.cpp.
//
// Keys and values are integers in place of pointers; events.h says how calls are written. In some
// tests a callback looks into its map or changes it, against the rules for callers: only that shows
// in which order the map's own steps are.

#include "qv_btree.cpp"

#include <gtest/gtest.h>

#include <fstream>

#include "events.h"
#include "model.h"

#define EXPECT_EVENTS(expected, action) EXPECT_EQ(events_of([&] { action; }), expected)

namespace {

int32_t compare(const void* a, const void* b) {
    log(num(a), "?", num(b));
    return static_cast<int32_t>(num(a) - num(b));
}

std::string events_of(const std::function<void()>& action) {
    events.clear();
    action();
    return events.substr(0, events.size() - 1);
}

std::string entries(const qv_btree_t* map) {
    std::string written;
    auto* node = qv_btree_first_node(map);
    for (; node != nullptr && written.size() < 999; node = qv_btree_next_node(node)) {
        append(written, num(qv_btree_node_key(node)), "=", num(qv_btree_node_value(node)), " ");
    }
    return written;
}

class Map : public testing::Test {
protected:
    Map() { create(compare); }

    void TearDown() override {
        inside_callback = [](Int) {};
        HasFailure() ? void() : qv_btree_free(map);
    }

    // In place of the usual map, whose comparator only writes events.
    void create(qv_comparator_pt key_compare) {
        inside_callback = [](Int) {};
        qv_btree_free(map);
        map = qv_btree_new(key_compare, dtor<'k'>, dtor<'v'>);
    }

    // Each key gets ten times itself as its value.
    void fill(std::initializer_list<Int> keys) const {
        for (const Int key : keys) {
            qv_btree_insert(map, ptr(key), ptr(key * 10));
        }
    }

    qv_btree_t* map = nullptr;
    std::string seen;  // inside a callback
};

TEST_F(Map, IsEmptyAtFirst) {
    EXPECT_EQ(qv_btree_size(map), 0U);
    EXPECT_TRUE(qv_btree_empty(map));
    EXPECT_EQ(qv_btree_first_node(map), nullptr);
    EXPECT_EQ(qv_btree_find_node(map, ptr(1)), nullptr);
    qv_btree_foreach(map, nullptr, nullptr);  // An empty map needs no visitor, and no comparator.
    EXPECT_FALSE(qv_btree_remove_cmp(map, ptr(1), nullptr));
}

TEST_F(Map, StoresFindsAndRemoves) {
    qv_btree_insert(map, ptr(2), ptr(20));
    qv_btree_insert(map, ptr(1), ptr(10));
    EXPECT_EQ(qv_btree_find(map, ptr(1)), ptr(10));
    EXPECT_EQ(qv_btree_find(map, ptr(2)), ptr(20));
    EXPECT_EQ(qv_btree_low_bound(map, ptr(0)), ptr(1));
    EXPECT_TRUE(qv_btree_remove(map, ptr(2)));
    EXPECT_EQ(qv_btree_find(map, ptr(2)), nullptr);
    EXPECT_EQ(qv_btree_size(map), 1U);
    EXPECT_FALSE(qv_btree_empty(map));
}

// --- Null: maps, nodes, keys and values ---------------------------------------------------------

TEST_F(Map, NullIsAnEmptyMapAndCallsNothing) {
    fill({1});
    events.clear();
    void* key = ptr(7);
    EXPECT_EQ(qv_btree_new(nullptr, dtor<'k'>, dtor<'v'>), nullptr);
    EXPECT_EQ(qv_btree_size(nullptr), 0U);
    EXPECT_TRUE(qv_btree_empty(nullptr));
    EXPECT_EQ(qv_btree_first_node(nullptr), nullptr);
    EXPECT_EQ(qv_btree_last_node(nullptr), nullptr);
    EXPECT_EQ(qv_btree_find_node(nullptr, ptr(1)), nullptr);
    EXPECT_EQ(qv_btree_find(nullptr, ptr(1)), nullptr);
    EXPECT_EQ(qv_btree_first(nullptr, nullptr), nullptr);
    EXPECT_EQ(qv_btree_first(nullptr, &key), nullptr);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(qv_btree_low_bound(nullptr, ptr(1)), nullptr);
    EXPECT_FALSE(qv_btree_remove(nullptr, ptr(1)));
    EXPECT_FALSE(qv_btree_remove_cmp(nullptr, ptr(1), compare));
    EXPECT_FALSE(qv_btree_remove_until(nullptr, ptr(1)));
    EXPECT_EQ(qv_btree_copy(nullptr, copy_of<'k'>, copy_of<'v'>), nullptr);
    qv_btree_assign(nullptr, map, copy_of<'k'>, copy_of<'v'>);
    qv_btree_insert(nullptr, ptr(1), ptr(1));
    qv_btree_replace(nullptr, ptr(1), ptr(1));
    qv_btree_foreach(nullptr, nullptr, nullptr);
    qv_btree_clear(nullptr);
    qv_btree_free(nullptr);
    EXPECT_EQ(events, "");
    EXPECT_EVENTS("k-1 v-10 free-1", qv_btree_assign(map, nullptr, copy_of<'k'>, copy_of<'v'>));
}

TEST_F(Map, NullIsNoNode) {
    fill({1, 2});
    EXPECT_EQ(qv_btree_node_key(nullptr), nullptr);
    EXPECT_EQ(qv_btree_node_value(nullptr), nullptr);
    EXPECT_EQ(qv_btree_remove_node(map, nullptr), nullptr);
    EXPECT_EQ(qv_btree_remove_node(nullptr, map->root), nullptr);
    EXPECT_EQ(entries(map), "1=10 2=20 ");
}

// --- Orders of calls, and what the map holds at each of them ------------------------------------

TEST_F(Map, OverwritesTheValueBeforeTheKeyIsDropped) {
    create([](const void* a, const void* b) { return int32_t(num(a) / 10 - num(b) / 10); });
    fill({11});
    qv_btree_node_t* const node = map->root;
    inside_callback = [this](Int) { seen += entries(map); };
    EXPECT_EVENTS("v-110 k-12", qv_btree_insert(map, ptr(12), ptr(2)));
    EXPECT_EVENTS("v-2 k-11", qv_btree_replace(map, ptr(13), ptr(3)));
    EXPECT_EQ(seen, "11=110 11=2 11=2 11=3 ");
    EXPECT_EQ(entries(map), "13=3 ");
    EXPECT_EQ(map->root, node);
}

TEST_F(Map, DropsAnEntryThatTheBalancedTreeNoLongerHolds) {
    fill({2, 1, 3, 4});
    inside_callback = [this](Int) {
        const auto key_of = [](auto* node) { return static_cast<int>(num(node->key)); };
        const Tree* const expected = tree(tree(nullptr, 2, nullptr), 3, tree(nullptr, 4, nullptr));
        EXPECT_EQ(difference(expected, map->root, key_of), "");
        seen += std::to_string(qv_btree_size(map));
    };
    EXPECT_EVENTS("1?2 1?1 k-1 v-10 free-1", qv_btree_remove(map, ptr(1)));
    EXPECT_EQ(seen, "44");  // The size lags behind.
    EXPECT_EQ(qv_btree_size(map), 3U);
}

TEST_F(Map, TakesAnEntryOutInternallyWithoutDroppingIt) {
    fill({1});
    EXPECT_EVENTS("1?1 free-1",
                  qv_btree_remove_internal(map, static_cast<char*>(ptr(1)), true, compare));
}

TEST_F(Map, LeavesBalancedNodesAloneAndFindsTheirPredecessors) {
    fill({4, 2, 5, 1, 6});  // with balances of -1, 0 and +1
    qv_btree_node_t* previous = nullptr;
    for (auto* node = qv_btree_first_node(map); node != nullptr; node = qv_btree_next_node(node)) {
        EXPECT_EQ(qv_btree_node_balance(node), node);
        EXPECT_EQ(qv_btree_node_previous(node), std::exchange(previous, node));
    }
}

// --- Limits -------------------------------------------------------------------------------------

TEST_F(Map, HasASizeAsWideAsAPointer) {
    map->nnodes = SIZE_MAX;
    EXPECT_EQ(qv_btree_size(map), SIZE_MAX);
}

// Header and source say how many entries a tree of 40 levels has at least.
TEST(Levels, OfTheSparsestTreeHaveSoManyEntries) {
    int fewest[41] = {0, 1};
    for (int levels = 2; levels <= 40; ++levels) {
        fewest[levels] = fewest[levels - 1] + fewest[levels - 2] + 1;
    }
    const std::string test = __FILE__;
    for (const auto& [end, levels] : {std::pair{".h", 40}, {".cpp", 40}, {".cpp", 39}}) {
        const auto grouped = std::to_string(fewest[levels]).insert(6, ",").insert(3, ",");
        std::ifstream source(test.substr(0, test.rfind("tests")) + "src/base/qv_btree" + end);
        const std::string lines(std::istreambuf_iterator<char>(source), {});
        EXPECT_TRUE(lines.find(grouped) != std::string::npos) << grouped << " is not in " << end;
    }
}

// No balanced tree in a test's memory is 40 levels deep. This one is a chain down to there, whose
// nodes lean towards it as in the sparsest tree.
class Deep : public Map, public testing::WithParamInterface<bool> {};

TEST_P(Deep, TakesEntriesDownToLevel40AndClimbsFromThere) {
    const auto key = [](Int n) { return ptr(GetParam() ? -n : n); };
    const auto leaning = [this] {
        int count = 0;
        auto* node = qv_btree_first_node(map);
        for (; node != nullptr; node = qv_btree_next_node(node)) {
            count += std::abs(node->balance);
        }
        return count;
    };
    fill({num(key(2)), num(key(1))});
    qv_btree_node_t* parent = map->root;
    int8_t lean = GetParam() ? -1 : 1;  // The chain begins on one side, and goes down on the other.
    for (Int n = 80; n > 2; n -= 2) {
        parent->balance = static_cast<int8_t>(-lean);  // so that the insertion does not climb
        fill({num(key(n))});
        parent->balance = lean;
        parent = qv_btree_find_node(map, key(n));
        lean = GetParam() ? 1 : -1;
    }
    const std::string before = entries(map);
    for (const Int n : {3, 5}) {
        const std::string refused = events_of([&] { fill({num(key(n))}); });
        EXPECT_EQ(std::count(refused.begin(), refused.end(), '?'), 40) << refused;
        EXPECT_EQ(std::count(refused.begin(), refused.end(), ' '), 39) << refused;
    }
    fill({num(key(4))});  // is stored already
    EXPECT_EQ(entries(map), before);
    EXPECT_EQ(leaning(), 39);
    EXPECT_TRUE(qv_btree_remove(map, key(4)));
    EXPECT_EQ(leaning(), 0);
    fill({num(key(4))});
    EXPECT_EQ(leaning(), 39);
    if (!GetParam()) {
        EXPECT_TRUE(qv_btree_remove(map, key(2)));  // Its successor is at level 40.
        EXPECT_EQ(map->root->key, key(4));
        EXPECT_EQ(leaning(), 0);
        EXPECT_EQ(entries(map), "1=10 " + before.substr(before.find("4=")));
    }
}

INSTANTIATE_TEST_SUITE_P(Mirrored, Deep, testing::Bool());

// --- Misuse -------------------------------------------------------------------------------------

// A comparator that breaks its laws may hide an entry, or lead to the one where the walk is to end.
TEST_F(Map, EndsARemovalUntilAKeyWhereAnEntryIsNotFoundAgain) {
    static const char* answers;
    create([](const void*, const void*) { return *answers++ == '+' ? 1 : 0; });
    answers = "+++";
    fill({1, 2, 3});
    answers = "+0++";  // 3 is found; 1 is sought in vain to the right of 3.
    EXPECT_FALSE(qv_btree_remove_until(map, ptr(3)));
    EXPECT_EQ(entries(map), "1=10 2=20 3=30 ");
    answers = "+0+00";  // 3 is found, removed in place of 1, and then 2.
    EXPECT_TRUE(qv_btree_remove_until(map, ptr(3)));
    EXPECT_EQ(entries(map), "1=10 ");
}

#ifndef NDEBUG
TEST_F(Map, AssertsWhatTheHeaderCallsUndefined) {
    fill({1});
    EXPECT_DEATH(qv_btree_next_node(nullptr), "node != nullptr");
    EXPECT_DEATH(qv_btree_foreach(map, nullptr, nullptr), "func != nullptr");
    EXPECT_DEATH(qv_btree_remove_cmp(map, ptr(1), nullptr), "key_compare != nullptr");
}
#endif

}  // namespace
