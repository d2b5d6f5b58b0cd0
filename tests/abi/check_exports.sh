#!/usr/bin/env bash
# Compares the dynamic symbols a shared library defines with the sorted union
# of the *.syms lists in a folder. Usage: check_exports.sh LIB DIR [LIB DIR]...
set -u
# The sanitizer build adds __odr_asan markers for exported data; they are not part of the API.
status=0
while [ $# -ge 2 ]; do
  lib=$1; dir=$2; shift 2
  actual=$(nm -D --defined-only "$lib" | awk '{print $NF}' | grep -vE '^(_init|_fini|_edata|_end|__bss_start|__odr_asan\..*)$' | sort -u)
  expected=$(cat "$dir"/*.syms | grep -vE '^\s*(#|$)' | sort -u)
  if ! diff <(printf '%s\n' "$expected") <(printf '%s\n' "$actual") > /tmp/exports.$$.diff; then
    echo "exported symbols of $(basename "$lib") differ from $dir (< expected, > actual):"
    cat /tmp/exports.$$.diff
    status=1
  fi
  rm -f /tmp/exports.$$.diff
done
[ $status -eq 0 ] && echo "exported symbols match"
exit $status
