#!/usr/bin/env bash
# Installs what is missing, builds everything and runs all tests.
#
#   scripts/test.sh [PRESET] [ctest arguments]
#
# PRESET is one of CMakePresets.json: dev (the default), release, clang, asan, tsan.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

preset=dev
if [ $# -gt 0 ] && [ "${1#-}" = "$1" ]; then
    preset=$1
    shift
fi

case $preset in
    clang | asan | tsan) scripts/install.sh checks ;;
    *) scripts/install.sh ;;
esac

jobs=$(getconf _NPROCESSORS_ONLN)
cmake --preset "$preset"
cmake --build --preset "$preset" -j "$jobs"
ctest --preset "$preset" -j "$jobs" "$@"
