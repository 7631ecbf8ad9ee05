#!/usr/bin/env bash
# Installs what is missing, builds the benchmarks and runs them: the pool, its host kit, a floor, and other libraries.
# bench/README.md says what they measure and how to read it.
#
#   scripts/bench.sh [--quick] [--passes N] [--only W3,W4] [--systems ours,floor] [--library PATH]
#                    [--output FOLDER]
#
# A complete run publishes: bench/results.json, and from it bench/RESULTS.md and the pictures of the performance page.
# A partial run writes to build/bench. --quick only shows that everything works, and writes to build/bench/quick.
# --library measures another build of the pool. Exit status 1 if a program fails.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/checks/common.sh"

need bench
build bench
exec "$(find_python matplotlib)" "$root/bench/run.py" --bin "$root/build/bench/bin" "$@"
