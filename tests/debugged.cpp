// Maps for a debugger to look at; see debugger_test.sh.

#include <cstring>
#include <string>

#include "qv_btree.h"

struct point {
    int x, y;
};
char names[3][8] = {"Grace", "Ada", "Edsger"};
int born[3] = {1906, 1815, 1930};
point points[3] = {{1, 2}, {3, 4}, {5, 6}};
std::string towns[3] = {"Rome", "Oslo", "Bern"};
qv_btree_t *people, *falling, *drawn, *visited, *many;

template <typename T>
int32_t compare(const void* a, const void* b) {
    return *static_cast<const T*>(a) < *static_cast<const T*>(b)   ? -1
           : *static_cast<const T*>(b) < *static_cast<const T*>(a) ? 1
                                                                   : 0;
}

bool operator<(point a, point b) {
    return a.x < b.x;
}

int32_t compare_names(const void* a, const void* b) {
    return std::strcmp(static_cast<const char*>(a), static_cast<const char*>(b));
}

int32_t compare_downwards(const void* a, const void* b) {
    return compare<int>(b, a);
}

int32_t compare_pointers(const void* a, const void* b) {
    return compare<const void*>(&a, &b);
}

extern "C" int build() {
    people = qv_btree_new(compare_names, nullptr, nullptr);
    falling = qv_btree_new(compare_downwards, nullptr, nullptr);
    drawn = qv_btree_new(compare<point>, nullptr, nullptr);
    visited = qv_btree_new(compare<std::string>, nullptr, nullptr);
    for (int i = 0; i < 3; ++i) {
        qv_btree_insert(people, names[i], &born[i]);
        qv_btree_insert(falling, &born[i], names[i]);
        qv_btree_insert(drawn, &points[i], &born[i]);
        qv_btree_insert(visited, &towns[i], &born[i]);
    }
    return 3;
}

int main() {
    many = qv_btree_new(compare_pointers, nullptr, nullptr);
    for (uintptr_t i = 1; i <= 200000; ++i) {
        qv_btree_insert(many, reinterpret_cast<void*>(i), &born[i % 3]);
    }
    return build() - static_cast<int>(qv_btree_size(people));
}
