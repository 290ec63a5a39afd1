#!/bin/sh
# Runs the tests and reports the lines and branches of src/ that they execute; fails below all of
# them. Called by ./dev coverage and ./dev check, which install and build what this needs.
set -eu
cd "$(dirname "$0")/.."
folder=build/coverage
find "$folder" -name '*.gcda' -delete
# Large maps execute the same lines, and take minutes without optimisation.
GTEST_FILTER='-*Large*' ctest --preset coverage --output-log "$folder/test.log" >/dev/null ||
    { tail -n 20 "$folder/test.log"; echo "the whole log: $folder/test.log"; exit 1; }

# Over two programs that include the map's source. Assertions have a branch that no correct program
# takes, so their lines do not count; nor do the exits of calls that throw, which no callback may:
# gcovr knows those of calls that both programs execute.
gcovr --root . --filter src/ --exclude-throw-branches \
    --exclude-branches-by-pattern '.*assert\(.*' --html-details "$folder/index.html" \
    --print-summary --fail-under-line 100 --fail-under-branch 100 \
    "$folder/tests/CMakeFiles/btree_test.dir" "$folder/tests/CMakeFiles/random_test.dir"
