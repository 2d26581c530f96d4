#!/bin/sh
# Each library exports exactly the names of one list and asks the system for no other than those of a second one (no
# lock, no thread, no print but the one message). usage: check_names.sh NM EXPORTED IMPORTED LIBRARY...
set -eu
nm=$1 exported=$2 imported=$3
shift 3
[ $# -gt 0 ]
names() { awk '$(NF - 1) != "A" && $(NF - 1) != "w" { sub(/@.*/, "", $NF); print $NF }' | LC_ALL=C sort; }
for library; do
  echo "$library"
  "$nm" -D --defined-only "$library" | names | diff "$exported" -
  others=$("$nm" -D --undefined-only "$library" | names | LC_ALL=C comm -13 "$imported" -)
  [ -z "$others" ] || { echo "not allowed: $others"; exit 1; }
done
