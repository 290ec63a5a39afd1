// What a build with QV_BTREE_CHECKED finds wrong in comparators and keys, and what not.

#define QV_BTREE_CHECKED
#include "qv_btree.cpp"

#include <gtest/gtest.h>

#include "../platform/std/hal_memory.cpp"

namespace {

int32_t compare(const void* a, const void* b) {
    const int left = *static_cast<const int*>(a);
    const int right = *static_cast<const int*>(b);
    return (left > right ? 1 : 0) - (left < right ? 1 : 0);
}

// The commonest mistake.
int32_t is_less(const void* a, const void* b) {
    return *static_cast<const int*>(a) < *static_cast<const int*>(b) ? 1 : 0;
}

class CheckedBuild : public testing::Test {
protected:
    ~CheckedBuild() override { qv_btree_free(map); }

    void use(qv_comparator_pt key_compare) { map = qv_btree_new(key_compare, nullptr, nullptr); }

    void insert(int first, int last) {
        for (int i = first; i <= last; ++i) {
            keys[i] = i * 37 % 50;
            qv_btree_insert(map, &keys[i], nullptr);
        }
    }

    qv_btree_t* map = nullptr;
    int keys[50] = {};
};

TEST_F(CheckedBuild, AcceptsALawfulComparator) {
    use(compare);
    insert(0, 49);
    insert(0, 49);
    EXPECT_EQ(qv_btree_size(map), 50U);
}

TEST_F(CheckedBuild, AbortsWhereAComparatorContradictsItself) {
    use(is_less);
    EXPECT_DEATH(insert(0, 1), "qv_btree: the comparator contradicts itself, or a stored key was");
}

TEST_F(CheckedBuild, AbortsBesideAKeyThatWasChangedWhileItWasStored) {
    use(compare);
    insert(0, 39);
    keys[20] = -5;
    EXPECT_DEATH(insert(40, 49),
                 "qv_btree: the comparator contradicts itself, or a stored key was");
}

}  // namespace
