#!/bin/sh
# Builds the hexblocks tool and runs it on the sample image of the repository.
# Usage: scripts/demo.sh [HEXFILE]
set -eu
cd "$(dirname "$0")/.."

scripts/deps.sh cmake make gcc g++
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc 2>/dev/null || echo 2)" --target hexblocks_tool >/dev/null
hexfile=${1:-examples/sample.hex}
set -x
build/default/tools/hexblocks info "$hexfile"
build/default/tools/hexblocks map "$hexfile"
