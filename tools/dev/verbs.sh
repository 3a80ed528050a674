#!/usr/bin/env bash
# Runs each verb of ./dev on a fresh clone of the last commit, long verbs with arguments that shorten
# them, and prints a table. A verb passes if it exits with 0 and neither changes a file of the
# clone nor adds a file that git does not ignore. Each verb of ./dev help must have a row here.
# usage: verbs.sh DIRECTORY [VERB…]    DIRECTORY gets the clone and the output; it is removed first
set -euo pipefail
top=$(dirname "$(readlink -f "$0")")/../..

# Verb and arguments, in the order of ./dev help. A pattern keeps the tests of a build few; a build is
# always whole.
rows=(
    "run"
    "test"
    "build"
    "asan ^ZLockTest"
    "tsan ^ZLockTest"
    "compilers clang-14 ^ZLockTest"
    "arm ^ZLockTest"
    "coverage"
    "bench . --benchmark_min_time=0.001"
    "fuzz all 5"
    "crash file size limit"
    "fleet"
    "fleet --bench"
    "compare 1"
    "fmt"
    "lint"
    "kept"
    "docs"
    "package"
    "wheel"
    "help"
    "help test"
)
# This script cannot run itself; new-module changes the clone, and the test of the documents runs it.
left_out=(verbs new-module)

fail()
{
    echo "dev: $*" >&2
    exit 1
}

# The verbs of the rows given, each once, in the order of names.
verbs_of() { printf '%s\n' "${@%% *}" | sort -u; }

listed=$("$top/dev" help | sed -n 's/^  \([a-z-]\+\) .*/\1/p' | sort -u)
missing=$(comm -3 <(verbs_of "${rows[@]}" "${left_out[@]}") <(echo "$listed") | xargs)
[ -z "$missing" ] || fail "the rows of tools/dev/verbs.sh and ./dev help differ in: $missing"

[ $# -ge 1 ] || fail "usage: verbs.sh DIRECTORY [VERB…]"
directory=$1
shift
for verb in "$@"; do
    printf '%s\n' "${rows[@]%% *}" | grep -xF -- "$verb" >/dev/null || fail "no such verb: $verb; ./dev help lists them"
done
rm -rf "$directory"
mkdir -p "$directory/output"
directory=$(readlink -f "$directory")
git -c advice.detachedHead=false clone --quiet "$top" "$directory/clone"
[ -z "$(git -C "$top" status --porcelain)" ] ||
    echo "== the clone is without the changes that are not committed"

# Runs a row and adds it to the table.
table=$directory/table.txt
printf '%-12s %-50s %5s %8s  %s\n' verb command exit seconds note >"$table"
failures=0
run_row()
{
    local verb=$1 code=0 note='' seconds=$SECONDS
    local output=$directory/output/${*//[^A-Za-z0-9]/_}.txt
    echo "== ./dev $*"
    (cd "$directory/clone" && ./dev "$@") >"$output" 2>&1 </dev/null || code=$?
    seconds=$((SECONDS - seconds))
    if [ -n "$(git -C "$directory/clone" status --porcelain)" ]; then
        note="changed: $(git -C "$directory/clone" status --porcelain | awk '{ print $2 }' | xargs)"
        git -C "$directory/clone" checkout --quiet .
        git -C "$directory/clone" clean --quiet --force -d
    fi
    if [ "$code" != 0 ]; then
        note="see $output"
        tail -n 20 "$output"
    fi
    [ -z "$note" ] || failures=$((failures + 1))
    printf '%-12s %-50s %5s %8s  %s\n' "$verb" "./dev $*" "$code" "$seconds" "$note" >>"$table"
}

for row in "${rows[@]}"; do
    # shellcheck disable=SC2086  # a list of arguments
    if [ $# -eq 0 ] || [[ " $* " == *" ${row%% *} "* ]]; then
        run_row $row
    fi
done
sed 's/ *$//' "$table"
[ "$failures" = 0 ] || fail "$failures of the rows above failed; the clone stays in $directory/clone"
rm -rf "$directory/clone"
