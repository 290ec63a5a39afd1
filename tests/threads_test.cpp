// Readers that share a map, for ThreadSanitizer; with the library as it is linked.

#include <gtest/gtest.h>
#include <qv/base/qv_btree.h>

#include <future>
#include <vector>

TEST(Threads, ReadersShareAMap) {
    std::vector<char> keys(5000);
    const auto compare = [](const void* a, const void* b) { return a < b ? -1 : a == b ? 0 : 1; };
    qv_btree_t* const map = qv_btree_new(compare, nullptr, nullptr);
    for (char& key : keys) {
        qv_btree_insert(map, &key, &key);
    }
    const auto differ = [](void* key, void* value, void* /*data*/) { return key != value; };
    const auto read_all = [&] {  // everything that the header allows at the same time
        qv_btree_node_t* node = qv_btree_first_node(map);
        for (char& key : keys) {
            ASSERT_EQ(qv_btree_node_key(node), qv_btree_node_value(node));
            ASSERT_EQ(qv_btree_find_node(map, &key), node);
            ASSERT_EQ(qv_btree_find(map, &key), qv_btree_low_bound(map, &key));
            node = qv_btree_next_node(node);
        }
        EXPECT_EQ(qv_btree_first(map, nullptr), keys.data());
        EXPECT_EQ(qv_btree_node_key(qv_btree_last_node(map)), &keys.back());
        qv_btree_t* const copy = qv_btree_copy(map, nullptr, nullptr);
        qv_btree_assign(copy, map, nullptr, nullptr);
        EXPECT_EQ(qv_btree_size(copy), qv_btree_empty(map) ? 0 : qv_btree_size(map));
        qv_btree_foreach(map, differ, nullptr);
        qv_btree_free(copy);
    };
    std::vector<std::future<void>> readers(4);
    for (auto& reader : readers) {
        reader = std::async(std::launch::async, read_all);
    }
    readers.clear();  // waits for them
    qv_btree_free(map);
}
