#!/usr/bin/env bash
# Uses the pool for a long time, prints memory, descriptors and threads, and fails when they grow.
#
#   scripts/soak.sh [SECONDS] [TASKS]
#
# By default for an hour, with ten million one-shot tasks an hour and 3000 loop tasks.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
seconds=${1:-3600}
tasks=${2:-$((seconds * 10000000 / 3600))}

scripts/install.sh
{
    cmake --preset dev
    cmake --build --preset dev --target zel_soak_host
} >&2
exec build/dev/bin/tests/zel_soak_host --seconds "$seconds" --tasks "$tasks"
