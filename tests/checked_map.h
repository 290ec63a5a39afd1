// A map whose every operation is checked against std::map: results, invariants, node identity, and
// all that it calls. The including file supplies the map's source.
//
// Keys and values are integers in place of pointers. Callbacks and memory functions write one log:
//
//   c5,3  comparator (new or searched key, stored key)      m   allocation
//   k5/1  v5/1  key, value destructor / size at the time    x   refused allocation
//   K5  V5  copy function of keys, values                   f5  release of the node with key 5, or
//                                                           (f0) of a map
#ifndef QV_TESTS_CHECKED_MAP_H
#define QV_TESTS_CHECKED_MAP_H

#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <string>

#include "invariants.h"

using Int = std::intptr_t;

inline std::string event_log;
inline bool logs_comparisons = false;
inline std::set<void*> live_blocks;
inline int fail_in = 0;                 // The fail_in-th allocation from now on is refused.
inline qv_btree_t* observed = nullptr;  // Its size is what destructors log.
inline size_t size_at_release = 0;
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

inline int32_t compare(const void* a, const void* b) {
    if (logs_comparisons) {
        event_log += event('c', a, ",", num(b));
    }
    return num(a) < num(b) ? INT32_MIN : num(a) == num(b) ? 0 : 1;
}

inline void key_dtor(void* key) {
    event_log += event('k', key, "/", static_cast<Int>(qv_btree_size(observed)));
    on_key_dtor();
}

inline void value_dtor(void* value) {
    event_log += event('v', value, "/", static_cast<Int>(qv_btree_size(observed)));
}

inline void* key_copy(void* key) {
    event_log += event('K', key);
    return ptr(num(key) + 1000);
}

inline void* value_copy(void* value) {
    event_log += event('V', value);
    return ptr(num(value) + 100);
}

void* HAL_Malloc(unsigned long size) {
    const bool refused = fail_in > 0 && --fail_in == 0;
    event_log += refused ? "x " : "m ";
    return refused ? nullptr : std::memset(*live_blocks.insert(std::malloc(size)).first, 42, size);
}

void HAL_Free(void* ptr) {
    event_log += event('f', static_cast<qv_btree_node_t*>(ptr)->key);
    size_at_release = qv_btree_size(observed);
    if (live_blocks.erase(ptr) == 0) {
        std::abort();
    }
    std::free(ptr);
}

inline std::string events(const std::function<void()>& action) {
    event_log.clear();
    logs_comparisons = true;
    action();
    logs_comparisons = false;
    return event_log;
}

inline void require(bool holds, const std::string& what) {
    if (!holds) {
        throw std::logic_error(what);
    }
}

class CheckedMap {
public:
    CheckedMap() : map(qv_btree_new(compare, key_dtor, value_dtor)) {}
    CheckedMap(const CheckedMap&) = delete;
    CheckedMap& operator=(const CheckedMap&) = delete;
    ~CheckedMap() {
        observed = map;
        qv_btree_free(map);
    }

    void store(Int key, Int value, bool replace) {
        const auto at = model.find(key);
        const bool refused = fail_in == 1;
        run(path_to(key) + (at != model.end() ? dtor('v', at->second.value) + dtor('k', key)
                            : refused         ? "x "
                                              : "m "),
            [=] {
                (replace ? qv_btree_replace : qv_btree_insert)(map, ptr(key), ptr(value));
                return true;
            });
        if (at != model.end()) {
            at->second.value = value;
        } else if (!refused) {
            model[key] = {value, qv_btree_find_node(map, ptr(key))};
        }
        verify();
    }

    void remove(Int key, unsigned way) {
        const auto at = model.find(key);
        const bool present = at != model.end();
        auto* const node = qv_btree_find_node(map, ptr(key));
        auto* const next =
            present && std::next(at) != model.end() ? std::next(at)->second.node : nullptr;
        run((way == 0 && !present ? "" : path_to(key)) + (present ? destruction(at) : ""), [=] {
            return way == 0   ? qv_btree_remove_node(map, node) == next
                   : way == 1 ? qv_btree_remove(map, ptr(key)) == present
                              : qv_btree_remove_cmp(map, ptr(key), compare) == present;
        });
        require(!present || size_at_release == model.size(), "size when a node is released");
        model.erase(key);
        verify();
    }

    void remove_until(Int key) {
        const bool present = model.count(key) != 0;
        std::string expected;
        while (present && model.begin()->first < key && model.begin()->first != 0) {
            expected += destruction(model.begin());
            model.erase(model.begin());
        }
        run(
            expected, [=] { return qv_btree_remove_until(map, ptr(key)) == present; }, 'c');
        verify();
    }

    void clear() {
        run(cleared(), [=] { return qv_btree_clear(map), true; });
        verify();
    }

    // Becomes a copy of other, or has it assigned.
    void take(const CheckedMap& other, bool copying, bool keys, bool values) {
        if (!copying && this == &other) {
            return run("", [=] { return qv_btree_assign(map, map, key_copy, value_copy), true; });
        }
        auto* const of_keys = keys ? key_copy : nullptr;
        auto* const of_values = values ? value_copy : nullptr;
        std::string expected = copying ? fail_in == 1 ? "x " : "m " : cleared();
        Model taken;
        int allocation = copying ? 1 : 0;
        for (const auto& entry : other.model) {
            const Int value = entry.second.value;
            if (copying && fail_in == 1) {
                break;
            }
            const bool refused = ++allocation == fail_in;
            expected += (keys ? event('K', ptr(entry.first)) : "") +
                        (values ? event('V', ptr(value)) : "") + (refused ? "x " : "m ");
            if (!refused) {
                taken[entry.first + (keys ? 1000 : 0)] = {value + (values ? 100 : 0), nullptr};
            }
        }
        qv_btree_t* copy = nullptr;
        const auto operation = [&] {
            copying ? void(copy = qv_btree_copy(other.map, of_keys, of_values))
                    : qv_btree_assign(map, other.map, of_keys, of_values);
            return true;
        };
        run(expected, operation, 'c');
        if (copying && copy != nullptr) {
            require(copy->key_dtor == (keys ? key_dtor : nullptr), "key destructor");
            require(copy->value_dtor == (values ? value_dtor : nullptr), "value destructor");
            copy->key_dtor = key_dtor;
            copy->value_dtor = value_dtor;
            qv_btree_free(map);
            map = copy;
        }
        if (!copying || copy != nullptr) {
            model = taken;
            for (auto& entry : model) {
                entry.second.node = qv_btree_find_node(map, ptr(entry.first));
            }
        }
        verify();
    }

    void look_up(Int key) const {
        const auto at = model.find(key);
        void* const value = at != model.end() ? ptr(at->second.value) : nullptr;
        run(path_to(key), [=] { return qv_btree_find(map, ptr(key)) == value; });
        const auto next = model.lower_bound(key);
        void* const bound = next != model.end() ? ptr(next->first) : nullptr;
        run(path_to(key, true), [=] { return qv_btree_low_bound(map, ptr(key)) == bound; });
    }

    // The walk both ways, the ends, the size, and the records themselves.
    void verify() const {
        require(*Invariants::broken(map) == '\0', Invariants::broken(map));
        auto* node = qv_btree_first_node(map);
        qv_btree_node_t* previous = nullptr;
        for (const auto& entry : model) {
            require(node == entry.second.node && qv_btree_node_key(node) == ptr(entry.first) &&
                        qv_btree_node_value(node) == ptr(entry.second.value) &&
                        qv_btree_node_previous(node) == previous,
                    "entry, or the node that it is in");
            previous = node;
            node = qv_btree_next_node(node);
        }
        require(node == nullptr && qv_btree_last_node(map) == previous, "last node");
        require(qv_btree_size(map) == model.size() && qv_btree_empty(map) == model.empty(), "size");
    }

    qv_btree_t* map;

private:
    struct Entry {
        Int value;
        qv_btree_node_t* node;
    };
    using Model = std::map<Int, Entry>;

    // The action returns whether its result is right. Events that begin with skipped don't count.
    void run(const std::string& expected, const std::function<bool()>& action,
             char skipped = '\0') const {
        bool right = false;
        observed = map;
        const std::string all = events([&] { right = action(); });
        std::string log;
        for (size_t at = 0, end = 0; at < all.size(); at = end) {
            end = all.find(' ', at) + 1;
            log += all[at] == skipped ? "" : all.substr(at, end - at);
        }
        require(right && log == expected, "result, or events: " + log + "; expected: " + expected);
    }

    // The comparator calls of a search; that for a lower bound does not end at an equal key.
    std::string path_to(Int key, bool lower_bound = false) const {
        std::string calls;
        const auto* node = map->root;
        while (node != nullptr) {
            const Int stored = num(node->key);
            calls += event('c', ptr(key), ",", stored);
            const bool ends = (key <= stored ? node->left_child : node->right_child) == 0;
            node = ends || (key == stored && !lower_bound) ? nullptr
                   : key <= stored                         ? node->left
                                                           : node->right;
        }
        return calls;
    }

    std::string dtor(char what, Int object) const {
        return event(what, ptr(object), "/", static_cast<Int>(model.size()));
    }

    std::string destruction(Model::const_iterator at) const {
        return dtor('k', at->first) + dtor('v', at->second.value) + event('f', ptr(at->first));
    }

    std::string cleared() {
        std::string expected;
        for (auto at = model.cbegin(); at != model.cend(); ++at) {
            expected += destruction(at);
        }
        model.clear();
        return expected;
    }

    Model model;
};

#endif  // QV_TESTS_CHECKED_MAP_H
