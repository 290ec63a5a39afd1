// Maps for a debugger to look at; see debugger_test.sh.

#include <csignal>
#include <cstring>
#include <string>

#include "qv_btree.h"

struct town {
    std::string name;
    int founded;
    bool operator<(const town& other) const { return founded < other.founded; }
};
char names[3][8] = {"Grace", "Ada", "Edsger"};
int born[3] = {1906, 1815, 1930};
town towns[3] = {{"Rome", -753}, {"Oslo", 1048}, {"Bern", 1191}};
qv_btree_t *people, *falling, *visited, *many;

template <typename T>
int32_t compare(const void* a, const void* b) {
    const T& left = *static_cast<const T*>(a);
    const T& right = *static_cast<const T*>(b);
    return left < right ? -1 : right < left ? 1 : 0;
}

template <typename T>
qv_btree_t* make(T (&keys)[3], qv_comparator_pt comparator) {
    auto* const map = qv_btree_new(comparator, nullptr, nullptr);
    for (int i = 0; i < 3; ++i) {
        qv_btree_insert(map, &keys[i], &born[i]);
    }
    return map;
}

extern "C" int32_t interrupt(const void* /*a*/, const void* /*b*/) {
    return std::raise(SIGINT);
}

extern "C" int build() {
    people = make(names, [](const void* a, const void* b) -> int32_t {
        return std::strcmp(static_cast<const char*>(a), static_cast<const char*>(b));
    });
    falling = make(born, [](const void* a, const void* b) { return compare<int>(b, a); });
    visited = make(towns, compare<town>);
    return 3;
}

int main() {
    many = qv_btree_new([](const void* a, const void* b) { return compare<intptr_t>(&a, &b); },
                        nullptr, nullptr);
    for (intptr_t i = -2; i < 199998; ++i) {
        qv_btree_insert(many, reinterpret_cast<void*>(i), &born[i & 1]);
    }
    return build() - static_cast<int>(qv_btree_size(people));
}
