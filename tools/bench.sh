#!/bin/sh
# Runs the benchmark and writes docs/performance.md from it, or prints a few cases. Called by
# ./dev bench, which installs and builds what this needs. Usage: bench.sh FOLDER [--quick | --large]
set -eu
cd "$(dirname "$0")/.."
folder=$1
mode=${2:-}
results=

# measure NAME FILTER REPETITIONS [--brief]
measure() {
    results="$results $folder/$1.json"
    "$folder/bench/btree_bench" ${4:-} "--benchmark_filter=$2" "--benchmark_repetitions=$3" \
        --benchmark_enable_random_interleaving=true "--benchmark_out=$folder/$1.json" \
        --benchmark_out_format=json >"$folder/$1.log" 2>&1
}

if [ "$mode" = --quick ]; then
    # Without tsearch in the large map, which would take a third of the time.
    measure quick '[^h]/boxed/random/1000000/|/boxed(-branching)?/random/1000/' 1 --brief
    python3 bench/report.py --print "$folder/quick.json"
    exit
fi
measure small /1000/ 9
measure usual '-/(1000|10000000)/' 3
[ "$mode" != --large ] || measure large /10000000/ 1
# shellcheck disable=SC2086 # One argument for each file.
python3 bench/report.py docs "$folder/performance.csv" $results
echo "dev: written to docs/performance.md and docs/img; all figures: $folder/performance.csv" >&2
