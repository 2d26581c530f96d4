#!/bin/sh
# Every build of the library gives the same bits. usage: compare.sh PROGRAM LIBRARY LIBRARY...
set -eu
program=$1
shift
[ $# -ge 2 ]
first=$("$program" "$1")
echo "$first"
[ "$(echo "$first" | sort -u -k 4 | wc -l)" -eq 8 ]
for library; do
  echo "$library"
  [ "$("$program" "$library")" = "$first" ]
done
