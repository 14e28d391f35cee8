#!/bin/bash
# Builds the libFuzzer targets (clang, AddressSanitizer + UndefinedBehavior-
# Sanitizer) and runs each for a bounded time from the corpus kept in the
# repository (fuzz/corpus/TARGET) and the shared seeds (fuzz/seeds). Every
# target reads its input from memory. A crash, sanitizer report, leak,
# timeout or oversized allocation fails the run; its input is left in
# build/fuzz/artifacts. New inputs go to build/fuzz/corpus/TARGET.
#
# Usage: scripts/fuzz.sh [SECONDS_PER_TARGET]   (default 60)
#        scripts/fuzz.sh --minimize              merge build/fuzz/corpus into
#                                                the smallest set that keeps
#                                                the coverage, in fuzz/corpus
# Environment: FUZZ_JOBS (default 1) targets run side by side; FUZZ_TARGETS
# the targets to run (default all).
set -euo pipefail
cd "$(dirname "$0")/.."

all_targets="fuzz_hex_strict fuzz_hex_full fuzz_srecord fuzz_elf fuzz_differential fuzz_roundtrip fuzz_decoder fuzz_memory_files
fuzz_edits fuzz_plan"
targets=${FUZZ_TARGETS:-$all_targets}

scripts/deps.sh cmake make clang libclang-rt-14-dev
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc 2>/dev/null || echo 2)" >/dev/null
mkdir -p build/fuzz/artifacts

# The longest input each target takes: 4 KiB, but 1 KiB for the comparison
# with the exact reader, whose string handling would otherwise keep it under
# ten thousand runs a second.
max_len() {
    case $1 in
    fuzz_differential) echo 1024 ;;
    *) echo 4096 ;;
    esac
}

if [ "${1:-}" = --minimize ]; then
    for target in $targets; do
        mkdir -p "fuzz/corpus/$target" "build/fuzz/corpus/$target"
        merged=$(mktemp -d)
        build/fuzz/fuzz/$target -merge=1 -max_len="$(max_len "$target")" -malloc_limit_mb=8 -timeout=10 \
            "$merged" "fuzz/corpus/$target" "build/fuzz/corpus/$target" >"build/fuzz/$target.merge.log" 2>&1
        rm -rf "fuzz/corpus/$target" && mv "$merged" "fuzz/corpus/$target"
        echo "$target: $(ls "fuzz/corpus/$target" | wc -l) inputs kept"
    done
    exit 0
fi

seconds=${1:-60}
run_target() {
    local target=$1 seconds=$2
    local corpus=build/fuzz/corpus/$target
    mkdir -p "$corpus" "fuzz/corpus/$target"
    # A single allocation above 8 MiB for an input of at most 4 KiB is a bug.
    if build/fuzz/fuzz/$target -max_total_time="$seconds" -max_len="$(max_len "$target")" -timeout=10 \
        -malloc_limit_mb=8 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix=build/fuzz/artifacts/$target- "$corpus" "fuzz/corpus/$target" fuzz/seeds \
        >build/fuzz/$target.log 2>&1; then
        result=ok
    else
        result=FAILED
    fi
    {
        echo "== $target, $seconds s: $result"
        [ $result = ok ] || grep -E "ERROR|check failed|SUMMARY" build/fuzz/$target.log | head -20
        grep -E "^#[0-9]+[[:space:]]+DONE" build/fuzz/$target.log | tail -1 || true
        grep -E "^stat::(number_of_executed_units|average_exec_per_sec|new_units_added|peak_rss_mb)" \
            build/fuzz/$target.log
    } >build/fuzz/$target.summary
    [ $result = ok ]
}
export -f run_target max_len

status=0
# shellcheck disable=SC2086
printf '%s\n' $targets | xargs -P "${FUZZ_JOBS:-1}" -I{} bash -c 'run_target "$1" "$2"' _ {} "$seconds" || status=1
for target in $targets; do cat "build/fuzz/$target.summary"; done
[ $status -eq 0 ] && echo "fuzzing: no findings"
exit $status
