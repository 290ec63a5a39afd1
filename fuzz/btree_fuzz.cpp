// Random operations on two maps, each compared with std::map. Keys and values are on the heap and
// belong to the maps: a sanitizer reports what is released twice, too early or never.
//
// ./dev fuzz takes the bytes from libFuzzer. As a test the program takes them from a generator with
// always the same 20 seeds. Each is a test with a name of its own: --gtest_filter=*/7 repeats
// seed 7.

#include "qv_btree.cpp"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "invariants.h"

namespace {

using Model = std::map<int, int>;

std::set<void*> live;           // objects and blocks that are not yet released
std::vector<void*> duplicates;  // all that were made in one copy or assignment
int granted = INT_MAX;          // blocks until memory is refused

int* make(int number) {
    return static_cast<int*>(*live.insert(new int(number)).first);
}

void drop(void* object) {
    EXPECT_EQ(1U, live.erase(object));
    delete static_cast<int*>(object);
}

int number_in(const void* object) {
    return object != nullptr ? *static_cast<const int*>(object) : -1;
}

void* duplicate(void* object) {
    return duplicates.emplace_back(make(number_in(object)));
}

// What a copy holds when there is no memory for more entries. Nobody has released the duplicates
// that were made for the others.
Model first_entries(const Model& model, ptrdiff_t entries, ptrdiff_t duplicates_each) {
    const auto kept = std::min(entries, static_cast<ptrdiff_t>(model.size()));
    std::for_each(duplicates.begin() + kept * duplicates_each, duplicates.end(), drop);
    return {model.begin(), std::next(model.begin(), kept)};
}

// Differences of more than 1 give the extremes.
int32_t compare(const void* a, const void* b) {
    const int difference = number_in(a) - number_in(b);
    return difference < -1 ? INT32_MIN : difference > 1 ? INT32_MAX : difference;
}

struct Map {
    qv_btree_t* map = qv_btree_new(compare, drop, drop);
    Model model;
};

void check(const qv_btree_t* map, const Model& model) {
    EXPECT_EQ("", broken_invariant(map));
    Model entries;
    for (auto* node = qv_btree_first_node(map); node != nullptr; node = qv_btree_next_node(node)) {
        entries[number_in(node->key)] = number_in(node->value);
    }
    EXPECT_EQ(model, entries);
}

void operate(const std::string& name, Map& on, const Map& other, int key, int value) {
    auto& [map, model] = on;
    const auto at = model.find(key);
    const auto next = model.upper_bound(key);
    const bool present = at != model.end();
    const auto key_or_none = [&model = on.model](auto entry) {
        return entry != model.end() ? entry->first : -1;
    };
    if (name == "insert" || name == "replace") {
        int* const objects[] = {make(key), make(value)};
        granted = value < 8 ? 0 : INT_MAX;
        (name == "insert" ? qv_btree_insert : qv_btree_replace)(map, objects[0], objects[1]);
        if (granted < 0) {
            std::for_each(objects, objects + 2, drop);
        } else {
            model[key] = value;
        }
    } else if (name == "remove") {
        EXPECT_EQ(present, value % 2 == 0 ? qv_btree_remove(map, &key)
                                          : qv_btree_remove_cmp(map, &key, compare));
        model.erase(key);
    } else if (name == "remove node") {
        auto* const removed = qv_btree_find_node(map, &key);
        EXPECT_EQ(present ? key_or_none(next) : -1,
                  number_in(qv_btree_node_key(qv_btree_remove_node(map, removed))));
        model.erase(key);
    } else if (name == "look up") {
        EXPECT_EQ(present ? at->second : -1, number_in(qv_btree_find(map, &key)));
        EXPECT_EQ(key_or_none(present ? at : next), number_in(qv_btree_low_bound(map, &key)));
    } else if (name == "remove until" && value < 8) {
        EXPECT_EQ(present, qv_btree_remove_until(map, &key));
        model.erase(model.begin(), present ? at : model.begin());
    } else if (name == "clear" && value < 8) {
        qv_btree_clear(map);
        model.clear();
    } else if (name == "assign" && value < 16) {
        const int blocks = granted = value < 4 ? key : INT_MAX;
        qv_btree_assign(map, other.map, duplicate, duplicate);
        model = &on == &other ? model : first_entries(other.model, blocks, 2);
    } else if (name == "copy") {
        const int of_keys = value >> 1 & 1;
        const int of_values = value >> 2 & 1;
        const int blocks = granted = value < 16 ? key : INT_MAX;
        auto* const copy = qv_btree_copy(other.map, of_keys != 0 ? duplicate : nullptr,
                                         of_values != 0 ? duplicate : nullptr);
        EXPECT_EQ(blocks > 0, copy != nullptr);
        if (copy != nullptr) {
            check(copy, first_entries(other.model, blocks - 1, of_keys + of_values));
        }
        qv_btree_free(copy);
    }
    granted = INT_MAX;
    duplicates.clear();
}

}  // namespace

void* HAL_Malloc(unsigned long size) {
    return --granted < 0 ? nullptr : std::memset(*live.insert(std::malloc(size)).first, 42, size);
}

void HAL_Free(void* ptr) {
    EXPECT_EQ(1U, live.erase(ptr));
    std::free(ptr);
}

// An operation takes three bytes: which one, and the map; the key; its rest, and the value.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const char* const names[] = {"insert",       "insert",  "insert",      "insert",
                                        "insert",       "replace", "replace",     "remove",
                                        "remove",       "remove",  "remove node", "look up",
                                        "remove until", "clear",   "assign",      "copy"};
    GTEST_FLAG_SET(throw_on_failure, true);  // A failed expectation ends the program.
    Map maps[2];
    const int largest_key = size > 0 ? (4 << data[0] % 9) - 1 : 0;
    for (; size > 3; size -= 3, data += 3) {
        const std::string name = names[data[1] >> 4];
        const int key = (data[2] | (data[3] & 3) << 8) & largest_key;
        const int value = data[3] >> 2;
        Map& map = maps[data[1] & 1];
        SCOPED_TRACE(name + ' ' + std::to_string(key) + " in " + testing::PrintToString(map.model));
        operate(name, map, maps[value & 1], key, value);
        check(maps[0].map, maps[0].model);
        check(maps[1].map, maps[1].model);
        EXPECT_EQ(2 + 3 * (maps[0].model.size() + maps[1].model.size()), live.size());
    }
    qv_btree_free(maps[0].map);
    qv_btree_free(maps[1].map);
    EXPECT_EQ(0U, live.size());
    return 0;
}

class Random : public testing::TestWithParam<unsigned> {};

TEST_P(Random, OperationsAreThoseOfStdMap) {
    std::mt19937 random(GetParam());
    for (int input = 0; input < 10; ++input) {
        std::vector<uint8_t> data(2000);
        std::generate(data.begin(), data.end(), [&] { return static_cast<uint8_t>(random()); });
        LLVMFuzzerTestOneInput(data.data(), data.size());
    }
}

INSTANTIATE_TEST_SUITE_P(Seed, Random, testing::Range(0U, 20U));
