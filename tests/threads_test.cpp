// Many readers of one map at the same time, for ThreadSanitizer.

#include <gtest/gtest.h>
#include <qv/base/qv_btree.h>

#include <cstdint>
#include <thread>
#include <vector>

namespace {

constexpr std::intptr_t entries = 6000;

void* ptr(std::intptr_t n) {
    return reinterpret_cast<void*>(n);
}

int32_t compare(const void* a, const void* b) {
    return a < b ? -1 : a == b ? 0 : 1;
}

bool count_visit(void* /*key*/, void* /*value*/, void* visits) {
    ++*static_cast<std::intptr_t*>(visits);
    return false;
}

// Everything that the header allows at the same time.
std::intptr_t read_all(qv_btree_t* map) {
    std::intptr_t right = 0;
    for (std::intptr_t n = 1; n <= entries; ++n) {
        right += qv_btree_find(map, ptr(2 * n)) == ptr(n) ? 1 : 0;
        right += qv_btree_low_bound(map, ptr(2 * n - 1)) == ptr(2 * n) ? 1 : 0;
    }
    auto* node = qv_btree_first_node(map);
    for (; node != qv_btree_last_node(map); node = qv_btree_next_node(node)) {
        right += qv_btree_node_value(node) == ptr(0) ? 0 : 1;
    }
    void* first_key = nullptr;
    right += qv_btree_first(map, &first_key) == ptr(1) && first_key == ptr(2) ? 1 : 0;
    qv_btree_foreach(map, count_visit, &right);
    qv_btree_t* const copy = qv_btree_copy(map, nullptr, nullptr);
    qv_btree_t* const assigned = qv_btree_new(compare, nullptr, nullptr);
    qv_btree_assign(assigned, map, nullptr, nullptr);
    right += static_cast<std::intptr_t>(qv_btree_size(copy) + qv_btree_size(assigned));
    qv_btree_free(copy);
    qv_btree_free(assigned);
    return qv_btree_empty(map) ? 0 : right;
}

}  // namespace

TEST(ThreadsTest, ReadersShareAMap) {
    qv_btree_t* const map = qv_btree_new(compare, nullptr, nullptr);
    for (std::intptr_t n = entries; n > 0; --n) {
        qv_btree_insert(map, ptr(2 * n), ptr(n));
    }
    std::vector<std::intptr_t> right(4);
    std::vector<std::thread> readers;
    readers.reserve(right.size());
    for (auto& result : right) {
        readers.emplace_back([&result, map] { result = read_all(map); });
    }
    for (auto& reader : readers) {
        reader.join();
    }
    for (const auto result : right) {
        EXPECT_EQ(result, 6 * entries);
    }
    qv_btree_free(map);
}
