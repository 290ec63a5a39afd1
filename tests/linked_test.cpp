// What takes the library as it is linked: parallel readers, for ThreadSanitizer, and a map that
// crosses the size from which on another search is used.

#include <gtest/gtest.h>
#include <qv/base/qv_btree.h>

#include <functional>
#include <future>
#include <numeric>
#include <vector>

namespace {

thread_local std::vector<int> compared;  // The stored keys that the comparator was called with.

int32_t compare_and_note(const void* a, const void* b) {
    const int left = *static_cast<const int*>(a);
    const int right = *static_cast<const int*>(b);
    compared.push_back(right);
    return (left > right ? 1 : 0) - (left < right ? 1 : 0);
}

// --- Threads ---------------------------------------------------------------------------------

// Everything that the header allows at the same time; the result depends on all that was read.
size_t read_all(qv_btree_t* map) {
    size_t sum = qv_btree_size(map) + (qv_btree_empty(map) ? 1 : 0);
    const auto add = [](void* key, void* value, void* to) {
        *static_cast<size_t*>(to) +=
            static_cast<size_t>(3 * *static_cast<int*>(key) + *static_cast<int*>(value));
        return false;
    };
    for (auto* node = qv_btree_first_node(map); node != nullptr; node = qv_btree_next_node(node)) {
        void* const key = qv_btree_node_key(node);
        sum += qv_btree_find(map, key) == qv_btree_node_value(node) ? 1U : 0U;
        add(qv_btree_low_bound(map, key), qv_btree_first(map, nullptr), &sum);
    }
    qv_btree_t* const copy = qv_btree_copy(map, nullptr, nullptr);
    qv_btree_assign(copy, map, nullptr, nullptr);
    qv_btree_foreach(map, add, &sum);
    qv_btree_foreach(copy, add, &sum);
    qv_btree_free(copy);
    return sum;
}

TEST(Threads, ReadersShareAMap) {
    qv_btree_t* const map = qv_btree_new(compare_and_note, nullptr, nullptr);
    std::vector<int> keys(6000);
    std::iota(keys.begin(), keys.end(), 0);
    for (int& key : keys) {
        qv_btree_insert(map, &key, &key);
    }
    const size_t expected = read_all(map);
    std::vector<std::future<size_t>> readers(4);
    for (auto& reader : readers) {
        reader = std::async(std::launch::async, read_all, map);
    }
    for (auto& reader : readers) {
        EXPECT_EQ(reader.get(), expected);
    }
    qv_btree_free(map);
}

// --- Size ------------------------------------------------------------------------------------

TEST(Size, WhichSearchTheSizeChoosesShowsNeitherInResultsNorInComparisons) {
    constexpr int largest_small = 4096;
    qv_btree_t* const map = qv_btree_new(compare_and_note, nullptr, nullptr);
    std::vector<int> keys(2 * largest_small + 1);
    std::iota(keys.begin(), keys.end(), 0);
    int* const key_of = keys.data();
    // All even keys are stored, as their own values, and all odd ones absent.
    const auto comparisons_of_all_searches = [&] {
        compared.clear();
        for (int key = 0; key < 2 * largest_small - 2; ++key) {
            void* const next = key_of + key + key % 2;
            EXPECT_EQ(qv_btree_find(map, &key), key % 2 == 0 ? next : nullptr);
            EXPECT_EQ(qv_btree_low_bound(map, &key), next);
        }
        return compared;
    };
    // A perfect tree of 4,095 entries, and another entry at each end: that rotates nothing.
    for (int key = 2; key < 2 * largest_small; key += 2) {
        qv_btree_insert(map, key_of + key, key_of + key);
    }
    qv_btree_insert(map, key_of, key_of);
    const std::vector<int> of_small_map = comparisons_of_all_searches();
    qv_btree_insert(map, &keys.back(), &keys.back());
    EXPECT_EQ(qv_btree_size(map), largest_small + 1U);
    EXPECT_TRUE(comparisons_of_all_searches() == of_small_map);
    EXPECT_TRUE(qv_btree_remove(map, &keys.back()));
    EXPECT_TRUE(comparisons_of_all_searches() == of_small_map);
    qv_btree_free(map);
}

}  // namespace
