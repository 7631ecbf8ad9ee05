#!/usr/bin/env bash
# Builds machrun, the loader in tests/machrun that runs macOS x86-64 programs on Linux x86-64, and the C++ runtimes
# for it:
#
#   cmake/macos/make-loader.sh [FOLDER]        build/machrun if not given
#
# The SDK folder must be there.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
folder=${1:-$root/build/machrun}

cmake -S "$root" -B "$folder/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZEL_WERROR=ON \
    -DZEL_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$folder/build" --target machrun
"$root/cmake/macos/make-runtime.sh" "$root/build/macos-sdk" "$folder"
cp "$folder/build/bin/tests/machrun" "$folder/machrun"
echo "Loader in $folder"
