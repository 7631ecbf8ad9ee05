#!/usr/bin/env bash
# Installs what is missing, builds everything and runs all tests.
#
#   scripts/test.sh [PRESET] [ctest arguments]
#
# PRESET is one of CMakePresets.json: dev (the default), release, clang, asan, tsan or macos-cross. macos-cross builds
# for macOS on Linux, checks the library's file, and runs all tests if the loader for macOS programs can be built.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/checks/common.sh"
cd "$root"

preset=dev
if [ $# -gt 0 ] && [ "${1#-}" = "$1" ]; then
    preset=$1
    shift
fi

if [ "$preset" = macos-cross ]; then
    need macos || fail "the packages for the cross-build cannot be installed"
    exec scripts/checks/test-macos.sh "$@"
fi
need_preset "$preset"
case $preset in
    dev | release | clang) need examples ;; # the sanitizers' builds leave out the windows
esac

log=build/$preset/Testing/Temporary/LastTest.log
cmake --preset "$preset"
cmake --build --preset "$preset" -j "$cores"
rm -f "$log"
ctest --preset "$preset" --no-tests=error -j "$tests_at_once" "$@"
[ ! -e "$log" ] || record_figure "Tests, $preset" "$(grep -ac '^Test Passed\.' "$log" || true) passed"
