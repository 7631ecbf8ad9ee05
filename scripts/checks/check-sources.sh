#!/usr/bin/env bash
# Checks the sources without running them: format, project rules, static analysis.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"
need checks bench examples

mapfile -t sources < <(git ls-files '*.h' '*.cpp')

echo "Format of ${#sources[@]} files"
clang-format-14 --dry-run -Werror "${sources[@]}"

echo "Project rules"
failed=0
# refuse WHY PATTERN PATHSPEC...
refuse()
{
    local why=$1 pattern=$2
    shift 2
    if git grep -nE "$pattern" -- "$@"; then
        echo "refused: $why" >&2
        failed=1
    fi
}
refuse "sources are plain ASCII" '[^ -~	]' '*.h' '*.cpp' '*.cmake' '*CMakeLists.txt' '*.sh'
refuse "no using namespace" '^ *using namespace' '*.h' '*.cpp'
refuse "include paths start at the root" '#include "\.' '*.h' '*.cpp'
refuse "use the locks of CLS_Mutex.h, which the compiler checks" \
    'std::(recursive_|shared_)?(timed_)?mutex [a-z]|std::(lock_guard|scoped_lock|shared_lock|unique_lock)(<std::| [a-z])' \
    'QuenInclude/*' 'QuenPlugins/*' ':!QuenInclude/CLS_Mutex.h'
refuse "only the views of tests/support are compiled without access control" 'fno-access-control' \
    '*.cmake' '*CMakeLists.txt' ':!cmake/TestPrograms.cmake' ':!tests/refused/*'
refuse "open work belongs in the issue tracker" '\b(TO''DO|FIX''ME)\b' .
refuse "a part of a comment (Threads:, Waits:, Fails:, Owns:) begins a line" \
    '^ *///.*[^ /].* (Threads|Waits|Fails|Owns):( |$)' 'QuenInclude/*.h' 'QuenPlugins/*.h' 'QuenHost/*.h'
# The name comes last on the line that begins a definition, before "final" and the bases. Each page has its own types.
shared=$(git grep -hE '^ *(class|struct|enum) [^;(]*(\([^)]*\)[^;(]*)?$' -- '*.h' '*.cpp' ':!docs/snippets/*' |
    sed -nE 's/( final)?( : .*)?$//; s/^.*\b((CLS|ST|n)_[A-Za-z]+)$/\1/p' | sort | uniq -d | paste -sd ' ' -)
if [ -n "$shared" ]; then
    echo "refused: two classes share the name: $shared" >&2
    failed=1
fi
[ "$failed" -eq 0 ]
/usr/bin/python3 -B verify/schedules/faults.py

echo "Static analysis"
# So that every source has a compile command.
cmake --preset fuzz -DZEL_BUILD_BENCHMARKS=ON -DZEL_BUILD_WINDOW_EXAMPLES=ON >/dev/null
# Without WindowThread.cpp: the analyser takes what Qt's invokeMethod keeps for a leak.
# Without Dispatch.cpp: its header belongs to macOS.
mapfile -t analysed < <(git ls-files 'QuenInclude/*.cpp' 'QuenPlugins/*.cpp' 'examples/*.cpp' 'tests/support/*.cpp' \
    'verify/fuzz/*.cpp' 'tests/machrun/*.cpp' ':!tests/machrun/programs/*' 'bench/*.cpp' \
    ':!examples/thumbnails/WindowThread.cpp' ':!bench/systems/Dispatch.cpp')
clang-tidy-14 --version | head -2
enabled=$(clang-tidy-14 --list-checks | grep -c '^    ')
printf '%s\n' "${analysed[@]}" | xargs -P "$cores" -n 4 clang-tidy-14 -quiet -p build/fuzz
record_figure "Static analysis" "${#analysed[@]} sources, $enabled checks enabled, no warning"
