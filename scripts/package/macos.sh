# Makes and tests the archive for macOS. Sourced by scripts/package.sh.

packages=$root/build/packages-macos
library=libZelTaskPool.dylib
archs=(x86_64 arm64)
rm -rf "$packages"

if [ "$host" = macos ]; then
    # The old Bash of a Mac rejects the expansion of an empty array, hence ${array[@]+"${array[@]}"}.
    preset=macos-native-universal
    dsymutil=dsymutil
    one_processor=("-DCMAKE_OSX_ARCHITECTURES=$(uname -m)")
    both_processors=("-DCMAKE_OSX_ARCHITECTURES=x86_64;arm64")
    compiler=(c++)
    linker=()
    known_imports=()

    # run_program PROGRAM [ARGUMENT...]
    run_program()
    {
        "$@"
    }
else
    scripts/install.sh macos || fail "the packages for the cross-build cannot be installed"
    sdk=$root/build/macos-sdk
    [ -e "$sdk/usr/lib/libSystem.tbd" ] || checked "$work/sdk.log" cmake/macos/make-sdk.sh
    [ -x build/machrun/machrun ] || checked "$work/loader.log" cmake/macos/make-loader.sh
    # dsymutil calls "lipo" to join the symbols of both processors. The SDK has LLVM's lipo under that name.
    PATH=$sdk/usr/bin:$PATH
    preset=macos-universal
    dsymutil=dsymutil-19
    one_processor=("-DCMAKE_TOOLCHAIN_FILE=$root/cmake/macos/toolchain.cmake")
    both_processors=("${one_processor[@]}" "-DZEL_MACOS_ARCHS=x86_64;arm64")
    mapfile -t runtime < <(grep -v '^#' cmake/macos/libc++-config.txt)
    compiler=(clang++-19 --target=x86_64-apple-macosx11.0 -isysroot "$sdk" "${runtime[@]}")
    linker=(-fuse-ld=lld "--ld-path=$(command -v ld64.lld-19)")
    known_imports=(--imports "$root/cmake/macos/libc++.1.tbd" --imports "$root/cmake/macos/system-names.txt")

    run_program()
    {
        "$root/build/machrun/machrun" --root "$root/build/machrun/root" "$@"
    }
fi

# pack FOLDER FILE: packs the folder reproducibly.
pack()
{
    cmake -D "CPACK_TEMPORARY_DIRECTORY=$1" -P "$root/cmake/package/EvenOut.cmake" &&
        (cd "$(dirname "$1")" && cmake -E tar czf "$2" "$(basename "$1")") &&
        cmake -D "CPACK_TEMPORARY_DIRECTORY=$1" -D "CPACK_PACKAGE_FILES=$2" -P "$root/cmake/package/SortArchive.cmake"
}

# make_packages SOURCES OUT: builds in SOURCES, and writes the archive and the debug symbols to OUT.
make_packages()
{
    local built=$1/build/$preset out=$2
    cd "$1" &&
        mkdir -p "$out/files" &&
        rm -f "$built/CMakeCache.txt" && # drops the options of an earlier build
        cmake --preset "$preset" &&
        cmake --build --preset "$preset" -j "$jobs" &&
        cp "$built/bin/$library" "$out" &&
        cpack --config "$built/CPackConfig.cmake" -B "$out/cpack" &&
        mv "$out"/cpack/*.tar.gz "$out/files" &&
        (cd "$built/bin" && "$dsymutil" --oso-prepend-path "$built" -o "$out/$library.dSYM" "$library") &&
        pack "$out/$library.dSYM" "$out/files/$(basename "$out"/files/*.tar.gz .tar.gz).dSYM.tar.gz"
}

# build SOURCES OUT
build()
{
    (checked "$2.log" make_packages "$1" "$2")
    (cd "$2" && cmake -E sha256sum "$library" files/*.*) >"$2.sums"
}

first=$work/first
if [ "$host" = macos ]; then
    echo "A build for ${archs[*]}"
    build "$root" "$first"
    cat "$first.sums"
else
    echo "Two builds for ${archs[*]} in different folders, languages and time zones"
    second=$work/second-folder-with-a-longer-name
    (export LC_ALL=C TZ=UTC && build "$root" "$first")
    copy_sources "$second/sources"
    mkdir "$second/sources/build"
    ln -s "$sdk" "$second/sources/build/macos-sdk"
    # With a cache, this build would reuse the results of the first.
    (export LC_ALL=C.UTF-8 TZ=Asia/Tokyo CCACHE_DISABLE=1 && build "$second/sources" "$second/out")
    compare "$first.sums" "$second/out.sums"
fi
mkdir "$packages"
cp "$first"/files/*.* "$packages"
write_sums "$packages"

echo "Every file of the unpacked archive and of the debug symbols"
elsewhere=$(mktemp -d)
trap 'rm -rf "$elsewhere"' EXIT
mkdir "$elsewhere/symbols"
tar -xzf "$packages"/*-universal.tar.gz -C "$elsewhere"
tar -xzf "$packages"/*-universal.dSYM.tar.gz -C "$elsewhere/symbols"
prefix=$(echo "$elsewhere"/ZelTaskPool-*-macOS-universal)
version=$(basename "$prefix" -macOS-universal)
report=$work/report

# show_check WHAT COMMAND...: runs a check that prints one line for each point.
show_check()
{
    local what=$1
    shift
    "$@" >"$report" 2>&1 || {
        grep -v '^right ' "$report" >&2
        fail "$what: some points are wrong"
    }
    echo "  $what: $(grep -c '^right ' "$report") points are right"
}
builder=(--without "$root")
[ "${HOME:-/}" = / ] || builder+=(--without "$HOME")
show_check "the archive and the symbols" python3 cmake/macos/check_package.py "$prefix" \
    --symbols "$elsewhere/symbols/$library.dSYM" "${archs[@]/#/--arch=}" "${builder[@]}"
for arch in "${archs[@]}"; do
    show_check "the library for $arch" python3 cmake/macos/check_dylib.py "$prefix/lib/$library" \
        --arch "$arch" --exports QuenPlugins/ZelTaskPool/exports-macos.txt --version "${version#ZelTaskPool-}" \
        ${known_imports[@]+"${known_imports[@]}"}
done

# expect TEXT PROGRAM [ARGUMENT...]: fails unless the program prints exactly this text; ignores standard error.
expect()
{
    local wanted=$1 printed
    shift
    printed=$(run_program "$@" 2>"$work/errors") || fail "$* failed: $(cat "$work/errors")"
    [ "$printed" = "$wanted" ] || fail "$* printed \"$printed\" instead of \"$wanted\""
    echo "  $(grep 'squares' <<<"$printed")"
}
logged="load dll - libZelLog.dylib"
for function in Init SetLoggerConfig SetLoggerConfigAll PrintLog UnInit; do
    logged+="
load dll [libZelLog.dylib: $function] sucess"
done
linked="$logged
linked: sum of 10 squares 285, workers yes"
opened="opened: sum of 10 squares 285"

# use FOLDER ARGUMENT...: builds the other project against the unpacked archive, and runs its programs.
use()
{
    local folder=$1 flags
    export ZEL_LOG_FILE=$1.records
    shift
    checked "$folder.log" configure "$prefix" "$folder" "$@"
    checked "$folder.log" cmake --build "$folder" -j "$jobs"
    expect "$linked" "$folder/linked"
    grep -q 'TaskPool UnInit end' "$ZEL_LOG_FILE" || fail "the logging library wrote no log record"
    expect "$opened
load dll - libZelLog.dylib" "$folder/opened" "$prefix/lib/$library"
    DYLD_LIBRARY_PATH=$prefix/lib expect "$opened
$logged" "$folder/opened"
}

echo "Another project with the unpacked archive: linked, opened by its path, opened by its name"
use "$work/consumer" "${one_processor[@]}"
echo "The same for ${archs[*]} at once"
use "$work/consumer-universal" "${both_processors[@]}"
lipo "$work/consumer-universal/linked" -verify_arch "${archs[@]}" || fail "the programs are not for ${archs[*]}"
echo "Found by pkg-config"
found_flags "$prefix"
"${compiler[@]}" -std=c++17 "${warnings[@]}" "$consumer/Linked.cpp" -o "$work/found" "${flags[@]}" \
    ${linker[@]+"${linker[@]}"}
DYLD_LIBRARY_PATH=$prefix/lib expect "$linked" "$work/found"
check_headers "$prefix" "${compiler[@]}"
refuse "$prefix" 1.1 "${one_processor[@]}"
refuse "$prefix" 2.0 "${one_processor[@]}"
