#!/usr/bin/env bash
# Builds the tests (g++) and runs the unit tests under valgrind's memcheck: no invalid access, no use of what was
# never written, nothing lost. No suppressions.
#
#   scripts/checks/memcheck.sh [PROGRAM...]
#
# PROGRAM is a test program, such as PoolLoopTest; all of them when none is named.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
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

# Left out: a hundred thousand runs, which take it ten minutes; exceptions whose destructors throw, which the C++
# runtime never frees; and a forked process, which ends with what its parent's threads own.
filter=-PoolRemovalLoadTest.OneOwnerWithManyTasksSeesEachRunOnce
filter+=:LogKeepingTest.AProcessThatIsForkedDuringTheOpeningDoesNotWaitForIt
filter+=:TaskThrowTest.ExceptionThatGetsPastBothRecordsIsARunErrorAndTheWorkerGoesOn:*/WhoseDestructorThrows

# check PROGRAM: prints a line that begins with "clean", and how many tests have passed, or with "NOT CLEAN".
check()
{
    local program=$1 log=build/dev/memcheck-$1.log start=$SECONDS result="NOT CLEAN" ran
    # Some tests replace the allocation functions of their program: theirs stay in place (nouserintercepts).
    if timeout 600 valgrind --error-exitcode=99 --leak-check=full \
        --errors-for-leak-kinds=definite,indirect,possible --soname-synonyms=somalloc=nouserintercepts \
        --fair-sched=yes --quiet --log-file="$log" "$folder/$program" --gtest_filter="$filter" \
        >"$log.out" 2>&1 && [ ! -s "$log" ] && grep -q '^\[  PASSED  \] [1-9]' "$log.out"; then
        result=clean
    fi
    ran=$(sed -n 's/^\[  PASSED  \] \([0-9]*\) test.*/\1/p' "$log.out")
    printf '%-9s %4s tests passed, %3s s: %s\n' "$result" "${ran:-0}" $((SECONDS - start)) "$program"
}
export -f check
export folder filter

results=build/dev/memcheck.txt
printf '%s\n' "${programs[@]}" |
    xargs -P "$(getconf _NPROCESSORS_ONLN)" -I '{}' bash -c 'check "$1"' _ '{}' | tee "$results"
cases=$(awk '/^clean / { cases += $2 } END { print cases + 0 }' "$results")
clean=$(grep -c '^clean ' "$results" || true)
echo "memcheck: $cases tests of $clean programs are clean, $((${#programs[@]} - clean)) programs are not" \
    "(build/dev/memcheck-PROGRAM.log, .log.out)"
[ "$clean" -eq "${#programs[@]}" ] && [ "$cases" -gt 0 ]
