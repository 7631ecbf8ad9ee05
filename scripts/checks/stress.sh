#!/usr/bin/env bash
# Performs random operations on the pool and compares the outcome with a model: first from one thread, then from four.
#
#   scripts/checks/stress.sh [PRESET] [SECONDS] [SEED]
#
# PRESET is one of CMakePresets.json: dev (the default), release, clang, asan, tsan. The two runs share SECONDS, 60 by
# default. A run prints its random seed; SEED repeats it.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"
preset=${1:-dev}
seconds=${2:-60}
seed=${3:-0}

need_preset "$preset"
build "$preset" zel_stress_host
log=build/$preset/stress.txt
for threads in 1 4; do
    "build/$preset/bin/tests/zel_stress_host" --threads "$threads" --seconds $((seconds / 2)) --seed "$seed" |
        tee "$log"
    counted=$(grep '^[0-9]* operations, ' "$log" || true)
    require_at_least $((seconds / 2 * 100)) "${counted%% *}" operations
    record_figure "Stress, $preset, threads: $threads" "$counted"
done
