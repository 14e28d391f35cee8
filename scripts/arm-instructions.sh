#!/bin/bash
# Counts the ARM instructions hexblocks executes on 32-bit ARM, under
# qemu-arm: with -d in_asm,exec,nochain qemu logs every translated block with
# its instructions and every execution of a block, and the count is the sum,
# over the executions, of the instructions in the block executed. Prints the
# count for `hexblocks info` and `info --strict` on FILE, on an empty HEX
# file (the start-up), and per byte of FILE, for each hex decoder the
# processor has (qemu's default processor has NEON).
#
# Usage: scripts/arm-instructions.sh FILE      (after scripts/arm.sh, which
#                                               builds build/arm)
set -euo pipefail
cd "$(dirname "$0")/.."
file=$(realpath "$1")
tool=build/arm/tools/hexblocks
[ -x "$tool" ] || cmake --build --preset arm --target hexblocks_tool >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
printf ':00000001FF\n' >"$work/empty.hex"

# Executed instructions of one run of the tool, from qemu's log.
count() {
    qemu-arm -L /usr/arm-linux-gnueabihf -d in_asm,exec,nochain -D "$work/log" "$tool" "$@" >/dev/null
    python3 - "$work/log" <<'PY'
import re, sys
sizes = {}    # block address -> instructions, as last translated
total = 0
block = None
with open(sys.argv[1], errors="replace") as log:
    for line in log:
        if line.startswith("IN:"):
            block = None
        elif line.startswith("0x") and ":" in line:
            address = int(line.split(":", 1)[0], 16)
            if block is None:
                block = address
                sizes[block] = 0
            sizes[block] += 1
        elif line.startswith("Trace "):
            block = None
            pc = int(re.search(r"\[[0-9a-f]+/([0-9a-f]+)/", line).group(1), 16)
            total += sizes.get(pc, 0)
print(total)
PY
}

bytes=$(stat -c %s "$file")
echo "qemu-arm $(qemu-arm --version | head -1 | awk '{print $3}'), $(basename "$file"): $bytes bytes"
for decoder in neon scalar; do
    for flags in "" "--strict"; do
        # shellcheck disable=SC2086
        empty=$(HEXBLOCKS_HEX_DECODER=$decoder count info $flags "$work/empty.hex")
        # shellcheck disable=SC2086
        whole=$(HEXBLOCKS_HEX_DECODER=$decoder count info $flags "$file")
        awk -v d="$decoder" -v f="info${flags:+ $flags}" -v w="$whole" -v e="$empty" -v b="$bytes" \
            'BEGIN { printf "%-7s %-14s %12d instructions, %6.2f a byte; start-up %d, %6.2f a byte without it\n", d, f, w, w / b, e, (w - e) / b }'
    done
done
