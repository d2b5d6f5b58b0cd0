#!/usr/bin/env bash
# Builds the project three ways (native, AddressSanitizer+UBSan, 32-bit) and
# runs every test in each. Installs missing packages first.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh

jobs=$(nproc 2>/dev/null || echo 2)
run_build() {
  local name=$1; shift
  echo "=== build: $name"
  cmake -S . -B "build/$name" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" > "build/$name.configure.log" 2>&1 \
    || { cat "build/$name.configure.log"; exit 1; }
  cmake --build "build/$name" -j"$jobs" > "build/$name.build.log" 2>&1 \
    || { tail -60 "build/$name.build.log"; exit 1; }
  echo "=== test: $name"
  (cd "build/$name" && ctest --output-on-failure -j"$jobs")
}

mkdir -p build
run_build native
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 run_build asan -DCANTRIX_SANITIZE=ON
run_build m32 -DCANTRIX_M32=ON -DSQLite3_INCLUDE_DIR=/usr/include \
  -DSQLite3_LIBRARY="$PWD/build/deps-i386/usr/lib/i386-linux-gnu/libsqlite3.so.0"
echo "all builds passed"
