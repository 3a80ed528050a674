#!/usr/bin/env bash
# Runs an example next to copies of gateway.conf and app.properties. Its output and both files must
# then equal the files in expected/ byte for byte; a file without one there must be unchanged.
# usage: test_example.sh PROGRAM ARGUMENT…
set -euo pipefail
here=$(dirname "$(readlink -f "$0")")
program=$(readlink -f "$1")
expected=$here/expected/$(basename "$program")
shift

room=$(mktemp -d)
trap 'rm -rf "$room"' EXIT
cp "$here/gateway.conf" "$here/app.properties" "$room/"
cd "$room"
"$program" "$@" >printed.txt
# The name of the companion file contains the directory.
sed -i "s|$room|/etc/gateway|" gateway.conf
if [ "$(basename "$program")" = hostname ]; then
    # The name that the platform's resolver gives this host.
    name=$(python3 -c 'import socket; print(socket.gethostbyname_ex(socket.gethostname())[0])' \
        2>/dev/null || echo unknown)
    sed -i "s|: $name\$|: gateway.example.net|" printed.txt
    sed -i "s|= $name\$|= gateway.example.net|" gateway.conf
fi
diff "$expected.txt" printed.txt
for file in gateway.conf app.properties; do
    if [ -e "$expected.${file##*.}" ]; then
        diff "$expected.${file##*.}" "$file"
    else
        diff "$here/$file" "$file"
    fi
done
