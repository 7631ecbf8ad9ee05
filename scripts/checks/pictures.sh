#!/usr/bin/env bash
# Makes the pictures of docs/see-it-work.md: installs what is missing, lets the pool play each scene while a trace is
# written, and draws docs/pictures/*.svg from the traces in build/pictures.
#
#   scripts/checks/pictures.sh [--draw]
#
# Takes ten minutes, most of them idle, and wants a machine that does little else. With --draw, draws the traces of
# the last time again.
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
"$python" "$root/scripts/checks/pictures.py" "$traces" "$root/docs/pictures"
