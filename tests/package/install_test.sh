#!/usr/bin/env bash
# Installs a build directory into a prefix, moves the prefix, and uses it as a stranger would: a C++
# project through CMake, a C99 program through pkg-config, the tool by its name.
# usage: install_test.sh BUILD-DIRECTORY CMAKE C-COMPILER C++-COMPILER
set -euo pipefail

build=$1 cmake=$2 cc=$3 cxx=$4
here=$(dirname "$(readlink -f "$0")")
room=$(mktemp -d)
trap 'rm -rf "$room"' EXIT

fail()
{
    echo "install_test: $*" >&2
    exit 1
}

unset QVRDIR
"$cmake" --install "$build" --prefix "$room/first" >"$room/install.log" ||
    fail "installing failed: $(tail -n 3 "$room/install.log")"
mv "$room/first" "$room/prefix"
prefix=$room/prefix
libdir=$(dirname "$(find "$prefix" -name libzfoundation-6.0.so.0)")
[ -n "$libdir" ] || fail "the library is not installed"
[ -e "$libdir/libqvr.so.1" ] || fail "the text services are not installed"

# Every public header and nothing else of the sources.
for header in "$here"/../../src/Z/*.h; do
    name=$(basename "$header")
    installed=$prefix/include/zfoundation-6.0/Z/$name
    case $name in
        *_p.h) [ ! -e "$installed" ] || fail "$name is private and installed" ;;
        *) cmp -s "$header" "$installed" || fail "$name is not installed" ;;
    esac
done
[ -e "$prefix/include/zfoundation-6.0/qvr.h" ] || fail "qvr.h is not installed"
diff -r "$here/../../src/qvr/tables" "$prefix/share/qvr" || fail "the tables are not installed"

# Headers and libraries must not name the directories they were built in.
if grep -rlIF "$build" "$prefix"; then
    fail "these installed files name the build directory"
fi

expected='service: port 8080, name "gateway"'
cat >"$room/service.conf" <<'END'
# a small service
[service]
port = 8080
name = gateway
END

"$cmake" -G Ninja -S "$here/cxx" -B "$room/cxx" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$cxx" >"$room/cxx.log" 2>&1 ||
    fail "the CMake project cannot be configured: $(cat "$room/cxx.log")"
"$cmake" --build "$room/cxx" >"$room/cxx.log" 2>&1 ||
    fail "the CMake project cannot be built: $(cat "$room/cxx.log")"
printed=$(QVRDIR=$prefix/share/qvr "$room/cxx/service" "$room/service.conf")
[ "$printed" = "$expected" ] || fail "the C++ program printed: $printed"

export PKG_CONFIG_PATH=$libdir/pkgconfig
# Word splitting is wanted: pkg-config prints a list.
# shellcheck disable=SC2046
"$cc" -std=c99 -pedantic-errors -Wall -Wextra -Werror "$here/c/service.c" -o "$room/service" \
    $(pkg-config --cflags --libs zfoundation-6.0) -Wl,-rpath,"$libdir"
printed=$(QVRDIR=$(pkg-config --variable=qvrdir zfoundation-6.0) "$room/service" \
    "$room/service.conf")
[ "$printed" = "$expected" ] || fail "the C program printed: $printed"

# The same without pkg-config, as the README says.
readme=$here/../../README.md
from_readme()
{
    sed -n "s|$1|\\1|p" "$readme" | sed "s|/usr/local/lib|$libdir|g; s|/usr/local|$prefix|g"
}
# shellcheck disable=SC2016  # no expansion is meant
flags=$(from_readme '.*`\(-I/usr/local[^`]*\)`.*')
[ -n "$flags" ] || fail "README.md has no flags for machines without pkg-config"
# shellcheck disable=SC2086  # a list
"$cc" -std=c99 "$here/c/service.c" -o "$room/service" $flags -Wl,-rpath,"$libdir"
tables=$(from_readme '^export QVRDIR=\(/usr/local[^ ]*\).*')
[ -e "$tables/codesets.alias" ] || fail "the tables are not where README.md says: $tables"
printed=$(QVRDIR=$tables "$room/service" "$room/service.conf")
[ "$printed" = "$expected" ] || fail "the C program built by README.md printed: $printed"

# The environment of an ordinary user, as the README sets it; earlier values stay.
exports=$(sed -n '/^An ordinary user/,/^CMake/p' "$readme" | grep '^export ')
[ -n "$exports" ] || fail "README.md does not set the environment of an ordinary user"
printed=$(
    export LD_LIBRARY_PATH=/kept PKG_CONFIG_PATH=/kept/too
    eval "$exports"
    [ "$LD_LIBRARY_PATH $PKG_CONFIG_PATH" = "$prefix/lib:/kept $prefix/lib/pkgconfig:/kept/too" ] ||
        fail "the environment is $LD_LIBRARY_PATH $PKG_CONFIG_PATH"
    # shellcheck disable=SC2046  # a list
    "$cc" -std=c99 "$here/c/service.c" -o "$room/service" \
        $(pkg-config --cflags --libs zfoundation-6.0)
    "$room/service" "$room/service.conf"
    zstz get "$room/service.conf" service name
)
[ "$printed" = "$expected"$'\n'gateway ] || fail "in the environment of the README: $printed"

printed=$("$prefix/bin/zstz" get "$room/service.conf" service port)
[ "$printed" = 8080 ] || fail "the installed tool printed: $printed"
echo "installed, moved and used"
