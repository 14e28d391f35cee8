#!/bin/sh
# Builds the example program and runs it on the sample HEX file of the repository.
# Usage: scripts/run-example.sh [HEXFILE [OUTDIR]]
set -eu
cd "$(dirname "$0")/.."

scripts/deps.sh cmake make g++
cmake --preset default -DINTELHEX_BUILD_TESTS=OFF >/dev/null
cmake --build --preset default -j "$(nproc 2>/dev/null || echo 2)" --target hex2bin
hexfile=${1:-examples/sample.hex}
outdir=${2:-build/default/sample-out}
mkdir -p "$outdir"
build/default/examples/hex2bin "$hexfile" "$outdir"
