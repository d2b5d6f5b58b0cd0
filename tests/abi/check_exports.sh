#!/usr/bin/env bash
# Compares the dynamic symbols a shared library defines with the sorted union
# of the *.syms lists in a folder, and checks that each of them carries the
# library's version node (its linker version script).
# Usage: check_exports.sh LIB DIR NODE [LIB DIR NODE]...
set -u
status=0
while [ $# -ge 3 ]; do
  lib=$1; dir=$2; node=$3; shift 3
  # name@@VERSION per symbol; the node itself is an absolute symbol. The
  # sanitizer build adds __odr_asan markers for exported data; they are not
  # part of the API.
  symbols=$(nm -D --defined-only "$lib" | awk '$2 != "A" {print $NF}' \
            | grep -vE '^(_init|_fini|_edata|_end|__bss_start|__odr_asan\..*)(@.*)?$' | sort -u)
  actual=$(sed 's/@.*//' <<<"$symbols" | sort -u)
  expected=$(cat "$dir"/*.syms | grep -vE '^\s*(#|$)' | sort -u)
  if ! diff <(printf '%s\n' "$expected") <(printf '%s\n' "$actual") > /tmp/exports.$$.diff; then
    echo "exported symbols of $(basename "$lib") differ from $dir (< expected, > actual):"
    cat /tmp/exports.$$.diff
    status=1
  fi
  rm -f /tmp/exports.$$.diff
  unversioned=$(grep -v "@@$node\$" <<<"$symbols")
  if [ -n "$unversioned" ]; then
    echo "symbols of $(basename "$lib") outside the version node $node:"
    printf '%s\n' "$unversioned"
    status=1
  fi
done
[ $status -eq 0 ] && echo "exported symbols match"
exit $status
