#!/bin/sh
# Runs the benchmark and writes docs/performance.md from it, or prints a table. Called by ./dev bench,
# which installs and builds what this needs. Usage: bench.sh [--quick]
set -eu
cd "$(dirname "$0")/.."
results=

# measure FOLDER NAME FILTER REPETITIONS [PROGRAM]
measure() {
    results="$results build/$1/$2.json"
    "build/$1/bench/${5:-btree_bench}" "--benchmark_filter=$3" "--benchmark_repetitions=$4" \
        --benchmark_enable_random_interleaving=true "--benchmark_out=build/$1/$2.json" \
        --benchmark_out_format=json >"build/$1/$2.log" 2>&1
}

if [ "${1:-}" = --quick ]; then
    measure bench quick '/boxed/1000(00)?/' 2
    python3 bench/report.py --print build/bench/quick.json
    exit
fi
echo "dev: measuring; this takes half an hour …" >&2
for folder in bench bench-clang; do
    maps=
    [ $folder = bench ] || maps='^(qv_btree|std::map).*'
    measure $folder small "$maps/(100|1000|10000)/" 7
    measure $folder large "$maps/(100000|1000000|words)/" 3
done
boxed='^qv_btree/boxed/(1000|1000000)/'
for number in 1 2 3 4 5; do # What something gains is measured by turns.
    for variant in search_prefetch walk_prefetch copy_prefetch; do
        measure bench "gain_${variant}_$number" "$boxed" 1 "btree_bench_without_$variant"
    done
    for variant in next_key selection branches; do
        measure bench-clang "gain_${variant}_$number" "$boxed" 1 "btree_bench_without_$variant"
    done
    measure bench-clang "gain_as_it_is_$number" "$boxed" 1
    measure bench "gain_as_it_is_$number" "$boxed" 1
    measure bench "gain_packed_$number" "$boxed" 1 btree_bench_packed
    GLIBC_TUNABLES=glibc.malloc.hugetlb=1 measure bench "gain_huge_$number" "$boxed" 1
done
# shellcheck disable=SC2086 # One argument for each file.
python3 bench/report.py docs $results
echo "dev: written to docs/performance.md and docs/img; all figures: $results" >&2
