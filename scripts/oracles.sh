#!/bin/sh
# Installs the independent tools that the tests check the library against
# and that Debian does not package: the uf2 package of the npm registry
# (version 2.0.0), in build/npm, with the machine's node and npm (Debian's
# nodejs and npm where the machine has none).
# Usage: scripts/oracles.sh
set -eu
cd "$(dirname "$0")/.."

if [ -f build/npm/node_modules/uf2/package.json ]; then
    exit 0
fi
if ! command -v node >/dev/null || ! command -v npm >/dev/null; then
    scripts/deps.sh nodejs npm
fi
mkdir -p build/npm
npm install --prefix build/npm --no-audit --no-fund --no-save uf2@2.0.0
