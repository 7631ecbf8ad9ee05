#!/usr/bin/env bash
# Builds machrun, a loader that runs macOS x86-64 programs on Linux x86-64, and the C++ runtime for it:
#
#   cmake/macos/make-loader.sh [SOURCES] [FOLDER]        ../shared/macos and build/machrun if not given
#
# Its sources are not part of this repository. The SDK folder must be there.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
sources=${1:-$root/../shared/macos}
folder=${2:-$root/build/machrun}

cmake -S "$sources/machrun" -B "$folder/build" -G Ninja >/dev/null
cmake --build "$folder/build"
JOBS=$(getconf _NPROCESSORS_ONLN) "$sources/scripts/build-runtime.sh" "$root/build/macos-sdk" "$folder/root"
cp "$folder/build/machrun" "$folder/machrun"
echo "Loader in $folder"
