# The functions for making and testing packages on all systems. Sourced by scripts/package.sh.

warnings=(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)

# fail WHY: ends the script. The work folder keeps the files.
fail()
{
    echo "package: $*" >&2
    exit 1
}

# checked LOG COMMAND...: runs the command. If it fails, shows the end of its output.
checked()
{
    local log=$1
    shift
    "$@" >"$log" 2>&1 || {
        tail -n 30 "$log" >&2
        fail "$1 failed: see $log"
    }
}

# copy_sources FOLDER
copy_sources()
{
    mkdir -p "$1"
    git ls-files -z --cached --others --exclude-standard |
        while IFS= read -r -d '' file; do [ ! -e "$file" ] || printf '%s\0' "$file"; done |
        tar --create --null --files-from - | tar --extract --directory "$1"
}

# compare FIRST SECOND: fails if two lists of checksums differ.
compare()
{
    cat "$1"
    diff "$1" "$2" || fail "the two builds differ"
}

# write_sums FOLDER: writes the checksums of all files there, for "sha256sum -c" and "shasum -a 256 -c".
write_sums()
{
    local sum=(sha256sum)
    command -v sha256sum >/dev/null || sum=(shasum -a 256)
    (cd "$1" && "${sum[@]}" -- *.* >SHA256SUMS && "${sum[@]}" -c --quiet SHA256SUMS) ||
        fail "cannot write the checksums in $1"
}

# configure PREFIX FOLDER [ARGUMENT...]: configures the other project, which looks for the library in PREFIX.
configure()
{
    local prefix=$1 folder=$2
    shift 2
    cmake -S "$consumer" -B "$folder" -G Ninja -DCMAKE_CXX_FLAGS="${warnings[*]}" -DCMAKE_PREFIX_PATH="$prefix" "$@"
}

# refuse PREFIX VERSION [ARGUMENT...]: fails if the other project finds that version.
refuse()
{
    local prefix=$1 version=$2 log=$work/refuse-$2.log
    shift 2
    ! configure "$prefix" "$work/refuse-$version" -DWANTED_VERSION="$version" "$@" >"$log" 2>&1 ||
        fail "found version $version"
    grep -q "compatible with requested version \"$version\"" "$log" ||
        fail "version $version is refused for another reason: see $log"
    ! PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --exists "ZelTaskPool >= $version" ||
        fail "pkg-config found version $version"
    echo "  version $version is refused"
}

# found_flags PREFIX: sets flags to what pkg-config prints for PREFIX.
found_flags()
{
    local found
    found=$(PKG_CONFIG_PATH=$1/lib/pkgconfig pkg-config --cflags --libs ZelTaskPool) || fail "pkg-config finds nothing"
    read -ra flags <<<"$found"
}

# check_headers PREFIX COMPILER...: fails if a header does not compile on its own.
check_headers()
{
    local headers=$1/include/ZelTaskPool
    shift
    (cd "$headers" && find . -name '*.h' | sort | sed 's|^\./\(.*\)|#include <\1>|') |
        "$@" -std=c++17 "${warnings[@]}" -I"$headers" -fsyntax-only -x c++ - || fail "a header misses an include"
    echo "  every header finds what it includes"
}
