// The maps that are measured, each behind the same few operations on void* keys and values.
//
// Each is used as its users would at their best. All call the same comparator through the same
// pointer and take their memory from the same malloc. Keys and values are not theirs.
#ifndef QV_BENCH_PEERS_H
#define QV_BENCH_PEERS_H

#include <qv/base/qv_btree.h>
#include <search.h>

#include <cstdlib>
#include <map>

#if __has_include(<boost/container/map.hpp>)
#include <boost/container/map.hpp>
#include <boost/version.hpp>
#define QV_BENCH_BOOST 1
#endif
#if __has_include(<absl/container/btree_map.h>)
#include <absl/container/btree_map.h>
#define QV_BENCH_ABSL 1
#endif

class QvBtree {
public:
    explicit QvBtree(qv_comparator_pt compare) : map_(qv_btree_new(compare, nullptr, nullptr)) {}
    QvBtree(const QvBtree& other) : map_(qv_btree_copy(other.map_, nullptr, nullptr)) {}
    QvBtree& operator=(const QvBtree&) = delete;
    ~QvBtree() { qv_btree_free(map_); }

    void insert(void* key, void* value) { qv_btree_insert(map_, key, value); }
    void* find(const void* key) const { return qv_btree_find(map_, key); }
    void* lower_bound(const void* key) const { return qv_btree_low_bound(map_, key); }
    void remove(const void* key) { qv_btree_remove(map_, key); }
    void clear() { qv_btree_clear(map_); }

    // The value under key: the stored one, or value, which then is stored.
    void* enter(void* key, void* value) {
        void* const stored = qv_btree_find(map_, key);
        if (stored == nullptr) {
            qv_btree_insert(map_, key, value);
        }
        return stored != nullptr ? stored : value;
    }

    void* remove_first() {
        qv_btree_node_t* const node = qv_btree_first_node(map_);
        void* const key = qv_btree_node_key(node);
        qv_btree_remove_node(map_, node);
        return key;
    }

    template <typename Use>
    void walk(Use use) const {
        auto* node = qv_btree_first_node(map_);
        for (; node != nullptr; node = qv_btree_next_node(node)) {
            use(qv_btree_node_key(node), qv_btree_node_value(node));
        }
    }

private:
    qv_btree_t* map_;
};

struct Less {
    qv_comparator_pt compare;
    bool operator()(const void* a, const void* b) const { return compare(a, b) < 0; }
};

#ifdef QV_BENCH_ABSL
// Spares Abseil's tree, which knows such comparators, a second call where keys are equal.
struct ThreeWay {
    qv_comparator_pt compare;
    absl::weak_ordering operator()(const void* a, const void* b) const {
        const int32_t cmp = compare(a, b);
        return cmp < 0    ? absl::weak_ordering::less
               : cmp == 0 ? absl::weak_ordering::equivalent
                          : absl::weak_ordering::greater;
    }
};
#endif

// Any map with the interface of std::map.
template <typename Map>
class StandardMap {
public:
    explicit StandardMap(qv_comparator_pt compare) : map_(typename Map::key_compare{compare}) {}

    void insert(void* key, void* value) { map_.insert(typename Map::value_type(key, value)); }

    void* find(const void* key) const {
        const auto at = map_.find(const_cast<void*>(key));
        return at != map_.end() ? at->second : nullptr;
    }

    void* lower_bound(const void* key) const {
        const auto at = map_.lower_bound(const_cast<void*>(key));
        return at != map_.end() ? at->first : nullptr;
    }

    void remove(const void* key) {
        const auto at = map_.find(const_cast<void*>(key));
        if (at != map_.end()) {
            map_.erase(at);
        }
    }

    void clear() { map_.clear(); }

    void* enter(void* key, void* value) {
        return map_.insert(typename Map::value_type(key, value)).first->second;
    }

    void* remove_first() {
        void* const key = map_.begin()->first;
        map_.erase(map_.begin());
        return key;
    }

    template <typename Use>
    void walk(Use use) const {
        for (const auto& entry : map_) {
            use(entry.first, entry.second);
        }
    }

private:
    Map map_;
};

using StdMap = StandardMap<std::map<void*, void*, Less>>;
#ifdef QV_BENCH_BOOST
using BoostAvl = StandardMap<
    boost::container::map<void*, void*, Less, std::allocator<std::pair<void* const, void*>>,
                          boost::container::tree_assoc_options<
                              boost::container::tree_type<boost::container::avl_tree>>::type>>;
#endif
#ifdef QV_BENCH_ABSL
using AbslBtree = StandardMap<absl::btree_map<void*, void*, ThreeWay>>;
#endif

// glibc's red-black tree, which stores one pointer: to an entry of key and value. It has neither a
// lower bound nor a first entry.
class Tsearch {
public:
    explicit Tsearch(qv_comparator_pt compare) { compare_keys = compare; }
    Tsearch(const Tsearch& other) {
        other.walk([this](void* key, void* value) { insert(key, value); });
    }
    Tsearch& operator=(const Tsearch&) = delete;
    ~Tsearch() { clear(); }

    void insert(void* key, void* value) {
        auto* const entry = static_cast<Entry*>(std::malloc(sizeof(Entry)));
        *entry = {key, value};
        if (*static_cast<Entry**>(tsearch(entry, &root_, compare_entries)) != entry) {
            std::free(entry);
        }
    }

    void* find(const void* key) const {
        const Entry wanted = {const_cast<void*>(key), nullptr};
        auto* const found = static_cast<Entry**>(tfind(&wanted, &root_, compare_entries));
        return found != nullptr ? (*found)->value : nullptr;
    }

    // Its comparator notes the entry, which tdelete() does not return: so one search is enough.
    void remove(const void* key) {
        static Entry* noted;
        noted = nullptr;
        const Entry wanted = {const_cast<void*>(key), nullptr};
        tdelete(&wanted, &root_, [](const void* a, const void* b) {
            const int cmp = compare_entries(a, b);
            noted = cmp == 0 ? const_cast<Entry*>(static_cast<const Entry*>(b)) : noted;
            return cmp;
        });
        std::free(noted);
    }

    void clear() {
        tdestroy(root_, std::free);
        root_ = nullptr;
    }

    void* enter(void* key, void* value) {
        void* const stored = find(key);
        if (stored == nullptr) {
            insert(key, value);
        }
        return stored != nullptr ? stored : value;
    }

    template <typename Use>
    void walk(Use use) const {
        twalk_r(
            root_,
            [](const void* node, VISIT order, void* data) {
                if (order == postorder || order == leaf) {
                    const Entry* const entry = *static_cast<Entry* const*>(node);
                    (*static_cast<Use*>(data))(entry->key, entry->value);
                }
            },
            &use);
    }

private:
    struct Entry {
        void* key;
        void* value;
    };

    static int compare_entries(const void* a, const void* b) {
        return compare_keys(static_cast<const Entry*>(a)->key, static_cast<const Entry*>(b)->key);
    }

    static inline qv_comparator_pt compare_keys;  // tsearch passes nothing else of the caller's.

    void* root_ = nullptr;
};

#endif  // QV_BENCH_PEERS_H
