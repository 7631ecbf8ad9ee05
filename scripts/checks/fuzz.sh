#!/usr/bin/env bash
# Builds the fuzzers (clang, with the sanitizers of the preset asan) and lets them run, as many at once as there
# are cores. They start from verify/fuzz/corpus and what earlier runs kept in build/fuzz/corpus. An input that
# breaks something is left in build/fuzz, and "build/fuzz/bin/tests/FUZZER INPUT" repeats it.
#
#   scripts/checks/fuzz.sh [SECONDS [FUZZER...]]
#
# SECONDS is the time for each fuzzer, 60 by default; FUZZER is one of FuzzSplit, FuzzVariant, FuzzPool.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
scripts/install.sh checks

limit=${1:-60}
shift $(($# > 0 ? 1 : 0))
if [ $# -eq 0 ]; then
    set -- FuzzSplit FuzzVariant FuzzPool
fi

jobs=$(getconf _NPROCESSORS_ONLN)
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$jobs"

run_fuzzer()
{
    local fuzzer=$1 corpus kept log=build/fuzz/$1.log runs coverage
    corpus=$(echo "${fuzzer#Fuzz}" | tr '[:upper:]' '[:lower:]')
    kept=build/fuzz/corpus/$corpus
    mkdir -p "$kept"
    if ! "build/fuzz/bin/tests/$fuzzer" -max_total_time="$limit" -timeout=120 -print_final_stats=1 \
        -artifact_prefix="build/fuzz/$fuzzer-" "$kept" "verify/fuzz/corpus/$corpus" >"$log" 2>&1; then
        tail -50 "$log" >&2
        echo "$fuzzer: broken, see $log" >&2
        return 1
    fi
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    coverage=$(sed -n 's/.* \(cov: [0-9]* ft: [0-9]*\) corp: \([0-9]*\).*/\1, \2 inputs kept/p' "$log" | tail -1)
    echo "$fuzzer: $limit s, $runs runs, $coverage"
}

export limit
export -f run_fuzzer
printf '%s\n' "$@" | xargs -P "$jobs" -I{} bash -euo pipefail -c 'run_fuzzer {}'
