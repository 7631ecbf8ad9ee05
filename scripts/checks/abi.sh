#!/usr/bin/env bash
# Compares what the library offers to programs that were built earlier - the exported symbols, and the layout of
# the exported classes - with the reference in abi/, and fails when there is any difference.
#
#   scripts/checks/abi.sh [--renew]
#
# --renew makes what the sources say now the reference; CHANGELOG.md then says what programs have to do. For
# Debian 12: the reference is of g++ 12 and its C++ library.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
scripts/install.sh abi

reference=abi/libZelTaskPool.abi
folder=build/abi
found=$folder/libZelTaskPool.abi

# A compiler leaves a base class with virtual functions out where it is only used, unless it is told not to.
cmake -S . -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=g++-12 \
    -DCMAKE_CXX_FLAGS="-g -femit-class-debug-always" -DBUILD_TESTING=OFF -DZEL_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$folder" -j "$(getconf _NPROCESSORS_ONLN)" >"$folder/build.log" || {
    tail -n 30 "$folder/build.log" >&2
    exit 1
}
abidw --suppressions abi/exported.abignore --headers-dir QuenInclude --headers-dir QuenPlugins/ZelTaskPool \
    --drop-private-types --exported-interfaces-only --type-id-style hash \
    --no-comp-dir-path --no-corpus-path --no-elf-needed --no-parameter-names --no-show-locs \
    --out-file "$found" "$folder/bin/libZelTaskPool.so"

if [ "${1:-}" = --renew ]; then
    cp "$found" "$reference"
    echo "The reference is renewed: $reference"
elif abidiff --harmless "$reference" "$found" >"$folder/report.txt"; then
    echo "The ABI is that of $reference"
else
    abidiff --harmless --leaf-changes-only "$reference" "$found" >&2 || true
    cat >&2 <<'END'
The ABI differs from abi/libZelTaskPool.abi: what programs that were built earlier see of the library has changed.
build/abi/report.txt says which functions that concerns. If it is meant, raise the version in CMakeLists.txt, the
major one if something went or moved, say in CHANGELOG.md what changed, and renew the reference with

    scripts/checks/abi.sh --renew
END
    exit 1
fi
