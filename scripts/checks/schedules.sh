#!/usr/bin/env bash
# Runs the library under a scheduler that chooses every step: see docs/verification.md. Linux. The scheduler's own tests
# are among those of scripts/test.sh.
#
#   scripts/checks/schedules.sh            500 seeds of each scenario and strategy; then the faults, which must be found
#   scripts/checks/schedules.sh --faults   prints how soon each fault is found, and by what
#   scripts/checks/schedules.sh --nightly [SEED]
#                                   100,000 seeds from SEED on, and a million schedules of each exhaustive search;
#                                   without SEED, other ones each day
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
if [ "$(uname -s)" != Linux ]; then
    echo "The scheduler stands in front of Linux's functions; there is none for this system." >&2
    exit 1
fi
scripts/install.sh schedules
{
    cmake --preset dev
    cmake --build --preset dev -j "$(getconf _NPROCESSORS_ONLN)" --target zel_schedules
} >&2
schedules=build/dev/bin/tests/zel_schedules

# All scenarios, several at a time. Fails when one fails.
explore()
{
    "$schedules" --list | xargs -P "$(getconf _NPROCESSORS_ONLN)" -I{} "$schedules" --scenario {} "$@" | awk -F'|' '
        BEGIN { print "| Scenario | Strategy | Schedules | Steps | Seconds |\n|---|---|---|---|---|" }
        { print }
        NF == 7 { schedules += $4; steps += $5 }
        END { printf "\n%.0f schedules, %.0f steps\n", schedules, steps }'
}

case ${1:-} in
    "")
        explore --seeds 500
        verify/schedules/find_faults.py build/dev
        ;;
    --faults) verify/schedules/find_faults.py build/dev --measure ;;
    --nightly)
        first=${2:-$(date +%Y%j)00000}
        echo "Seeds from $first on"
        explore --first "$first" --seeds 100000 --exhaustive 1000000
        ;;
    *)
        echo "usage: scripts/checks/schedules.sh [--faults|--nightly [SEED]]" >&2
        exit 2
        ;;
esac
