// Many readers of one map at the same time, for ThreadSanitizer.

#include <gtest/gtest.h>
#include <qv/base/qv_btree.h>

#include <future>
#include <vector>

namespace {

constexpr size_t entries = 6000;
char object[2 * entries + 1];  // Keys and values are addresses in here; the keys are the even ones.

// Everything that the header allows at the same time; counts what is right.
size_t read_all(qv_btree_t* map) {
    size_t right = qv_btree_empty(map) || qv_btree_first(map, nullptr) != &object[1] ? 0 : 1;
    for (size_t n = 1; n <= entries; ++n) {
        right += qv_btree_find(map, &object[2 * n]) == &object[n] ? 1U : 0U;
        right += qv_btree_low_bound(map, &object[2 * n - 1]) == &object[2 * n] ? 1U : 0U;
    }
    for (auto* node = qv_btree_first_node(map); node != qv_btree_last_node(map); ++right) {
        node = qv_btree_next_node(node);
    }
    const auto count = [](void*, void*, void* visits) {
        ++*static_cast<size_t*>(visits);
        return false;
    };
    qv_btree_foreach(map, count, &right);
    qv_btree_t* const copy = qv_btree_copy(map, nullptr, nullptr);
    qv_btree_assign(copy, map, nullptr, nullptr);
    right += qv_btree_size(copy);
    qv_btree_free(copy);
    return right;
}

TEST(ThreadsTest, ReadersShareAMap) {
    const auto compare = [](const void* a, const void* b) { return a < b ? -1 : a == b ? 0 : 1; };
    qv_btree_t* const map = qv_btree_new(compare, nullptr, nullptr);
    for (size_t n = entries; n > 0; --n) {
        qv_btree_insert(map, &object[2 * n], &object[n]);
    }
    std::vector<std::future<size_t>> readers(4);
    for (auto& reader : readers) {
        reader = std::async(std::launch::async, read_all, map);
    }
    for (auto& reader : readers) {
        EXPECT_EQ(reader.get(), 5 * entries);
    }
    qv_btree_free(map);
}

}  // namespace
