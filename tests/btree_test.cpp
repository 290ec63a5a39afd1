// What the map promises: the order of all that it calls, and what it returns. For the shapes of
// trees see every_tree_test.cpp, for long sequences of operations fuzz/btree_fuzz.cpp.
//
// A test fills a map, acts, and expects events and entries. Keys and values are integers in place
// of pointers. In some tests a callback looks into its map or changes it, against the rules for
// callers: only that shows in which order the map's own steps are. Events read like "5?3 alloc":
//
//   5?3             the comparator, with the new or searched key and a stored key
//   alloc, refuse   HAL_Malloc with and without memory
//   free-5/1        HAL_Free of the node with key 5, while the map's size is 1
//   free-map        HAL_Free of the map itself
//   k-5/1           the key destructor, at size 1
//   v-50/1          the value destructor
//   k+5             the copy function for keys, which returns 1005
//   v+50            the copy function for values, which returns 150

#include "qv_btree.cpp"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <sstream>
#include <stdexcept>

#include "invariants.h"

#define EXPECT_EVENTS(expected, action) EXPECT_EQ(events_of([&] { action; }), expected)

namespace {

using Int = intptr_t;

std::string events;
int refuse_in = 0;           // The refuse_in-th allocation from now on gets no memory.
const qv_btree_t* observed;  // the map whose size is logged
std::function<void(Int)> inside_callback = [](Int) {};

void* ptr(Int n) {
    return reinterpret_cast<void*>(n);
}

Int num(const void* p) {
    return reinterpret_cast<Int>(p);
}

template <typename... Parts>
void log(const Parts&... parts) {
    std::ostringstream text;
    (text << ... << parts);
    events += (events.empty() ? "" : " ") + text.str();
    if (events.size() > 9999) {
        throw std::length_error("endless: " + events.substr(0, 999));
    }
}

// Neighbours give 1 and -1, others the extremes.
int32_t compare(const void* a, const void* b) {
    log(num(a), "?", num(b));
    const auto difference = static_cast<int32_t>(num(a) - num(b));
    return difference < -1 ? INT32_MIN : difference > 1 ? INT32_MAX : difference;
}

// Finds keys equal that differ in their last digit: so it shows which of two equal keys is stored.
int32_t compare_tens(const void* a, const void* b) {
    return static_cast<int32_t>(num(a) / 10 - num(b) / 10);
}

template <char name>
void dtor(void* object) {
    log(name, "-", num(object), "/", qv_btree_size(observed));
    inside_callback(num(object));
}

template <char name, Int difference>
void* copy_of(void* object) {
    log(name, "+", num(object));
    inside_callback(num(object));
    return ptr(num(object) + difference);
}

const auto key_dtor = dtor<'k'>;
const auto value_dtor = dtor<'v'>;
const auto key_copy = copy_of<'k', 1000>;
const auto value_copy = copy_of<'v', 100>;

std::string events_of(const std::function<void()>& action) {
    events.clear();
    action();
    return std::exchange(events, "");
}

std::string entries(const qv_btree_t* map) {
    std::ostringstream text;
    auto* node = qv_btree_first_node(map);
    for (; node != nullptr && text.tellp() < 999; node = qv_btree_next_node(node)) {
        text << num(qv_btree_node_key(node)) << '=' << num(qv_btree_node_value(node)) << ' ';
    }
    return text.str();
}

class Map : public testing::Test {
protected:
    Map() { create(compare, key_dtor, value_dtor); }

    void TearDown() override {
        inside_callback = [](Int) {};
        if (!HasFailure()) {
            qv_btree_free(map);
        }
    }

    // In place of the usual map, whose comparator and destructors only write the log.
    void create(qv_comparator_pt key_compare, qv_dtor_pt of_keys, qv_dtor_pt of_values) {
        qv_btree_free(map);
        observed = map = qv_btree_new(key_compare, of_keys, of_values);
    }

    // Each key gets ten times itself as its value.
    void fill(std::initializer_list<Int> keys, int line = __builtin_LINE()) const {
        for (const Int key : keys) {
            qv_btree_insert(map, ptr(key), ptr(key * 10));
            check(line);
        }
    }

    // A test ends at the first broken invariant: what follows might crash or never end.
    void check(int line = __builtin_LINE()) const {
        const std::string before = events;
        const std::string broken = broken_invariant(map);
        if (!broken.empty()) {
            throw std::logic_error("line " + std::to_string(line) + ": " + broken +
                                   ", after: " + before);
        }
        events = before;
    }

    qv_btree_t* map = nullptr;
    std::string seen;  // inside a callback
};

// --- Ownership: what is dropped, when, and what stays ----------------------------------------

TEST_F(Map, KeepsTheStoredKeyOrTheNewOne) {
    create(compare_tens, key_dtor, value_dtor);
    fill({11});
    qv_btree_node_t* const node = qv_btree_first_node(map);
    inside_callback = [this](Int) { seen += entries(map); };
    EXPECT_EVENTS("v-110/1 k-12/1", qv_btree_insert(map, ptr(12), ptr(2)));
    EXPECT_EVENTS("v-2/1 k-11/1", qv_btree_replace(map, ptr(13), ptr(3)));
    EXPECT_EQ(seen, "11=110 11=2 11=2 11=3 ");
    EXPECT_EQ(entries(map), "13=3 ");
    EXPECT_EQ(qv_btree_first_node(map), node);
}

TEST_F(Map, DropsWhatItHasADestructorForAlsoWhereTheValueIsTheSame) {
    const auto overwrite_and_remove = [this](qv_dtor_pt of_keys, qv_dtor_pt of_values) {
        create(compare_tens, of_keys, of_values);
        qv_btree_insert(map, ptr(11), nullptr);
        return events_of([this] {
            qv_btree_insert(map, ptr(12), nullptr);
            qv_btree_replace(map, ptr(13), nullptr);
            qv_btree_remove(map, ptr(14));
        });
    };
    EXPECT_EQ(overwrite_and_remove(nullptr, nullptr), "free-13/1");
    EXPECT_EQ(overwrite_and_remove(key_dtor, nullptr), "k-12/1 k-11/1 k-13/1 free-13/1");
    EXPECT_EQ(overwrite_and_remove(nullptr, value_dtor), "v-0/1 v-0/1 v-0/1 free-13/1");
}

TEST_F(Map, DropsAnEntryAfterBalancing) {
    fill({2, 1, 3, 4});
    inside_callback = [this](Int) {  // The count lags behind.
        --map->nnodes;
        check();
        seen = entries(map);
        ++map->nnodes;
    };
    EXPECT_EVENTS("1?2 1?1 k-1/4 v-10/4 free-1/4", qv_btree_remove(map, ptr(1)));
    EXPECT_EQ(seen, "2=20 3=30 4=40 ");
    EXPECT_EQ(qv_btree_size(map), 3U);
    EXPECT_EVENTS("2?3 2?2 free-2/3",  // What is taken out internally is not dropped.
                  qv_btree_remove_internal(map, static_cast<char*>(ptr(2)), true, compare));
}

TEST_F(Map, BalancesNoNodeThatIsBalanced) {
    fill({4, 2, 5, 1, 6});  // with balances of -1, 0 and +1
    for (auto* node = qv_btree_first_node(map); node != nullptr; node = qv_btree_next_node(node)) {
        EXPECT_EQ(qv_btree_node_balance(node), node);
    }
}

TEST_F(Map, IsClearedAndFreedUpwardsEntryByEntry) {
    const auto expect_cleared = [this](const std::string& all) {
        for (int round = 0; round < 2; ++round) {
            fill({2, 1, 3});
            EXPECT_EVENTS(all, qv_btree_clear(map));
            EXPECT_EVENTS("", qv_btree_clear(map));
            EXPECT_EQ(qv_btree_size(map), 0U);
            EXPECT_EQ(entries(map), "");
        }
        fill({2, 1, 3});
        EXPECT_EVENTS(all + " free-map", qv_btree_free(std::exchange(map, nullptr)));
    };
    expect_cleared("k-1/3 v-10/3 free-1/3 k-2/3 v-20/3 free-2/3 k-3/3 v-30/3 free-3/3");
    create(compare, nullptr, nullptr);
    expect_cleared("free-1/3 free-2/3 free-3/3");
}

// --- Memory: what is allocated, and what happens when that is refused -------------------------

TEST_F(Map, RefusesAnEntryWithoutMemoryAndCopiesTheOthers) {
    EXPECT_EVENTS("refuse", refuse_in = 1; qv_btree_insert(map, ptr(2), ptr(20)));
    EXPECT_EVENTS("alloc", qv_btree_insert(map, ptr(1), ptr(10)));
    EXPECT_EVENTS("2?1 refuse", refuse_in = 1; qv_btree_replace(map, ptr(2), ptr(20)));
    EXPECT_EQ(entries(map), "1=10 ");
    fill({2});
    EXPECT_EVENTS("refuse 0", refuse_in = 1; log(qv_btree_new(compare, key_dtor, value_dtor)));
    EXPECT_EVENTS("refuse 0", refuse_in = 1; log(qv_btree_copy(map, key_copy, value_copy)));
    refuse_in = 2;
    qv_btree_t* copy = nullptr;
    EXPECT_EVENTS("alloc k+1 refuse k+2 alloc", copy = qv_btree_copy(map, key_copy, nullptr));
    EXPECT_EQ(entries(copy), "1002=20 ");
    qv_btree_free(copy);
}

// No balanced tree in a test's memory is 40 levels deep. This one has a chain of left children.
TEST_F(Map, RefusesAnEntryBelowLevel40AndRemovesThere) {
    fill({2, 1, 80});
    qv_btree_node_t* parent = map->root->right;
    for (Int key = 78; key > 2; key -= 2) {
        qv_btree_node_t* const node = qv_btree_node_new(ptr(key), ptr(1));
        node->left = map->root;
        node->right = parent;
        parent->left_child = 1;
        parent = parent->left = node;
        ++map->nnodes;
    }
    const std::string before = entries(map);
    for (const Int key : {3, 5}) {
        seen = events_of([&] { qv_btree_insert(map, ptr(key), ptr(2)); });
        EXPECT_EQ(std::count(seen.begin(), seen.end(), '?'), 40) << seen;
        EXPECT_EQ(std::count(seen.begin(), seen.end(), ' '), 39) << seen;
    }
    qv_btree_replace(map, ptr(4), ptr(3));
    EXPECT_TRUE(qv_btree_remove(map, ptr(2)));  // 4 takes its place.
    EXPECT_EQ(entries(map), "1=10 4=3 " + before.substr(before.find("6=")));
    qv_btree_insert(map, ptr(5), ptr(2));
    EXPECT_EQ(qv_btree_find(map, ptr(5)), ptr(2));
    EXPECT_TRUE(qv_btree_remove(map, ptr(5)));
    EXPECT_EQ(qv_btree_size(map), 40U);
}

// --- Null: maps, nodes, keys and values that are NULL -----------------------------------------

TEST_F(Map, TakesNullForAnEmptyMapAndForANode) {
    for (qv_btree_t* const t : {map, static_cast<qv_btree_t*>(nullptr)}) {
        void* key = ptr(7);
        EXPECT_EVENTS("0000 000 000 00 000 0",
                      log(qv_btree_first(t, &key), key, qv_btree_first(t, nullptr),
                          qv_btree_remove_node(t, nullptr), " ", qv_btree_find(t, ptr(1)),
                          qv_btree_find_node(t, ptr(1)), qv_btree_low_bound(t, ptr(1)), " ",
                          qv_btree_remove(t, ptr(1)), qv_btree_remove_until(t, ptr(1)),
                          qv_btree_remove_cmp(t, ptr(1), nullptr), " ", qv_btree_first_node(t),
                          qv_btree_last_node(t), " ", qv_btree_node_key(nullptr),
                          qv_btree_node_value(nullptr), qv_btree_size(t), " ", !qv_btree_empty(t)));
        EXPECT_EVENTS("", qv_btree_foreach(t, nullptr, nullptr); qv_btree_clear(t);
                      qv_btree_assign(t, nullptr, key_copy, value_copy));
    }
    fill({1, 2});
    EXPECT_EVENTS("00000", qv_btree_insert(nullptr, ptr(1), ptr(1)); qv_btree_free(nullptr);
                  qv_btree_replace(nullptr, ptr(1), ptr(1));
                  qv_btree_assign(nullptr, map, key_copy, value_copy);
                  log(qv_btree_remove_node(nullptr, map->root), qv_btree_remove_node(map, nullptr),
                      qv_btree_empty(map), qv_btree_new(nullptr, key_dtor, value_dtor),
                      qv_btree_copy(nullptr, key_copy, value_copy)));
}

TEST_F(Map, TakesNullForAKeyWhichEndsARemovalUntilAKey) {
    fill({1, 0, 2});
    qv_btree_node_t* const first = qv_btree_first_node(map);
    EXPECT_EVENTS("0?1 0?0", EXPECT_EQ(qv_btree_find_node(map, nullptr), first));
    EXPECT_EVENTS("2?1 2?2", EXPECT_TRUE(qv_btree_remove_until(map, ptr(2))));
    EXPECT_EVENTS("0?1 0?0 k-0/3 v-0/3 free-0/3",
                  EXPECT_EQ(qv_btree_remove_node(map, first), map->root));
    EXPECT_EQ(entries(map), "1=10 2=20 ");
    const auto to_null = [](void*) -> void* { return nullptr; };
    qv_btree_t* copy = qv_btree_copy(map, to_null, to_null);
    EXPECT_EQ(entries(copy), "0=0 ");
    qv_btree_clear(map);
    EXPECT_EVENTS("k+0 v+0 alloc", qv_btree_assign(map, copy, key_copy, value_copy));
    qv_btree_free(copy);
}

// --- Ranges: lookups, visits, and removing by range or another comparator ------------------------

TEST_F(Map, IsSearchedFromTheRootDownwards) {
    const auto look_up = [this](Int key) {  // "=" stands before a result.
        return events_of([&] {
            log("=", num(qv_btree_find(map, ptr(key))));
            log("=", num(qv_btree_low_bound(map, ptr(key))));
        });
    };
    fill({20, 10, 30, 5, 15, 25, 35});
    EXPECT_EQ(look_up(4), "4?20 4?10 4?5 =0 4?20 4?10 4?5 =5");
    EXPECT_EQ(look_up(20), "20?20 =200 20?20 20?10 20?15 =20");
    EXPECT_EQ(look_up(26), "26?20 26?30 26?25 =0 26?20 26?30 26?25 =30");
    EXPECT_EQ(look_up(36), "36?20 36?30 36?35 =0 36?20 36?30 36?35 =0");
}

TEST_F(Map, IsVisitedAndRemovedUpwards) {
    fill({4, 2, 6, 1, 3, 5, 7});
    map->root->value = nullptr;
    void* key = nullptr;
    EXPECT_EVENTS("10 10 1", log(num(qv_btree_first(map, nullptr)));
                  log(num(qv_btree_first(map, &key))); log(num(key)));
    const auto visit_until = [](void* visited, void* value, void* last) {
        log(num(visited), "=", num(value));
        inside_callback(num(visited));
        return visited == last;
    };
    EXPECT_EVENTS("1=10 2=20", qv_btree_foreach(map, visit_until, ptr(2)));
    inside_callback = [this](Int visited) {  // An entry's successor is taken after its visit.
        visited == 7 ? qv_btree_insert(map, ptr(8), ptr(80)) : void();
    };
    EXPECT_EVENTS("1=10 2=20 3=30 4=0 5=50 6=60 7=70 8?4 8?6 8?7 alloc 8=80",
                  qv_btree_foreach(map, visit_until, ptr(9)));
    EXPECT_EVENTS("3?4 3?2 3?3 1?4 1?2 1?1 k-1/8 v-10/8 free-1/8 2?4 2?2 k-2/7 v-20/7 free-2/7",
                  EXPECT_TRUE(qv_btree_remove_until(map, ptr(3))));
    EXPECT_EVENTS("9?6 9?7 9?8 0", log(qv_btree_remove_until(map, ptr(9))));
    const auto by_tens = [](const void* tens, const void* stored) {  // another kind of key
        log(num(tens), "??", num(stored));
        return static_cast<int32_t>(num(tens) - num(stored) * 10);
    };
    EXPECT_EVENTS("25??6 25??4 25??3", EXPECT_FALSE(qv_btree_remove_cmp(map, ptr(25), by_tens)));
    EXPECT_EVENTS("30??6 30??4 30??3 k-3/6 v-30/6 free-3/6",
                  EXPECT_TRUE(qv_btree_remove_cmp(map, ptr(30), by_tens)));
    EXPECT_EQ(entries(map), "4=0 5=50 6=60 7=70 8=80 ");
}

// A comparator that breaks its laws may hide an entry, or lead to the one where the walk is to end.
TEST_F(Map, EndsARemovalUntilAKeyWhereAnEntryIsNotFoundAgain) {
    static const char* answers;
    create([](const void*, const void*) { return *answers++ == '+' ? 1 : 0; }, nullptr, nullptr);
    answers = "+++";
    for (const Int key : {1, 2, 3}) {
        qv_btree_insert(map, ptr(key), ptr(key));
    }
    answers = "+0++";  // 3 is found; 1 is sought in vain to the right of 3.
    EXPECT_FALSE(qv_btree_remove_until(map, ptr(3)));
    EXPECT_EQ(entries(map), "1=1 2=2 3=3 ");
    answers = "+0+00";  // 3 is found, removed in place of 1, and then 2.
    EXPECT_TRUE(qv_btree_remove_until(map, ptr(3)));
    EXPECT_EQ(entries(map), "1=1 ");
}

// --- Copying and assignment -------------------------------------------------------------------

TEST_F(Map, IsCopiedUpwardsKeysBeforeValues) {
    fill({2, 1, 3});
    qv_btree_t* copy = nullptr;
    EXPECT_EVENTS(
        "alloc k+1 v+10 alloc k+2 v+20 1002?1001 alloc k+3 v+30 1003?1001 1003?1002 alloc",
        copy = qv_btree_copy(map, key_copy, value_copy));
    EXPECT_EQ(entries(copy), "1001=110 1002=120 1003=130 ");
    qv_btree_free(copy);
    inside_callback = [this](Int key) {  // An entry is read after the one before it is stored.
        key == 1   ? qv_btree_replace(map, ptr(4), ptr(40))
        : key == 2 ? static_cast<void>(qv_btree_remove(map, ptr(3)))
                   : void();
    };
    copy = qv_btree_copy(map, key_copy, nullptr);
    EXPECT_EQ(entries(copy), "1001=10 1002=20 1004=40 ");
    qv_btree_free(copy);
}

TEST_F(Map, GivesACopyTheDestructorsOfWhatIsDuplicated) {
    fill({1});
    const auto copy_and_free = [this](qv_copy_pt of_keys, qv_copy_pt of_values) {
        observed = qv_btree_copy(map, of_keys, of_values);
        return events_of([] { qv_btree_free(const_cast<qv_btree_t*>(observed)); });
    };
    EXPECT_EQ(copy_and_free(nullptr, nullptr), "free-1/1 free-map");
    EXPECT_EQ(copy_and_free(key_copy, nullptr), "k-1001/1 free-1001/1 free-map");
    EXPECT_EQ(copy_and_free(nullptr, value_copy), "v-110/1 free-1/1 free-map");
    EXPECT_EQ(copy_and_free(key_copy, value_copy), "k-1001/1 v-110/1 free-1001/1 free-map");
    observed = map;
}

TEST_F(Map, KeepsItsComparatorAndDestructorsWhenAssigned) {
    create(compare, nullptr, nullptr);
    fill({11, 12, 21});
    qv_btree_t* const source = std::exchange(map, nullptr);
    create(compare_tens, key_dtor, value_dtor);
    fill({31});
    EXPECT_EVENTS("k-31/1 v-310/1 free-31/1 v+110 alloc v+120 v-210/1 k-12/1 v+210 alloc",
                  qv_btree_assign(map, source, nullptr, value_copy));
    EXPECT_EQ(entries(map), "11=220 21=310 ");  // Equal for the target: first key, last value.
    EXPECT_EQ(entries(source), "11=110 12=120 21=210 ");
    qv_btree_free(source);
    EXPECT_EVENTS("", qv_btree_assign(map, map, key_copy, value_copy));
    EXPECT_EVENTS("k-11/2 v-220/2 free-11/2 k-21/2 v-310/2 free-21/2",
                  qv_btree_assign(map, nullptr, key_copy, value_copy));
    EXPECT_EQ(entries(map), "");
}

// --- Misuse -----------------------------------------------------------------------------------

#ifndef NDEBUG
TEST_F(Map, AssertsWhatTheHeaderCallsUndefined) {
    fill({1});
    EXPECT_DEATH(qv_btree_next_node(nullptr), "node != nullptr");
    EXPECT_DEATH(qv_btree_foreach(map, nullptr, nullptr), "func != nullptr");
    EXPECT_DEATH(qv_btree_remove_cmp(map, ptr(1), nullptr), "key_compare != nullptr");
}
#endif

}  // namespace

void* HAL_Malloc(unsigned long size) {
    const bool refused = refuse_in == 1;
    refuse_in = std::max(refuse_in - 1, 0);
    log(refused ? "refuse" : "alloc");
    return refused ? nullptr : std::memset(std::malloc(size), 42, size);
}

void HAL_Free(void* ptr) {
    ptr == observed
        ? log("free-map")
        : log("free-", num(static_cast<qv_btree_node_t*>(ptr)->key), "/", qv_btree_size(observed));
    std::free(ptr);
}
