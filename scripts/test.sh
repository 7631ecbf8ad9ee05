#!/usr/bin/env bash
# Installs what is missing, builds everything and runs all tests.
#
#   scripts/test.sh [PRESET] [ctest arguments]
#
# PRESET is one of CMakePresets.json: dev (the default), release, clang, asan, tsan, or macos-cross: the library
# for macOS, built on Linux, its file checked, and all tests run where there is a loader for such programs.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

preset=dev
if [ $# -gt 0 ] && [ "${1#-}" = "$1" ]; then
    preset=$1
    shift
fi

case $preset in
    clang | asan | tsan) scripts/install.sh checks ;;
    macos-cross)
        if ! scripts/install.sh macos; then
            echo "Left out: everything for macOS: the packages for the build cannot be installed"
            exit 1
        fi
        exec scripts/checks/test-macos.sh "$@"
        ;;
    *) scripts/install.sh ;;
esac

jobs=$(getconf _NPROCESSORS_ONLN)
cmake --preset "$preset"
cmake --build --preset "$preset" -j "$jobs"
ctest --preset "$preset" -j "$jobs" "$@"
