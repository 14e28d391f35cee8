#!/bin/sh
# Builds the library and its tests and runs the whole suite with CTest.
# Usage: scripts/test.sh [PRESET...]   (presets: default ci asan clang; default: default)
set -eu
cd "$(dirname "$0")/.."

[ $# -eq 0 ] && set -- default

packages="cmake make g++ libgtest-dev binutils srecord python3 python3-intelhex groff-base librsvg2-bin"
for preset in "$@"; do
    [ "$preset" = clang ] && packages="$packages clang"
done
# shellcheck disable=SC2086
scripts/deps.sh $packages

jobs=$(nproc 2>/dev/null || echo 2)
for preset in "$@"; do
    echo "== preset $preset"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -j "$jobs"
    ctest --preset "$preset" -j "$jobs"
done
