#!/usr/bin/env bash
# Builds the tests with g++ and runs the unit tests under valgrind's memcheck: no invalid access, no use of
# uninitialised memory, no leak. No suppressions.
#
#   scripts/checks/memcheck.sh [PROGRAM...]
#
# PROGRAM is a test program, such as PoolLoopTest; all unit tests by default.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"
need checks

build dev "$@"
folder=$PWD/build/dev/bin/tests

if [ $# -eq 0 ]; then
    least_programs=45 least_tests=600
    mapfile -t programs < <(ctest --preset dev -L '^unit$' -N -V |
        sed -n 's|^[0-9]*: Test command: .*/tests/\([A-Za-z]*\).*|\1|p' | sort -u)
else
    least_programs=1 least_tests=1
    programs=("$@")
fi

# Excluded: a hundred thousand runs, which take ten minutes here; exceptions whose destructors throw, which the C++
# runtime never frees; and a forked process, which exits with what its parent's threads own.
filter=-PoolRemovalLoadTest.OneOwnerWithManyTasksSeesEachRunOnce
filter+=:LogKeepingTest.AProcessThatIsForkedDuringTheOpeningDoesNotWaitForIt
filter+=:TaskThrowTest.ExceptionThatGetsPastBothRecordsIsARunErrorAndTheWorkerGoesOn:*/WhoseDestructorThrows

# check PROGRAM: prints "clean" or "NOT CLEAN", then how many tests passed.
check()
{
    local program=$1 log=build/dev/memcheck-$1.log start=$SECONDS result="NOT CLEAN" ran
    # Some tests replace the allocation functions of their program; "nouserintercepts" leaves these in place.
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
printf '%s\n' "${programs[@]}" | xargs -P "$cores" -I '{}' bash -c 'check "$1"' _ '{}' | tee "$results"
tests=$(awk '/^clean / { tests += $2 } END { print tests + 0 }' "$results")
clean=$(grep -c '^clean ' "$results" || true)
[ "$clean" -eq "${#programs[@]}" ] ||
    fail "$((${#programs[@]} - clean)) programs are not clean: see build/dev/memcheck-PROGRAM.log and .log.out"
require_at_least "$least_programs" "$clean" "clean programs"
require_at_least "$least_tests" "$tests" "clean tests"
record_figure "memcheck" "$tests tests of $clean programs are clean"
