#!/usr/bin/env bash
# A tour: reads and changes the configuration of a service, and shows what became of the file.
# usage: tour.sh BUILD-FOLDER
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

# Shows a command, then what it prints, then the exit code of a zstz that refuses.
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

# What an administrator has put there before: a password that stands in no readable line.
printf 'correct horse' | zstz set gateway.conf upstream password --obfuscated
cp gateway.conf before.conf

say "A gateway has this configuration: comments, several values for a key, and in the stanza" \
    "configuration-database the name of a companion file with the values that are kept out of it."
show cat gateway.conf

say "Is it valid, and what is in it? Obfuscated values are masked."
show zstz check gateway.conf
show zstz list gateway.conf upstream

say "Reading. A key may have several values; numbers and truth values are converted."
show zstz get gateway.conf listener address --all
show zstz get gateway.conf listener idle-timeout --as number
show zstz get gateway.conf upstream health-check --as boolean
show zstz get gateway.conf upstream password

say "Changing. What would replace several values is refused unless --all is said."
show zstz set gateway.conf listener idle-timeout 60
show zstz add gateway.conf listener address 10.0.0.7:8080
show zstz set gateway.conf upstream retries 3
show zstz set gateway.conf upstream server app-9.example.net:9000
show "echo 'battery staple' | zstz set gateway.conf upstream password --obfuscated"
show zstz unset gateway.conf log file

say "Only what was asked for has changed; the new key went to the comment that shows its default."
show diff before.conf gateway.conf

say "A line that is no stanza, key or comment is refused, with its place."
show "echo 'no equals sign' >> gateway.conf; zstz check gateway.conf"

say "That was build/bin/zstz (--help says more). The same from a program: examples/, README.md."
