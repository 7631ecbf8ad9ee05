#!/usr/bin/env bash
# Installs what is missing, builds the benchmarks and runs them: the pool, its host kit, a floor, and other libraries.
# bench/README.md says what they measure and how to read it.
#
#   scripts/bench.sh [--quick] [--passes N] [--only W3,W4] [--systems ours,floor] [--library PATH]
#                    [--output FOLDER]
#   scripts/bench.sh --compare OLD NEW [--quick] [--passes N] [--only W3,W4] [--output FOLDER | --publish]
#   scripts/bench.sh --costs [LIBRARY] [--quick] [--output FOLDER | --publish]
#
# A complete run publishes: bench/results.json, and from it bench/RESULTS.md and the pictures of the performance page.
# A partial run writes to build/bench. --quick only shows that everything works, and writes to build/bench/quick.
# --library measures another build of the pool. Exit status 1 if a program fails.
#
# --compare measures two builds of the pool library in turn, and prints the ratios with their goals.
# --costs shows where the CPU time of an empty task goes; it needs Linux, perf and root.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/checks/common.sh"

need bench
build bench
python=$(find_python matplotlib)
bin=$root/build/bench/bin
case ${1:-} in
    --compare) exec "$python" "$root/bench/compare.py" --bin "$bin" "${@:2}" ;;
    --costs)
        need_linux "perf samples the threads"
        need profile
        # Without a library: this one, with debug information.
        case ${2:--} in -*)
            build package ZelTaskPool
            set -- "$1" "$(find_library package)" "${@:2}"
            ;;
        esac
        exec "$python" "$root/bench/profile_tasks.py" --bin "$bin" "${@:2}"
        ;;
esac
"$python" "$root/bench/run.py" --bin "$bin" "$@"
case " $* " in
    *" --quick "*)
        library=$(find_library bench)
        "$python" "$root/bench/compare.py" --bin "$bin" --quick "$library" "$library"
        ;;
esac
