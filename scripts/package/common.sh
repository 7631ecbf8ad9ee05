# What making and trying packages has in common on all systems. Read by scripts/package.sh.

warnings=(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)

# fail WHY: the end. What was made stays in the work folder.
fail()
{
    echo "package: $*" >&2
    exit 1
}

# checked LOG COMMAND...: runs it, and shows the end of what it printed if it fails.
checked()
{
    local log=$1
    shift
    "$@" >"$log" 2>&1 || {
        tail -n 30 "$log" >&2
        fail "$1 has failed: see $log"
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

# compare FIRST SECOND: two lists of checksums.
compare()
{
    cat "$1"
    diff "$1" "$2" || fail "the two builds differ"
}

# write_sums FOLDER: the checksums of all files there, as "sha256sum -c" and "shasum -a 256 -c" take them.
write_sums()
{
    local sum=(sha256sum)
    command -v sha256sum >/dev/null || sum=(shasum -a 256)
    (cd "$1" && "${sum[@]}" -- *.* >SHA256SUMS && "${sum[@]}" -c --quiet SHA256SUMS) ||
        fail "the checksums in $1 cannot be written"
}

# configure PREFIX FOLDER [ARGUMENT...]: lets the other project look for what is installed.
configure()
{
    local prefix=$1 folder=$2
    shift 2
    cmake -S "$consumer" -B "$folder" -G Ninja -DCMAKE_CXX_FLAGS="${warnings[*]}" -DCMAKE_PREFIX_PATH="$prefix" "$@"
}

# refuse PREFIX VERSION [ARGUMENT...]: the other project must not get that version.
refuse()
{
    local prefix=$1 version=$2 log=$work/refuse-$2.log
    shift 2
    ! configure "$prefix" "$work/refuse-$version" -DWANTED_VERSION="$version" "$@" >"$log" 2>&1 ||
        fail "version $version was found"
    grep -q "compatible with requested version \"$version\"" "$log" || fail "another reason: see $log"
    ! PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --exists "ZelTaskPool >= $version" ||
        fail "pkg-config found version $version"
    echo "  version $version is refused"
}

# found_flags PREFIX: reads into flags what pkg-config says of what is installed there.
found_flags()
{
    local found
    found=$(PKG_CONFIG_PATH=$1/lib/pkgconfig pkg-config --cflags --libs ZelTaskPool) || fail "pkg-config finds nothing"
    read -ra flags <<<"$found"
}

# check_headers PREFIX COMPILER...: every header finds what it includes.
check_headers()
{
    local headers=$1/include/ZelTaskPool
    shift
    (cd "$headers" && find . -name '*.h' | sort | sed 's|^\./\(.*\)|#include <\1>|') |
        "$@" -std=c++17 "${warnings[@]}" -I"$headers" -fsyntax-only -x c++ - || fail "a header is not whole"
    echo "  every header finds what it includes"
}
