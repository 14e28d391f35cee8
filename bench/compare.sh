#!/bin/bash
# Two comparisons, each interleaved in one run over several rounds after a
# warm-up, printing median wall time, throughput and peak memory:
#
# 1. Converting Intel HEX images to binary with hexblocks, objcopy and
#    srec_cat; every output is checked against the source image, and each
#    peer's time is divided by ours.
# 2. hexblocks reading with the full-format reader (the default) and with
#    --strict (load(): the fast reader, the exact one as fallback), on the 32 MiB image with its records in ascending, descending
#    and shuffled order; every reading is checked to find the whole image, and
#    each time is divided by --strict's on the ascending file in the same
#    round (the median of those ratios is shown).
#
# 3. Writing: the 32 MiB binary image as Intel HEX (hexblocks convert against
#    objcopy -I binary -O ihex), the 32 MiB HEX file as S-records (hexblocks
#    convert against srec_cat) and as a binary (hexblocks convert against
#    objcopy -I ihex -O binary); every output is read back by objcopy (or
#    compared as it is) with the image, and each peer's time is divided by
#    ours in the same round (the median of those ratios is shown).
# 4. Peak memory of each path through the tool on the 32 MiB image.
# 5. Instructions per byte of text under callgrind on the 1 MiB image: reading
#    it as HEX with both readers, as S-records and in every newer text format,
#    and writing it in every text format.
#
# Usage: bench/compare.sh [ROUNDS]      (default 5 rounds after one warm-up)
# Environment: BENCH_DIR (default build/bench) holds the inputs; BENCH_OUT
# the outputs, by default a directory in /dev/shm (memory), so that the
# figures measure the converters rather than the disk: hexblocks writes one
# file per block, and creating hundreds of files on a busy disk costs more
# than converting them. BASELINE may name an earlier hexblocks (0.1.x, whose
# default reader was the strict one and -F the full format) to measure in
# the second comparison beside this one. BENCH_ONLY=1, 2, 3, 4 or 5 runs one
# part.
set -euo pipefail
cd "$(dirname "$0")/.."

rounds=${1:-5}
scripts/deps.sh cmake make g++ binutils srecord
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc 2>/dev/null || echo 2)" --target hexblocks_tool benchtool >/dev/null
baseline=${BASELINE:-}
hexblocks=$PWD/build/default/tools/hexblocks
benchtool=$PWD/build/default/bench/benchtool
work=${BENCH_DIR:-$PWD/build/bench}
if [ -z "${BENCH_OUT:-}" ]; then
    if [ -d /dev/shm ] && [ -w /dev/shm ]; then BENCH_OUT=/dev/shm/hexblocks-bench; else BENCH_OUT=$work/out; fi
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
orders=(ascending descending shuffled)
for order in "${orders[@]}"; do
    name=32MiB-16B-$order
    [ -f "$work/$name.hex" ] || "$benchtool" image contiguous32m "$work/$name.hex" "$work/$name.bin" 16 "$order"
done

# Reader rows: label, program, options that select the reader.
readers=("full|$hexblocks|" "strict|$hexblocks|--strict")
if [ -n "$baseline" ]; then
    readers+=("full 0.1|$baseline|-F" "strict 0.1|$baseline|")
fi

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
    read -r seconds rss code _ <<<"$result"
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

# The median of the numbers on standard input, one a line.
median() {
    sort -g | awk '{a[NR] = $1} END {print (NR % 2) ? a[(NR + 1) / 2] : (a[NR / 2] + a[NR / 2 + 1]) / 2}'
}

only=${BENCH_ONLY:-}
if [ -z "$only" ] || [ "$only" = 1 ]; then
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
        median=$(awk -v n="$name" -v t="$tool" '$1==n && $2==t {print $3}' "$results" | median)
        rss=$(awk -v n="$name" -v t="$tool" '$1==n && $2==t {print $4}' "$results" | sort -g | tail -1)
        [ -z "$ours" ] && ours=$median
        awk -v n="$name" -v t="$tool" -v m="$median" -v tb="$text_bytes" -v db="$data_bytes" -v r="$rss" -v o="$ours" \
            'BEGIN { printf "| %-12s | %-9s | %9.3f | %8.0f | %6.0f MiB %4.1fx | %12s |\n", n, t, m, tb / m / 1e6, r / 1024, r * 1024 / db, (t == "hexblocks") ? "1.00" : sprintf("%.2f", m / o) }'
    done
done
echo
echo "MB/s counts bytes of HEX text; peak RSS is the largest of the rounds, and its multiple is of the binary image."
echo "Outputs written to $BENCH_OUT."
fi

# Reads one file with one reader ("info"), checks that it found the whole
# image as one span of 32 MiB, and prints "seconds rss_kib".
read_image() {
    local program=$1 flags=$2 in=$work/32MiB-16B-$3.hex
    local result
    # shellcheck disable=SC2086
    result=$("$benchtool" run -- "$program" info $flags "$in")
    read -r seconds rss code _ <<<"$result"
    [ "$code" = 0 ] || { echo "$program info $flags failed on $in (exit $code)" >&2; exit 1; }
    # shellcheck disable=SC2086
    "$program" info $flags "$in" | grep -q "^total: .* 33554432 bytes (32 MiB), span 0x00000000-0x01FFFFFF" ||
        { echo "$program info $flags: wrong image from $in" >&2; exit 1; }
    echo "$seconds $rss"
}

if [ -z "$only" ] || [ "$only" = 2 ]; then
orders_results=$work/orders.txt
: >"$orders_results"
echo "warm-up (readers and orders)..." >&2
for order in "${orders[@]}"; do
    for reader in "${readers[@]}"; do
        IFS='|' read -r _ program flags <<<"$reader"
        read_image "$program" "$flags" "$order" >/dev/null
    done
done
for ((round = 1; round <= rounds; round++)); do
    echo "round $round of $rounds (readers and orders)..." >&2
    for order in "${orders[@]}"; do
        for reader in "${readers[@]}"; do
            IFS='|' read -r label program flags <<<"$reader"
            echo "$round $order ${label// /_} $(read_image "$program" "$flags" "$order")" >>"$orders_results"
        done
    done
done

echo
echo "hexblocks info on the 32 MiB image as 16-byte records, by record order and reader"
echo
printf '| %-10s | %-10s | %9s | %9s | %13s | %10s | %10s |\n' order reader "median (s)" "best (s)" "peak RSS" "/ strict" "best / best"
printf '|%s|%s|%s|%s|%s|%s|%s|\n' ------------ ------------ ----------- ----------- --------------- ------------ ------------
data_bytes=$(stat -c %s "$work/32MiB-16B-ascending.bin")
for order in "${orders[@]}"; do
    for reader in "${readers[@]}"; do
        IFS='|' read -r label _ _ <<<"$reader"
        key=${label// /_}
        yardstick=strict
        [ "${label#* }" != "$label" ] && yardstick=strict_${label#* }
        # columns of orders.txt: round order reader seconds rss_kib
        times=$(awk -v o="$order" -v r="$key" '$2 == o && $3 == r {print $4}' "$orders_results")
        ratios=$(awk -v o="$order" -v r="$key" -v y="$yardstick" '
            $2 == "ascending" && $3 == y { base[$1] = $4 }
            $2 == o && $3 == r { t[$1] = $4 }
            END { for (i in t) print t[i] / base[i] }' "$orders_results")
        best=$(sort -g <<<"$times" | head -1)
        yardstick_best=$(awk -v y="$yardstick" '$2 == "ascending" && $3 == y {print $4}' "$orders_results" | sort -g | head -1)
        rss=$(awk -v o="$order" -v r="$key" '$2 == o && $3 == r {print $5}' "$orders_results" | sort -g | tail -1)
        awk -v o="$order" -v l="$label" -v m="$(median <<<"$times")" -v b="$best" -v q="$(median <<<"$ratios")" \
            -v yb="$yardstick_best" -v r="$rss" -v db="$data_bytes" \
            'BEGIN { printf "| %-10s | %-10s | %9.3f | %9.3f | %6.0f MiB %4.2fx | %10.2f | %10.2f |\n", o, l, m, b, r / 1024, r * 1024 / db, q, b / yb }'
    done
done
echo
echo "\"/ strict\" is the median, over the rounds, of each time divided by the time of the same program's --strict"
echo "reader on the ascending file in the same round; \"best / best\" divides the fastest times. Shuffled: the records of"
echo "each 64 KiB linear base in a random order, and the bases in a random order."
fi

# Runs one writing task with one tool, checks its output with objcopy, and
# prints "seconds rss_kib".
write_task() {
    local task=$1 tool=$2 out=$BENCH_OUT/write-$2
    local image=$work/32MiB-16B.bin result format
    case $task/$tool in
    hex/hexblocks) format=ihex; result=$("$benchtool" run -- "$hexblocks" convert "$image" -O ihex -o "$out") ;;
    hex/objcopy) format=ihex; result=$("$benchtool" run -- objcopy -I binary -O ihex "$image" "$out") ;;
    srec/hexblocks) format=srec; result=$("$benchtool" run -- "$hexblocks" convert "$work/32MiB-16B.hex" -O srec -o "$out") ;;
    srec/srec_cat) format=srec; result=$("$benchtool" run -- srec_cat "$work/32MiB-16B.hex" -intel -o "$out" -motorola) ;;
    bin/hexblocks) format=binary; result=$("$benchtool" run -- "$hexblocks" convert "$work/32MiB-16B.hex" -o "$out.bin") ;;
    bin/objcopy) format=binary; result=$("$benchtool" run -- objcopy -I ihex -O binary "$work/32MiB-16B.hex" "$out.bin") ;;
    esac
    read -r seconds rss code _ <<<"$result"
    [ "$code" = 0 ] || { echo "$tool failed writing $task (exit $code)" >&2; exit 1; }
    [ "$format" = binary ] || objcopy -I "$format" -O binary "$out" "$out.bin"
    cmp -s "$out.bin" "$image" || { echo "$tool: $task output does not hold the image" >&2; exit 1; }
    rm -f "$out" "$out.bin"
    echo "$seconds $rss"
}

if [ -z "$only" ] || [ "$only" = 3 ]; then
    writes=("hex hexblocks" "hex objcopy" "srec hexblocks" "srec srec_cat" "bin hexblocks" "bin objcopy")
    write_results=$work/writes.txt
    : >"$write_results"
    echo "warm-up (writing)..." >&2
    for w in "${writes[@]}"; do write_task $w >/dev/null; done
    for ((round = 1; round <= rounds; round++)); do
        echo "round $round of $rounds (writing)..." >&2
        for w in "${writes[@]}"; do echo "$round $w $(write_task $w)" >>"$write_results"; done
    done
    echo
    echo "Writing: the 32 MiB image as Intel HEX from binary, and as S-records and binary from the 16-byte-record HEX file"
    echo
    printf '| %-22s | %-9s | %10s | %9s | %13s | %11s |\n' task tool "median (s)" "best (s)" "peak RSS" "time / ours"
    printf '|%s|%s|%s|%s|%s|%s|\n' ------------------------ ----------- ------------ ----------- --------------- -------------
    data_bytes=$(stat -c %s "$work/32MiB-16B.bin")
    for w in "${writes[@]}"; do
        read -r task tool <<<"$w"
        label="binary -> Intel HEX"
        [ "$task" = srec ] && label="Intel HEX -> S-records"
        [ "$task" = bin ] && label="Intel HEX -> binary"
        # columns of writes.txt: round task tool seconds rss_kib
        times=$(awk -v k="$task" -v t="$tool" '$2 == k && $3 == t {print $4}' "$write_results")
        ratios=$(awk -v k="$task" -v t="$tool" '
            $2 == k && $3 == "hexblocks" { ours[$1] = $4 }
            $2 == k && $3 == t { theirs[$1] = $4 }
            END { for (i in theirs) print theirs[i] / ours[i] }' "$write_results")
        rss=$(awk -v k="$task" -v t="$tool" '$2 == k && $3 == t {print $5}' "$write_results" | sort -g | tail -1)
        awk -v l="$label" -v t="$tool" -v m="$(median <<<"$times")" -v b="$(sort -g <<<"$times" | head -1)" \
            -v q="$(median <<<"$ratios")" -v r="$rss" -v db="$data_bytes" \
            'BEGIN { printf "| %-22s | %-9s | %10.3f | %9.3f | %6.0f MiB %4.2fx | %11.2f |\n", l, t, m, b, r / 1024, r * 1024 / db, q }'
    done
    echo
    echo "\"time / ours\" is the median, over the rounds, of the tool's time divided by hexblocks' time in the same round."
fi

# Peak memory of each path through the tool on the 32 MiB image (one run
# each), as a multiple of the image.
if [ -z "$only" ] || [ "$only" = 4 ]; then
    image=$work/32MiB-16B.bin
    [ -f "$work/32MiB.srec" ] || "$hexblocks" convert "$work/32MiB-16B.hex" -o "$work/32MiB.srec"
    [ -f "$work/32MiB.elf" ] || "$benchtool" elf "$work/32MiB.elf" "$image"
    out=$BENCH_OUT/memory
    paths=(
        "info HEX|info $work/32MiB-16B.hex"
        "info --strict HEX|info --strict $work/32MiB-16B.hex"
        "info HEX, shuffled|info $work/32MiB-16B-shuffled.hex"
        "info S-records|info $work/32MiB.srec"
        "info ELF|info $work/32MiB.elf"
        "info binary|info $image@0"
        "convert HEX -> binary|convert $work/32MiB-16B.hex -o $out.bin"
        "convert HEX -> S-records|convert $work/32MiB-16B.hex -o $out.srec"
        "convert binary -> HEX|convert $image@0 -o $out.hex"
        "convert ELF -> HEX|convert $work/32MiB.elf -o $out.hex"
        "bin HEX|bin $work/32MiB-16B.hex --one-block -o $out.bin"
        "crc HEX|crc $work/32MiB-16B.hex"
        "map HEX|map $work/32MiB-16B.hex"
        "plan HEX|plan $work/32MiB-16B.hex --sectors 0:512x64K"
    )
    data_bytes=$(stat -c %s "$image")
    echo
    echo "Peak memory of each path on the 32 MiB image (one run each)"
    echo
    printf '| %-26s | %9s | %13s |\n' path "time (s)" "peak RSS"
    printf '|%s|%s|%s|\n' ---------------------------- ----------- ---------------
    for p in "${paths[@]}"; do
        IFS='|' read -r label args <<<"$p"
        # shellcheck disable=SC2086
        read -r seconds rss code _ <<<"$("$benchtool" run -- "$hexblocks" $args)"
        [ "$code" = 0 ] || { echo "hexblocks $args failed (exit $code)" >&2; exit 1; }
        awk -v l="$label" -v s="$seconds" -v r="$rss" -v db="$data_bytes" \
            'BEGIN { printf "| %-26s | %9.3f | %6.0f MiB %4.2fx |\n", l, s, r / 1024, r * 1024 / db }'
        rm -f "$out".*
    done
fi

# Instructions per byte of text, which do not depend on what else the machine
# is doing: valgrind's callgrind on hexblocks, process start-up included, on
# the 1 MiB image: reading it (info) as HEX with both readers, as S-records
# and in each newer text format, and writing it from the binary image in
# each text format.
if [ -z "$only" ] || [ "$only" = 5 ]; then
    scripts/deps.sh valgrind
    [ -f "$work/1MiB.srec" ] || "$hexblocks" convert "$work/1MiB-16B.hex" -o "$work/1MiB.srec"
    # name, format, word width
    texts=("1MiB.ti-txt ti-txt 8" "1MiB-8.vmem vmem 8" "1MiB-32.vmem vmem 32" "1MiB-8.mif mif 8"
        "1MiB-32.mif mif 32" "1MiB.ihex16 ihex16 8" "1MiB.uf2 uf2 8")
    for t in "${texts[@]}"; do
        read -r name format width <<<"$t"
        [ -f "$work/$name" ] || "$hexblocks" convert "$work/1MiB-16B.hex" -o "$work/$name" -O "$format" --word-width "$width"
    done
    instructions() { # command... : the instructions it runs
        valgrind --tool=callgrind --callgrind-out-file=/dev/null "$@" 2>&1 >/dev/null |
            sed -n 's/.*Collected : \([0-9]*\).*/\1/p'
    }
    echo
    echo "Instructions per byte of text (callgrind, process start-up included)"
    echo
    printf '| %-44s | %12s | %10s |\n' command instructions "per byte"
    printf '|%s|%s|%s|\n' ---------------------------------------------- -------------- ------------
    reads=("info|$work/1MiB-16B.hex" "info --strict|$work/1MiB-16B.hex" "info|$work/1MiB.srec")
    for t in "${texts[@]}"; do
        read -r name format width <<<"$t"
        reads+=("info -I $format --word-width $width|$work/$name")
    done
    for c in "${reads[@]}"; do
        IFS='|' read -r command file <<<"$c"
        # shellcheck disable=SC2086
        total=$(instructions "$hexblocks" $command "$file")
        awk -v c="$command $(basename "$file")" -v t="$total" -v b="$(stat -c %s "$file")" \
            'BEGIN { printf "| %-44s | %12d | %10.2f |\n", c, t, t / b }'
    done
    writes=("ihex 8" "srec 8" "ti-txt 8" "vmem 8" "vmem 32" "mif 8" "mif 32" "coe 8" "coe 32" "c 8" "ihex16 8" "uf2 8")
    for w in "${writes[@]}"; do
        read -r format width <<<"$w"
        out=$BENCH_OUT/written
        total=$(instructions "$hexblocks" convert "$work/1MiB-16B.bin@0" -o "$out" -O "$format" --word-width "$width")
        awk -v c="convert bin -> $format $width" -v t="$total" -v b="$(stat -c %s "$out")" \
            'BEGIN { printf "| %-44s | %12d | %10.2f |\n", c, t, t / b }'
        rm -f "$out"
    done
fi
