#!/usr/bin/env bash
# Builds the C consumer against an installed tree twice, through
# find_package(zelto_cantrix) and through pkg-config, and runs both.
#   tests/consumer/run.sh PREFIX
set -euo pipefail
prefix=$(cd "${1:?usage: run.sh PREFIX}" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
expected='libzelto_cantrix 3.2.0.422: 1 album, "Lanterns" by The Quiet Hours, SINGLE match, TOC 150 14672 27367 41225'
check() {
  local how=$1 out
  out=$("$2")
  [ "$out" = "$expected" ] || { echo "consumer ($how) printed: $out"; echo "wanted: $expected"; exit 1; }
  echo "consumer ($how): $out"
}

# CMake package, with the compiler the caller's environment names.
cmake -S "$here" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release > "$work/cmake.log" 2>&1 \
  && cmake --build "$work/cmake" > "$work/build.log" 2>&1 \
  || { cat "$work/cmake.log" "$work/build.log" 2>/dev/null | tail -40; exit 1; }
check find_package "$work/cmake/consumer"

# pkg-config, with a plain compiler line.
libdir=$(dirname "$(find "$prefix" -name zelto_cantrix.pc -path '*/pkgconfig/*' | head -1)")/..
export PKG_CONFIG_PATH="$libdir/pkgconfig"
pkg-config --exact-version=3.2.0 zelto_cantrix zelto_manager
"${CC:-cc}" -std=c99 -Wall -Wextra -pedantic -Werror -o "$work/consumer_pc" "$here/consumer.c" \
  $(pkg-config --cflags --libs zelto_cantrix) -Wl,-rpath,"$(pkg-config --variable=libdir zelto_cantrix)"
check pkg-config "$work/consumer_pc"
