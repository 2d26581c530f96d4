#!/bin/sh
# Installs a build below a new folder and builds the example against it, by pkg-config and by find_package.
# usage: check_installed.sh CMAKE CC BUILD_DIR LIBDIR EXAMPLES_DIR
set -eu
cmake=$1 cc=$2 build=$3 libdir=$4 examples=$5
here=$(dirname "$0")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/moved

"$cmake" --install "$build" --prefix "$work/installed" >/dev/null
mv "$work/installed" "$prefix"

export PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig"
"$cc" -std=c11 -Wall -Wextra -Wpedantic -Werror "$examples/minimal.c" $(pkg-config --cflags --libs qvvoice) -o "$work/by_pkg_config"
"$cmake" -S "$here/find_package" -B "$work/build" -G Ninja -DCMAKE_C_COMPILER="$cc" -DCMAKE_PREFIX_PATH="$prefix" \
  -DEXAMPLES="$examples" >/dev/null
"$cmake" --build "$work/build" >/dev/null

for program in by_pkg_config build/minimal; do
  LD_LIBRARY_PATH=$prefix/$libdir ldd "$work/$program" | grep -F "libqvvoice.so.1 => $prefix/$libdir/"
  LD_LIBRARY_PATH=$prefix/$libdir "$work/$program"
done
if [ -e "$prefix/bin/qvvoice" ]; then
  "$prefix/bin/qvvoice" --help >/dev/null
fi
