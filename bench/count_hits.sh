#!/usr/bin/env bash
# Instructions per hit of the hash table and of its peers, from callgrind:
# each map's out-of-line pass over all keys (hit_all_*) in bench_containers,
# divided by the hits it made (keys times iterations).
#   bench/count_hits.sh [BENCH_BINARY] [KEYS...]   (default: build/bench/bench_containers 100000)
set -euo pipefail
binary=${1:-build/bench/bench_containers}
shift || true
sizes=("$@")
[ ${#sizes[@]} -gt 0 ] || sizes=(100000)
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
for n in "${sizes[@]}"; do
  valgrind --tool=callgrind --callgrind-out-file="$out/cg" --collect-atstart=no \
    --toggle-collect='*hit_all_*' "$binary" --benchmark_filter="Find/$n\$" --benchmark_min_time=0 \
    > "$out/log" 2>&1
  # Iterations of each run, from the benchmark's own table.
  iterations() { awk -v run="$1/$n" '$1 == run { print $(NF-1) }' "$out/log"; }
  callgrind_annotate --inclusive=yes "$out/cg" 2>/dev/null |
    awk -v n="$n" -v ours="$(iterations BM_Hashtable_Find)" -v std="$(iterations BM_StdMap_Find)" \
        -v absl="$(iterations BM_AbslMap_Find)" '
      /hit_all_/ {
        gsub(",", "", $1)
        if ($0 ~ /unordered_map/) { name = "std::unordered_map"; it = std }
        else if ($0 ~ /flat_hash_map/) { name = "absl::flat_hash_map"; it = absl }
        else { name = "ombr_hashtable"; it = ours }
        printf "%8d keys  %-20s %7.1f instructions per hit\n", n, name, $1 / (n * it)
      }'
done
