# Sourced by the test scripts: a temporary folder to work in, which is removed on every way out. No file
# may become larger than 100 MB. A failure shows the end of its log, and keeps the whole.
export LC_ALL=C.UTF-8 # Lists are compared as they are sorted here, and messages of tools are read.
kept=$PWD/$(basename "$0" .sh).log
limit=100 # seconds for one step
scratch=
trap 'rm -rf "$scratch" 2>/dev/null || { sleep 1; rm -rf "$scratch"; }' EXIT # What was interrupted may still write.
trap 'exit 1' HUP INT TERM
scratch=$(mktemp -d)
work="$scratch/Über uns" # as people's folders are called
mkdir "$work"
trap '' XFSZ # To write beyond that is an error of the program that does, and does not kill the shell.
ulimit -f 200000
cd "$work"
exec </dev/null # No test reads the terminal.

# fail WHAT...: with what the file log says.
fail() {
    cp log "$kept" || true
    tail -n 20 log >&2
    echo "FAILED: $*; the whole log: $kept" >&2
    exit 1
}

# limited COMMAND...: in the process group of the test, so that Ctrl-C reaches it.
limited() {
    timeout --foreground $limit "$@" && return
    status=$?
    [ $status -ne 124 ] || echo "did not end within $limit s"
    return $status
}

quietly() { limited "$@" >log 2>&1 || fail "$@"; }
