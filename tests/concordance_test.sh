#!/bin/sh
# The concordance against tr, sort and uniq on the same text, its ranges, and its error exits.
# Usage: concordance_test.sh PROGRAM TEXT [limit]; with "limit" also in too little memory.
set -eu
program=$1
text=$2
export LC_ALL=C
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

# prints ARGUMENT...: what stands in the file expected.
prints() {
    "$program" "$@" >out && diff expected out || { echo "FAILED: $*" >&2; exit 1; }
}

# fails STATUS MESSAGE ARGUMENT...: no output, the status, and the message on standard error.
fails() {
    status=$1 message=$2 got=0
    shift 2
    "$program" "$@" >out 2>err || got=$?
    [ "$got" -eq "$status" ] && [ ! -s out ] && grep -q "$message" err ||
        { echo "FAILED: $* gave $got"; cat err; exit 1; } >&2
}

: >expected
prints - <expected
printf "It's o''er: 'rock'n'roll'\nit's \303\251t\303\251 IT\n" >small
printf "er\t1\t1\nit\t1\t2\nit's\t2\t1 2\no\t1\t1\nrock'n'roll\t1\t1\n\303\251t\303\251\t1\t2\n" >expected
prints <small
printf 'it\t1\tsmall:2\n%b' "it's\t3\tsmall:1 small:2 -:2\n" >expected
printf "\nit's" | prints small - --prefix it

cat "$text" small | tr A-Z a-z | tr -c "a-z'\200-\377" '\n' | sed "s/''*\$//; s/^'*//; s/'''*/\n/g" |
    grep . | sort | uniq -c | awk '{ print $2 "\t" $1 }' >counts
cp counts expected
prints --counts "$text" small
awk '$1 >= "c" && $1 < "t"' counts | head -n 20 >expected
prints --counts --from C --until=t --limit 20 "$text" small
awk '/^s/ && $1 >= "sh"' counts >expected
prints --counts --prefix s --from sh "$text" small
"$program" --help | grep -q '^Usage'

fails 1 'cannot read .*: Is a directory' small .
fails 1 'cannot read missing: No such file' small missing
fails 2 'Usage' --unknown
for number in x -1 3x '' 99999999999999999999; do
    fails 2 'not a number' --limit "$number"
done
"$program" "$text" >/dev/full 2>err && exit 1
grep -q 'cannot write: No space left' err
if [ "${3:-}" = limit ]; then
    seq 1000000 | tr 0-9 a-j >large
    ulimit -v 50000
    fails 1 'out of memory' large
fi
