#!/usr/bin/env bash
# Builds the library and the q417 tool and runs the main job on the embedded defaults.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)" --target q417
./build/default/tools/q417 --version
