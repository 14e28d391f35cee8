#!/bin/bash
# Runs the test programs under valgrind memcheck (the tool's own processes
# too, not the other programs the tests run: compilers and the programs they
# build, oracles (objcopy, srec_cat, python, node, file), groff, the
# shells): any memory error or leak fails the run. Each program's tests are
# split into shards (GoogleTest's sharding) that run side by side, one per
# processor, so that the run takes what the slowest shard takes.
# Usage: scripts/valgrind.sh [PRESET]   (default: ci; the build must exist)
# Environment: VALGRIND_JOBS (default: the number of processors).
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-ci}
scripts/deps.sh valgrind
jobs=${VALGRIND_JOBS:-$(nproc 2>/dev/null || echo 2)}
logs=build/$preset/valgrind
rm -rf "$logs" && mkdir -p "$logs"

# program shards: the tool's tests start a process for most checks, and
# valgrind's start-up makes each cost about a second, so they get more
# shards, and go first so that the short ones fill the gaps at the end.
runs=()
for shard in 0 1 2 3 4 5; do runs+=("hexblocks_tests 6 $shard"); done
for shard in 0 1; do runs+=("library_tests 2 $shard"); done
# The C API's C tests are one program without shards.
runs+=("c_api_tests 1 0")

run_shard() {
    local preset=$1 logs=$2 program=$3 total=$4 index=$5
    local log=$logs/$program-$index.log
    local args=(--gtest_brief=1)
    [ "$program" = c_api_tests ] && args=()
    if GTEST_TOTAL_SHARDS=$total GTEST_SHARD_INDEX=$index \
        valgrind --quiet --error-exitcode=99 --leak-check=full --show-leak-kinds=definite,indirect \
        --errors-for-leak-kinds=definite,indirect --trace-children=yes \
        --trace-children-skip='*/objcopy,*/srec_cat,*/gcc*,*-gcc*,*/cc,*/cc1,*/node*,*/file,*/print,*/mkdir,*/python3*,*-objcopy,*/g++*,*/c++*,*/clang++*,*-g++*,*/cc1plus,*/as,*/ld,*/ld.*,*/collect2,*/groff,*/troff,*/grotty,*/bash,*/sh,*/chmod,*/rsvg-convert' \
        "build/$preset/tests/$program" "${args[@]}" >"$log" 2>&1; then
        echo "== valgrind $program, shard $((index + 1)) of $total: ok, $(grep -E '^\[  PASSED  \]|^[0-9]+ tests ran' "$log")"
    else
        echo "== valgrind $program, shard $((index + 1)) of $total: FAILED"
        tail -40 "$log"
        return 1
    fi
}
export -f run_shard

status=0
printf '%s\n' "${runs[@]}" | xargs -P "$jobs" -L 1 bash -c 'run_shard "$0" "$1" "$2" "$3" "$4"' "$preset" "$logs" ||
    status=1
[ $status -eq 0 ] && echo "valgrind: no errors, no leaks"
exit $status
