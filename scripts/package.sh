#!/usr/bin/env bash
# Makes the packages, twice, in two folders, which must give the same bits, and tries them: with lintian; with
# another project, which finds in three ways what is installed in three places; and in a Debian with nothing else
# in it, where programs use the library that the packages brought.
#
#   scripts/package.sh
#
# For Debian 12. The packages are in build/packages afterwards.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/install.sh package

root=$PWD
work=$root/build/package-check
packages=$root/build/packages
consumer=$root/tests/consumer
jobs=$(getconf _NPROCESSORS_ONLN)
rm -rf "$work" "$packages"
mkdir -p "$work"

SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
umask 022 # cpack notes it in Debian packages
# A cache would give the second build what the first one made.
export SOURCE_DATE_EPOCH CCACHE_DISABLE=1
unset CMAKE_CXX_COMPILER_LAUNCHER

# fail WHY: the end. What was made stays in build/package-check.
fail()
{
    echo "package: $*" >&2
    exit 1
}

# build FOLDER: copies the sources there and makes the packages.
build()
{
    mkdir -p "$1"
    git ls-files -z --cached --others --exclude-standard |
        while IFS= read -r -d '' file; do [ ! -e "$file" ] || printf '%s\0' "$file"; done |
        tar --create --null --files-from - | tar --extract --directory "$1"
    (
        cd "$1" &&
            cmake --preset package &&
            cmake --build --preset package -j "$jobs" &&
            cpack --config build/package/CPackConfig.cmake -B packages
    ) >"$1.log" 2>&1 || {
        tail -n 30 "$1.log" >&2
        fail "the build in $1 has failed"
    }
    (cd "$1" && sha256sum build/package/bin/libZelTaskPool.so.*.*.* packages/*.*) >"$1.sums"
}

echo "Two builds in different folders, languages and time zones"
first=$work/first second=$work/second-folder-with-a-longer-name
(export LC_ALL=C TZ=UTC && build "$first")
(export LC_ALL=C.UTF-8 TZ=Asia/Tokyo && build "$second")
cat "$first.sums"
diff "$first.sums" "$second.sums" || fail "the two builds differ"
mkdir "$packages"
cp "$first"/packages/*.* "$packages"

echo "lintian"
allow_root=()
[ "$(id -u)" -ne 0 ] || allow_root=(--allow-root)
lintian "${allow_root[@]}" --no-cfg --fail-on error "$packages"/*.deb

# expect TEXT COMMAND...: the command prints this and nothing else.
expect()
{
    local wanted=$1 printed
    shift
    printed=$("$@" 2>&1) || fail "$* has failed: $printed"
    [ "$printed" = "$wanted" ] || fail "$* printed \"$printed\" instead of \"$wanted\""
    echo "  $(grep 'squares' <<<"$printed")"
}
no_log="load dll - libZelLog.dylib
load dll [libZelLog.dylib] fail !!! libZelLog.dylib: cannot open shared object file: No such file or directory"
linked="$no_log
linked: sum of 10 squares 285, workers yes"
opened="opened: sum of 10 squares 285
$no_log"
warnings=(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)

# configure PREFIX FOLDER [ARGUMENT...]: lets the other project look for what is installed.
configure()
{
    local prefix=$1 folder=$2
    shift 2
    cmake -S "$consumer" -B "$folder" -G Ninja -DCMAKE_CXX_FLAGS="${warnings[*]}" -DCMAKE_PREFIX_PATH="$prefix" "$@"
}

# use PREFIX FOLDER: builds the other project against what is installed there, and runs its programs.
use()
{
    local prefix=$1 folder=$2 flags
    configure "$prefix" "$folder" >"$folder.log"
    cmake --build "$folder" -j "$jobs" >>"$folder.log" || fail "see $folder.log"
    expect "$linked" "$folder/linked"
    expect "$opened" "$folder/opened" "$prefix/lib/libZelTaskPool.so"
    read -ra flags <<<"$(PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --cflags --libs ZelTaskPool)"
    g++ -std=c++17 "${warnings[@]}" "$consumer/Linked.cpp" -o "$folder/found" "${flags[@]}"
    expect "$linked" env LD_LIBRARY_PATH="$prefix/lib" "$folder/found"
}

# refuse PREFIX VERSION: the other project must not get that version.
refuse()
{
    local log=$work/refuse-$2.log
    ! configure "$1" "$work/refuse-$2" -DWANTED_VERSION="$2" >"$log" 2>&1 || fail "version $2 was found"
    grep -q "compatible with requested version \"$2\"" "$log" || fail "another reason: see $log"
    ! PKG_CONFIG_PATH=$1/lib/pkgconfig pkg-config --exists "ZelTaskPool >= $2" || fail "pkg-config found version $2"
    echo "  version $2 is refused"
}

echo "Another project, with what \"cmake --install\" has put into a folder: linked, opened, found by pkg-config"
cmake --install "$first/build/package" --prefix "$work/prefix" >/dev/null
use "$work/prefix" "$work/consumer"
find "$work/prefix/include/ZelTaskPool" -name '*.h' -printf '#include "%P"\n' |
    g++ -std=c++17 "${warnings[@]}" -I"$work/prefix/include/ZelTaskPool" -fsyntax-only -x c++ -
echo "  every header finds what it includes"
refuse "$work/prefix" 1.1
refuse "$work/prefix" 2.0

echo "The same after the folder was moved"
mkdir "$work/elsewhere"
mv "$work/prefix" "$work/elsewhere/moved"
use "$work/elsewhere/moved" "$work/consumer-moved"

echo "The same with the files of the Debian packages"
for package in "$packages"/*.deb; do
    dpkg-deb --extract "$package" "$work/extracted"
done
use "$work/extracted/usr" "$work/consumer-extracted"

echo "The Debian packages in a system with nothing but what they ask for"
export linked opened
brought=("$packages"/*.deb "$work/consumer-extracted/found" "$work/consumer-extracted/opened")
# In single quotes is what its own shell replaces; $1 is the root.
mmdebstrap --quiet --variant=apt --format=null \
    --customize-hook="copy-in ${brought[*]@Q} /tmp" \
    --customize-hook='chroot "$1" sh -c "apt-get install -qq -y --no-install-recommends /tmp/*.deb"' \
    --customize-hook='test "$(chroot "$1" /tmp/found 2>&1)" = "$linked"' \
    --customize-hook='test "$(chroot "$1" /tmp/opened 2>&1)" = "$opened"' \
    bookworm - >"$work/root.log" 2>&1 || {
    tail -n 30 "$work/root.log" >&2
    fail "the packages do not work in a clean system"
}
echo "  both programs work"
rm -rf "$work"
echo "Packages in $packages"
