#!/usr/bin/env bash
# Checks the documentation: every public operation is described (the reference is written to build/reference), every
# block of code in the pages compiles, every command in them prints what they say, and every link, path and test that
# they name is there. The table and the pictures of the benchmarks show bench/results.json.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
scripts/install.sh docs
scripts/install.sh macos

echo "Reference of $(git ls-files 'Quen*.h' | wc -l) headers"
mkdir -p build
doxygen

echo "Links, paths and tests"
/usr/bin/python3 scripts/checks/docs/check_links.py

echo "Benchmark results: table and pictures"
/usr/bin/python3 bench/publish.py --check

echo "Blocks of code, and commands"
cmake --preset dev >/dev/null
cmake --build --preset dev -j "$(getconf _NPROCESSORS_ONLN)" --target ZelTaskPool zel_log
cmake --install build/dev --prefix build/docs/prefix >/dev/null
[ -e build/macos-sdk/usr/lib/libSystem.tbd ] || cmake/macos/make-sdk.sh
rm -f build/host_kit*
/usr/bin/python3 scripts/checks/docs/check_blocks.py
echo "The documentation is sound"
