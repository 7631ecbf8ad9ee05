# Makes and tests the packages for Linux. Sourced by scripts/package.sh.

packages=$root/build/packages
rm -rf "$packages"

# With a cache, the second build would reuse the results of the first.
export CCACHE_DISABLE=1
unset CMAKE_CXX_COMPILER_LAUNCHER

make_packages()
{
    cd "$1" &&
        cmake --preset package &&
        cmake --build --preset package -j "$jobs" &&
        cpack --config build/package/CPackConfig.cmake -B packages
}

# build FOLDER: copies the sources there and makes the packages.
build()
{
    copy_sources "$1"
    (checked "$1.log" make_packages "$1")
    (cd "$1" && sha256sum build/package/bin/libZelTaskPool.so.*.*.* packages/*.*) >"$1.sums"
}

echo "Two builds in different folders, languages and time zones"
first=$work/first second=$work/second-folder-with-a-longer-name
(export LC_ALL=C TZ=UTC && build "$first")
(export LC_ALL=C.UTF-8 TZ=Asia/Tokyo && build "$second")
compare "$first.sums" "$second.sums"
mkdir "$packages"
cp "$first"/packages/*.* "$packages"
write_sums "$packages"

echo "lintian"
allow_root=()
[ "$(id -u)" -ne 0 ] || allow_root=(--allow-root)
lintian "${allow_root[@]}" --no-cfg --fail-on error "$packages"/*.deb

# expect TEXT COMMAND...: fails unless the command prints exactly this text.
expect()
{
    local wanted=$1 printed
    shift
    printed=$("$@" 2>&1) || fail "$* failed: $printed"
    [ "$printed" = "$wanted" ] || fail "$* printed \"$printed\" instead of \"$wanted\""
    echo "  $(grep 'squares' <<<"$printed")"
}
no_log="load dll - libZelLog.dylib
load dll [libZelLog.dylib] fail !!! libZelLog.dylib: cannot open shared object file: No such file or directory"
linked="$no_log
linked: sum of 10 squares 285, workers yes"
opened="opened: sum of 10 squares 285
$no_log"

# use PREFIX FOLDER: builds the other project against the library in PREFIX, and runs its programs.
use()
{
    local prefix=$1 folder=$2 flags
    checked "$folder.log" configure "$prefix" "$folder"
    checked "$folder.log" cmake --build "$folder" -j "$jobs"
    expect "$linked" "$folder/linked"
    expect "$opened" "$folder/opened" "$prefix/lib/libZelTaskPool.so"
    found_flags "$prefix"
    g++ -std=c++17 "${warnings[@]}" "$consumer/Linked.cpp" -o "$folder/found" "${flags[@]}"
    expect "$linked" env LD_LIBRARY_PATH="$prefix/lib" "$folder/found"
}

echo "Another project with the installed library: linked, opened, found by pkg-config"
cmake --install "$first/build/package" --prefix "$work/prefix" >/dev/null
use "$work/prefix" "$work/consumer"
check_headers "$work/prefix" g++
refuse "$work/prefix" 1.1
refuse "$work/prefix" 2.0

echo "The same after moving the folder"
mkdir "$work/elsewhere"
mv "$work/prefix" "$work/elsewhere/moved"
use "$work/elsewhere/moved" "$work/consumer-moved"

echo "The same with the files of the Debian packages"
for package in "$packages"/libzeltaskpool*.deb; do
    dpkg-deb --extract "$package" "$work/extracted"
done
use "$work/extracted/usr" "$work/consumer-extracted"

echo "The examples, as a project of their own"
checked "$work/examples.log" cmake -S "$work/extracted/usr/share/doc/ZelTaskPool/examples" -B "$work/examples" -G Ninja \
    -DCMAKE_CXX_FLAGS="${warnings[*]}"
checked "$work/examples.log" cmake --build "$work/examples" -j "$jobs"
for example in host_kit hash_tree thumbnails; do
    [ -x "$work/examples/bin/$example" ] || fail "$example is not built: see $work/examples.log"
done
"$work/examples/bin/hash_tree" "$consumer" --output "$work/sums" >"$work/hash_tree.log" 2>&1 ||
    fail "hash_tree has failed: see $work/hash_tree.log"
sha256sum --check --quiet "$work/sums" || fail "hash_tree wrote wrong sums"
echo "  they are built, hash_tree finds the library"

# show_pool COMMAND...: fails unless the command prints what the gdb command prints of a pool.
show_pool()
{
    local printed
    printed=$("$@" 2>&1) || fail "gdb has failed: $printed"
    grep -q '^workers: [0-9]* of 301 at most' <<<"$printed" || fail "the gdb command printed: $printed"
    grep -q '^registry: ' <<<"$printed" || fail "the gdb command has stopped early: $printed"
}
# They stop at the shutdown of a pool.
gdb_steps=(-nx -batch -ex "set breakpoint pending on" -ex "break UnInit" -ex run)

echo "The gdb command, with the symbols of the Debian packages and the script of the archive"
mkdir "$work/archive"
tar --extract --strip-components 1 --file "$packages"/*.tar.gz --directory "$work/archive"
show_pool env LD_LIBRARY_PATH="$work/extracted/usr/lib" gdb \
    -ex "set debug-file-directory $work/extracted/usr/lib/debug" "${gdb_steps[@]}" \
    -ex "source $work/archive/share/ZelTaskPool/libZelTaskPool-gdb.py" -ex zel "$work/consumer-extracted/found"
echo "  it shows the pool"

echo "The Debian packages in a system with only their dependencies"
mkdir "$work/brought"
cp "$packages"/*.deb "$work/consumer-extracted/found" "$work/consumer-extracted/opened" "$work/brought"
# Run in the system as its root.
cat >"$work/brought/try.sh" <<EOF
set -eu
cd /tmp
install()
{
    apt-get install -qq -y --no-install-recommends "\$@"
}
install ./libzeltaskpool1_*.deb ./libzeltaskpool-dev_*.deb
test "\$(./found 2>&1)" = '$linked'
test "\$(./opened 2>&1)" = '$opened'
test -e /usr/share/doc/ZelTaskPool/docs/getting-started.md
test -e /usr/share/doc/ZelTaskPool/examples/host_kit/main.cpp

install ./libzellog_*.deb
./found >records 2>&1
grep -q 'TaskPool UnInit end' records

install gdb ./*-dbgsym_*.deb
gdb ${gdb_steps[*]@Q} -ex zel ./found >shown 2>&1
EOF
brought=("$work"/brought/*)
# mmdebstrap's own shell expands what is in single quotes; $1 is the root folder.
mmdebstrap --quiet --variant=apt --format=null \
    --customize-hook="copy-in ${brought[*]@Q} /tmp" \
    --customize-hook='chroot "$1" sh /tmp/try.sh' \
    --customize-hook="copy-out /tmp/shown $work" \
    bookworm - >"$work/root.log" 2>&1 || {
    tail -n 30 "$work/root.log" >&2
    fail "the packages do not work in a clean system"
}
echo "  both programs work, the logging library writes log records"
show_pool cat "$work/shown"
echo "  gdb finds the command and the symbols by itself"
