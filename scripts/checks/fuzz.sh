#!/usr/bin/env bash
# Builds the fuzzers (clang, with the sanitizers of the preset asan) and runs them, one on each core. They start from
# verify/fuzz/corpus and from the inputs that earlier runs kept in build/fuzz/corpus.
#
#   scripts/checks/fuzz.sh [SECONDS [FUZZER...]]
#
# SECONDS is the time for each fuzzer, 60 by default. FUZZER is FuzzSplit, FuzzVariant or FuzzPool; all by default.
# A failing input is left in build/fuzz; "build/fuzz/bin/tests/FUZZER INPUT" repeats the failure.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"
need checks

limit=${1:-60}
shift $(($# > 0 ? 1 : 0))
if [ $# -eq 0 ]; then
    set -- FuzzSplit FuzzVariant FuzzPool
fi
build fuzz

run_fuzzer()
{
    local fuzzer=$1 corpus inputs kept log=build/fuzz/$1.log runs coverage
    corpus=verify/fuzz/corpus/$(echo "${fuzzer#Fuzz}" | tr '[:upper:]' '[:lower:]')
    kept=build/fuzz/corpus/${corpus##*/}
    mkdir -p "$kept"
    if ! "build/fuzz/bin/tests/$fuzzer" -max_total_time="$limit" -timeout=120 -print_final_stats=1 \
        -artifact_prefix="build/fuzz/$fuzzer-" "$kept" "$corpus" >"$log" 2>&1; then
        tail -50 "$log" >&2
        fail "$fuzzer found a failure, see $log"
    fi
    inputs=$(find "$corpus" -type f | wc -l)
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    coverage=$(sed -n 's/.* \(cov: [0-9]* ft: [0-9]*\) corp: \([0-9]*\).*/\1, \2 inputs kept/p' "$log" | tail -1)
    require_at_least "$inputs" "${runs:-0}" "runs of $fuzzer, which did not finish its corpus"
    record_figure "$fuzzer" "$limit s, $runs runs, $coverage"
}

export limit figures command_line script
export -f run_fuzzer fail record_figure require_at_least
printf '%s\n' "$@" | xargs -P "$cores" -I{} bash -euo pipefail -c 'run_fuzzer {}'
