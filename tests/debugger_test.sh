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
set -- "$compiler" -std=c++17 -g ${whole:+"$whole"} -Iqv/include "$source/examples/debugged.cpp"
quietly "$@" "$source/src/base/qv_btree.cpp" "$source/platform/std/hal_memory.cpp" -o full
quietly "$@" -Lqv/lib "-Wl,-rpath,$work/qv/lib" -lqv_base -o bare

under_gdb() {
    sed '1i set width 0' >commands
    [ "$1" = bare ] || sed -i "1i source $source/debuggers/qv_btree_gdb.py" commands
    limited gdb -nx -q -iex "add-auto-load-safe-path $work" "$@" <commands 2>&1
}

# With the modules of LLDB's own Python, and not those of an environment of the user's.
under_lldb() {
    sed "1i command script import '$source/debuggers/qv_btree_lldb.py'
        s/^set qv-/qv-/; s/^break/breakpoint set -n/; \$a quit" >commands
    [ $# -eq 1 ] || set -- -c "$2" "$1"
    limited env -u PYTHONHOME PATH=/usr/bin:/bin "PYTHONPATH=$(echo /usr/lib/llvm-*/lib/python3.*/dist-packages)" \
        lldb --no-lldbinit -O 'settings set interpreter.stop-command-source-on-error false' \
        -O 'settings set auto-confirm true' -O 'settings set target.max-children-count 6' \
        -s commands "$@" 2>&1
}

# GDB 13 calls no function on processors whose registers it does not know.
cannot_call=$(gdb -nx -batch -ex 'break qv_btree_size' -ex run -ex 'print qv_btree_first_node(people)' full 2>&1 |
    sed -n "s/^Couldn't .*/1 not checked: GDB cannot call the comparator: &/p")

# cases DEBUGGERS PROGRAM [CORE]: gives them the commands of the input, and expects what follows "=>".
# There, an address is @. Lines with other beginnings than those of the library's texts do not count.
cases() {
    cat >table
    debuggers=$1
    shift
    for debugger in $debuggers; do
        sed -n 's/.* => //p' table >expected
        [ -z "$cannot_call" ] || [ "$debugger" = lldb ] ||
            sed -i "s/^invariant 1: .*/3 entries, invariants 1 to 4 hold/; s/1 to 4 hold/2 to 4 hold; $cannot_call/" expected
        sed 's/ => .*//' table | "under_$debugger" "$@" >log || fail "$debugger: $*"
        sed -E 's/^(\(gdb\) )*//; s/^error: //; s/^(\(qv_btree_t\) (\$[0-9]+ = )?|\$[0-9]+ = )qv/$1 = qv/; s/0x[0-9a-f]*/@/g' log |
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
        END { print "" }' | sed "/^source/d; s|~/\(.*\)|'$work/\1'|" | cases "$1" bare
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
set qv-value-type places::town => qv-value-type: '\''places::town'\'' is not a type of pointers; a right one looks like: places::town *
set qv-key-type (anonymous namespace)::town *
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

# Broken maps, each in a new process: what is shown, and which invariant is broken.
{
    cat <<'TEXT'
set print address off
set print symbol off
set qv-key-type strct * => qv-key-type: there is no type 'strct *'; a right one looks like: char *
set qv-key-type char *
set qv-value-type int *
break qv_btree_size
TEXT
    sed 's/\(.*\) =>\(.*\) => /run\nprint \1\nprint *people => $1 = qv_btree_t of 3 entries\2\nqv-check people => invariant /' <<'TEXT'
people->root->key = (void*)0xeeeeeeeeeeeeeee0 => = {["Ada"] = 1815, [<no memory at @>] = 1930, ["Grace"] = 1906} => 1: the comparator did not return, at node @, key "Ada", and node @, key <no memory at @>
people->root->key = people->root->right->key => = {["Ada"] = 1815, ["Grace"] = 1930, ["Grace"] = 1906} => 1: order, at node @, key "Grace", and node @, key "Grace"
people->root->left->balance = 1 => = {["Ada"] = 1815, ["Edsger"] = 1930, ["Grace"] = 1906} => 2: balance, at node @, key "Ada"
people->root->left->left_child = 1 =>, 0 found: qv-check names why => 3: NULL as left child, at node @, key "Ada"
people->root->left = people->root =>, 0 found: qv-check names why => 2: left child that is met twice, at node @, key "Edsger", and node @, key "Edsger"
people->root->left->left_child = 1, people->root->left->left = people->root =>, 0 found: qv-check names why => 2: left child that is met twice, at node @, key "Ada", and node @, key "Edsger"
people->root->left->right = people->root->left =>, 1 found: qv-check names why = {["Ada"] = 1815} => 3: right thread, at node @, key "Ada", and node @, key "Edsger"
people->root->left->right = (qv_btree_node_t*)16 =>, 1 found: qv-check names why = {["Ada"] = 1815} => 3: right thread, at node @, key "Ada", and node @, key "Edsger"
people->root->left = (qv_btree_node_t*)16 =>, 0 found: qv-check names why => 3: left link to @, where there is no memory, at node @, key "Edsger"
people->root->right->right = people->root => = {["Ada"] = 1815, ["Edsger"] = 1930, ["Grace"] = 1906} => 3: last right thread, at node @, key "Grace"
people->root->right->left = (qv_btree_node_t*)0 => = {["Ada"] = 1815, ["Edsger"] = 1930, ["Grace"] = 1906} => 3: left thread, at node @, key "Edsger", and node @, key "Grace"
TEXT
    cat <<'TEXT'
run
print people->nnodes = 2
qv-check people => invariant 4: more nodes than nnodes, 2, at node @, key "Grace"
print people->nnodes = 8
qv-check people => invariant 4: 3 nodes, but nnodes is 8
run
print people->root->left_child = 7
print people->root->key = (void*)0
qv-check people => invariant 3: flags, at node @, key NULL
qv-print people->root => NULL = 1930, balance 0, left flag 7 "Ada", right child "Grace"
TEXT
} | cases 'gdb lldb' full
