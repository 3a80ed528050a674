#!/usr/bin/env bash
# Runs an example beside a copy of gateway.conf. What it prints, and the file that it leaves, must be
# byte for byte what stands in expected/. usage: test_example.sh PROGRAM ARGUMENT…
set -euo pipefail
here=$(dirname "$(readlink -f "$0")")
program=$(readlink -f "$1")
expected=$here/expected/$(basename "$program")
shift

room=$(mktemp -d)
trap 'rm -rf "$room"' EXIT
cp "$here/gateway.conf" "$room/"
cd "$room"
"$program" "$@" >printed.txt
# The name of the companion file has the folder in it.
sed -i "s|$room|/etc/gateway|" gateway.conf
if [ "$(basename "$program")" = hostname ]; then
    # What the platform's own resolver says of this host.
    name=$(python3 -c 'import socket; print(socket.gethostbyname_ex(socket.gethostname())[0])' \
        2>/dev/null || echo unknown)
    sed -i "s|: $name\$|: gateway.example.net|" printed.txt
    sed -i "s|= $name\$|= gateway.example.net|" gateway.conf
fi
diff "$expected.txt" printed.txt
if [ -e "$expected.conf" ]; then
    diff "$expected.conf" gateway.conf
else
    diff "$here/gateway.conf" gateway.conf
fi
