// Builds a very large map, removes half of it in random order and verifies every invariant.
// Usage: scale_check [ENTRIES]

#include <chrono>
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

void* key_of(size_t number) {
    return reinterpret_cast<void*>(number);
}

template <typename Work>
void timed(const char* what, const Work& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    std::printf("%-32s %8.1f s\n", what, time.count());
}

void expect(const qv_btree_t* map, size_t size) {
    const char* const broken = Invariants::broken(map);
    if (*broken != '\0' || qv_btree_size(map) != size) {
        std::printf("broken: %s, %zu entries\n", broken, qv_btree_size(map));
        std::exit(1);
    }
}

size_t levels(const qv_btree_node_t* node) {
    if (node == nullptr) {
        return 0;
    }
    // The taller side is the one that the balance names.
    const bool right = node->balance > 0;
    const bool ends = (right ? node->right_child : node->left_child) == 0;
    return 1 + levels(ends ? nullptr : right ? node->right : node->left);
}

}  // namespace

int main(int argc, char** argv) {
    const size_t entries = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 20000000;
    std::vector<uint32_t> keys(entries);
    std::iota(keys.begin(), keys.end(), 1U);
    std::mt19937 random(1);
    std::shuffle(keys.begin(), keys.end(), random);

    qv_btree_t* const map = qv_btree_new(compare, nullptr, nullptr);
    timed("insert in random order", [&] {
        for (const uint32_t key : keys) {
            qv_btree_insert(map, key_of(key), nullptr);
        }
    });
    std::printf("%zu entries, %zu levels\n", entries, levels(map->root));
    timed("verify every invariant", [&] { expect(map, entries); });
    std::shuffle(keys.begin(), keys.end(), random);
    timed("remove half in random order", [&] {
        for (size_t i = 0; i < entries / 2; ++i) {
            if (!qv_btree_remove(map, key_of(keys[i]))) {
                std::exit(1);
            }
        }
    });
    timed("verify every invariant", [&] { expect(map, entries - entries / 2); });
    timed("free", [&] { qv_btree_free(map); });
    return 0;
}
