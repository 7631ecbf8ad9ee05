#!/usr/bin/env bash
# Draws pictures of real runs: installs what is missing, plays each scene of examples/trace_scenes with a trace, and
# draws docs/pictures/*.svg from the traces in build/pictures. Then it takes the screenshot.
#
#   scripts/checks/pictures.sh [--draw]
#
# Takes ten minutes, most of them idle, and needs a quiet machine. --draw draws the last traces again.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"
traces=build/pictures

need pictures examples
if [ "${1:-}" != --draw ]; then
    build release ZelTaskPool trace_scenes
    library=$(find_library release)
    mkdir -p "$traces"
    for scene in burst cancel loops workers; do
        build/release/bin/trace_scenes "$scene" "$traces/$scene.json" --library "$library" >"$traces/$scene.log" 2>&1
    done
fi
"$(find_python matplotlib)" scripts/drawing/scenes.py "$traces" docs/pictures
build dev zel_screenshot
QT_QPA_PLATFORM=offscreen build/dev/bin/tests/zel_screenshot "$(find_library dev)" docs/pictures/thumbnails.png
