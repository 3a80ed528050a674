#!/usr/bin/env bash
# Checks a model with spin: the search must find no error in the model itself, and an error with
# each of its numbered faults. usage: check_model.sh MODEL
set -euo pipefail
model=$(readlink -f "$1")
export LC_ALL=C

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"

# search FAULT: prints the output of the search.
search()
{
    spin -DFAULT="$1" -a "$model" >/dev/null
    # At most a gigabyte; the output shows whether the search was cut short.
    gcc -O2 -w -DSAFETY -DCOLLAPSE -DMEMLIM=900 pan.c -o pan
    ./pan -m20000
}

search 0 >found.txt
if grep -q 'not completed\|max search depth' found.txt || ! grep -q 'errors: 0$' found.txt; then
    cat found.txt >&2
    exit 1
fi
grep 'states, stored' found.txt

faults=$(sed -n 's/^ \*   \([0-9]\)  .*/\1/p' "$model")
[ -n "$faults" ]
for fault in $faults; do
    search "$fault" >found.txt
    if ! grep -q 'errors: 1$' found.txt; then
        echo "fault $fault is not found" >&2
        exit 1
    fi
    grep -m1 '^pan:[0-9]*: ' found.txt
done
