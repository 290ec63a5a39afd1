// What a build with QV_BTREE_CHECKED finds wrong in comparators and keys, and what not.

#define QV_BTREE_CHECKED
#include "qv_btree.cpp"

#include <gtest/gtest.h>

#include "../platform/std/hal_memory.cpp"

namespace {

constexpr const char* message = "qv_btree: the comparator contradicts itself, or a stored key was";

int32_t compare(const void* a, const void* b) {
    const int left = *static_cast<const int*>(a);
    const int right = *static_cast<const int*>(b);
    return (left > right ? 1 : 0) - (left < right ? 1 : 0);
}

// The commonest mistake.
int32_t is_less(const void* a, const void* b) {
    return *static_cast<const int*>(a) < *static_cast<const int*>(b) ? 1 : 0;
}

int keys[50];

void insert(qv_btree_t* map, int first, int last) {
    for (int i = first; i <= last; ++i) {
        keys[i] = i * 37 % 50;
        qv_btree_insert(map, &keys[i], nullptr);
    }
}

TEST(CheckedBuild, AbortsWhereAComparatorContradictsItself) {
    EXPECT_DEATH(insert(qv_btree_new(is_less, nullptr, nullptr), 0, 1), message);
}

TEST(CheckedBuild, AcceptsALawfulComparatorAndAbortsBesideAKeyThatWasChangedWhileStored) {
    qv_btree_t* const map = qv_btree_new(compare, nullptr, nullptr);
    insert(map, 0, 39);
    insert(map, 0, 39);
    EXPECT_EQ(qv_btree_size(map), 40U);
    keys[20] = -5;
    EXPECT_DEATH(insert(map, 40, 49), message);
    qv_btree_free(map);
}

}  // namespace
