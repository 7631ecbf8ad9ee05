#!/usr/bin/env bash
# Checks the documentation:
#
#   - Every public operation is described. The reference is written to build/reference.
#   - Every link and path leads somewhere.
#   - Each rule of docs/limits.md has a test that names it.
#   - Each text of docs/log-records.md is in the source file that the page names.
#   - The table and the pictures of the benchmarks show bench/results.json.
#   - Every code block compiles, and every command prints what the page shows.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"
need docs macos

echo "Reference of $(git ls-files 'Quen*.h' | wc -l) headers"
mkdir -p build/docs
doxygen

echo "Links, paths, rules and log records"
/usr/bin/python3 scripts/checks/docs/check_links.py | tee build/docs/links.txt
record_figure "Documentation" "$(tail -n 1 build/docs/links.txt)"
/usr/bin/python3 scripts/checks/docs/check_rules.py
/usr/bin/python3 scripts/checks/docs/check_records.py

echo "Benchmark results: table and pictures"
/usr/bin/python3 bench/publish.py --check

echo "Code blocks and commands"
cmake --preset dev >/dev/null
cmake --build --preset dev -j "$cores" --target ZelTaskPool zel_log
cmake --install build/dev --prefix build/docs/prefix >/dev/null
[ -e build/macos-sdk/usr/lib/libSystem.tbd ] || cmake/macos/make-sdk.sh
rm -f build/host_kit*
/usr/bin/python3 scripts/checks/docs/check_blocks.py
echo "The documentation is correct"
