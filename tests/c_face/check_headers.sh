#!/bin/sh
# Each installed header compiles by itself, twice over, as C11 and as C++20. usage: check_headers.sh CC CXX INCLUDE_DIR
set -eu
cc=$1 cxx=$2
cd "$3"
count=0
for header in $(find qvvoice -name '*.h'); do
  text="#include \"$header\"
#include \"$header\"
extern int stands_alone;"
  echo "$text" | "$cc" -std=c11 -pedantic-errors -Wall -Wextra -Wstrict-prototypes -Werror -fsyntax-only -I. -x c -
  echo "$text" | "$cxx" -std=c++20 -pedantic-errors -Wall -Wextra -Werror -fsyntax-only -I. -x c++ -
  count=$((count + 1))
done
echo "$count headers"
[ "$count" -ge 19 ]
