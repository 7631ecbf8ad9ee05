#!/usr/bin/env bash
# Installs what is missing, builds the library and runs the example host on real files: it hashes a directory tree in
# the background. Arguments go to the host; "scripts/demo.sh --help" lists them.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/checks/common.sh"

need
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
