#!/usr/bin/env bash
# Does random things to the pool and holds the outcome against a model: first with one thread, then with four.
#
#   scripts/checks/stress.sh [PRESET] [SECONDS] [SEED]
#
# PRESET is one of CMakePresets.json: dev (the default), release, clang, asan, tsan. SECONDS, 60 by default,
# are divided between the two. A seed that was printed repeats a run; without one, it is taken by chance.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
preset=${1:-dev}
seconds=${2:-60}
seed=${3:-0}

case $preset in
    clang | asan | tsan) scripts/install.sh checks ;;
    *) scripts/install.sh ;;
esac
cmake --preset "$preset"
cmake --build --preset "$preset" --target zel_stress_host
for threads in 1 4; do
    "build/$preset/bin/tests/zel_stress_host" --threads "$threads" --seconds $((seconds / 2)) --seed "$seed"
done
