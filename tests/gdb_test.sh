#!/bin/sh
# The GDB extension on a live process, a core dump and a map broken on purpose.
# Usage: gdb_test.sh SOURCE [COMPILER]
set -eu
source=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
cat >program.cpp <<'TEXT'
#include <cstring>
#include "qv_btree.cpp"
static int32_t compare(const void* a, const void* b) {
    return std::strcmp(static_cast<const char*>(a), static_cast<const char*>(b));
}
extern "C" void stop_here(qv_btree_t* map) { asm volatile("" : : "r"(map) : "memory"); }
int main() {
    static char keys[][2] = {"d", "b", "f", "a", "c", "e", "g"};
    static int values[] = {4, 2, 6, 1, 3, 5, 7};
    qv_btree_t* map = qv_btree_new(compare, nullptr, nullptr);
    for (int i = 0; i < 7; ++i) qv_btree_insert(map, keys[i], &values[i]);
    stop_here(map);
    qv_btree_free(map);
}
TEXT
"${2:-c++}" -g -O0 -std=c++17 -I"$source/src/base" program.cpp "$source/platform/std/hal_memory.cpp" -o program
debug() {
    gdb -nx -batch -ex "source $source/tools/gdb/qv_btree_gdb.py" "$@" 2>err >out ||
        { cat out err >&2; exit 1; }
}
expect() {
    grep -qF -- "$1" out || { echo "FAILED: no '$1' in:" >&2; cat out err >&2; exit 1; }
}
check_broken() {
    debug -ex 'break stop_here' -ex run -ex "set var $1" -ex 'qv-check map' program
    expect "$2"
}

debug -ex 'set qv-key-type char *' -ex 'set qv-value-type int *' -ex 'break stop_here' -ex run \
    -ex 'print *map' -ex 'print *map->root->left' -ex 'print *map->root->left->left' \
    -ex 'qv-check map' -ex 'generate-core-file core' program
expect '"a"] = 1, [0x'
expect '"g"] = 7}'
expect '"b" = 2, balance 0, left child 0x'
expect 'left thread NULL, right thread 0x'
expect '7 entries, invariants 1 to 4 hold'
check_broken 'map->root->left->balance = 1' 'invariant 2: balance, at node 0x'
check_broken 'map->root->left->right->right = map->root->left' 'invariant 3: right thread'
check_broken 'map->root->right->left->left = 0' 'invariant 3: left thread'
check_broken 'map->root->left->key = map->root->right->key' 'invariant 1: order'
check_broken 'map->nnodes = 8' 'invariant 4: 7 nodes, but nnodes is 8'
check_broken 'map->root->left = 0' 'invariant 2: too deep, or a NULL child'
check_broken 'map->root->right->right = (qv_btree_node_t*)16' 'invariant 3: a link leads nowhere'
debug -ex 'set qv-key-type char *' -ex 'qv-check (qv_btree_t*)map' -ex 'print *map' program core \
    -ex 'up 0'
expect '7 entries, invariants 1 to 4 hold (1 by the values of the keys)'
echo "shown and checked"
