#!/usr/bin/env bash
# usage: install_test.sh SOURCE_DIR BUILD_DIR
# Installs into a prefix, moves the prefix, and lets programs outside the project find, build
# against and run with what is there: by the CMake package, by pkg-config, and the tool itself.
set -euo pipefail
source=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/moved prefix"
prefix="$work/moved prefix"
library=$(find "$prefix" -name 'libqvx_common.so')
libdir=$(dirname "$library")

soname=$(readelf -d "$library" | sed -n 's/.*SONAME.*\[\(.*\)\]/\1/p')
[[ $soname =~ ^libqvx_common\.so\.[0-9]+$ ]] || { echo "soname is '$soname'"; exit 1; }
[ -e "$libdir/$soname" ] || { echo "$soname is not installed"; exit 1; }
if grep -rqF "$source" "$prefix" --include='*.cmake' --include='*.pc' --include='*.h'; then
  echo "an installed text names the source tree"
  exit 1
fi

export LD_LIBRARY_PATH="$libdir${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
cmake -S "$source/tests/house/consumer" -B "$work/by_cmake" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$work/by_cmake" >/dev/null
"$work/by_cmake/consumer" "by cmake"

export PKG_CONFIG_PATH="$libdir/pkgconfig"
pkg-config --print-errors --exists qvx_common
# The prefix holds a blank, which pkg-config escapes for a shell.
flags=()
eval "flags=($(pkg-config --cflags --libs qvx_common))"
c++ -std=c++17 "$source/tests/house/consumer/consumer.cpp" "${flags[@]}" -o "$work/consumer"
"$work/consumer" "by pkg-config"

unset LD_LIBRARY_PATH
"$prefix/bin/qvx" --version
