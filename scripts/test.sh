#!/usr/bin/env bash
# Builds q417plg and runs every test, once plain and once under ASan + UBSan.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
# Paths relative to the checkout, so a clone elsewhere on this machine reuses the compiler cache.
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=true
jobs=$(nproc)
for preset in default asan; do
  cmake --preset "$preset"
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done
