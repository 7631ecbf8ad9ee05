#!/usr/bin/env bash
# Uses the pool for a long time, prints memory, descriptors and threads, and fails when they grow.
#
#   scripts/checks/soak.sh [SECONDS] [TASKS]
#   scripts/checks/soak.sh --kit [TASKS]
#
# By default for an hour, with ten million one-shot tasks an hour and 3000 loop tasks. --kit: ten million tasks, or
# so many, as fast as they go through the host kit of a program that opens the library by name; draws the memory into
# docs/pictures/kit-memory.svg.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
if [ "${1:-}" = --kit ]; then
    scripts/install.sh bench
    {
        cmake --preset dev
        cmake --build --preset dev --target ZelTaskPool zel_kit_soak_host
    } >&2
    library=build/dev/bin/libZelTaskPool.so
    [ -e "$library" ] || library=${library%.so}.dylib
    build/dev/bin/tests/zel_kit_soak_host "$library" "${2:-10000000}" \
        | tee build/kit-memory.csv
    exec /usr/bin/python3 verify/soak/draw_memory.py build/kit-memory.csv docs/pictures/kit-memory.svg
fi
seconds=${1:-3600}
tasks=${2:-$((seconds * 10000000 / 3600))}

scripts/install.sh
{
    cmake --preset dev
    cmake --build --preset dev --target zel_soak_host
} >&2
exec build/dev/bin/tests/zel_soak_host --seconds "$seconds" --tasks "$tasks"
