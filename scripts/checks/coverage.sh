#!/usr/bin/env bash
# Builds with counters, AddressSanitizer, LeakSanitizer and UndefinedBehaviorSanitizer, and runs all tests. Fails if a
# test fails, or if the tests miss any function, line or branch of the product, or too many conditions (MC/DC).
# verify/coverage/not-covered.txt lists the permitted gaps and their reasons.
#
#   scripts/checks/coverage.sh [ctest arguments]
#
# For Linux. build/coverage/report.txt shows the counts line by line.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"
need coverage

folder=build/coverage
cmake --preset coverage
cmake --build --preset coverage -j "$cores" -- --quiet
rm -rf "$folder/profiles"
log=$folder/Testing/Temporary/LastTest.log
uncounted='^(slow|stress|soak)$'

# run_tests ARGUMENT...: the filter drops the lines of tests that pass.
run_tests()
{
    rm -f "$log"
    ctest --preset coverage --no-tests=error -j "$tests_at_once" "$@" | grep -av '^ *Start \|   Passed  '
    passed=$((passed + $(grep -ac '^Test Passed\.' "$log" || true)))
}

# Lines that only long or random tests reach do not count.
passed=0
run_tests -LE "$uncounted" "$@"

llvm-profdata-19 merge -sparse -o "$folder/merged.profdata" "$folder"/profiles/*.profraw
# llvm-cov reads a function from the first program that contains it, so the library is listed first.
programs=("$folder/bin/libZelTaskPool.so")
for program in "$folder"/bin/tests/*Test; do
    programs+=(-object "$program")
done
read_profile()
{
    llvm-cov-19 "$@" -instr-profile "$folder/merged.profdata" "${programs[@]}" -sources QuenInclude QuenPlugins
}
# llvm-cov omits functions whose counts do not match. That is right only for the parts of a header that one program
# does not use (hash 0): another program counts them.
if read_profile report -dump 2>&1 | grep -a '^hash-mismatch' | grep -av 'hash = 0x0$'; then
    fail "the counts belong to other programs; remove $folder and try again"
fi
read_profile export >"$folder/coverage.json"
read_profile export -format lcov >"$folder/coverage.info"
read_profile show -show-branches=count -show-mcdc >"$folder/report.txt"
# A source that no program contains has no lines, so it would have no gaps either.
for source in QuenInclude/*.cpp QuenPlugins/*/*.cpp; do
    grep -qx "SF:$PWD/$source" "$folder/coverage.info" || fail "not counted: $source"
done
verify/coverage/check_coverage.py "$folder/coverage.json" "$folder/coverage.info" verify/coverage/not-covered.txt |
    tee "$folder/summary.txt"
record_figure "Coverage" "$(sed -n 's/ *$//; /%$/p' "$folder/summary.txt" | tr -s ' ' | paste -sd ';' | sed 's/;/; /g')"

run_tests -L "$uncounted" "$@"
record_figure "Tests, coverage" "$passed passed"
