#!/bin/sh
# Installs a build below a new folder, moves it, and builds the examples against it: by pkg-config and by find_package,
# with the shared and with the static library. usage: check_installed.sh CMAKE CC BUILD_DIR LIBDIR EXAMPLES_DIR STATIC
set -eu
cmake=$1 cc=$2 build=$3 libdir=$4 examples=$5 static=$6
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/moved

"$cmake" --install "$build" --prefix "$work/installed" >/dev/null
mv "$work/installed" "$prefix"

export PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig"
make -s -C "$examples/pkg_config" CC="$cc" OUT="$work/by_pkg_config"
"$cmake" -S "$examples/find_package" -B "$work/build" -G Ninja -DCMAKE_C_COMPILER="$cc" -DCMAKE_PREFIX_PATH="$prefix" \
  >/dev/null
"$cmake" --build "$work/build" >/dev/null

export LD_LIBRARY_PATH="$prefix/$libdir"
for program in by_pkg_config build/minimal build/bridge; do
  ldd "$work/$program" | grep -F "libqvvoice.so.1 => $prefix/$libdir/"
  "$work/$program"
done
if [ "$static" = ON ]; then
  make -s -C "$examples/pkg_config" CC="$cc" OUT="$work/static_by_pkg_config" STATIC=1
  for program in static_by_pkg_config build/minimal_static; do
    if ldd "$work/$program" | grep libqvvoice; then exit 1; fi
    "$work/$program"
  done
  # Whoever links the archive may have functions of these names, or another kissfft.
  if nm -g --defined-only "$prefix/$libdir/libqvvoice.a" | grep -E ' (kiss_|kf_)'; then exit 1; fi
fi
if [ -e "$prefix/bin/qvvoice" ]; then
  "$prefix/bin/qvvoice" --help >/dev/null
fi
