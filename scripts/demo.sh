#!/usr/bin/env bash
# Installs what is missing, builds the library and runs the example host on real files: it hashes a directory
# tree in the background. Arguments go to the host; see scripts/demo.sh --help.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

"$root/scripts/install.sh"
(
    cd "$root"
    cmake --preset release -DBUILD_TESTING=OFF
    cmake --build --preset release
) >&2
if [ $# -eq 0 ]; then
    tree=/usr/include
    [ -d "$tree" ] || tree=$(xcrun --show-sdk-path)/usr/include
    set -- "$tree" --output "$root/build/SHA256SUMS"
fi
exec "$root/build/release/bin/hash_tree" "$@"
