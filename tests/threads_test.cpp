// Many readers of one map at the same time, for ThreadSanitizer.

#include <gtest/gtest.h>
#include <qv/base/qv_btree.h>

#include <cstdint>
#include <future>
#include <vector>

namespace {

constexpr std::uintptr_t entries = 6000;

void* ptr(std::uintptr_t n) {
    return reinterpret_cast<void*>(n);
}

// Everything that the header allows at the same time; counts what is right.
size_t read_all(qv_btree_t* map) {
    size_t right = qv_btree_empty(map) || qv_btree_first(map, nullptr) != ptr(1) ? 0 : 1;
    for (std::uintptr_t n = 1; n <= entries; ++n) {
        right += size_t{qv_btree_find(map, ptr(2 * n)) == ptr(n)};
        right += size_t{qv_btree_low_bound(map, ptr(2 * n - 1)) == ptr(2 * n)};
    }
    for (auto* node = qv_btree_first_node(map); node != qv_btree_last_node(map); ++right) {
        node = qv_btree_next_node(node);
    }
    const auto count = [](void*, void*, void* visits) {
        return ++*static_cast<size_t*>(visits) == 0;
    };
    qv_btree_foreach(map, count, &right);
    qv_btree_t* const copy = qv_btree_copy(map, nullptr, nullptr);
    right += qv_btree_size(copy);
    qv_btree_assign(copy, map, nullptr, nullptr);
    right += qv_btree_size(copy);
    qv_btree_free(copy);
    return right;
}

TEST(ThreadsTest, ReadersShareAMap) {
    const auto compare = [](const void* a, const void* b) {
        return int32_t{a > b} - int32_t{a < b};
    };
    qv_btree_t* const map = qv_btree_new(compare, nullptr, nullptr);
    for (std::uintptr_t n = entries; n > 0; --n) {
        qv_btree_insert(map, ptr(2 * n), ptr(n));
    }
    std::vector<std::future<size_t>> readers(4);
    for (auto& reader : readers) {
        reader = std::async(std::launch::async, read_all, map);
    }
    for (auto& reader : readers) {
        EXPECT_EQ(reader.get(), 6 * entries);
    }
    qv_btree_free(map);
}

}  // namespace
