#!/usr/bin/env bash
# Checks the sources without running them: format, static analysis, and a few rules of this project.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
scripts/install.sh checks
scripts/install.sh bench

mapfile -t sources < <(git ls-files '*.h' '*.cpp')

echo "Format of ${#sources[@]} files"
clang-format-14 --dry-run -Werror "${sources[@]}"

echo "Project rules"
failed=0
refuse()
{
    # refuse WHY PATTERN PATHSPEC...
    local why=$1 pattern=$2
    shift 2
    if git grep -nE "$pattern" -- "$@"; then
        echo "refused: $why" >&2
        failed=1
    fi
}
refuse "sources are plain ASCII" '[^ -~	]' '*.h' '*.cpp' '*.cmake' '*CMakeLists.txt' '*.sh'
refuse "no using namespace" '^ *using namespace' '*.h' '*.cpp'
refuse "includes are written from the root" '#include "\.' '*.h' '*.cpp'
refuse "locks are those of CLS_Mutex.h, which the compiler checks" \
    'std::(recursive_|shared_)?(timed_)?mutex [a-z]|std::(lock_guard|scoped_lock|shared_lock|unique_lock)(<std::| [a-z])' \
    'QuenInclude/*' 'QuenPlugins/*' ':!QuenInclude/CLS_Mutex.h'
refuse "notes to oneself belong into the tracker" '\b(TO''DO|FIX''ME)\b' .
[ "$failed" -eq 0 ]

echo "Static analysis"
cmake --preset fuzz -DZEL_BUILD_BENCHMARKS=ON >/dev/null # so it has every source
mapfile -t checked < <(git ls-files 'QuenInclude/*.cpp' 'QuenPlugins/*.cpp' 'examples/*.cpp' 'tests/support/*.cpp' \
    'verify/fuzz/*.cpp' 'tests/machrun/*.cpp' ':!tests/machrun/programs/*' 'bench/*.cpp')
clang-tidy-14 --version | head -2
clang-tidy-14 --list-checks | grep -c '^    ' | sed 's/$/ checks are on/'
printf '%s\n' "${checked[@]}" | xargs -P "$(getconf _NPROCESSORS_ONLN)" -n 4 clang-tidy-14 -quiet -p build/fuzz
echo "Sources are clean"
