#!/usr/bin/env bash
# Builds tools/catalogue_bench against the host's static archive, makes a
# synthetic catalogue of N albums (default 100000), imports it and runs the
# lookup and search benchmarks. Work files go to $WORK (default /tmp/catalogue_bench).
#   tools/run_catalogue_bench.sh [N] [benchmark flags...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
n=${1:-100000}; shift || true
work=${WORK:-/tmp/catalogue_bench}
mkdir -p "$work"
build="$root/build"
[ -f "$build/CMakeCache.txt" ] || cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j2 --target host_internal >/dev/null
g++ -std=c++20 -O2 -I"$root" -I"$root/include" "$root/tools/catalogue_bench.cpp" "$build/libhost_internal.a" \
    -lbenchmark -lsqlite3 -lpthread -o "$work/catalogue_bench"
[ -f "$work/releases_$n.jsonl" ] || python3 "$root/tools/gen_synthetic_catalogue.py" "$n" "$work/releases_$n.jsonl"
if [ ! -f "$work/catalogue_$n.db" ]; then
  "$work/catalogue_bench" import "$work/catalogue_$n.db" "$work/releases_$n.jsonl"
fi
"$work/catalogue_bench" bench "$work/catalogue_$n.db" "$@"
