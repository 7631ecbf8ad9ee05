#!/usr/bin/env bash
# Makes the packages for one system and tests them. Builds twice, in two folders; the results must be identical.
#
#   scripts/package.sh [linux|macos]        by default linux on Debian 12, macos on a Mac
#
# linux   a .tar.gz and the Debian packages, in build/packages. Tested with lintian; with another project, which finds
#         the library in three ways in three places; with gdb; and in an otherwise empty Debian.
# macos   a .tar.gz for x86-64 and arm64, and the debug symbols, in build/packages-macos. Every file is checked.
#         Another project is built against the unpacked archive, for x86-64 and for both, and runs. On Debian 12 this
#         is a cross-build, and programs run under the loader. A Mac builds once.
#
# SHA256SUMS has the checksums of the packages.
set -euo pipefail
cd -P "$(dirname "${BASH_SOURCE[0]}")/.."

host=linux
[ "$(uname -s)" != Darwin ] || host=macos
target=${1:-$host}
case $target in
    linux | macos) ;;
    *)
        echo "package: unknown system \"$target\", expected linux or macos" >&2
        exit 2
        ;;
esac
if [ "$host" = macos ] && [ "$target" = linux ]; then
    echo "package: packages for Linux need Debian 12" >&2
    exit 2
fi
scripts/install.sh package

root=$PWD
work=$root/build/package-check-$target
consumer=$root/tests/consumer
jobs=$(getconf _NPROCESSORS_ONLN)
rm -rf "$work"
mkdir -p "$work"
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
export SOURCE_DATE_EPOCH
umask 022 # cpack copies it into Debian packages
# CMake would apply these variables. The packages must depend on the sources and presets alone.
unset CFLAGS CXXFLAGS CPPFLAGS LDFLAGS DESTDIR

source scripts/package/common.sh
source "scripts/package/$target.sh"
rm -rf "$work"
echo "Packages in $packages"
