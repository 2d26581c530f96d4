#!/bin/sh
# Builds and runs the examples that have the library inside their own build, and holds that nothing of the host changes.
# usage: check_subproject.sh CMAKE CC CXX EXAMPLES_DIR
set -eu
cmake=$1 cc=$2 cxx=$3 examples=$4
here=$(dirname "$0")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
configure() { # SOURCE BUILD OPTION...
  source=$1 build=$2
  shift 2
  "$cmake" -S "$source" -B "$build" -G Ninja -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" "$@" >"$work/log" ||
    { cat "$work/log"; exit 1; }
}

configure "$examples/add_subdirectory" "$work/static" -DCMAKE_BUILD_TYPE=Release
"$cmake" --build "$work/static" >/dev/null
if ldd "$work/static/minimal" | grep libqvvoice; then exit 1; fi
"$work/static/minimal"

configure "$examples/fetch_content" "$work/dynamic" -DBUILD_SHARED_LIBS=ON
"$cmake" --build "$work/dynamic" >/dev/null
ldd "$work/dynamic/minimal" | grep -F "libqvvoice.so.1 => $work/dynamic/"
"$work/dynamic/minimal"

configure "$here/host" "$work/host"
grep -q 'CPACK_PACKAGE_NAME "host"' "$work/host/CPackConfig.cmake"
configure "$here/host" "$work/host-without-tests" -DQVVOICE_TESTS=ON -DBUILD_TESTING=OFF
