// What the map promises: one promise a test, named by it, in groups. For long sequences of
// operations see fuzz/corpus, for the shape of trees every_tree_test.cpp.
//
// A test fills a map, acts, and expects events (events.h has the words) and entries. Where a
// promise is about every operation, a CheckedMap (checked_map.h) tries it: it throws what is wrong.

#include "qv_btree.cpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <utility>

#include "checked_map.h"
#include "events.h"
#include "invariants.h"

namespace {

class BtreeTest : public testing::Test {
protected:
    BtreeTest() { create(compare, key_dtor, value_dtor); }

    ~BtreeTest() override {
        inside_key_dtor = [] {};
        observed = map;
        qv_btree_free(map);
        EXPECT_TRUE(live_blocks.empty());
    }

    // In place of the usual map, whose comparator and destructors only write the log.
    void create(qv_comparator_pt key_compare, qv_dtor_pt of_keys, qv_dtor_pt of_values) {
        qv_btree_free(map);
        map = qv_btree_new(key_compare, of_keys, of_values);
        observed = map;
    }

    // Each key gets ten times itself as its value.
    void fill(std::initializer_list<Int> keys) const {
        for (const Int key : keys) {
            qv_btree_insert(map, ptr(key), ptr(key * 10));
        }
    }

    std::string entries() const { return entries_of(map); }

    static std::string entries_of(qv_btree_t* t) {
        std::string text;
        auto* node = qv_btree_first_node(t);
        for (; node != nullptr; node = qv_btree_next_node(node)) {
            text += (text.empty() ? "" : " ") + std::to_string(num(qv_btree_node_key(node))) + '=' +
                    std::to_string(num(qv_btree_node_value(node)));
        }
        return text;
    }

    qv_btree_t* map = nullptr;
};

// Finds keys equal that differ in their last digit: so it shows which of two equal keys is stored.
int32_t compare_tens(const void* a, const void* b) {
    return static_cast<int32_t>(num(a) / 10 - num(b) / 10);
}

// --- Ownership: what is dropped, when, and what stays ----------------------------------------

using Ownership = BtreeTest;

TEST_F(Ownership, InsertKeepsTheStoredKeyAndReplaceTheNewOne) {
    create(compare_tens, key_dtor, value_dtor);
    fill({11});
    EXPECT_EVENTS(qv_btree_insert(map, ptr(12), ptr(2)),
                  "drop value 110 at size 1; drop key 12 at size 1");
    EXPECT_EQ(entries(), "11=2");
    EXPECT_EVENTS(qv_btree_replace(map, ptr(13), ptr(3)),
                  "drop value 2 at size 1; drop key 11 at size 1");
    EXPECT_EQ(entries(), "13=3");
}

TEST_F(Ownership, WithoutADestructorNothingOfThatKindIsDropped) {
    create(compare_tens, nullptr, nullptr);
    fill({11, 21});
    EXPECT_EVENTS(qv_btree_insert(map, ptr(12), ptr(2)), "");
    EXPECT_EQ(entries(), "11=2 21=210");
    EXPECT_EVENTS(qv_btree_replace(map, ptr(13), ptr(3)), "");
    EXPECT_EQ(entries(), "13=3 21=210");
    EXPECT_EVENTS(qv_btree_remove(map, ptr(13)), "release 13 at size 2");
    EXPECT_EVENTS(qv_btree_clear(map), "release 21 at size 1");
    create(compare_tens, key_dtor, nullptr);
    fill({11});
    EXPECT_EVENTS(qv_btree_replace(map, ptr(12), ptr(2)), "drop key 11 at size 1");
    EXPECT_EVENTS(qv_btree_clear(map), "drop key 12 at size 1; release 12 at size 1");
    create(compare_tens, nullptr, value_dtor);
    fill({11});
    EXPECT_EVENTS(qv_btree_replace(map, ptr(12), ptr(2)), "drop value 110 at size 1");
    EXPECT_EVENTS(qv_btree_clear(map), "drop value 2 at size 1; release 12 at size 1");
}

TEST_F(Ownership, AnOverwrittenValueIsReplacedBeforeTheKeyIsDroppedAndTheKeyAfterwards) {
    create(compare_tens, key_dtor, value_dtor);
    fill({11});
    std::string seen_inside;  // Against the rules for callers: the destructor looks into the map.
    inside_key_dtor = [&] { seen_inside = entries(); };
    qv_btree_insert(map, ptr(12), ptr(2));
    EXPECT_EQ(seen_inside, "11=2");
    qv_btree_replace(map, ptr(13), ptr(3));
    EXPECT_EQ(seen_inside, "11=3");
}

TEST_F(Ownership, RemovalDropsAnEntryThatTheBalancedTreeNoLongerHolds) {
    fill({2, 1, 3, 4});
    std::string seen_inside;  // Against the rules for callers, as above; and the count lags behind.
    inside_key_dtor = [&] {
        --map->nnodes;
        seen_inside = entries() + Invariants::broken(map);
        ++map->nnodes;
    };
    logs_comparisons = false;
    EXPECT_EVENTS(EXPECT_TRUE(qv_btree_remove(map, ptr(1))),
                  "drop key 1 at size 4; drop value 10 at size 4; release 1 at size 4");
    logs_comparisons = true;
    EXPECT_EQ(seen_inside, "2=20 3=30 4=40");
    EXPECT_EQ(qv_btree_size(map), 3U);
}

TEST_F(Ownership, ClearAndFreeDropInAscendingOrderAndReleaseEachEntryAtOnce) {
    fill({2, 1, 3});
    const std::string all =
        "drop key 1 at size 3; drop value 10 at size 3; release 1 at size 3; "
        "drop key 2 at size 3; drop value 20 at size 3; release 2 at size 3; "
        "drop key 3 at size 3; drop value 30 at size 3; release 3 at size 3";
    EXPECT_EVENTS(qv_btree_clear(map), all);
    EXPECT_EVENTS(qv_btree_clear(map), "");
    fill({2, 1, 3});
    EXPECT_EVENTS(qv_btree_free(map), all + "; release map");
    map = nullptr;
}

TEST_F(Ownership, AnEntryTakenOutInternallyIsNotDropped) {
    fill({1});
    EXPECT_EVENTS(
        qv_btree_remove_internal(map, static_cast<char*>(ptr(1)), /*steal=*/true, compare),
        "compare 1,1; release 1 at size 1");
}

// --- Memory: what is allocated, and what happens when that is refused -------------------------

using Memory = BtreeTest;

TEST_F(Memory, ANewEntryAllocatesOnceAndARefusedOneChangesNothingAndDropsNothing) {
    CheckedMap checked;
    for (const Int key : {5, 2, 8, 1, 3, 9, 4}) {
        refuse_in = 1;
        checked.insert(key, key);  // is refused.
        checked.insert(key, key);
        checked.replace(key, 5);
    }
}

TEST_F(Memory, WithoutMemoryNewAndCopyReturnNullAndCopyNothing) {
    fill({1});
    refuse_in = 1;
    EXPECT_EVENTS(EXPECT_EQ(qv_btree_new(compare, key_dtor, value_dtor), nullptr), "refuse");
    refuse_in = 1;
    EXPECT_EVENTS(EXPECT_EQ(qv_btree_copy(map, key_copy, value_copy), nullptr), "refuse");
}

// No balanced tree in a test's memory is 40 levels deep; a bare chain of right children is.
TEST_F(Memory, AnEntryBelowLevel40IsRefused) {
    qv_btree_node_t* parent = nullptr;
    for (Int key = 2; key <= 80; key += 2) {
        qv_btree_node_t* const node = qv_btree_node_new(ptr(key), ptr(1));
        node->left = parent;
        node->right_child = key < 80 ? 1 : 0;
        qv_btree_relink(map, parent, /*left_node=*/false, node);
        parent = node;
        ++map->nnodes;
    }
    const std::string before = entries();
    for (const Int key : {79, 81}) {
        const std::string events = events_of([&] { qv_btree_insert(map, ptr(key), ptr(2)); });
        EXPECT_EQ(std::count(events.begin(), events.end(), ','), 40);
        EXPECT_EQ(events.find("allocate"), std::string::npos);
        EXPECT_EQ(events.find("drop"), std::string::npos);
        EXPECT_EQ(entries(), before);
        EXPECT_EQ(qv_btree_size(map), 40U);
    }
    qv_btree_replace(map, ptr(80), ptr(3));
    EXPECT_EQ(qv_btree_find(map, ptr(80)), ptr(3));
    qv_btree_insert(map, ptr(77), ptr(2));
    EXPECT_EQ(qv_btree_find(map, ptr(77)), ptr(2));
}

// --- Null: maps, nodes, keys and values that are NULL -----------------------------------------

using Null = BtreeTest;

TEST_F(Null, ANullMapAndAnEmptyOneGiveNeutralResults) {
    for (qv_btree_t* const t : {map, static_cast<qv_btree_t*>(nullptr)}) {
        const auto act = [t] {
            void* key = ptr(7);
            EXPECT_EQ(qv_btree_first(t, &key), nullptr);
            EXPECT_EQ(key, nullptr);
            EXPECT_EQ(qv_btree_first(t, nullptr), nullptr);
            EXPECT_EQ(qv_btree_first_node(t), nullptr);
            EXPECT_EQ(qv_btree_last_node(t), nullptr);
            EXPECT_EQ(qv_btree_find_node(t, ptr(1)), nullptr);
            EXPECT_EQ(qv_btree_find(t, ptr(1)), nullptr);
            EXPECT_EQ(qv_btree_low_bound(t, ptr(1)), nullptr);
            EXPECT_FALSE(qv_btree_remove(t, ptr(1)));
            EXPECT_FALSE(qv_btree_remove_cmp(t, ptr(1), nullptr));
            EXPECT_FALSE(qv_btree_remove_until(t, ptr(1)));
            EXPECT_EQ(qv_btree_size(t), 0U);
            EXPECT_TRUE(qv_btree_empty(t));
            qv_btree_foreach(t, nullptr, nullptr);
            qv_btree_clear(t);
            qv_btree_assign(t, nullptr, key_copy, value_copy);
        };
        EXPECT_EVENTS(act(), "");
    }
}

TEST_F(Null, EveryOtherFunctionAcceptsNullAndDoesNothing) {
    fill({1, 2});
    const auto act = [this] {
        EXPECT_EQ(qv_btree_new(nullptr, key_dtor, value_dtor), nullptr);
        EXPECT_EQ(qv_btree_copy(nullptr, key_copy, value_copy), nullptr);
        EXPECT_EQ(qv_btree_node_key(nullptr), nullptr);
        EXPECT_EQ(qv_btree_node_value(nullptr), nullptr);
        EXPECT_EQ(qv_btree_remove_node(nullptr, map->root), nullptr);
        EXPECT_EQ(qv_btree_remove_node(map, nullptr), nullptr);
        qv_btree_insert(nullptr, ptr(1), ptr(1));
        qv_btree_replace(nullptr, ptr(1), ptr(1));
        qv_btree_assign(nullptr, map, key_copy, value_copy);
        qv_btree_free(nullptr);
    };
    EXPECT_EVENTS(act(), "");
    EXPECT_EQ(entries(), "1=10 2=20");
}

TEST_F(Null, NullKeysAndValuesAreStoredLikeAnyOthersAndRemovingUntilAKeyStopsAtANullKey) {
    CheckedMap checked;
    checked.insert(1, 0);
    checked.insert(0, 5);
    checked.look_up(0);
    checked.remove_until(1);
    checked.remove(0, RemoveBy::KEY);
}

// --- Node identity: which pointers stay valid -------------------------------------------------

using NodeIdentity = BtreeTest;

TEST_F(NodeIdentity, EntriesStayInTheirNodesAndRemovingANodeReturnsTheNext) {
    CheckedMap checked;
    for (const Int key : {10, 20, 30, 40, 50, 25, 35, 31, 32, 33, 34}) {
        checked.insert(key, key);
    }
    for (const Int key : {20, 35, 31, 50, 40, 25, 10, 30}) {
        checked.replace(30, key);
        checked.remove(key, RemoveBy::NODE);
    }
}

// --- Ranges: the first entry, bounds, visits, and removing by range or another comparator --------

using Ranges = BtreeTest;

TEST_F(Ranges, TheFirstEntryComesWithOrWithoutItsKey) {
    fill({2, 1, 3});
    void* key = nullptr;
    EXPECT_EVENTS(EXPECT_EQ(qv_btree_first(map, nullptr), ptr(10)), "");
    EXPECT_EVENTS(EXPECT_EQ(qv_btree_first(map, &key), ptr(10)), "");
    EXPECT_EQ(key, ptr(1));
}

TEST_F(Ranges, TheLowBoundIsTheSmallestKeyNotLessAndItsSearchPassesEqualKeys) {
    fill({20, 10, 30});
    EXPECT_EVENTS(EXPECT_EQ(qv_btree_low_bound(map, ptr(5)), ptr(10)),
                  "compare 5,20; compare 5,10");
    EXPECT_EVENTS(EXPECT_EQ(qv_btree_low_bound(map, ptr(20)), ptr(20)),
                  "compare 20,20; compare 20,10");
    EXPECT_EVENTS(EXPECT_EQ(qv_btree_low_bound(map, ptr(21)), ptr(30)),
                  "compare 21,20; compare 21,30");
    EXPECT_EVENTS(EXPECT_EQ(qv_btree_low_bound(map, ptr(31)), nullptr),
                  "compare 31,20; compare 31,30");
}

TEST_F(Ranges, AVisitGoesUpwardsUntilTheVisitorReturnsTrue) {
    fill({2, 1, 3});
    const auto visit_until = [](void* key, void* value, void* last) {
        event_log += event("visit ", num(key), "=", num(value));
        return key == last;
    };
    EXPECT_EVENTS(qv_btree_foreach(map, visit_until, ptr(2)), "visit 1=10; visit 2=20");
    EXPECT_EVENTS(qv_btree_foreach(map, visit_until, ptr(9)), "visit 1=10; visit 2=20; visit 3=30");
}

TEST_F(Ranges, RemovingUntilAKeyRemovesWhatIsBeforeItOneByOne) {
    fill({4, 2, 6, 1, 3, 5, 7});
    EXPECT_EVENTS(EXPECT_TRUE(qv_btree_remove_until(map, ptr(3))),
                  "compare 3,4; compare 3,2; compare 3,3; compare 1,4; compare 1,2; compare 1,1; "
                  "drop key 1 at size 7; drop value 10 at size 7; release 1 at size 7; "
                  "compare 2,4; compare 2,2; "
                  "drop key 2 at size 6; drop value 20 at size 6; release 2 at size 6");
    EXPECT_EVENTS(EXPECT_FALSE(qv_btree_remove_until(map, ptr(9))),
                  "compare 9,4; compare 9,6; compare 9,7");
    EXPECT_EQ(entries(), "3=30 4=40 5=50 6=60 7=70");
}

TEST_F(Ranges, AnotherComparatorMayTakeAnotherKindOfKeyFirst) {
    fill({1, 2, 3});
    const auto by_tens = [](const void* tens, const void* key) {
        event_log += event("compare tens ", num(tens), ",", num(key));
        return static_cast<int32_t>(num(tens) - num(key) * 10);
    };
    EXPECT_EVENTS(EXPECT_FALSE(qv_btree_remove_cmp(map, ptr(25), by_tens)),
                  "compare tens 25,2; compare tens 25,3");
    EXPECT_EVENTS(EXPECT_TRUE(qv_btree_remove_cmp(map, ptr(30), by_tens)),
                  "compare tens 30,2; compare tens 30,3; "
                  "drop key 3 at size 3; drop value 30 at size 3; release 3 at size 3");
}

// A comparator that breaks its laws costs entries, not memory safety.
TEST_F(Ranges, ALawlessComparatorEndsARemovalUntilAKey) {
    static const char* answers;
    create([](const void*, const void*) { return *answers++ == '+' ? 1 : 0; }, nullptr, nullptr);
    answers = "+++";
    fill({1, 2, 3});
    answers = "+0++";  // 3 is found; 1 is sought in vain to the right of 3.
    EXPECT_FALSE(qv_btree_remove_until(map, ptr(3)));
    EXPECT_EQ(entries(), "1=10 2=20 3=30");
    answers = "+0+00";  // 3 is found, removed in place of 1, and then 2.
    EXPECT_TRUE(qv_btree_remove_until(map, ptr(3)));
    EXPECT_EQ(entries(), "1=10");
}

// --- Copying and assignment -------------------------------------------------------------------

using Copying = BtreeTest;

TEST_F(Copying, ACopyTakesEntriesInOrderKeysBeforeValuesAndInsertsThem) {
    fill({2, 1, 3});
    qv_btree_t* copy = nullptr;
    EXPECT_EVENTS(copy = qv_btree_copy(map, key_copy, value_copy),
                  "allocate; copy key 1; copy value 10; allocate; "
                  "copy key 2; copy value 20; compare 1002,1001; allocate; "
                  "copy key 3; copy value 30; compare 1003,1001; compare 1003,1002; allocate");
    EXPECT_EQ(entries_of(copy), "1001=110 1002=120 1003=130");
    EXPECT_EQ(entries(), "1=10 2=20 3=30");
    qv_btree_free(copy);
}

TEST_F(Copying, AnEntryWithoutMemoryIsLeftOutAndTheNextOneFollows) {
    CheckedMap source;
    CheckedMap target;
    for (const Int key : {1, 2, 3}) {
        source.insert(key, key);
    }
    refuse_in = 3;
    target.copy(source, nullptr, nullptr);
    refuse_in = 2;
    target.assign(source, key_copy, value_copy);
}

TEST_F(Copying, AssignmentKeepsTheTargetsComparatorAndDestructors) {
    create(compare, nullptr, nullptr);
    fill({11, 12, 21});
    qv_btree_t* const source = std::exchange(map, nullptr);
    create(compare_tens, key_dtor, value_dtor);
    fill({31});
    EXPECT_EVENTS(qv_btree_assign(map, source, nullptr, value_copy),
                  "drop key 31 at size 1; drop value 310 at size 1; release 31 at size 1; "
                  "copy value 110; allocate; "
                  "copy value 120; drop value 210 at size 1; drop key 12 at size 1; "
                  "copy value 210; allocate");
    EXPECT_EQ(entries(), "11=220 21=310");  // Equal for the target: the first key, the last value.
    EXPECT_EQ(entries_of(source), "11=110 12=120 21=210");
    qv_btree_free(source);
}

TEST_F(Copying, AssigningAMapToItselfDoesNothingAndFromNullClears) {
    fill({1});
    EXPECT_EVENTS(qv_btree_assign(map, map, key_copy, value_copy), "");
    EXPECT_EQ(entries(), "1=10");
    EXPECT_EVENTS(qv_btree_assign(map, nullptr, key_copy, value_copy),
                  "drop key 1 at size 1; drop value 10 at size 1; release 1 at size 1");
    EXPECT_EQ(entries(), "");
}

// --- Misuse -----------------------------------------------------------------------------------

#ifndef NDEBUG
using Assertions = BtreeTest;

TEST_F(Assertions, CatchWhatTheHeaderCallsUndefined) {
    fill({1});
    EXPECT_DEATH(qv_btree_next_node(nullptr), "node");
    EXPECT_DEATH(qv_btree_foreach(map, nullptr, nullptr), "func");
    EXPECT_DEATH(qv_btree_remove_cmp(map, ptr(1), nullptr), "key_compare");
}
#endif

}  // namespace
