#!/bin/sh
# Every build of the library gives the same bytes of the conformance vectors. usage: compare.sh VECTORS LIBRARY LIBRARY...
set -eu
program=$1
first=$2
shift 2
[ $# -ge 1 ]
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# @param $1  library  @param $2  folder
write() {
  LD_PRELOAD=$1 "$program" write "$2" 2>"$work/loaded"
  grep -Fx "library: $1" "$work/loaded"
}

write "$first" "$work/first"
for library; do
  rm -rf "$work/other"
  write "$library" "$work/other"
  diff -r "$work/first" "$work/other"
done
