#!/usr/bin/env bash
# Runs the library under a scheduler that chooses every step. The scheduler's own tests run in scripts/test.sh.
#
#   scripts/checks/schedules.sh            500 seeds of each scenario and strategy; then the faults, all of which must
#                                          be found
#   scripts/checks/schedules.sh --faults   prints how soon each fault is found, and by what
#   scripts/checks/schedules.sh --nightly [SEED]
#                                          100,000 seeds from SEED on, and a million schedules of each exhaustive
#                                          search; SEED differs each day by default
#
# For Linux. See verify/schedules/README.md.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"
need_linux "the scheduler replaces Linux's own functions"
need schedules
build dev zel_schedules
schedules=build/dev/bin/tests/zel_schedules
results=build/dev/schedules.txt

# explore ARGUMENT...: all scenarios, one on each core. Fails if one fails.
explore()
{
    local scenarios count steps
    scenarios=$("$schedules" --list)
    xargs -P "$cores" -I{} "$schedules" --scenario {} "$@" <<<"$scenarios" | awk '
        BEGIN { print "| Scenario | Strategy | Schedules | Steps | Seconds |\n|---|---|---|---|---|" }
        { print }' | tee "$results"
    count=$(awk -F'|' 'NF == 7 { sum += $4 } END { printf "%.0f", sum }' "$results")
    steps=$(awk -F'|' 'NF == 7 { sum += $5 } END { printf "%.0f", sum }' "$results")
    scenarios=$(wc -l <<<"$scenarios")
    require_at_least 40 "$scenarios" scenarios
    require_at_least 250000 "$count" schedules
    require_at_least 100000000 "$steps" steps
    record_figure "Schedules" "$count schedules of $scenarios scenarios, $steps steps, no rule broken"
}

# find_faults ARGUMENT...
find_faults()
{
    verify/schedules/find_faults.py build/dev "$@" | tee build/dev/faults.txt
    record_figure "Faults" "$(grep 'faults are found$' build/dev/faults.txt)"
}

case ${1:-} in
    "")
        explore --seeds 500
        find_faults
        ;;
    --faults) find_faults --measure ;;
    --nightly)
        first=${2:-$(date +%Y%j)00000}
        echo "Seeds from $first on"
        explore --first "$first" --seeds 100000 --exhaustive 1000000
        ;;
    *)
        echo "usage: scripts/checks/schedules.sh [--faults | --nightly [SEED]]" >&2
        exit 2
        ;;
esac
