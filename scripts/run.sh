#!/usr/bin/env bash
# Builds the project (native) and runs the main job.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake -S . -B build/native -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build build/native -j"$(nproc 2>/dev/null || echo 2)" > build/native.build.log 2>&1 \
  || { tail -60 build/native.build.log; exit 1; }
./build/native/cantrix_hello
