#!/bin/sh
# The concordance against tr, sort and uniq on the same text, its ranges, and its error exits.
# Usage: concordance_test.sh PROGRAM TEXT [limit]; with "limit" also in too little memory.
set -eu
. "$(dirname "$0")/scratch.sh"
program=$1 text=$2
export LC_ALL=C

# ends STATUS ARGUMENT...: having printed what is in the file expected, with its messages first.
ends() {
    status=$1 got=0
    shift
    "$program" "$@" >out 2>&1 || got=$?
    diff expected out >log && [ "$got" -eq "$status" ] || fail "status $got: $*"
}

printf "It's o''er: 'rock'n'roll'\nit's \303\251t\303\251 IT\n" >small
printf "er\t1\t1\nit\t1\t2\nit's\t2\t1 2\no\t1\t1\nrock'n'roll\t1\t1\n\303\251t\303\251\t1\t2\n" >expected
ends 0 <small
printf 'concordance: cannot read %s\n' 'missing: No such file or directory' '.: Is a directory' >expected
printf "it\t1\tsmall:2\nit's\t3\tsmall:1 small:2 -:2\n" >>expected
printf "\nit's" | ends 1 missing small . - - --prefix it

cat "$text" small | tr A-Z a-z | tr -c "a-z'\200-\377" '\n' | sed "s/''*\$//; s/^'*//; s/'''*/\n/g" |
    grep . | sort | uniq -c | awk '$2 >= "c" && $2 < "t" { print $2 "\t" $1 }' | head -n 200 >expected
ends 0 --counts --from C --until=t --limit 200 "$text" small
{ echo "concordance: unrecognized option '--lines'"; "$program" --help; } >expected
ends 2 --lines
{ echo "concordance: not a number: '3x'"; "$program" --help; } >expected
ends 2 --limit 3x
"$program" "$text" >/dev/full 2>log && fail "a full disk"
grep -q 'cannot write: No space left' log
if [ "${3:-}" = limit ]; then
    seq 1000000 | tr 0-9 a-j >large
    echo 'concordance: out of memory' >expected
    ulimit -v 50000
    ends 1 large
fi
