#!/usr/bin/env bash
# Compares the library's binary interface with the reference in abi/: the exported symbols and the layout of the
# exported classes. Fails on any difference.
#
#   scripts/checks/abi.sh [--renew]
#
# --renew makes the current interface the reference; CHANGELOG.md must then tell users what to do. For Debian 12:
# the reference depends on g++ 12 and its C++ library.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"
need abi

reference=abi/libZelTaskPool.abi
folder=build/abi
found=$folder/libZelTaskPool.abi

# Without -femit-class-debug-always, g++ omits a base class with virtual functions from files that only use it.
cmake -S . -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=g++-12 \
    -DCMAKE_CXX_FLAGS="-g -femit-class-debug-always" -DBUILD_TESTING=OFF -DZEL_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$folder" -j "$cores" >"$folder/build.log" || {
    tail -n 30 "$folder/build.log" >&2
    exit 1
}
abidw --suppressions abi/exported.abignore --headers-dir QuenInclude --headers-dir QuenPlugins/ZelTaskPool \
    --drop-private-types --exported-interfaces-only --type-id-style hash \
    --no-comp-dir-path --no-corpus-path --no-elf-needed --no-parameter-names --no-show-locs \
    --out-file "$found" "$folder/bin/libZelTaskPool.so"

if [ "${1:-}" = --renew ]; then
    cp "$found" "$reference"
    echo "Renewed the reference: $reference"
elif abidiff --harmless "$reference" "$found" >"$folder/report.txt"; then
    echo "The ABI matches $reference"
else
    abidiff --harmless --leaf-changes-only "$reference" "$found" >&2 || true
    cat >&2 <<'END'
The ABI differs from abi/libZelTaskPool.abi, so programs built earlier may break. build/abi/report.txt lists the
affected functions. If the change is intended:

  1. Raise the version in CMakeLists.txt; raise the major version if anything was removed or moved.
  2. Describe the change in CHANGELOG.md.
  3. Renew the reference: scripts/checks/abi.sh --renew
END
    exit 1
fi
