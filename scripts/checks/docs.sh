#!/usr/bin/env bash
# Checks the documentation:
#   - every public operation is described; the reference is written to build/reference;
#   - every link and path leads somewhere;
#   - each rule of docs/limits.md has a test that names it;
#   - each text of docs/log-records.md stands in the source file that the page names;
#   - every block of code compiles, and every command prints what the page says.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
scripts/install.sh docs
scripts/install.sh macos

echo "Reference of $(git ls-files 'Quen*.h' | wc -l) headers"
mkdir -p build
doxygen

echo "Links, paths, rules and log records"
/usr/bin/python3 scripts/checks/docs/check_links.py
/usr/bin/python3 scripts/checks/docs/check_rules.py
/usr/bin/python3 scripts/checks/docs/check_records.py

echo "Blocks of code, and commands"
cmake --preset dev >/dev/null
cmake --build --preset dev -j "$(getconf _NPROCESSORS_ONLN)" --target ZelTaskPool zel_log
cmake --install build/dev --prefix build/docs/prefix >/dev/null
[ -e build/macos-sdk/usr/lib/libSystem.tbd ] || cmake/macos/make-sdk.sh
rm -f build/host_kit*
/usr/bin/python3 scripts/checks/docs/check_blocks.py
echo "The documentation is sound"
