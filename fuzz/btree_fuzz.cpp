// Random operations on two maps, each beside a model that foretells what a caller can observe:
// every call of a comparator, destructor, copy function, visitor and memory function, in order,
// with its arguments and the sizes of the maps at that moment; every result; the entries and their
// nodes; the shape of the tree.
//
// ./dev fuzz takes the bytes from libFuzzer. As a test the program takes them from a generator with
// always the same seeds. Each is a test with a name of its own: --gtest_filter=*/7 repeats seed 7.

#include "qv_btree.cpp"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <vector>

#include "events.h"
#include "model.h"

namespace {

// --- Objects: each may be a key, a value, or both at once ---------------------------------------

// Two objects have each number, so equal keys are the same object or another one. Object 0 is NULL,
// and may have any number. A reference comes with each pointer that a map is given. Destructors
// give it back or, where there is none, the caller does.
Int numbers;
Int number_of_null;

void* pass(Int object) {
    ++references[object];
    return ptr(object);
}

// Orders upwards (1), downwards (-1), or with two neighbouring numbers equal (2).
int rank_of(int order, Int object) {
    return static_cast<int>((object / 2 + number_of_null) % numbers) / order;
}

// A negative key is one of another kind, for searches only: it equals all objects of four ranks.
// Differences of more than 1 give the extremes.
int32_t answer(int order, Int key, Int stored) {
    const int cmp = key >= 0 ? rank_of(order, key) - rank_of(order, stored)
                             : rank_of(order, ~key) / 4 - rank_of(order, stored) / 4;
    return cmp < -1 ? INT32_MIN : cmp > 1 ? INT32_MAX : cmp;
}

// --- The maps, and another one that every callback uses -----------------------------------------

qv_btree_t* maps[2];
qv_btree_t* bystander;

void use_bystander(Int object) {
    if (bystander == nullptr || std::exchange(silent, true)) {
        return;
    }
    const size_t size = qv_btree_size(bystander);
    if (!qv_btree_remove(bystander, ptr(object % 8))) {
        qv_btree_insert(bystander, ptr(object % 8), nullptr);
    }
    EXPECT_NE(qv_btree_size(bystander), size);
    qv_btree_free(object % 8 == 0 ? qv_btree_copy(bystander, nullptr, nullptr) : nullptr);
    silent = false;
}

template <int order, char mark>
int32_t compare(const void* key, const void* stored) {
    log(num(key), mark == '?' ? "?" : "~", num(stored));
    use_bystander(num(stored));
    return answer(order, num(key), num(stored));
}

template <char mark = '?'>
qv_comparator_pt comparator(int order) {
    return order == 1 ? compare<1, mark> : order == 2 ? compare<2, mark> : compare<-1, mark>;
}

// --- The models ---------------------------------------------------------------------------------

struct Entry {
    Int key;
    Int value;
    const qv_btree_node_t* node;  // known from the first check on
};

struct Model {
    int order = 1;
    bool owns_keys = false;
    bool owns_values = false;
    const Tree* tree = nullptr;
    std::map<int, Entry> entries = {};  // by rank
    size_t size = 0;                    // During an operation it lags behind, as that of the map.
};
Model models[2];
std::string foretold;
size_t foretold_grants;

std::string sizes(size_t a, size_t b) {
    return '/' + std::to_string(a) + '/' + std::to_string(b) + ' ';
}

template <typename... Parts>
void foretell(const Parts&... parts) {
    append(foretold, parts..., sizes(models[0].size, models[1].size));
}

// Finds the first equal key on the way from the root or, for a lower bound, the smallest key that
// is not less.
Entry* search(Model& on, Int key, const char* comparator = "?", bool low_bound = false) {
    Entry* found = nullptr;
    for (const Tree* at = on.tree; at != nullptr && (found == nullptr || low_bound);) {
        Entry& entry = on.entries.at(at->key);
        foretell(key, comparator, entry.key);
        const int32_t cmp = answer(on.order, key, entry.key);
        found = cmp == 0 || (cmp < 0 && low_bound) ? &entry : found;
        at = at->child[cmp > 0 ? 1 : 0];
    }
    return found;
}

bool allocate() {
    const bool refused = foretold_grants == 0;
    foretell(refused ? "refuse" : "alloc");
    foretold_grants -= refused ? 0 : 1;
    return !refused;
}

void drop(bool owned, const char* destructor, Int object) {
    owned ? foretell(destructor, object) : void(--references[object]);
}

void drop_entry(const Model& on, const Entry& entry) {
    drop(on.owns_keys, "k-", entry.key);
    drop(on.owns_values, "v-", entry.value);
    foretell("free-", entry.key);
}

void insert(Model& on, Int key, Int value, bool replace) {
    if (Entry* const entry = search(on, key)) {
        drop(on.owns_values, "v-", std::exchange(entry->value, value));
        drop(on.owns_keys, "k-", replace ? std::exchange(entry->key, key) : key);
    } else if (allocate()) {
        on.entries[rank_of(on.order, key)] = {key, value, nullptr};
        on.tree = changed(on.tree, rank_of(on.order, key));
        ++on.size;
    } else {
        --references[key];
        --references[value];
    }
}

bool remove_entry(Model& on, Int key, const char* comparator = "?") {
    const Entry* const entry = search(on, key, comparator);
    if (entry == nullptr) {
        return false;
    }
    const int rank = rank_of(on.order, entry->key);
    on.tree = changed(on.tree, rank);
    drop_entry(on, *entry);
    --on.size;
    return on.entries.erase(rank) == 1;
}

bool remove_until(Model& on, Int key) {
    const Entry* const end = search(on, key);
    const auto first = [&on] { return &on.entries.begin()->second; };
    while (end != nullptr && end != first() && first()->key != 0) {
        remove_entry(on, first()->key);
    }
    return end != nullptr;
}

void clear(Model& on) {
    for (const auto& [rank, entry] : on.entries) {
        drop_entry(on, entry);
    }
    on = {on.order, on.owns_keys, on.owns_values};
}

void insert_copies(Model& to, const Model& from, bool of_keys, bool of_values) {
    for (const auto& [rank, entry] : from.entries) {
        of_keys ? foretell("k+", entry.key) : void();
        of_values ? foretell("v+", entry.value) : void();
        const void* const key = pass(of_keys ? entry.key ^ 1 : entry.key);
        insert(to, num(key), num(pass(of_values ? entry.value ^ 1 : entry.value)), false);
    }
}

// --- One operation, on the map and on the model -------------------------------------------------

void check(size_t i) {
    Model& on = models[i];
    const auto rank_in = [&on](const auto* node) {
        Entry& entry = on.entries[rank_of(on.order, num(node->key))];
        entry.node = entry.node != nullptr ? entry.node : node;
        const bool same = entry.node == node && entry.key == num(node->key);
        return same && entry.value == num(node->value) ? rank_of(on.order, entry.key) : INT32_MIN;
    };
    EXPECT_EQ(difference(on.tree, maps[i]->root, rank_in), "") << "in " << text(on.tree);
    EXPECT_EQ(qv_btree_size(maps[i]), on.entries.size());
    EXPECT_EQ(qv_btree_empty(maps[i]), on.entries.empty());
}

void expect_as_foretold() {
    const auto differ =
        std::mismatch(events.begin(), events.end(), foretold.begin(), foretold.end()).first;
    const size_t from = std::max<size_t>(size_t(differ - events.begin()), 99) - 99;
    EXPECT_TRUE(events == foretold)
        << "expected: " << foretold.substr(from, 999) << "\n but got: " << events.substr(from, 999);
    events.clear();
    foretold.clear();
}

// The lowest bits of the options: destructors for keys, for values; two more, the order.
void start(Int of_numbers, Int null, std::array<unsigned, 2> options) {
    GTEST_FLAG_SET(throw_on_failure, true);  // A failed expectation ends the test or program.
    inside_callback = use_bystander;
    suffix = [] { return sizes(qv_btree_size(maps[0]), qv_btree_size(maps[1])); };
    numbers = of_numbers;
    number_of_null = null;
    granted = foretold_grants = 2;
    for (size_t i = 0; i < 2; ++i) {
        Model& on = models[i];
        on = {std::array{1, -1, 2, 1}[options[i] / 4 % 4], options[i] % 2 != 0,
              options[i] / 2 % 2 != 0};
        maps[i] = qv_btree_new(comparator<>(on.order), on.owns_keys ? dtor<'k'> : nullptr,
                               on.owns_values ? dtor<'v'> : nullptr);
        allocate();
    }
    expect_as_foretold();
    granted = 1;
    bystander = numbers < 9999 ? qv_btree_new(comparator<>(1), nullptr, nullptr) : nullptr;
    events.clear();
}

void release(size_t i) {
    qv_btree_free(maps[i]);
    clear(models[i]);
    foretell("free-", 0);
    expect_as_foretold();
    maps[i] = nullptr;
}

void operate(const std::string& name, size_t i, size_t other, Int key, Int value, unsigned choice) {
    Model& on = models[i];
    qv_btree_t* const map = maps[i];
    const Int k = choice % 4 == 0 ? ~key : key;  // for searches
    const void* const p = ptr(k);
    const qv_copy_pt key_copy = choice % 2 != 0 ? copy_of<'k'> : nullptr;
    const qv_copy_pt value_copy = choice / 2 % 2 != 0 ? copy_of<'v'> : nullptr;
    const auto key_in = [](auto* entry) { return entry != nullptr ? Int(entry->key) : -1; };
    granted = foretold_grants = choice < 32 ? static_cast<size_t>(value) % (choice + 1) : SIZE_MAX;
    SCOPED_TRACE(name + ' ' + std::to_string(key) + ' ' + std::to_string(value) + ' ' +
                 std::to_string(choice) + " in " + (numbers < 99 ? text(on.tree) : "a large map"));
    if (name == "insert" || name == "replace") {
        const bool replace = name == "replace";
        (replace ? qv_btree_replace : qv_btree_insert)(map, pass(key), pass(value));
        insert(on, key, value, replace);
    } else if (name == "remove") {
        EXPECT_EQ(qv_btree_remove(map, p), remove_entry(on, k));
    } else if (name == "remove_cmp") {
        EXPECT_EQ(qv_btree_remove_cmp(map, p, comparator<'~'>(on.order)), remove_entry(on, k, "~"));
    } else if (name == "remove_node") {
        qv_btree_node_t* const node = qv_btree_find_node(map, p);
        const Entry* const entry = search(on, k);
        const int rank = entry != nullptr ? rank_of(on.order, entry->key) : INT32_MAX;
        const auto next = on.entries.upper_bound(rank);
        EXPECT_EQ(key_in(qv_btree_remove_node(map, node)),
                  next != on.entries.end() ? next->second.key : -1);
        EXPECT_EQ(node != nullptr, entry != nullptr && remove_entry(on, entry->key));
    } else if (name == "remove_until" && choice > 127) {
        EXPECT_EQ(qv_btree_remove_until(map, p), remove_until(on, k));
    } else if (name == "look up") {
        const Entry none = {};
        EXPECT_EQ(key_in(qv_btree_find_node(map, p)), key_in(search(on, k)));
        const Entry* const equal = search(on, k);
        EXPECT_EQ(num(qv_btree_find(map, p)), (equal != nullptr ? *equal : none).value);
        const Entry* const bound = search(on, k, "?", true);
        EXPECT_EQ(num(qv_btree_low_bound(map, p)), (bound != nullptr ? *bound : none).key);
        const Entry& first = on.entries.empty() ? none : on.entries.begin()->second;
        void* its_key = map;
        EXPECT_EQ(num(qv_btree_first(map, &its_key)), first.value);
        EXPECT_EQ(num(its_key), first.key);
        const auto last = on.entries.rbegin();
        EXPECT_EQ(key_in(qv_btree_last_node(map)), on.entries.empty() ? -1 : last->second.key);
    } else if (name == "foreach") {
        qv_btree_foreach(map, visit, ptr(key));
        for (auto at = on.entries.begin(); at != on.entries.end(); ++at) {
            foretell(at->second.key, "=", at->second.value);
            at = at->second.key == key ? --on.entries.end() : at;
        }
    } else if (name == "clear" && choice < 32) {
        qv_btree_clear(map);
        clear(on);
    } else if (name == "assign" && choice < 64) {
        qv_btree_assign(map, maps[other], key_copy, value_copy);
        if (other != i) {
            clear(on);
            insert_copies(on, models[other], key_copy != nullptr, value_copy != nullptr);
        }
    } else if (name == "copy" && choice / 4 % 8 == 0) {  // The copy takes the place of map.
        const Model& from = models[other];
        Model copy = {from.order, key_copy != nullptr && from.owns_keys,
                      value_copy != nullptr && from.owns_values};
        qv_btree_t* const made = qv_btree_copy(maps[other], key_copy, value_copy);
        EXPECT_EQ(allocate(), made != nullptr);
        if (made != nullptr) {
            insert_copies(copy, from, key_copy != nullptr, value_copy != nullptr);
            release(i);
            maps[i] = made;
            models[i] = copy;
        }
    }
    expect_as_foretold();
    if (numbers < 9999) {
        check(0);
        check(1);
    }
}

void finish() {
    release(0);
    release(1);
    for (const auto& [object, count] : references) {
        EXPECT_EQ(count, 0) << "references to object " << object;
    }
    silent = true;
    qv_btree_free(std::exchange(bystander, nullptr));
    silent = false;
    trees.clear();
}

}  // namespace

// Four bytes set the maps up. Each operation takes five more: which one, the choices, key and
// value.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const char* const names[] = {"insert",  "insert",  "insert",       "insert",
                                        "replace", "replace", "remove",       "remove",
                                        "foreach", "clear",   "remove_node",  "remove_cmp",
                                        "look up", "assign",  "remove_until", "copy"};
    if (size < 4) {
        return 0;
    }
    const Int objects = 8 << data[0] % 8;
    start(objects / 2, data[1], {data[2], data[3]});
    for (const uint8_t* at = data + 4; at + 5 <= data + size; at += 5) {
        operate(names[at[0] % 16], at[0] / 16 % 2, at[0] / 32 % 2,
                (at[2] + at[4] % 16 * 256) % objects, (at[3] + at[4] / 16 * 256) % objects, at[1]);
    }
    finish();
    return 0;
}

class Random : public testing::TestWithParam<unsigned> {};

TEST_P(Random, OperationsAreAsForetold) {
    std::mt19937 random(GetParam());
    for (int input = 0; input < 10; ++input) {
        std::vector<uint8_t> data(2000);
        std::generate(data.begin(), data.end(), [&] { return static_cast<uint8_t>(random()); });
        LLVMFuzzerTestOneInput(data.data(), data.size());
    }
}

INSTANTIATE_TEST_SUITE_P(Seed, Random, testing::Range(0U, 20U));

class Large : public testing::TestWithParam<bool> {};

// The sparsest tree of 24 levels: an update at either end may climb to the root, and a removal may
// rotate in each second level.
TEST_P(Large, OperationsAreAsForetold) {
    std::vector<const Tree*> sparsest = {nullptr, tree(nullptr, 0, nullptr)};
    while (sparsest.size() <= 24) {
        sparsest.push_back(tree(sparsest.back(), 0, *(sparsest.end() - 2), GetParam()));
    }
    int last = 0;
    const Tree* const whole = numbered(sparsest.back(), 2, &last);
    const int middle = last / 4 * 2;
    const auto on_large = [](const char* name, Int number, Int value = 1) {
        operate(name, 0, 1, 2 * ((number + numbers - number_of_null) % numbers), value, 255);
    };
    start(last + 2, middle, {3, 3});
    for_each_level(whole, [&](int number) { on_large("insert", number, number); });
    check(0);
    EXPECT_EQ(text(models[0].tree), text(whole));
    std::mt19937 random(0);
    for (size_t i = 0; i < 8000; ++i) {
        const int any = static_cast<int>(random() / 2);
        const int number =
            std::array{models[0].tree->key, any % 32, last - any % 32, any % last}[i % 4];
        const bool stored = models[0].entries.count(number) != 0;
        on_large("look up", number);
        on_large(!stored ? "insert" : any % 2 != 0 ? "remove" : "remove_node", number);
        i % 400 == 0 ? check(0) : void();
    }
    // Long removals: up to a NULL key, and up to a stored key whose value is NULL.
    on_large("replace", middle);
    on_large("replace", last, 0);
    on_large("remove_until", last);
    check(0);
    on_large("remove", middle);
    on_large("remove_until", last);
    check(0);
    finish();
}

INSTANTIATE_TEST_SUITE_P(Mirrored, Large, testing::Bool());
