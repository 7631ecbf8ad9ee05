#!/usr/bin/env bash
# Builds with counters, runs the tests and fails when they leave out anything of the product: a function, a
# line, a way a condition goes, or the proof that each condition decides by itself (MC/DC). What cannot be
# reached is listed in verify/coverage/not-covered.txt with a reason each.
#
#   scripts/checks/coverage.sh [ctest arguments]
#
# For Linux. The counted lines stand in build/coverage/report.txt afterwards.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
scripts/install.sh coverage

folder=build/coverage
jobs=$(getconf _NPROCESSORS_ONLN)
cmake --preset coverage
cmake --build --preset coverage -j "$jobs" -- --quiet
rm -rf "$folder/profiles"
# What is reached by long or random tests alone does not count.
# Of those that pass, the sum is enough.
ctest --preset coverage -j "$jobs" -LE '^(slow|stress|soak)$' "$@" | grep -av '^ *Start \|   Passed  '

llvm-profdata-19 merge -sparse -o "$folder/merged.profdata" "$folder"/profiles/*.profraw
# The library comes first, so that what is in it is read from there.
programs=("$folder/bin/libZelTaskPool.so")
for program in "$folder"/bin/tests/*Test; do
    programs+=(-object "$program")
done
read_profile()
{
    llvm-cov-19 "$@" -instr-profile "$folder/merged.profdata" "${programs[@]}" -sources QuenInclude QuenPlugins
}
# What it cannot match with the counts, it leaves out. That is right for what one program does not use of a
# header (hash 0): others do.
if read_profile report -dump 2>&1 | grep -a '^hash-mismatch' | grep -av 'hash = 0x0$'; then
    echo "The counts are not of these programs" >&2
    exit 1
fi
read_profile export >"$folder/coverage.json"
read_profile export -format lcov >"$folder/coverage.info"
read_profile show -show-branches=count -show-mcdc >"$folder/report.txt"
# A source that no program is built of has no lines that could be missing.
for source in QuenInclude/*.cpp QuenPlugins/*/*.cpp; do
    if ! grep -qx "SF:$PWD/$source" "$folder/coverage.info"; then
        echo "NOT COUNTED: $source" >&2
        exit 1
    fi
done
verify/coverage/check_coverage.py "$folder/coverage.json" "$folder/coverage.info" verify/coverage/not-covered.txt
