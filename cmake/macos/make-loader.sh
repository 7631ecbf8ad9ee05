#!/usr/bin/env bash
# Builds machrun, the loader in tests/machrun that runs macOS x86-64 programs on Linux x86-64, and its C++ runtimes:
#
#   cmake/macos/make-loader.sh [FOLDER]        build/machrun by default
#
# Run make-sdk.sh first.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
folder=${1:-$root/build/machrun}

(
    cd "$root"
    cmake --preset dev >/dev/null
    cmake --build --preset dev --target machrun
)
"$root/cmake/macos/make-runtime.sh" "$root/build/macos-sdk" "$folder"
cp "$root/build/dev/bin/tests/machrun" "$folder/machrun"
echo "Loader in $folder"
