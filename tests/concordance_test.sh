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

same() {
    diff "$1" "$2" || { echo "FAILED: $3" >&2; exit 1; }
}

# fails STATUS MESSAGE ARGUMENT...: no output, the status, and the message on standard error.
fails() {
    status=$1 message=$2 got=0
    shift 2
    "$program" "$@" >out 2>err || got=$?
    if [ "$got" -ne "$status" ] || [ -s out ] || ! grep -q "$message" err; then
        echo "FAILED: $* gave $got" >&2
        cat err >&2
        exit 1
    fi
}

printf "It's o''er: 'rock'n'roll'\nit's \303\251t\303\251 IT\n" >small
printf "it's\t2\t1 2\no\t1\t1\ner\t1\t1\nrock'n'roll\t1\t1\nit\t1\t2\n\303\251t\303\251\t1\t2\n" |
    sort >expected
"$program" small | sort >out
same expected out "words and lines"
printf 'a\n\nb a a' | "$program" small - --prefix a >out
printf 'a\t3\t-:1 -:3\n' >expected
same expected out "several files"
: | "$program" >out
same /dev/null out "empty input"

cat "$text" small | tr A-Z a-z | tr -c "a-z'\200-\377" '\n' | sed "s/''*\$//; s/^'*//; s/'''*/\n/g" |
    grep . | sort | uniq -c | awk '{ print $2 "\t" $1 }' >expected
"$program" --counts "$text" small >out
same expected out "counts"
awk '$1 >= "c" && $1 < "t"' expected | head -n 20 >range
"$program" --counts --from C --until=t --limit 20 "$text" small >out
same range out "a range"
awk '/^s/ && $1 >= "sh"' expected >range
"$program" --counts --prefix s --from sh "$text" small >out
same range out "a prefix"
"$program" --help | grep -q '^Usage' || { echo "FAILED: --help" >&2; exit 1; }

fails 1 'cannot read .*: Is a directory' small .
fails 1 'cannot read missing: No such file' small missing
fails 2 'Usage' --unknown
for number in x -1 3x '' 99999999999999999999; do
    fails 2 'not a number' --limit "$number"
done
if [ -w /dev/full ]; then
    ! "$program" "$text" >/dev/full 2>err
    grep -q 'cannot write: No space left' err
fi
if [ "${3:-}" = limit ]; then
    seq 1000000 | tr 0-9 a-j >large
    ulimit -v 50000
    fails 1 'out of memory' large
fi
echo "all as expected"
