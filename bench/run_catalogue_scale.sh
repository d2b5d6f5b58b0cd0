#!/usr/bin/env bash
# The catalogue at scale: generates catalogues of 10k and 100k albums (and
# 1M with --million), imports each with the catalogue and with a minimal
# loader, measures lookups and searches beside their peers in the same run
# (plain FTS5, a duration cube on an R*Tree) and TOC identification
# through the module, then prints one table with our figures and the
# peers'. Work files go to $WORK (default /tmp/catalogue_scale); existing
# files are reused, so a second run only measures.
#   bench/run_catalogue_scale.sh [--million | SIZE...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
# Sizes: 10k and 100k, with 1M too after --million (a long run on a shared
# machine), or the sizes given.
sizes=()
million=0
for a in "$@"; do
  case $a in
    --million) million=1 ;;
    *) sizes+=("$a") ;;
  esac
done
[ ${#sizes[@]} -gt 0 ] || sizes=(10000 100000)
[ $million = 0 ] || sizes+=(1000000)
work=${WORK:-/tmp/catalogue_scale}
mkdir -p "$work"
build="$root/build/bench"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DCANTRIX_BENCH=ON -DCANTRIX_TESTS=OFF >/dev/null
cmake --build "$build" -j2 --target host_catalogue bench_catalogue >/dev/null
host="$build/host_catalogue"
module="$build/bench_catalogue"

for n in "${sizes[@]}"; do
  jsonl="$work/releases_$n.jsonl" db="$work/catalogue_$n.db"
  [ -f "$jsonl" ] || python3 "$root/tools/gen_synthetic_catalogue.py" "$n" "$jsonl"
  if [ ! -f "$db" ]; then
    echo "importing $n albums" >&2
    rm -f "$db.tmp" "$db.tmp-wal" "$db.tmp-shm"
    "$host" import "$db.tmp" "$jsonl" > "$work/import_$n.txt"
    mv "$db.tmp" "$db"
    "$host" peer_import "$work/peer_$n.db" "$jsonl" > "$work/peer_import_$n.txt"
    rm -f "$work/peer_$n.db" "$work/peer_$n.db-wal" "$work/peer_$n.db-shm"
  fi
  echo "measuring $n albums" >&2
  "$host" bench "$db" --benchmark_filter='toc/|toc_linear/|peer_cube/|search/album_title|search/artist_albums|peer_fts/' \
    --benchmark_out="$work/bench_$n.json" --benchmark_out_format=json > "$work/bench_$n.txt" 2>&1
  # TOC identification through the module, on the same catalogue.
  mkdir -p "$work/module_$n"
  ln -sf "$jsonl" "$work/module_$n/bench_catalogue_$n.jsonl"
  ln -sf "$db" "$work/module_$n/bench_catalogue_$n.db"
  (cd "$work/module_$n" && CANTRIX_BENCH_ALBUMS=$n "$module" --benchmark_filter=BM_TocIdentification \
    --benchmark_out="$work/module_$n.json" --benchmark_out_format=json > "$work/module_$n.txt" 2>&1)
done

python3 - "$work" "${sizes[@]}" <<'EOF'
import json, re, sys
work, sizes = sys.argv[1], sys.argv[2:]

def runs(path):
    out = {}
    for b in json.load(open(path))["benchmarks"]:
        if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "median":
            continue
        scale = {"ns": 1e-3, "us": 1.0, "ms": 1e3, "s": 1e6}[b["time_unit"]]
        out[re.sub(r"/(iterations|repeats):\d+", "", b["run_name"])] = dict(b, cpu_us=b["cpu_time"] * scale)
    return out

def t(us):
    return "%.2f ms" % (us / 1e3) if us >= 1000 else "%.1f us" % us

def acc(r):
    return " (first right %d%%)" % round(100 * r["first_right"]) if "first_right" in r else ""

print("\nCatalogue at scale (CPU time per query, medians of one run; ratio = peer / ours, below 1: ours slower)\n")
print("| What | Albums | Ours | Peer in the same run | Ratio |")
print("|---|---|---|---|---|")
rows = [("Album-title search", "search/album_title", "peer_fts/album_title", "plain FTS5"),
        ("Misspelt title", "search/album_title_misspelt", "peer_fts/album_title_misspelt", "plain FTS5"),
        ("Artist-only search", "search/artist_albums", "peer_fts/artist_albums", "plain FTS5"),
        ("Fuzzy TOC, shifted", "toc/shifted", "peer_cube/shifted", "duration cube"),
        ("Fuzzy TOC, perturbed", "toc/perturbed", "peer_cube/perturbed", "duration cube"),
        ("TOC without a match", "toc/no_match", "peer_cube/no_match", "duration cube"),
        ("Fuzzy TOC, shifted", "toc/shifted", "toc_linear/shifted", "linear scan (before)"),
        ("TOC without a match", "toc/no_match", "toc_linear/no_match", "linear scan (before)")]
for what, ours, peer, name in rows:
    for n in sizes:
        r = runs("%s/bench_%s.json" % (work, n))
        if ours not in r or peer not in r:
            continue
        o, p = r[ours], r[peer]
        print("| %s | %s | %s%s | %s %s%s | %.2fx |" % (what, n, t(o["cpu_us"]), acc(o), name, t(p["cpu_us"]),
                                                       acc(p), p["cpu_us"] / o["cpu_us"]))
for n in sizes:
    m = runs("%s/module_%s.json" % (work, n))
    r = runs("%s/bench_%s.json" % (work, n))
    o = m.get("BM_TocIdentification")
    p = r.get("toc/exact")
    if o and p:
        print("| TOC identification through the module | %s | %s | catalogue lookup %s | %.2fx |" %
              (n, t(o["cpu_us"]), t(p["cpu_us"]), p["cpu_us"] / o["cpu_us"]))
for n in sizes:
    try:
        ours = open("%s/import_%s.txt" % (work, n)).read()
        peer = open("%s/peer_import_%s.txt" % (work, n)).read()
    except OSError:
        continue
    rate = float(re.search(r"([0-9.]+) releases/s", ours).group(1))
    prate = float(re.search(r"([0-9.]+) albums/s", peer).group(1))
    detail = ours.splitlines()[-1]
    print("| Import | %s | %.0f albums/s; %s | minimal loader %.0f albums/s | %.2fx |" % (n, rate, detail, prate,
                                                                                       rate / prate))
EOF
