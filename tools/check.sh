#!/bin/sh
# Static analysis, headers on their own, the tests under ThreadSanitizer and Valgrind, debuggers. Called
# by ./dev check, which installs and builds what this needs, and goes on with coverage.
set -eu
cd "$(dirname "$0")/.."
warnings='-Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Werror'

echo "== clang-tidy"
# tidy ARGUMENT...: for each file of the input; what it prints is shown where it fails.
tidy() {
    xargs -P 2 -I {} sh -c 'out=$(clang-tidy --quiet "--warnings-as-errors=*" "$@" 2>&1) ||
        { echo "$out"; exit 255; }' tidy "$@" {}
}
# C++17, which gcc takes unasked and clang-tidy does not. The benchmark library's own headers leak as
# the analyzer sees it.
find src platform examples tests fuzz -name '*.cpp' |
    tidy -p build/release --extra-arg-before=-std=c++17 "--extra-arg=-I$PWD/build/release/include"
find bench -name '*.cpp' | tidy -p build/bench --checks=-clang-analyzer-cplusplus.NewDeleteLeaks

echo "== cppcheck"
# useStlAlgorithm: a plain loop is often the clearer one. const...: the signatures of callbacks and of the
# interface are given. unusedStructMember: does not see a lambda's use. normalCheckLevelMaxBranches: says
# how long it looked.
left_out='useStlAlgorithm constStatement constParameter constParameterPointer constParameterCallback
    constVariablePointer unusedStructMember normalCheckLevelMaxBranches'
# shellcheck disable=SC2046,SC2086
cppcheck --quiet --error-exitcode=1 --enable=warning,style,performance,portability --std=c++17 \
    --language=c++ --library=googletest $(printf ' --suppress=%s' $left_out) -Isrc/base -Itests \
    $(find src platform examples tests fuzz bench -name '*.cpp')

echo "== gcc -fanalyzer"
for file in src/base/qv_btree.cpp platform/std/hal_memory.cpp; do
    # shellcheck disable=SC2086
    g++ -std=c++11 $warnings -Wold-style-cast -O2 -fanalyzer -Ibuild/release/include \
        -c "$file" -o /dev/null
done

echo "== every header alone, twice in one file; the library in every language version"
for header in $(cd src/base && find . -name '*.h'); do
    twice=$(printf '#include "%s"\n#include "%s"\ntypedef int not_empty;\n' "$header" "$header")
    in_c='c99 c11'
    [ "$header" != ./qv_memory.h ] || in_c= # Only the library's own source includes it.
    for standard in $in_c; do
        for compiler in gcc clang; do
            # shellcheck disable=SC2086
            echo "$twice" | $compiler -x c -std=$standard $warnings -Isrc/base -fsyntax-only -
        done
    done
    for standard in c++11 c++14 c++17 c++20; do
        for compiler in g++ clang++; do
            # shellcheck disable=SC2086
            echo "$twice" | $compiler -x c++ -std=$standard $warnings -Wold-style-cast -Isrc/base \
                -fsyntax-only -
        done
    done
done
for standard in c++11 c++14 c++17 c++20; do
    for compiler in g++ clang++; do
        for file in src/base/qv_btree.cpp platform/std/hal_memory.cpp; do
            # shellcheck disable=SC2086
            $compiler -std=$standard $warnings -Wold-style-cast -O2 -Ibuild/release/include \
                -c "$file" -o /dev/null
        done
    done
done

echo "== the library from a C++ compiler without its library"
g++ -std=c++11 -nostdinc++ -ffreestanding $warnings -Wold-style-cast -O2 -Isrc/base \
    -c src/base/qv_btree.cpp -o /dev/null

echo "== ThreadSanitizer"
ctest --preset threads

echo "== Valgrind"
under_valgrind() {
    timeout --foreground 300 valgrind --quiet --error-exitcode=1 --leak-check=full "$@" || {
        [ $? -ne 124 ] || echo "did not end within 300 s: $*" >&2
        exit 1
    }
}
for test in btree_test random_test threads_test; do # The large maps run under AddressSanitizer.
    under_valgrind --show-leak-kinds=all "build/release/tests/$test" --gtest_brief=1 --gtest_filter='-*Large*'
done
under_valgrind build/release/concordance README.md >/dev/null
echo "no error, no leak"

echo "== debuggers"
for compiler in g++ clang++; do
    (cd build && ../tests/debugger_test.sh .. $compiler)
    echo "GDB and LLDB show and check maps compiled by $compiler"
done
