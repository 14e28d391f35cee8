#!/bin/sh
# Builds the library, the tool and the tests and runs the whole suite with
# CTest, warnings treated as errors.
# Usage: scripts/test.sh [PRESET...]   (presets: see CMakePresets.json; default: ci)
set -eu
cd "$(dirname "$0")/.."

[ $# -eq 0 ] && set -- ci

packages="cmake make gcc g++ libgtest-dev binutils srecord python3 python3-intelhex groff-base librsvg2-bin file
    python3-dev pybind11-dev python3-pybind11 python3-pytest python3-venv python3-pip python3-setuptools python3-wheel python3-mypy"
for preset in "$@"; do
    case $preset in clang*) packages="$packages clang" ;; esac
done
# shellcheck disable=SC2086
scripts/deps.sh $packages
scripts/oracles.sh

jobs=$(nproc 2>/dev/null || echo 2)
for preset in "$@"; do
    echo "== preset $preset"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -j "$jobs"
    ctest --preset "$preset" -j "$jobs"
done
