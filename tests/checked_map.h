// A map whose every operation is checked against std::map: results, invariants, node identity, and
// all that it calls. The including file supplies the map's source.
//
// Keys and values are integers in place of pointers. Callbacks and memory functions write one log:
//
//   c5,3  comparator (new or searched key, stored key)      m   allocation
//   k5/1  v5/1  key, value destructor / size at the time    x   refused allocation
//   K5  V5  copy function of keys, values
//   f5/1  release of the node with key 5 / size at the time; of a map as of key 0
#ifndef QV_TESTS_CHECKED_MAP_H
#define QV_TESTS_CHECKED_MAP_H

#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

#include "invariants.h"

using Int = std::intptr_t;

inline std::string event_log;
inline bool logs_comparisons = false;
inline std::set<void*> live_blocks;
inline int fail_in = 0;                 // The fail_in-th allocation from now on is refused.
inline qv_btree_t* observed = nullptr;  // The map whose size is logged.
inline std::function<void()> on_key_dtor = [] {};

inline void* ptr(Int n) {
    return reinterpret_cast<void*>(n);
}

inline Int num(const void* p) {
    return reinterpret_cast<Int>(p);
}

inline std::string event(char what, const void* a, const char* more = "", Int b = -1) {
    return what + std::to_string(num(a)) + more + (b < 0 ? "" : std::to_string(b)) + ' ';
}

inline void log_with_size(char what, const void* object) {
    event_log += event(what, object, "/", static_cast<Int>(qv_btree_size(observed)));
}

inline int32_t compare(const void* a, const void* b) {
    if (logs_comparisons) {
        event_log += event('c', a, ",", num(b));
    }
    return num(a) < num(b) ? INT32_MIN : num(a) == num(b) ? 0 : 1;
}

inline void key_dtor(void* key) {
    log_with_size('k', key);
    on_key_dtor();
}

inline void value_dtor(void* value) {
    log_with_size('v', value);
}

template <char what, Int shift>
void* copy_of(void* object) {
    event_log += event(what, object);
    return ptr(num(object) + shift);
}
constexpr qv_copy_pt key_copy = copy_of<'K', 1000>;
constexpr qv_copy_pt value_copy = copy_of<'V', 100>;

inline void require(bool holds, const std::string& what) {
    if (!holds) {
        throw std::logic_error(what);
    }
}

void* HAL_Malloc(unsigned long size) {
    const bool refused = fail_in > 0 && --fail_in == 0;
    event_log += refused ? "x " : "m ";
    return refused ? nullptr : std::memset(*live_blocks.insert(std::malloc(size)).first, 42, size);
}

void HAL_Free(void* ptr) {
    log_with_size('f', static_cast<qv_btree_node_t*>(ptr)->key);
    if (live_blocks.erase(ptr) == 0) {
        std::abort();
    }
    std::free(ptr);
}

inline std::string events(const std::function<void()>& action, bool with_comparisons = true) {
    event_log.clear();
    logs_comparisons = with_comparisons;
    action();
    logs_comparisons = false;
    return event_log;
}

class CheckedMap {
public:
    CheckedMap() : map(qv_btree_new(compare, key_dtor, value_dtor)) {}
    CheckedMap(CheckedMap&&) = delete;
    ~CheckedMap() {
        observed = map;
        qv_btree_free(map);
    }

    void store(Int key, Int value, bool replace) {
        std::string expected = path_to(key);
        const auto at = model.find(key);
        if (at != model.end()) {
            expected += sized('v', at->second.value) + sized('k', key);
            at->second.value = value;
        } else {
            expected += added(key, value, fail_in == 1);
        }
        run(expected, [=] {
            (replace ? qv_btree_replace : qv_btree_insert)(map, ptr(key), ptr(value));
            return true;
        });
    }

    void remove(Int key, unsigned way) {
        const auto at = model.equal_range(key);
        const bool present = at.first != at.second;
        auto* const node = present ? at.first->second.node : nullptr;
        auto* const next = present && at.second != model.end() ? at.second->second.node : nullptr;
        const std::string path = way == 0 && !present ? "" : path_to(key);
        run(path + erased(at.first, at.second), [=] {
            return way == 0   ? qv_btree_remove_node(map, node) == next
                   : way == 1 ? qv_btree_remove(map, ptr(key)) == present
                              : qv_btree_remove_cmp(map, ptr(key), compare) == present;
        });
    }

    void remove_until(Int key) {
        const bool present = model.count(key) != 0;
        std::string expected;
        while (present && model.begin()->first < key && model.begin()->first != 0) {
            expected += erased(model.begin(), std::next(model.begin()));
        }
        const auto action = [=] { return qv_btree_remove_until(map, ptr(key)) == present; };
        run(expected, action, false);
    }

    void clear() {
        run(erased(model.begin(), model.end()), [=] { return qv_btree_clear(map), true; });
    }

    void assign(const CheckedMap& other, qv_copy_pt keys, qv_copy_pt values) {
        std::string expected;
        if (this != &other) {
            expected = erased(model.begin(), model.end());
            expected += copied(other.model, keys, values, 0);
        }
        const auto action = [&] { return qv_btree_assign(map, other.map, keys, values), true; };
        run(expected, action, false);
    }

    void become_copy(const CheckedMap& other, qv_copy_pt keys, qv_copy_pt values) {
        if (fail_in == 1) {
            return run("x ", [&] { return qv_btree_copy(other.map, keys, values) == nullptr; });
        }
        const Model source = other.model;
        const std::string old = erased(model.begin(), model.end()) + "f0/0 ";
        const auto action = [&] {
            qv_btree_t* const copy = qv_btree_copy(other.map, keys, values);
            const bool right = copy->key_dtor == (keys != nullptr ? key_dtor : nullptr) &&
                               copy->value_dtor == (values != nullptr ? value_dtor : nullptr);
            copy->key_dtor = key_dtor;
            copy->value_dtor = value_dtor;
            qv_btree_free(std::exchange(map, copy));
            return right;
        };
        run("m " + copied(source, keys, values, 1) + old, action, false);
    }

    void look_up(Int key) {
        const auto at = model.find(key);
        void* const value = at != model.end() ? ptr(at->second.value) : nullptr;
        run(path_to(key), [=] { return qv_btree_find(map, ptr(key)) == value; });
        const auto next = model.lower_bound(key);
        void* const bound = next != model.end() ? ptr(next->first) : nullptr;
        run(path_to(key, true), [=] { return qv_btree_low_bound(map, ptr(key)) == bound; });
    }

private:
    struct Entry {
        Int value;
        qv_btree_node_t* node;  // NULL until a walk has met it.
    };
    using Model = std::map<Int, Entry>;

    // The action returns whether its result is right; the model is what it should lead to.
    void run(const std::string& expected, const std::function<bool()>& action,
             bool with_comparisons = true) {
        bool right = false;
        observed = map;
        const std::string log = events([&] { right = action(); }, with_comparisons);
        require(right && log == expected, "result, or events: " + log + "; expected: " + expected);
        verify();
    }

    // The walk both ways, the ends, the size, and the records themselves.
    void verify() {
        require(*Invariants::broken(map) == '\0', Invariants::broken(map));
        auto* node = qv_btree_first_node(map);
        qv_btree_node_t* previous = nullptr;
        for (auto& entry : model) {
            auto*& known = entry.second.node;
            known = known != nullptr ? known : node;
            require(node == known && qv_btree_node_key(node) == ptr(entry.first) &&
                        qv_btree_node_value(node) == ptr(entry.second.value) &&
                        qv_btree_node_previous(node) == previous,
                    "entry, or the node that it is in");
            previous = node;
            node = qv_btree_next_node(node);
        }
        require(node == nullptr && qv_btree_last_node(map) == previous, "last node");
        require(qv_btree_size(map) == model.size() && qv_btree_empty(map) == model.empty(), "size");
    }

    // The comparator calls of a search; that for a lower bound does not end at an equal key.
    std::string path_to(Int key, bool lower_bound = false) const {
        std::string calls;
        const auto* node = map->root;
        for (bool goes_on = node != nullptr; goes_on;) {
            const Int stored = num(node->key);
            calls += event('c', ptr(key), ",", stored);
            const bool is_child = (key > stored ? node->right_child : node->left_child) != 0;
            goes_on = is_child && (key != stored || lower_bound);
            node = key > stored ? node->right : node->left;
        }
        return calls;
    }

    std::string sized(char what, Int object) const {
        return event(what, ptr(object), "/", static_cast<Int>(model.size()));
    }

    // Each changes the model and returns the events that go with it.
    std::string added(Int key, Int value, bool refused) {
        if (!refused) {
            model[key] = {value, nullptr};
        }
        return refused ? "x " : "m ";
    }

    std::string erased(Model::const_iterator first, Model::const_iterator last) {
        std::string expected;
        for (auto at = first; at != last; ++at) {
            expected +=
                sized('k', at->first) + sized('v', at->second.value) + sized('f', at->first);
        }
        model.erase(first, last);
        return expected;
    }

    std::string copied(const Model& source, qv_copy_pt keys, qv_copy_pt values, int allocation) {
        std::string expected;
        for (const auto& entry : source) {
            const Int value = entry.second.value;
            expected += keys != nullptr ? event('K', ptr(entry.first)) : "";
            expected += values != nullptr ? event('V', ptr(value)) : "";
            expected += added(entry.first + (keys != nullptr ? 1000 : 0),
                              value + (values != nullptr ? 100 : 0), ++allocation == fail_in);
        }
        return expected;
    }

    qv_btree_t* map;
    Model model;
};

#endif  // QV_TESTS_CHECKED_MAP_H
