#!/bin/bash
# Converts Intel HEX images to binary with hexblocks, objcopy and srec_cat,
# interleaved in one run, checks every output against the source image, and
# prints median wall time, throughput, peak memory and each peer's time
# divided by ours.
#
# Usage: bench/compare.sh [ROUNDS]      (default 5 rounds after one warm-up)
# Environment: BENCH_DIR (default build/bench) holds the inputs; BENCH_OUT
# the outputs, by default a directory in /dev/shm (memory), so that the
# figures measure the converters rather than the disk: hexblocks writes one
# file per block, and creating hundreds of files on a busy disk costs more
# than converting them.
set -euo pipefail
cd "$(dirname "$0")/.."

rounds=${1:-5}
scripts/deps.sh cmake make g++ binutils srecord
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc 2>/dev/null || echo 2)" --target hexblocks benchtool >/dev/null
hexblocks=$PWD/build/default/tools/hexblocks
benchtool=$PWD/build/default/bench/benchtool
work=${BENCH_DIR:-$PWD/build/bench}
if [ -z "${BENCH_OUT:-}" ]; then
    if [ -d /dev/shm ] && [ -w /dev/shm ]; then BENCH_OUT=/dev/shm/intelhex-bench; else BENCH_OUT=$work/out; fi
fi
mkdir -p "$work" "$BENCH_OUT"
trap 'rm -rf "$BENCH_OUT"' EXIT

# name kind record-bytes
inputs=(
    "32MiB-16B contiguous32m 16"
    "32MiB-32B contiguous32m 32"
    "1MiB-16B firmware1m 16"
    "sparse-2000 sparse 16"
)
tools=(hexblocks objcopy srec_cat)

for input in "${inputs[@]}"; do
    read -r name kind record <<<"$input"
    [ -f "$work/$name.hex" ] || "$benchtool" image "$kind" "$work/$name.hex" "$work/$name.bin" "$record"
done

# Runs one conversion, checks its output, and prints "seconds rss_kib".
convert() {
    local tool=$1 name=$2 in=$work/$2.hex out=$BENCH_OUT/$1
    rm -rf "$out" && mkdir -p "$out"
    local result
    case $tool in
    hexblocks) result=$("$benchtool" run -- "$hexblocks" bin "$in" -o "$out") ;;
    objcopy) result=$("$benchtool" run -- objcopy -I ihex -O binary --gap-fill 0xFF "$in" "$out/image.bin") ;;
    srec_cat) result=$("$benchtool" run -- srec_cat "$in" -intel -o "$out/image.bin" -binary) ;;
    esac
    read -r seconds rss code <<<"$result"
    [ "$code" = 0 ] || { echo "$tool failed on $name (exit $code)" >&2; exit 1; }
    local expected=$work/$name.bin
    case $tool in
    hexblocks) "$benchtool" join "$out/joined.bin" "$out"/*_0x*.bin && out=$out/joined.bin ;;
    srec_cat) expected=$work/$name.bin.zero; out=$out/image.bin ;; # gaps are left as zeros
    *) out=$out/image.bin ;;
    esac
    cmp -s "$out" "$expected" || { echo "$tool: output differs from the source image for $name" >&2; exit 1; }
    echo "$seconds $rss"
}

results=$work/results.txt
: >"$results"
echo "warm-up..." >&2
for input in "${inputs[@]}"; do
    read -r name _ <<<"$input"
    for tool in "${tools[@]}"; do convert "$tool" "$name" >/dev/null; done
done
for ((round = 1; round <= rounds; round++)); do
    echo "round $round of $rounds..." >&2
    for input in "${inputs[@]}"; do
        read -r name _ <<<"$input"
        for tool in "${tools[@]}"; do
            echo "$name $tool $(convert "$tool" "$name")" >>"$results"
        done
    done
done

echo
echo "$(uname -m), $(nproc) cores, $(date -u +%Y-%m-%d); median of $rounds rounds; every output checked byte for byte"
echo
printf '| %-12s | %-9s | %9s | %8s | %13s | %12s |\n' input tool "time (s)" "MB/s" "peak RSS" "time / ours"
printf '|%s|%s|%s|%s|%s|%s|\n' -------------- ----------- ----------- ---------- --------------- --------------
for input in "${inputs[@]}"; do
    read -r name _ <<<"$input"
    text_bytes=$(stat -c %s "$work/$name.hex")
    data_bytes=$(stat -c %s "$work/$name.bin")
    ours=""
    for tool in "${tools[@]}"; do
        median=$(awk -v n="$name" -v t="$tool" '$1==n && $2==t {print $3}' "$results" | sort -g |
            awk '{a[NR]=$1} END {print (NR%2) ? a[(NR+1)/2] : (a[NR/2]+a[NR/2+1])/2}')
        rss=$(awk -v n="$name" -v t="$tool" '$1==n && $2==t {print $4}' "$results" | sort -g | tail -1)
        [ -z "$ours" ] && ours=$median
        awk -v n="$name" -v t="$tool" -v m="$median" -v tb="$text_bytes" -v db="$data_bytes" -v r="$rss" -v o="$ours" \
            'BEGIN { printf "| %-12s | %-9s | %9.3f | %8.0f | %6.0f MiB %4.1fx | %12s |\n", n, t, m, tb / m / 1e6, r / 1024, r * 1024 / db, (t == "hexblocks") ? "1.00" : sprintf("%.2f", m / o) }'
    done
done
echo
echo "MB/s counts bytes of HEX text; peak RSS is the largest of the rounds, and its multiple is of the binary image."
echo "Outputs written to $BENCH_OUT."
