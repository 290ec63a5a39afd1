#!/bin/sh
# One table of cases under GDB and LLDB, with the same words expected of both.
# Usage: debugger_test.sh SOURCE COMPILER
set -eu
source=$(realpath "$1") compiler=$2
. "$(dirname "$0")/scratch.sh"

# Two programs: "full" has debug information everywhere, "bare" takes the installed shared library, which
# has none and brings the extension for GDB along.
quietly cmake -S "$source" -B build -G Ninja "-DCMAKE_INSTALL_PREFIX=$work/qv" -DBUILD_SHARED_LIBS=ON \
    -DCMAKE_INSTALL_LIBDIR=lib -DQV_BASE_TESTS=OFF -DQV_BASE_EXAMPLES=OFF
quietly cmake --build build --target install
whole=$("$compiler" --version | sed -n 's/.*clang.*/-fstandalone-debug/p') # or std::string is not described
set -- "$compiler" -std=c++17 -g ${whole:+"$whole"} -Iqv/include "$source/tests/debugged.cpp"
quietly "$@" "$source/src/base/qv_btree.cpp" "$source/platform/std/hal_memory.cpp" -o full
quietly "$@" -Lqv/lib "-Wl,-rpath,$work/qv/lib" -lqv_base -o bare

under_gdb() {
    sed '1i set width 0' >commands
    [ "$1" = bare ] || sed -i "1i source $source/debuggers/qv_btree_gdb.py" commands
    limited gdb -nx -q -iex "add-auto-load-safe-path $work" "$@" <commands 2>&1
}

# With the modules of LLDB's own Python, and not those of an environment of the user's.
under_lldb() {
    sed "1i command script import $source/debuggers/qv_btree_lldb.py
        s/^set qv-/qv-/; s/^break/breakpoint set -n/; \$a quit" >commands
    [ $# -eq 1 ] || set -- -c "$2" "$1"
    limited env -u PYTHONHOME PATH=/usr/bin:/bin "PYTHONPATH=$(echo /usr/lib/llvm-*/lib/python3.*/dist-packages)" \
        lldb --no-lldbinit -O 'settings set interpreter.stop-command-source-on-error false' \
        -O 'settings set auto-confirm true' -O 'settings set target.max-children-count 6' \
        -s commands "$@" 2>&1
}

# cases DEBUGGERS PROGRAM [CORE]: gives them the commands of the input, and expects what follows "=>".
# There, an address is @. Lines with other beginnings than those of the library's texts do not count.
cases() {
    cat >table
    debuggers=$1
    shift
    sed -n 's/.* => //p' table >expected
    for debugger in $debuggers; do
        sed 's/ => .*//' table | "under_$debugger" "$@" >log || fail "$debugger: $*"
        sed 's/^\((gdb) \)*//; s/^error: //; s/0x[0-9a-f]*/@/g' log |
            grep -E '^(qv[-_]|invariant [0-9]:|not a|neither|[0-9]+ entries|\$1 = qv|("[^"]*"|NULL) = )' \
            >actual || true
        diff expected actual >>log || fail "under $debugger: $*"
    done
}

# session DEBUGGER: what docs/debugging.md shows of it.
session() {
    sed -n "/^($1) /,/^\`\`\`/p" "$source/docs/debugging.md" | awk -v prompt="($1) " '
        BEGIN { printf "break qv_btree_size\nrun\nset print symbol off" }
        index($0, prompt) == 1 { printf "\n%s", substr($0, length(prompt) + 1) }
        !/^\(|^```/ { printf " => %s", $0 }
        END { print "" }' | sed "/^source/d; s|~/|$work/|" | cases "$1" bare
}

session gdb
session lldb
quietly gdb -nx -batch -ex 'break qv_btree_size' -ex run -ex 'generate-core-file core' full
looks='set print elements 6
set qv-key-type char *
set qv-value-type int *
qv-print people => qv_btree_t of 3 entries = {["Ada"] = 1815, ["Edsger"] = 1930, ["Grace"] = 1906}
qv-print *(void**)people => "Edsger" = 1930, balance 0, left child "Ada", right child "Grace"
qv-print 16 => not a map: there is no memory at @
qv-check *(void**)people => not a map: at @ there is no comparator where maps have one
qv-print names => neither a map nor a node of one: @
set qv-key-type => qv-key-type: a type is missing; a right one looks like: char *
set qv-value-type town => qv-value-type: '\''town'\'' is not a type of pointers; a right one looks like: town *
set qv-key-type town *
qv-print visited => qv_btree_t of 3 entries = {[{name = "Rome", founded = -753}] = 1906, [{name = "Oslo", founded = 1048}] = 1815, [{name = "Bern", founded = 1191}] = 1930}
set qv-key-type long
qv-print many => qv_btree_t of 200000 entries = {[-2] = 1906, [-1] = 1815, [0] = 1906, [1] = 1815, [2] = 1906, [3] = 1815...}'
cases 'gdb lldb' bare <<TEXT
break qv_btree_size
run
$looks
set qv-key-type struct nosuch * => qv-key-type: there is no type 'struct nosuch *'; a right one looks like: char *
break compare_names
qv-check people => 3 entries, invariants 1 to 4 hold
TEXT
cases 'gdb lldb' full core <<TEXT
$looks
qv-check many => 200000 entries, invariants 2 to 4 hold; 1 not checked: there is no process to call the comparator in
TEXT

# Broken maps: what differs between the debuggers under both, the walk that they share under one.
cases 'gdb lldb' full <<TEXT
set qv-key-type strct * => qv-key-type: there is no type 'strct *' yet; it is looked up again when a map is shown
break qv_btree_size
run
up
set qv-key-type char *
set qv-value-type int *
print people->root->key = (void*)0xeeeeeeeeeeeeeee0
qv-check people => invariant 1: the comparator did not return, at node @, key "Ada", and node @, key <no memory at @>
print people->root->left_child = entries + 4
print people->root->key = (void*)0
qv-check people => invariant 3: flags, at node @, key NULL
qv-print people->root => NULL = 1930, balance 0, left flag 7 "Ada", right child "Grace"
print people->root->left->right = (qv_btree_node_t*)16
qv-print people => qv_btree_t of 3 entries = {["Ada"] = 1815, <2 not found: qv-check names why>}
TEXT
{
    printf '%s\n' 'break qv_btree_size' run 'set qv-key-type char *'
    sed 's/\(.*\) => /print build()\nprint \1\nqv-check people => invariant /' <<'TEXT'
people->root->key = people->root->right->key => 1: order, at node @, key "Grace", and node @, key "Grace"
people->root->left->balance = 1 => 2: balance, at node @, key "Ada"
people->root->left->left_child = 1 => 3: NULL as left child, at node @, key "Ada"
people->root->left = people->root => 2: left child that is met twice, at node @, key "Edsger", and node @, key "Edsger"
people->root->left = (qv_btree_node_t*)16 => 3: left link to @, where there is no memory, at node @, key "Edsger"
people->root->left->right = (qv_btree_node_t*)0 => 3: right thread, at node @, key "Ada", and node @, key "Edsger"
people->root->right->left = (qv_btree_node_t*)0 => 3: left thread, at node @, key "Edsger", and node @, key "Grace"
people->root->right->right = people->root => 3: last right thread, at node @, key "Grace"
people->nnodes = 8 => 4: 3 nodes, but nnodes is 8
TEXT
} | cases gdb full
