#!/usr/bin/env bash
# A tour: reads and changes the configuration of a service, and shows the resulting file.
# usage: tour.sh BUILD-DIRECTORY
set -euo pipefail
top=$(dirname "$(readlink -f "$0")")/../..
tool=$(readlink -f "$1")/bin/zstz
export QVRDIR=${QVRDIR:-$(readlink -f "$top/src/qvr/tables")}

room=$(mktemp -d)
trap 'rm -rf "$room"' EXIT
cp "$top/examples/gateway.conf" "$room/"
cd "$room"

zstz() { "$tool" "$@"; }

# say LINE…
say()
{
    echo
    printf '%s\n' "$@"
}

# Prints a command, its output, and the exit code of a zstz that fails.
show()
{
    printf '  $ %s\n' "$*"
    {
        local code=0
        eval "$*" || code=$?
        if [[ $* == *zstz* && $code != 0 ]]; then
            echo "exit code $code"
        fi
    } 2>&1 | sed 's/^/  /'
}

# An administrator stored a password earlier; it has no readable line in the file.
printf 'correct horse' | zstz set gateway.conf upstream password --obfuscated
cp gateway.conf before.conf

say "A gateway has this configuration: comments, several values for a key, and in the stanza" \
    "configuration-database the name of a companion file, which holds the obfuscated values."
show cat gateway.conf

say "Validate the file and list its contents. Obfuscated values are masked."
show zstz check gateway.conf
show zstz list gateway.conf upstream

say "Read values. A key may have several; numbers and booleans are converted."
show zstz get gateway.conf listener address --all
show zstz get gateway.conf listener idle-timeout --as number
show zstz get gateway.conf upstream health-check --as boolean
show zstz get gateway.conf upstream password

say "Change values. A change that would replace several values needs --all."
show zstz set gateway.conf listener idle-timeout 60
show zstz add gateway.conf listener address 10.0.0.7:8080
show zstz set gateway.conf upstream retries 3
show zstz set gateway.conf upstream server app-9.example.net:9000
show "echo 'battery staple' | zstz set gateway.conf upstream password --obfuscated"
show zstz unset gateway.conf log file

say "Only these values changed. The new key follows the comment that shows its default."
show diff before.conf gateway.conf

say "A line that is not a header, key or comment is an error; the message gives its number."
show "echo 'no equals sign' >> gateway.conf; zstz check gateway.conf"

say "This was build/bin/zstz; see its --help. For programs, see examples/ and README.md."
