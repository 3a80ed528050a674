#!/usr/bin/env bash
# Runs an example on a copy of gateway.conf. What it prints, and the file that it leaves, must be
# byte for byte what stands in expected/. usage: test_example.sh PROGRAM
set -euo pipefail
here=$(dirname "$(readlink -f "$0")")
program=$(readlink -f "$1")
expected=$here/expected/$(basename "$program")

room=$(mktemp -d)
trap 'rm -rf "$room"' EXIT
cp "$here/gateway.conf" "$room/"
cd "$room"
"$program" gateway.conf >printed.txt
# The name of the companion file has the folder in it.
sed -i "s|$room|/etc/gateway|" gateway.conf
diff "$expected.txt" printed.txt
diff "$expected.conf" gateway.conf
