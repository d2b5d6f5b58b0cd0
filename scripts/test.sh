#!/usr/bin/env bash
# Every build that must stay green, each with its tests, then the installed
# tree with a C consumer and a short fuzzing run. Installs missing packages
# first. Prints the time of each stage.
#   scripts/test.sh [STAGE...]   (default: all, in this order)
# Stages: native install asan m32 release clang tsan fuzz
# FUZZ_SECONDS (default 15) bounds the fuzzing of each harness; FUZZ_SEED
# (default 1) fixes its seed so that a failure repeats (0: a fresh seed).
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc 2>/dev/null || echo 2)
all=(native install asan m32 release clang tsan fuzz)
stages=("$@")
[ ${#stages[@]} -gt 0 ] || stages=("${all[@]}")
# The 32-bit packages only when the m32 stage runs.
case " ${stages[*]} " in *" m32 "*) bash scripts/deps.sh ;; *) bash scripts/deps.sh --no-m32 ;; esac
mkdir -p build

# configure NAME CMAKE-ARGS...: a fresh or updated build folder build/NAME.
configure() {
  local name=$1; shift
  cmake -S . -B "build/$name" "$@" > "build/$name.configure.log" 2>&1 \
    || { cat "build/$name.configure.log"; exit 1; }
}
# compile NAME [TARGET...]
compile() {
  local name=$1; shift
  local targets=()
  for t in "$@"; do targets+=(--target "$t"); done
  cmake --build "build/$name" -j"$jobs" "${targets[@]}" > "build/$name.build.log" 2>&1 \
    || { grep -E -B2 -A12 'error|Error [0-9]' "build/$name.build.log" | head -80; exit 1; }
}
# check NAME [CTEST-ARGS...]
check() {
  local name=$1; shift
  (cd "build/$name" && ctest --output-on-failure -j"$jobs" "$@")
}

stage_native() {
  configure native -DCMAKE_BUILD_TYPE=RelWithDebInfo
  compile native
  check native
}
# Installs the native build into build/install and builds and runs a C
# program against it through find_package and through pkg-config.
stage_install() {
  [ -f build/native/CMakeCache.txt ] || stage_native
  rm -rf build/install
  cmake --install build/native --prefix build/install > build/install.log
  bash tests/consumer/run.sh build/install
}
stage_asan() {
  configure asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCANTRIX_SANITIZE=ON
  compile asan
  ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 check asan
}
stage_m32() {
  configure m32 -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCANTRIX_M32=ON
  compile m32
  check m32
}
stage_release() {
  configure release -DCMAKE_BUILD_TYPE=Release
  compile release
  check release
}
# Debian's clang-16 (the default clang 14 cannot compile std::source_location
# with this libstdc++), the project's warnings as errors.
stage_clang() {
  CC=clang-16 CXX=clang++-16 configure clang -DCMAKE_BUILD_TYPE=RelWithDebInfo
  compile clang
  check clang
}
# ThreadSanitizer over the tests labelled concurrency: only the test programs
# are built.
stage_tsan() {
  configure tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCANTRIX_TSAN=ON
  compile tsan cantrix_public_tests cantrix_internal_tests cantrix_host_tests cantrix_concurrency_tests
  TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" check tsan -L concurrency
}
stage_fuzz() {
  FUZZ_SEED=${FUZZ_SEED:-1} bash scripts/fuzz.sh "${FUZZ_SECONDS:-15}"
}

summary=()
for stage in "${stages[@]}"; do
  declare -F "stage_$stage" > /dev/null || { echo "unknown stage: $stage (stages: ${all[*]})"; exit 2; }
  echo "=== $stage"
  start=$SECONDS
  "stage_$stage"
  summary+=("$(printf '%-8s %4ds' "$stage" $((SECONDS - start)))")
  echo "=== $stage passed in $((SECONDS - start))s"
done
echo "=== stage times"
printf '%s\n' "${summary[@]}"
echo "all stages passed (${stages[*]}) in ${SECONDS}s"
