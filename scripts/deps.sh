#!/bin/sh
# Installs the Debian packages given as arguments that are not installed yet.
# Usage: scripts/deps.sh PACKAGE...
set -eu

missing=""
for pkg in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
        missing="$missing $pkg"
    fi
done
[ -z "$missing" ] && exit 0

echo "Installing:$missing"
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -q
# shellcheck disable=SC2086
$SUDO apt-get install -y -q --no-install-recommends $missing
