#!/usr/bin/env bash
# Uses the pool for a long time, prints memory, descriptors and threads, and fails if any of them grows.
#
#   scripts/checks/soak.sh [SECONDS] [TASKS]
#   scripts/checks/soak.sh --kit [TASKS]
#
# By default one hour, with ten million one-shot tasks an hour and 3000 loop tasks.
#
# --kit sends ten million tasks, or TASKS, through the host kit at full speed, in a program that opens the library by
# name. It draws the memory into docs/pictures/kit-memory.svg.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"
if [ "${1:-}" = --kit ]; then
    need bench
    build dev ZelTaskPool zel_kit_soak_host
    build/dev/bin/tests/zel_kit_soak_host "$(find_library dev)" "${2:-10000000}" | tee build/kit-memory.csv
    exec "$(find_python matplotlib)" verify/soak/draw_memory.py build/kit-memory.csv docs/pictures/kit-memory.svg
fi
seconds=${1:-3600}
tasks=${2:-$((seconds * 10000000 / 3600))}

need
build dev zel_soak_host
build/dev/bin/tests/zel_soak_host --seconds "$seconds" --tasks "$tasks" | tee build/dev/soak.txt
last=$(awk '$1 + 0 > 0' build/dev/soak.txt | tail -n 1)
read -r elapsed submitted run loops _ _ heap _ <<<"$last"
record_figure "Soak" "$elapsed s, $submitted tasks submitted, $run run, $loops loop runs, $heap KB on the heap"
