#!/bin/sh
# Runs the benchmark and writes docs/performance.md from it, or prints a table. Called by ./dev bench,
# which installs and builds what this needs. Usage: bench.sh [--quick]
set -eu
cd "$(dirname "$0")/.."
results=

# measure FOLDER NAME FILTER REPETITIONS
measure() {
    results="$results build/$1/$2.json"
    "build/$1/bench/btree_bench" "--benchmark_filter=$3" "--benchmark_repetitions=$4" \
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
# shellcheck disable=SC2086 # One argument for each file.
python3 bench/report.py docs $results
echo "dev: written to docs/performance.md and docs/img; all figures: $results" >&2
