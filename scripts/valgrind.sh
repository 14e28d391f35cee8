#!/bin/bash
# Runs the test programs under valgrind memcheck (the tool's own processes
# too, not the other programs the tests run: compilers, oracles, groff, the
# shells): any memory error or leak fails the run.
# Usage: scripts/valgrind.sh [PRESET]   (default: ci; the build must exist)
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-ci}
scripts/deps.sh valgrind
status=0
for test in build/"$preset"/tests/library_tests build/"$preset"/tests/hexblocks_tests; do
    echo "== valgrind $test"
    valgrind --quiet --error-exitcode=99 --leak-check=full --show-leak-kinds=definite,indirect \
        --errors-for-leak-kinds=definite,indirect --trace-children=yes \
        --trace-children-skip='*/objcopy,*/srec_cat,*/mkdir,*/python3*,*-objcopy,*/g++*,*/c++*,*/clang++*,*-g++*,*/cc1plus,*/as,*/ld,*/ld.*,*/collect2,*/groff,*/troff,*/grotty,*/bash,*/sh,*/chmod,*/rsvg-convert' \
        "$test" --gtest_brief=1 || status=1
done
exit $status
