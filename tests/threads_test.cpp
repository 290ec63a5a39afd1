// Readers that share a map, for ThreadSanitizer; with the library as it is linked.

#include <gtest/gtest.h>
#include <qv/base/qv_btree.h>

#include <future>
#include <vector>

namespace {

int32_t compare(const void* a, const void* b) {
    return a < b ? -1 : a == b ? 0 : 1;
}

bool add(void* key, void* value, void* to) {
    *static_cast<intptr_t*>(to) +=
        3 * reinterpret_cast<intptr_t>(key) + reinterpret_cast<intptr_t>(value);
    return false;
}

// Everything that the header allows at the same time; the result depends on all that was read.
intptr_t read_all(qv_btree_t* map) {
    auto sum = static_cast<intptr_t>(qv_btree_size(map)) + (qv_btree_empty(map) ? 1 : 0);
    for (auto* node = qv_btree_first_node(map); node != nullptr; node = qv_btree_next_node(node)) {
        void* const key = qv_btree_node_key(node);
        sum += qv_btree_find(map, key) == qv_btree_node_value(node) ? 1 : 0;
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
    for (const intptr_t entries : {1000, 6000}) {  // The search changes above 4,096.
        qv_btree_t* const map = qv_btree_new(compare, nullptr, nullptr);
        for (intptr_t key = 0; key < entries; ++key) {
            qv_btree_insert(map, reinterpret_cast<void*>(key), reinterpret_cast<void*>(key));
        }
        // The size and the finds, the bounds with the first value, which is 0, and two visits.
        const intptr_t expected = 2 * entries + (3 + 2 * 4) * (entries - 1) * entries / 2;
        std::vector<std::future<intptr_t>> readers(4);
        for (auto& reader : readers) {
            reader = std::async(std::launch::async, read_all, map);
        }
        for (auto& reader : readers) {
            EXPECT_EQ(reader.get(), expected);
        }
        qv_btree_free(map);
    }
}

}  // namespace
