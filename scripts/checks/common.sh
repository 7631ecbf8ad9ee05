# What the scripts share. A check sources this file, then changes to "$root".

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cores=$(getconf _NPROCESSORS_ONLN)
tests_at_once=$((2 * cores)) # most tests wait most of the time
figures=$root/build/figures.txt

script=$(cd "$(dirname "$0")" && pwd)/${0##*/}
command_line="${script#"$root"/}${*:+ $*}"

# need WORD: installs what is missing for that purpose; scripts/install.sh lists the words.
need()
{
    "$root/scripts/install.sh" "$@"
}

# need_preset PRESET: installs what building that preset needs.
need_preset()
{
    case $1 in
        clang | asan | tsan | fuzz) need checks ;;
        *) need ;;
    esac
}

# fail WHY: ends the check.
fail()
{
    echo "${script##*/}: $*" >&2
    exit 1
}

# need_linux WHY: ends the check on any other system.
need_linux()
{
    [ "$(uname -s)" = Linux ] || fail "needs Linux: $*"
}

# build PRESET [TARGET...]: configures and builds a preset. Prints to standard error, so that standard output has only
# the check's results.
build()
{
    local preset=$1 targets=()
    shift
    [ $# -eq 0 ] || targets=(--target "$@")
    (
        cd "$root"
        cmake --preset "$preset"
        cmake --build --preset "$preset" -j "$cores" ${targets[@]+"${targets[@]}"}
    ) >&2
}

# find_library PRESET: prints the path of the library that the preset built.
find_library()
{
    local library=$root/build/$1/bin/libZelTaskPool.so
    [ -e "$library" ] || library=${library%.so}.dylib
    echo "$library"
}

# find_python MODULE: prints a Python that has the module. A package of the system installs its module for the system's
# Python, which may not be the first in the path.
find_python()
{
    if ! python3 -c "import $1" 2>/dev/null && [ -x /usr/bin/python3 ]; then
        echo /usr/bin/python3
    else
        echo python3
    fi
}

# record_figure NAME FIGURE: prints what this run counted. Appends it, with the command, to build/figures.txt.
record_figure()
{
    printf '%s: %s\n' "$1" "$2"
    mkdir -p "${figures%/*}"
    printf '%s | %s | %s\n' "$1" "$2" "$command_line" >>"$figures"
}

# require_at_least LEAST COUNT WHAT: ends the check if it counted too few.
require_at_least()
{
    [ "${2:-0}" -ge "$1" ] || fail "only ${2:-0} $3, expected at least $1"
}
