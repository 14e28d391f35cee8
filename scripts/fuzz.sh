#!/bin/bash
# Builds the libFuzzer targets (clang, AddressSanitizer + UndefinedBehavior-
# Sanitizer) and runs each for a bounded time from the seed corpus. A crash,
# sanitizer report, leak, timeout or oversized allocation fails the run; its
# input is left in build/fuzz/artifacts.
# Usage: scripts/fuzz.sh [SECONDS_PER_TARGET]   (default 120)
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-120}

scripts/deps.sh cmake make clang libclang-rt-14-dev
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc 2>/dev/null || echo 2)" >/dev/null
mkdir -p build/fuzz/artifacts

status=0
for target in fuzz_load fuzz_roundtrip fuzz_image fuzz_formats fuzz_edits fuzz_plan; do
    corpus=build/fuzz/corpus/$target
    mkdir -p "$corpus"
    echo "== $target for $seconds s"
    # A single allocation above 8 MiB for an input of at most 4 KiB is a bug.
    if ! build/fuzz/fuzz/$target -max_total_time="$seconds" -max_len=4096 -timeout=10 \
        -malloc_limit_mb=8 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix=build/fuzz/artifacts/$target- "$corpus" fuzz/seeds >build/fuzz/$target.log 2>&1; then
        status=1
        grep -E "ERROR|check failed|SUMMARY" build/fuzz/$target.log | head -20
    fi
    grep -E "^#[0-9]+[[:space:]]+DONE" build/fuzz/$target.log | tail -1 || true
    grep -E "^stat::(number_of_executed_units|average_exec_per_sec|new_units_added|peak_rss_mb)" build/fuzz/$target.log
done
[ $status -eq 0 ] && echo "fuzzing: no findings"
exit $status
