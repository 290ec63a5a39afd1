// Random operations on two maps, each compared with std::map. Keys and values are on the heap and
// belong to the maps: a sanitizer reports what is released twice, too early or never.
//
// ./dev fuzz takes the bytes from libFuzzer. As a test the program takes them from a generator, and
// prints each seed before its operations run; the seeds are always the same.

#include "qv_btree.cpp"

#include <gtest/gtest.h>

#include <cstring>
#include <iostream>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "invariants.h"

namespace {

using Model = std::map<int, int>;

std::set<void*> live;  // objects and blocks that are not yet released
bool refuses;          // memory

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
    return make(number_in(object));
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
    auto* node = qv_btree_first_node(map);
    for (; node != nullptr; node = qv_btree_next_node(node)) {
        entries[number_in(node->key)] = number_in(node->value);
    }
    EXPECT_EQ(model, entries);
    node = qv_btree_last_node(map);
    for (auto entry = model.rbegin(); entry != model.rend(); ++entry) {
        EXPECT_EQ(entry->first, number_in(qv_btree_node_key(node)));
        node = qv_btree_node_previous(node);
    }
    EXPECT_EQ(nullptr, node);
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
        refuses = value < 8;
        (name == "insert" ? qv_btree_insert : qv_btree_replace)(map, objects[0], objects[1]);
        if (refuses && !present) {
            std::for_each(objects, objects + 2, drop);
        } else {
            model[key] = value;
        }
        refuses = false;
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
        qv_btree_assign(map, other.map, duplicate, duplicate);
        model = other.model;
    } else if (name == "copy") {
        auto* const copy = qv_btree_copy(other.map, (value & 2) != 0 ? duplicate : nullptr,
                                         (value & 4) != 0 ? duplicate : nullptr);
        check(copy, other.model);
        qv_btree_free(copy);
    }
}

}  // namespace

void* HAL_Malloc(unsigned long size) {
    return refuses ? nullptr : std::memset(*live.insert(std::malloc(size)).first, 42, size);
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
    GTEST_FLAG_SET(throw_on_failure, true);  // and so end with it
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

TEST(Random, OperationsAreThoseOfStdMap) {
    std::cerr << "seeds:";
    for (unsigned seed = 1; seed <= 200; ++seed) {
        std::cerr << ' ' << seed << std::flush;
        std::mt19937 random(seed);
        std::vector<uint8_t> data(2000);
        std::generate(data.begin(), data.end(), [&] { return static_cast<uint8_t>(random()); });
        LLVMFuzzerTestOneInput(data.data(), data.size());
    }
}
