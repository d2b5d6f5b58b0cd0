#!/usr/bin/env bash
# Builds bench/host_catalogue (the catalogue measured through the host's
# static archive), makes a synthetic catalogue of N albums (default 100000),
# imports it and runs the lookup and search benchmarks. Work files go to
# $WORK (default /tmp/catalogue_bench).
#   bench/run_host_catalogue.sh [N] [benchmark flags...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
n=${1:-100000}; shift || true
work=${WORK:-/tmp/catalogue_bench}
mkdir -p "$work"
build="$root/build/bench"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DCANTRIX_BENCH=ON -DCANTRIX_TESTS=OFF >/dev/null
cmake --build "$build" -j2 --target host_catalogue >/dev/null
bench="$build/host_catalogue"
[ -f "$work/releases_$n.jsonl" ] || python3 "$root/tools/gen_synthetic_catalogue.py" "$n" "$work/releases_$n.jsonl"
if [ ! -f "$work/catalogue_$n.db" ]; then
  "$bench" import "$work/catalogue_$n.db" "$work/releases_$n.jsonl"
fi
"$bench" bench "$work/catalogue_$n.db" "$@"
