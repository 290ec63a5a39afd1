// A map whose every operation is checked against std::map: its result, all that it calls, the
// records, and the node that each entry is in. What is wrong is thrown as std::logic_error.
#ifndef QV_TESTS_CHECKED_MAP_H
#define QV_TESTS_CHECKED_MAP_H

#include <map>
#include <stdexcept>
#include <string>
#include <utility>

#include "events.h"
#include "invariants.h"

inline void require(bool holds, const std::string& what) {
    if (!holds) {
        throw std::logic_error(what);
    }
}

enum class RemoveBy { NODE, KEY, COMPARATOR };

class CheckedMap {
public:
    CheckedMap() : map(qv_btree_new(compare, key_dtor, value_dtor)) {}
    CheckedMap(CheckedMap&&) = delete;
    ~CheckedMap() {
        observed = map;
        qv_btree_free(map);
    }

    void insert(Int key, Int value) { store("insert", key, value, qv_btree_insert); }
    void replace(Int key, Int value) { store("replace", key, value, qv_btree_replace); }

    void remove(Int key, RemoveBy by) {
        const auto at = model.equal_range(key);
        const bool present = at.first != at.second;
        auto* const node = present ? at.first->second.node : nullptr;
        auto* const next = present && at.second != model.end() ? at.second->second.node : nullptr;
        const std::string search = present || by != RemoveBy::NODE ? search_for(key) : "";
        run("remove " + std::to_string(key), search + erased(at.first, at.second), [=] {
            return by == RemoveBy::NODE  ? qv_btree_remove_node(map, node) == next
                   : by == RemoveBy::KEY ? qv_btree_remove(map, ptr(key)) == present
                                         : qv_btree_remove_cmp(map, ptr(key), compare) == present;
        });
    }

    void remove_until(Int key) {
        const bool present = model.count(key) != 0;
        std::string expected;
        while (present && model.begin()->first < key && model.begin()->first != 0) {
            expected += erased(model.begin(), std::next(model.begin()));
        }
        run_without_comparisons("remove until " + std::to_string(key), expected,
                                [=] { return qv_btree_remove_until(map, ptr(key)) == present; });
    }

    void clear() {
        run("clear", erased(model.begin(), model.end()), [=] { return qv_btree_clear(map), true; });
    }

    void assign(const CheckedMap& other, qv_copy_pt keys, qv_copy_pt values) {
        std::string expected;
        if (this != &other) {
            expected = erased(model.begin(), model.end());
            expected += copied(other.model, keys, values, 0);
        }
        run_without_comparisons("assign", expected, [&] {
            return qv_btree_assign(map, other.map, keys, values), true;
        });
    }

    // Copies the other map, and becomes that copy.
    void copy(const CheckedMap& other, qv_copy_pt keys, qv_copy_pt values) {
        if (refuse_in == 1) {
            return run("copy", "refuse; ",
                       [&] { return qv_btree_copy(other.map, keys, values) == nullptr; });
        }
        const Model source = other.model;
        const std::string end_of_old = erased(model.begin(), model.end()) + "release map; ";
        const std::string expected = "allocate; " + copied(source, keys, values, 1) + end_of_old;
        run_without_comparisons("copy", expected, [&] {
            qv_btree_t* const copy = qv_btree_copy(other.map, keys, values);
            const bool right = copy->key_dtor == (keys != nullptr ? key_dtor : nullptr) &&
                               copy->value_dtor == (values != nullptr ? value_dtor : nullptr);
            copy->key_dtor = key_dtor;
            copy->value_dtor = value_dtor;
            qv_btree_free(std::exchange(map, copy));
            return right;
        });
    }

    void look_up(Int key) {
        const auto at = model.find(key);
        void* const value = at != model.end() ? ptr(at->second.value) : nullptr;
        run("find " + std::to_string(key), search_for(key),
            [=] { return qv_btree_find(map, ptr(key)) == value; });
        const auto next = model.lower_bound(key);
        void* const bound = next != model.end() ? ptr(next->first) : nullptr;
        run("low bound " + std::to_string(key), search_for(key, qv_btree_goal::LOW_BOUND),
            [=] { return qv_btree_low_bound(map, ptr(key)) == bound; });
    }

private:
    struct Entry {
        Int value;
        qv_btree_node_t* node;  // NULL until a walk has met it.
    };
    using Model = std::map<Int, Entry>;
    using Store = void (*)(qv_btree_t* t, void* key, void* value);

    void store(const std::string& name, Int key, Int value, Store function) {
        std::string expected = search_for(key);
        const auto at = model.find(key);
        if (at != model.end()) {
            expected += sized("drop value ", at->second.value, model.size());
            expected += sized("drop key ", key, model.size());
            at->second.value = value;
        } else {
            expected += added(key, value, refuse_in == 1);
        }
        run(name + ' ' + std::to_string(key), expected,
            [=] { return function(map, ptr(key), ptr(value)), true; });
    }

    // The action returns whether its result is right; the model is what it should lead to.
    void run(const std::string& name, const std::string& expected,
             const std::function<bool()>& action) {
        observed = map;
        event_log.clear();
        require(action(), name + ": wrong result");
        require(event_log == expected, name + ": " + event_log + "instead of: " + expected);
        const std::string wrong = wrong_state();
        require(wrong.empty(), name + " leaves a wrong " + wrong);
    }

    void run_without_comparisons(const std::string& name, const std::string& expected,
                                 const std::function<bool()>& action) {
        logs_comparisons = false;
        run(name, expected, action);
        logs_comparisons = true;
    }

    // Of the records, the walk both ways, the ends and the size; empty when all are right.
    std::string wrong_state() {
        logs_comparisons = false;
        const std::string broken = Invariants::broken(map);
        logs_comparisons = true;
        auto* node = qv_btree_first_node(map);
        qv_btree_node_t* previous = nullptr;
        for (auto& entry : model) {
            auto*& known = entry.second.node;
            known = known != nullptr ? known : node;
            if (node == nullptr || node != known || qv_btree_node_previous(node) != previous ||
                qv_btree_node_key(node) != ptr(entry.first) ||
                qv_btree_node_value(node) != ptr(entry.second.value)) {
                return "entry " + std::to_string(entry.first) + ", or node of it";
            }
            previous = node;
            node = qv_btree_next_node(node);
        }
        return !broken.empty()                                          ? "invariant " + broken
               : node != nullptr || qv_btree_last_node(map) != previous ? "last node"
               : qv_btree_size(map) != model.size()                     ? "size"
               : qv_btree_empty(map) != model.empty()                   ? "emptiness"
                                                                        : "";
    }

    // The comparator calls of a search.
    std::string search_for(Int key, qv_btree_goal goal = qv_btree_goal::EQUAL) const {
        std::string calls;
        const auto* node = map->root;
        for (bool goes_on = node != nullptr; goes_on;) {
            const Int stored = num(node->key);
            calls += event("compare ", key, ",", stored);
            const bool is_child = (key > stored ? node->right_child : node->left_child) != 0;
            goes_on = is_child && (key != stored || goal == qv_btree_goal::LOW_BOUND);
            node = key > stored ? node->right : node->left;
        }
        return calls;
    }

    // Each changes the model and returns the events that go with it.
    std::string added(Int key, Int value, bool refused) {
        if (!refused) {
            model[key] = {value, nullptr};
        }
        return refused ? "refuse; " : "allocate; ";
    }

    std::string erased(Model::const_iterator first, Model::const_iterator last) {
        std::string expected;
        for (auto at = first; at != last; ++at) {
            expected += sized("drop key ", at->first, model.size());
            expected += sized("drop value ", at->second.value, model.size());
            expected += sized("release ", at->first, model.size());
        }
        model.erase(first, last);
        return expected;
    }

    // The allocations are those before the first entry's.
    std::string copied(const Model& source, qv_copy_pt keys, qv_copy_pt values, int allocations) {
        std::string expected;
        for (const auto& entry : source) {
            const Int value = entry.second.value;
            expected += keys != nullptr ? event("copy key ", entry.first) : "";
            expected += values != nullptr ? event("copy value ", value) : "";
            expected += added(entry.first + (keys != nullptr ? 1000 : 0),
                              value + (values != nullptr ? 100 : 0), ++allocations == refuse_in);
        }
        return expected;
    }

    qv_btree_t* map;
    Model model;
};

#endif  // QV_TESTS_CHECKED_MAP_H
