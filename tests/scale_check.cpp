// Builds a very large map, removes half of it in random order and verifies every invariant.
// Usage: scale_check [ENTRIES]

#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <random>
#include <vector>

#include "qv_btree.cpp"

#include "invariants.h"

namespace {

int32_t compare(const void* a, const void* b) {
    return a < b ? -1 : a == b ? 0 : 1;
}

void expect(const qv_btree_t* map, size_t size) {
    const char* const broken = Invariants::broken(map);
    if (*broken != '\0' || qv_btree_size(map) != size) {
        std::printf("broken: %s, %zu entries\n", broken, qv_btree_size(map));
        std::exit(1);
    }
    std::printf("%zu entries, all invariants hold\n", size);
}

}  // namespace

int main(int argc, char** argv) {
    const size_t entries = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 20000000;
    std::vector<char> keys(entries);  // The keys are addresses in here.
    std::vector<uint32_t> order(entries);
    std::iota(order.begin(), order.end(), 0U);
    std::mt19937 random(1);
    qv_btree_t* const map = qv_btree_new(compare, nullptr, nullptr);

    std::shuffle(order.begin(), order.end(), random);
    for (const uint32_t number : order) {
        qv_btree_insert(map, &keys[number], nullptr);
    }
    expect(map, entries);
    std::shuffle(order.begin(), order.end(), random);
    order.resize(entries / 2);
    for (const uint32_t number : order) {
        qv_btree_remove(map, &keys[number]);
    }
    expect(map, entries - entries / 2);
    qv_btree_free(map);
    return 0;
}
