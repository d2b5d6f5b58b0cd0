#!/usr/bin/env bash
# Builds the libFuzzer harnesses under fuzz/ with Clang and runs each for
# SECONDS (default 60): first the inputs that once failed
# (fuzz/regressions/NAME/), then fuzzing from the seed corpus
# (fuzz/corpus/NAME/) with the harness's dictionary. New corpus entries go to
# a scratch folder, not into the tree. A failing input is left as
# build/fuzz/crash-NAME-*; once fixed, keep it in fuzz/regressions/NAME/.
# FUZZ_SEED picks libFuzzer's seed (default 0: a fresh one each run); the
# test script's short run passes a fixed one, so that its outcome can be
# repeated exactly.
#   scripts/fuzz.sh [SECONDS] [NAME...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
only=("$@")
export CC=${CC:-clang-16} CXX=${CXX:-clang++-16}
build=build/fuzz
mkdir -p "$build"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCANTRIX_FUZZ=ON -DCANTRIX_TESTS=OFF \
  > "$build.configure.log" 2>&1 || { cat "$build.configure.log"; exit 1; }
cmake --build "$build" --target cantrix_fuzzers -j"$(nproc 2>/dev/null || echo 2)" > "$build.build.log" 2>&1 \
  || { grep -E 'error|Error' -A5 "$build.build.log" | head -60; exit 1; }

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failed=0 ran=0
while IFS=$'\t' read -r name program corpus regressions dict; do
  if [ ${#only[@]} -gt 0 ] && [[ " ${only[*]} " != *" $name "* ]]; then continue; fi
  ran=$((ran + 1))
  log="$build/fuzz-$name.log"
  if [ -d "$regressions" ] && [ -n "$(ls -A "$regressions")" ]; then
    if ! "$program" "$regressions"/* > "$log" 2>&1; then
      echo "fuzz $name: a regression input fails again"; tail -30 "$log"; failed=1; continue
    fi
  fi
  work="$scratch/$name"; mkdir -p "$work"
  args=(-seed="${FUZZ_SEED:-0}" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1
        -artifact_prefix="$build/crash-$name-")
  [ -n "$dict" ] && args+=(-dict="$dict")
  seeds=(); [ -d "$corpus" ] && seeds=("$corpus")
  if "$program" "${args[@]}" "$work" "${seeds[@]}" > "$log" 2>&1; then
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    cov=$(grep -oE 'cov: [0-9]+' "$log" | tail -1 | cut -d' ' -f2)
    echo "fuzz $name: ${runs:-?} runs in ${seconds}s, coverage ${cov:-?} edges, corpus $(ls "$work" | wc -l) new"
  else
    echo "fuzz $name: FAILED (log $log)"; grep -E 'property broken|ERROR|SUMMARY|Test unit written' "$log" | head -10
    failed=1
  fi
done < "$build/fuzz/harnesses.txt"
[ "$ran" -gt 0 ] || { echo "no fuzz harness matched"; exit 1; }
exit $failed
