#!/usr/bin/env bash
# Installs what is missing, builds the library and runs the example host on real files.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/checks/common.sh"
program=$root/build/release/bin/hash_tree

show_help()
{
    cat <<'EOF'
Usage: scripts/demo.sh [DIRECTORY] [OPTION...]

Installs what is missing, builds the library, and hashes the files of the directory in the background.
Without arguments: those of the system's headers, with the sums in build/SHA256SUMS.
EOF
    if [ -x "$program" ]; then
        printf '\nThe arguments go to the program:\n\n'
        "$program" --help
    else
        printf '\nThe arguments go to the program. Once it is built, this help shows its options.\n'
    fi
}

for argument in "$@"; do
    case $argument in
        -h | --help)
            show_help
            exit
            ;;
    esac
done

(
    need
    cd "$root"
    cmake --preset release -DBUILD_TESTING=OFF
    cmake --build --preset release
) >&2
if [ $# -eq 0 ]; then
    tree=/usr/include
    [ -d "$tree" ] || tree=$(xcrun --show-sdk-path)/usr/include
    set -- "$tree" --output "$root/build/SHA256SUMS"
fi
exec "$program" "$@"
