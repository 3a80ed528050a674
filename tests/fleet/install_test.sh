#!/usr/bin/env bash
# Installs the foundation and then libzfleet into a temporary prefix, and builds programs against them
# with pkg-config and with CMake.
# usage: install_test.sh DIRECTORY C++-COMPILER    DIRECTORY is a build, or has the Debian packages of both
set -euo pipefail
directory=$(readlink -f "$1")
cxx=$2
room=$(mktemp -d)
trap 'rm -rf "$room"' EXIT

fail()
{
    echo "install_test.sh: $*" >&2
    exit 1
}

# install_package PACKAGE COMPONENT
install_package()
{
    if [ -f "$directory/CMakeCache.txt" ]; then
        cmake --install "$directory" --prefix "$room/usr" --component "$2" >>"$room/install.txt"
    else
        dpkg-deb -x "$directory/$1"_*.deb "$room"
    fi
}

# depends_on PACKAGE NAME: succeeds if the Debian package needs a package whose name starts with NAME.
depends_on()
{
    dpkg-deb -f "$directory/$1"_*.deb Depends | tr , '\n' | grep -E "^ *$2" >/dev/null
}

install_package zfoundation-6.0 Unspecified
if find "$room" -name '*fleet*' | grep .; then
    fail "the package of the foundation has these files of libzfleet"
fi
(cd "$room" && find usr -type f) | sort >"$room/foundation.txt"
install_package zfleet-6.0 fleet
if [ ! -f "$directory/CMakeCache.txt" ]; then
    depends_on zfleet-6.0 'zfoundation-6.0 \(= 6.0' || fail "libzfleet does not depend on the foundation"
    depends_on zfleet-6.0 'libgrpc' || fail "libzfleet does not depend on gRPC"
    if depends_on zfoundation-6.0 '(zfleet|libgrpc|libprotobuf)'; then
        fail "the foundation depends on libraries of libzfleet"
    fi
    overlap=$(dpkg-deb -c "$directory"/zfleet-6.0_*.deb | sed -n 's|^-.* \./||p' | sort |
        comm -12 - "$room/foundation.txt")
    [ -z "$overlap" ] || fail "both packages have $overlap"
fi

prefix=$room/usr
libdir=$(dirname "$(find "$prefix" -name libzfleet-6.0.so.0)")
tables=$prefix/share/qvr
cat >"$room/program.cpp" <<'END'
#include <Z/ZException.h>
#include <Z/ZFleetConnection.h>
#include <Z/ZFleetProperties.h>
#include <stdio.h>

#include <fstream>
#include <string>

// Loads a path, and prints the failure, and whether the process has loaded gRPC.
int main(int argc, char** argv)
{
    ZFleetProperties_6_0 store(1);
    try {
        store.load(argv[argc - 1]);
        printf("loaded");
    } catch (ZPropertiesIOException_6_0 const& e) {
        printf("%s %s %d", e.propFile().getChars(), e.api().getChars(), e.excerrno());
    }
    std::ifstream maps("/proc/self/maps");
    bool hasGrpc = false;
    for (std::string line; std::getline(maps, line);)
        hasGrpc = hasGrpc || line.find("libgrpc") != std::string::npos;
    printf(hasGrpc ? ", with gRPC\n" : "\n");
    return ZFleetProperties_6_0::getFactory() == nullptr;
}
END

# Nothing listens on port 1.
printf '[fleet]\nplain = yes\nendpoint = 127.0.0.1:1\nbudget = 1\n' >"$room/fleets.conf"
printf '[s]\nk = v\n' >"$room/local.conf"
module=$libdir/libzfleet-grpc-6.0.so.0

# prints NAME PROGRAM PATH TEXT: fails unless the program prints the text for the path.
prints()
{
    local printed
    printed=$(QVRDIR=$tables ZFLEETCONF=$room/fleets.conf "$2" "$3")
    [ "$printed" = "$4" ] || fail "the program built with $1 printed for $3: $printed"
}

# check_program NAME PROGRAM: only a path in a cluster loads gRPC.
check_program()
{
    prints "$1" "$2" "$room/local.conf" "loaded"
    prints "$1" "$2" etcd://fleet/not/a/name "etcd://fleet/not/a/name etcd:// 22"
    prints "$1" "$2" etcd://fleet/name "etcd://fleet/name Txn 110, with gRPC"
    mv "$module" "$module.away"
    prints "$1" "$2" etcd://fleet/name "etcd://fleet dlopen(libzfleet-grpc-6.0.so.0) 79"
    mv "$module.away" "$module"
}

export PKG_CONFIG_PATH=$libdir/pkgconfig
# shellcheck disable=SC2046  # a list
"$cxx" -std=c++17 -pedantic-errors -Wall -Wextra -Werror "$room/program.cpp" -o "$room/program" \
    $(pkg-config --cflags --libs zfleet-6.0) -Wl,-rpath,"$libdir"
check_program pkg-config "$room/program"

# The installed example, with a local file that stops the server.
printf '[limits]\nlow = 1\nhigh = 101\n[server]\nstop = yes\n' >"$room/server.conf"
# shellcheck disable=SC2046  # a list
"$cxx" -std=c++17 "$prefix/share/doc/zfleet-6.0/examples/fleet_server.cpp" -o "$room/server" \
    $(pkg-config --cflags --libs zfleet-6.0) -pthread -Wl,-rpath,"$libdir"
QVRDIR=$tables "$room/server" "$room/server.conf" | grep "low = 1, high = 101" >/dev/null ||
    fail "the example does not serve a local file"
[ -s "$prefix/share/doc/zfleet-6.0/fleet.md" ] || fail "the documentation is not installed"
[ -n "$(find "$prefix/share/man/man1" -name 'zfleet.1*')" ] || fail "the manual page is not installed"

cat >"$room/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.16)
project(Program CXX)
find_package(ZFleet 6.0 REQUIRED)
add_executable(program program.cpp)
target_link_libraries(program ZFleet::zfleet)
END
cmake -S "$room" -B "$room/build" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_PREFIX_PATH="$prefix" \
    >"$room/cmake.txt"
cmake --build "$room/build" >"$room/build.txt"
check_program CMake "$room/build/program"

# The plain functions load libzfleet, if it is installed.
cat >"$room/plain.c" <<'END'
#include <Z/zproperties_c.h>
#include <stdio.h>

int main(void)
{
    ZPROP_handle* handle;
    ZPROPError error = {.size = sizeof error};
    int const code = zstzPropOpen_6_0(&handle, "etcd://fleet/not/a/name", zpropOpenRead);
    zstzPropGetLastError_6_0(&error);
    printf("%d %s\n", code, code == zpropUnsupported ? error.text : error.file);
    return 0;
}
END
# shellcheck disable=SC2046  # a list
cc -std=c99 -Wall -Wextra -Werror "$room/plain.c" -o "$room/plain" \
    $(pkg-config --cflags --libs zfoundation-6.0) -Wl,-rpath,"$libdir"
printed=$(QVRDIR=$tables LD_LIBRARY_PATH=$libdir "$room/plain")
[ "$printed" = "51 etcd://fleet/not/a/name" ] || fail "the plain functions printed: $printed"
mkdir "$room/foundation"
cp -P "$libdir"/libzfoundation-6.0.so* "$libdir"/libqvr* "$room/foundation/" 2>/dev/null || true
printed=$(QVRDIR=$tables LD_LIBRARY_PATH=$room/foundation "$room/plain")
[[ $printed == "58 The library libzfleet-6.0 cannot be loaded; install the package "* ]] ||
    fail "the plain functions printed without libzfleet: $printed"

[ "$("$prefix/bin/zfleet" --version)" = "zfleet 6.0" ] || fail "zfleet does not run"
if grep -q zfleet "$libdir/cmake/ZFoundation/"*.cmake "$libdir/pkgconfig/zfoundation-6.0.pc"; then
    fail "the package of the foundation names libzfleet"
fi
if readelf -d "$libdir/libzfoundation-6.0.so" | grep -E "grpc|protobuf|zfleet"; then
    fail "the foundation links libraries of libzfleet"
fi
