#!/usr/bin/env bash
# Every C and C++ source file of the project is named in the CMakeLists.txt of
# its folder or of the nearest folder above it that has one: the build lists
# its sources explicitly, and a file that is not listed is not compiled.
# Usage: source_lists.sh [BUILD_DIR] (the build directory is not used).
set -u
src=$(cd "$(dirname "$0")/../.." && pwd)
cd "$src"
missing=0
while IFS= read -r file; do
  dir=$(dirname "$file")
  while [ "$dir" != "." ] && [ ! -f "$dir/CMakeLists.txt" ]; do dir=$(dirname "$dir"); done
  name=$(basename "$file")
  stem=${name%.*}
  # Listed by file name, or by stem where a list names programs (name.cpp).
  if ! grep -qE "(^|[[:space:]/(])(${name//./\\.}|${stem})([[:space:])]|$)" "$dir/CMakeLists.txt"; then
    echo "not listed in $dir/CMakeLists.txt: $file"
    missing=1
  fi
done < <(find . \( -path './build*' -o -path ./.git -o -path ./tools -o -name CMakeFiles \) -prune -o \
              -type f \( -name '*.cpp' -o -name '*.c' \) -print | sed 's|^\./||' | sort)
[ $missing -eq 0 ] && echo "every source file is listed"
exit $missing
