#!/usr/bin/env bash
# usage: headers_test.sh SOURCE_DIR
# Every public header compiles alone, as C++17 and C++20, with both compilers and strict
# warnings; includes nothing but its siblings and the C++ library; and is part of common.h.
set -euo pipefail
include=$1/include
status=0

# shellcheck disable=SC2317  # xargs calls it below
compile_alone() {
  local include=$1 job=$2 compiler level header
  read -r compiler level header <<<"$job"
  printf '#include <%s>\n#include <%s>\n' "$header" "$header" |
    "$compiler" -x c++ "-std=$level" -I"$include" -fsyntax-only \
      -Wall -Wextra -Wpedantic -Werror - || { echo "not alone: $header $compiler $level"; exit 1; }
}
export -f compile_alone

headers=$(cd "$include" && find qvx -name '*.h' | sort)
for header in $headers; do
  for compiler in g++ clang++; do
    for level in c++17 c++20; do echo "$compiler $level $header"; done
  done
done | xargs -d '\n' -P 2 -I{} bash -c 'compile_alone "$@"' _ "$include" {} || status=1

# A name with a point belongs to C or to the system; the C++ library's have none.
if grep -rnE '^ *# *include' "$include" | grep -vE 'include ("|<)qvx/[a-z0-9_]+\.h|include <[a-z_]+>'
then
  echo "a public header includes more than its siblings and the C++ library"
  status=1
fi

for header in $headers; do
  [ "$header" = qvx/common.h ] || grep -qF "#include <$header>" "$include/qvx/common.h" ||
    { echo "common.h leaves out $header"; status=1; }
done
exit $status
