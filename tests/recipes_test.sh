#!/bin/sh
# The code in docs/recipes.md is that of the examples, which are compiled and run.
# Usage: recipes_test.sh SOURCE
cat "$1/examples/recipes.c" "$1/examples/recipes_cpp.cpp" | awk '
    FNR == NR                { source = source $0 "\n"; next }
    /^```$/ && code          { if (!index(source, code)) { print "not in the examples:\n" code; bad = 1 }
                               inside = 0; code = ""; next }
    inside                   { code = code $0 "\n" }
    /^```c(pp)?$/            { inside = 1; ++blocks }
    END                      { print blocks " pieces of code"; exit bad || blocks < 20 }
' - "$1/docs/recipes.md"
