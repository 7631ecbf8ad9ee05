#!/usr/bin/env bash
# Installs what is missing, builds the benchmarks and runs them: the pool, its host kit, a floor, and other libraries.
# bench/README.md says what they measure and how to read it.
#
#   scripts/bench.sh [--quick] [--passes N] [--only W3,W4] [--systems ours,floor] [--library PATH]
#                    [--output FOLDER]
#
# A complete run publishes: bench/results.json, and from it bench/RESULTS.md and the pictures of the performance page.
# A part of it writes into build/bench, and --quick, which only shows that everything works, into build/bench/quick.
# --library measures another build of the pool. Exit status 1 when a program fails.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

"$root/scripts/install.sh" bench
(
    cd "$root"
    cmake --preset bench
    cmake --build --preset bench -j "$(getconf _NPROCESSORS_ONLN)"
) >&2

# The system's packages, matplotlib among them, are for the system's Python, which may not be the first in the path.
python=python3
if ! python3 -c 'import matplotlib' 2>/dev/null && [ -x /usr/bin/python3 ]; then
    python=/usr/bin/python3
fi
exec "$python" "$root/bench/run.py" --bin "$root/build/bench/bin" "$@"
