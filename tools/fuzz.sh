#!/bin/sh
# Fuzzes for some seconds, from what earlier runs have found interesting, and ends with a verdict.
# Called by ./dev fuzz, which installs and builds what this needs. Usage: fuzz.sh SECONDS
set -eu
cd "$(dirname "$0")/.."
mkdir -p build/fuzz/corpus
log=build/fuzz/fuzz.log
echo "dev: fuzzing for $1 seconds …" >&2
if build/fuzz/btree_fuzz "-max_total_time=$1" -max_len=1500 -timeout=20 -print_final_stats=1 \
    -artifact_prefix=build/fuzz/ build/fuzz/corpus >"$log" 2>&1; then
    inputs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    echo "dev: no fault found in $1 seconds, by $inputs inputs"
else
    tail -n 20 "$log" >&2
    input=$(sed -n 's/.*Test unit written to //p' "$log")
    echo "dev: a fault was found; its input: ${input:-none was written, see $log}"
    exit 1
fi
