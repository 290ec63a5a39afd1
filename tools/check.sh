#!/bin/sh
# Format, static analysis, headers on their own, and the tests under ThreadSanitizer and Valgrind.
# Called by ./dev check, which installs and builds what this needs, and goes on with coverage.
set -eu
cd "$(dirname "$0")/.."
sources=$(find src platform examples tests fuzz bench -name '*.c' -o -name '*.cpp' -o -name '*.h')
warnings='-Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Werror'

echo "== format"
# shellcheck disable=SC2086 # One argument for each file or flag, here and below.
clang-format --dry-run -Werror $sources

echo "== clang-tidy"
# C++17, which gcc takes unasked and clang-tidy does not. The benchmark library's own headers leak as
# the analyzer sees it.
tidy='clang-tidy --quiet --warnings-as-errors=*'
{
    for file in $(find src platform examples tests fuzz -name '*.cpp'); do
        echo "$tidy -p build/release --extra-arg-before=-std=c++17 $file"
    done
    for file in bench/*.cpp; do
        echo "$tidy -p build/bench --checks=-clang-analyzer-cplusplus.NewDeleteLeaks $file"
    done
} | xargs -P 2 -I {} sh -c '{} 2>/dev/null'

echo "== cppcheck"
# useStlAlgorithm: a plain loop is often the clearer one. constStatement: does not know templates.
# constParameter: the signatures of callbacks are given. variableScope: a reference that is used in
# a try block only is still declared where its object is.
# shellcheck disable=SC2046
cppcheck --quiet --error-exitcode=1 --enable=warning,style,performance,portability --std=c++17 \
    --language=c++ --library=googletest --suppress=useStlAlgorithm --suppress=constStatement \
    --suppress=constParameter --suppress=variableScope -Isrc/base -Itests \
    $(echo "$sources" | grep 'cpp$')

echo "== gcc -fanalyzer"
for file in src/base/qv_btree.cpp platform/std/hal_memory.cpp; do
    # shellcheck disable=SC2086
    g++ -std=c++11 $warnings -Wold-style-cast -O2 -fanalyzer -Isrc/base -c "$file" -o /dev/null
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
            $compiler -std=$standard $warnings -Wold-style-cast -O2 -Isrc/base -c "$file" \
                -o /dev/null
        done
    done
done

echo "== the library from a C++ compiler without its library"
g++ -std=c++11 -nostdinc++ -ffreestanding $warnings -Wold-style-cast -O2 -Isrc/base \
    -c src/base/qv_btree.cpp -o /dev/null

echo "== ThreadSanitizer"
ctest --preset threads

echo "== Valgrind"
for test in btree_test random_test threads_test; do
    timeout 300 valgrind --quiet --error-exitcode=1 --leak-check=full --show-leak-kinds=all \
        "build/release/tests/$test" --gtest_brief=1
done
timeout 300 valgrind --quiet --error-exitcode=1 --leak-check=full build/release/concordance \
    README.md >/dev/null
echo "no error, no leak"
