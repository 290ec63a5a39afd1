#!/bin/sh
# The GDB extension on the README's program: live, as a core dump, and with a map broken on purpose.
# Usage: gdb_test.sh SOURCE COMPILER PROGRAM.C
set -eu
source=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
mkdir qv && ln -s "$source/src/base" qv/base
"$2" -g -I. -I"$source/src/base" -x c++ -w "$3" "$source"/src/base/qv_btree.cpp \
    "$source"/platform/std/hal_memory.cpp -o program

# shows GDB-ARGUMENT...: what GDB prints has every line of the input.
shows() {
    gdb -nx -batch -ex "source $source/tools/gdb/qv_btree_gdb.py" -ex 'set qv-key-type char *' \
        "$@" >out 2>&1 </dev/null || { cat out; exit 1; }
    while read -r text; do
        grep -qF -- "$text" out || { echo "FAILED: no '$text' in:"; cat out; exit 1; }
    done
}

set -- -ex 'break qv_btree_remove' -ex run
shows "$@" -ex 'set qv-value-type int *' -ex 'set print address off' -ex 'print *t' \
    -ex 'print *t->root' -ex 'print *t->root->left' -ex 'qv-check t' -ex 'generate-core-file core' \
    program <<'TEXT'
["Ada"] = 1815, ["Edsger"] = 1930, ["Grace"] = 1906}
"Ada" = 1815, balance 0, left thread NULL, right thread "Edsger"
left child "Ada"
3 entries, invariants 1 to 4 hold
TEXT
echo '3 entries, invariants 1 to 4 hold (1 by the values of the keys)' | shows -ex 'qv-check t' program core
while IFS='|' read -r change text; do
    echo "$text" | shows "$@" -ex "set var $change" -ex 'qv-check t' program
done <<'TEXT'
t->root->key = t->root->right->key|invariant 1: order, at node 0x
t->root->left->balance = 1|invariant 2: balance, at node 0x
t->root->left = 0|invariant 2: too deep, or a NULL child
t->root->left->right = 0|invariant 3: right thread
t->root->right->left = 0|invariant 3: left thread
t->root->right = (qv_btree_node_t*)16|invariant 3: a link leads nowhere
t->nnodes = 8|invariant 4: 3 nodes, but nnodes is 8
TEXT
echo "shown and checked"
