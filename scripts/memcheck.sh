#!/usr/bin/env bash
# Builds the tests (g++) and runs the unit tests under valgrind's memcheck: no invalid access, no use of what was
# never written, nothing lost. No suppressions.
#
#   scripts/memcheck.sh [PROGRAM...]
#
# PROGRAM is a test program, such as PoolLoopTest; all of them when none is named.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/install.sh checks

cmake --preset dev >/dev/null
cmake --build --preset dev -j "$(getconf _NPROCESSORS_ONLN)"
folder=$PWD/build/dev/bin/tests

if [ $# -eq 0 ]; then
    mapfile -t programs < <(ctest --preset dev -L '^unit$' -N -V |
        sed -n 's|^[0-9]*: Test command: .*/tests/\([A-Za-z]*\).*|\1|p' | sort -u)
else
    programs=("$@")
fi

# Left out: a hundred thousand runs, which take it ten minutes, and exceptions whose destructors throw: the C++
# runtime never frees those.
filter=-PoolRemovalLoadTest.OneOwnerWithManyTasksSeesEachRunOnce
filter+=:TaskThrowTest.ExceptionThatGetsPastBothRecordsIsARunErrorAndTheWorkerGoesOn:*/WhoseDestructorThrows

passed=0
failed=0
cases=0
for program in "${programs[@]}"; do
    log=build/dev/memcheck-$program.log
    start=$SECONDS
    # Some tests replace the allocation functions of their program: theirs stay in place (nouserintercepts).
    if timeout 600 valgrind --error-exitcode=99 --leak-check=full \
        --errors-for-leak-kinds=definite,indirect,possible --soname-synonyms=somalloc=nouserintercepts \
        --fair-sched=yes --quiet --log-file="$log" "$folder/$program" --gtest_filter="$filter" \
        >"$log.out" 2>&1 && [ ! -s "$log" ] && grep -q '^\[  PASSED  \] [1-9]' "$log.out"; then
        passed=$((passed + 1))
        result=clean
    else
        failed=$((failed + 1))
        result="NOT CLEAN: see $log and $log.out"
    fi
    ran=$(sed -n 's/^\[  PASSED  \] \([0-9]*\) test.*/\1/p' "$log.out")
    cases=$((cases + ${ran:-0}))
    printf '%-28s %4s tests passed, %3s s: %s\n' "$program" "${ran:-0}" $((SECONDS - start)) "$result"
done
echo "memcheck: $cases tests of $passed programs are clean, $failed programs are not"
[ "$failed" -eq 0 ] && [ "$cases" -gt 0 ]
