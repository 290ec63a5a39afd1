// Maps to try the debuggers on; docs/debugging.md shows how, and the tests break these maps.

#include <cstring>
#include <string>

#include <qv/base/qv_btree.h>

namespace places {
namespace {
struct town {
    std::string name;
    int founded;
};
}  // namespace
}  // namespace places
using places::town;

char names[3][8] = {"Grace", "Ada", "Edsger"};
int born[3] = {1906, 1815, 1930};
town towns[3] = {{"Rome", -753}, {"Oslo", 1048}, {"Bern", 1191}};
qv_btree_t *people, *visited, *many;

int32_t compare_names(const void* a, const void* b) {
    return std::strcmp(static_cast<const char*>(a), static_cast<const char*>(b));
}

int32_t compare_towns(const void* a, const void* b) {
    return static_cast<const town*>(a)->founded - static_cast<const town*>(b)->founded;
}

int32_t compare_in_pointers(const void* a, const void* b) {
    return static_cast<int32_t>(reinterpret_cast<intptr_t>(a) - reinterpret_cast<intptr_t>(b));
}

int main() {
    many = qv_btree_new(compare_in_pointers, nullptr, nullptr);
    for (intptr_t i = -2; i < 199998; ++i) {
        qv_btree_insert(many, reinterpret_cast<void*>(i), &born[i & 1]);
    }
    people = qv_btree_new(compare_names, nullptr, nullptr);
    visited = qv_btree_new(compare_towns, nullptr, nullptr);
    for (int i = 0; i < 3; ++i) {
        qv_btree_insert(people, &names[i], &born[i]);
        qv_btree_insert(visited, &towns[i], &born[i]);
    }
    return 3 - static_cast<int>(qv_btree_size(people));
}
