#!/usr/bin/env bash
# Lets each allocation of each operation fail once, and checks the outcome: result, log records, leaks, and that the
# same operation works afterwards.
#
#   scripts/checks/sweep.sh [PRESET]        one of CMakePresets.json; dev by default
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"
preset=${1:-dev}
need_preset "$preset"
build "$preset" AllocationSweepTest

log=build/$preset/sweep.txt
"build/$preset/bin/tests/AllocationSweepTest" >"$log" 2>&1 || {
    tail -n 50 "$log" >&2
    fail "an operation does not survive the failure of an allocation: see $log"
}
counted=$(sed -n 's/^swept in all: //p' "$log")
read -r points _ _ operations _ <<<"$counted"
require_at_least 500 "${points:-0}" "failing allocations"
require_at_least 60 "${operations:-0}" "operations"
record_figure "Allocation sweep" "$counted"
