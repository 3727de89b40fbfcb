#!/usr/bin/env bash
# Builds the library and the q417 tool, then runs the main job on the built-in defaults: six
# test pages four up on the colour sample printer under the first sample watermark, to a stream file, with its decoded listing
# beside it. The files go to the directory given, or build/demo.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
# Paths relative to the checkout, so a clone elsewhere on this machine reuses the compiler cache.
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=true
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)" --target q417
out=${1:-build/demo}
mkdir -p "$out"
q417=./build/default/tools/q417
"$q417" print --nup 4 --pages 6 --watermark 1 --job-name "q417 sample job" -o "$out/sample-job.prn"
"$q417" dump "$out/sample-job.prn" -o "$out/sample-job.txt"
echo "stream:  $out/sample-job.prn ($(wc -c <"$out/sample-job.prn") bytes)"
echo "listing: $out/sample-job.txt ($(wc -l <"$out/sample-job.txt") lines)"
