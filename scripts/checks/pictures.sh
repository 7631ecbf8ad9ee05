#!/usr/bin/env bash
# Draws pictures of real runs: installs what is missing, plays each scene of examples/trace_scenes with a trace, and
# draws docs/pictures/*.svg from the traces in build/pictures.
#
#   scripts/checks/pictures.sh [--draw]
#
# Takes ten minutes, most of them idle, and needs a quiet machine. --draw draws the last traces again.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
traces=$root/build/pictures

"$root/scripts/install.sh" pictures
if [ "${1:-}" != --draw ]; then
    (
        cd "$root"
        cmake --preset release -DBUILD_TESTING=OFF
        cmake --build --preset release
    ) >&2
    library=$(find "$root/build/release/bin" -maxdepth 1 -name 'libZelTaskPool.*')
    mkdir -p "$traces"
    for scene in burst cancel loops workers; do
        "$root/build/release/bin/trace_scenes" "$scene" "$traces/$scene.json" --library "$library" \
            >"$traces/$scene.log" 2>&1
    done
fi
# The system's packages, matplotlib among them, are for the system's Python, which may not be the first in the path.
python=python3
if ! python3 -c 'import matplotlib' 2>/dev/null && [ -x /usr/bin/python3 ]; then
    python=/usr/bin/python3
fi
"$python" "$root/scripts/drawing/scenes.py" "$traces" "$root/docs/pictures"
