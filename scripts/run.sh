#!/usr/bin/env bash
# Builds the project (native) and runs the main job: a CD identified by its
# table of contents from a local catalogue made of the checked-in sample data.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh --no-m32  # the 32-bit packages serve only the tests' -m32 build
mkdir -p build
cmake -S . -B build/native -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build build/native --target cantrix -j"$(nproc 2>/dev/null || echo 2)" > build/native.build.log 2>&1 \
  || { tail -60 build/native.build.log; exit 1; }
catalogue=build/native/sample.catalogue
rm -f "$catalogue"  # rebuilt each run (a fraction of a second) so it follows data/sample
./build/native/cantrix --catalogue "$catalogue" catalogue import data/sample
./build/native/cantrix --catalogue "$catalogue" identify --toc "150 14672 27367 41225"
# The README's examples run against this catalogue, with the tool under its short name:
echo
echo "sample catalogue: $catalogue; for the README's examples:"
echo "  alias cantrix=\"$PWD/build/native/cantrix --catalogue $PWD/$catalogue\""
