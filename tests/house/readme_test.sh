#!/usr/bin/env bash
# usage: readme_test.sh SOURCE_DIR LIBRARY
# The first C++ example of the README compiles as it stands and runs to a good end.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
awk '/^```cpp$/ { inside = 1; next } /^```$/ && inside { exit } inside' "$1/README.md" \
  >"$work/example.cpp"
[ -s "$work/example.cpp" ] || { echo "the README has no example"; exit 1; }
c++ -std=c++17 -Wall -Wextra -Werror -I"$1/include" "$work/example.cpp" "$2" \
  -Wl,-rpath,"$(dirname "$2")" -o "$work/example"
cd "$work"
./example
