#!/bin/bash
# Cross-builds the library, the tool and the tests for 32-bit ARM hard-float
# (g++-arm-linux-gnueabihf), runs the whole suite under qemu-arm with the ARM
# sysroot, and makes the armhf Debian package.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh cmake make gcc-arm-linux-gnueabihf g++-arm-linux-gnueabihf qemu-user googletest binutils srecord python3 python3-intelhex groff-base librsvg2-bin dpkg-dev file gcc
scripts/oracles.sh
jobs=$(nproc 2>/dev/null || echo 2)
cmake --preset arm >/dev/null
cmake --build --preset arm -j "$jobs"
file build/arm/tools/hexblocks build/arm/libhexblocks.a | sed 's/, BuildID[^,]*//'
ctest --preset arm -j "$jobs"
(cd build/arm && cpack >/dev/null)
deb=$(ls build/arm/hexblocks_*_armhf.deb)
dpkg-deb --info "$deb" | sed -n 's/^ \(Package\|Version\|Architecture\|Depends\):/   &/p'
mkdir -p build/packages && cp "$deb" build/packages/
echo "ok: $(basename "$deb") in build/packages"
