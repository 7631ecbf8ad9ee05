#!/usr/bin/env bash
# Makes the packages for one system, in two folders, which must give the same bits, and tries them.
#
#   scripts/package.sh [linux|macos]        linux on Debian 12, macos on a Mac if not given
#
# linux   a .tar.gz and two Debian packages, in build/packages. They are tried with lintian; with another project,
#         which finds in three ways what is installed in three places; and in a Debian with nothing else in it.
# macos   a .tar.gz for x86-64 and arm64, and the debug symbols, in build/packages-macos. Every file is checked;
#         another project is built against what is unpacked, for x86-64 and for both, and run. On Debian 12 it is
#         cross-built, and runs under the loader. On a Mac it is built once.
#
# SHA256SUMS is beside them.
set -euo pipefail
cd -P "$(dirname "${BASH_SOURCE[0]}")/.."

host=linux
[ "$(uname -s)" != Darwin ] || host=macos
target=${1:-$host}
case $target in
    linux | macos) ;;
    *)
        echo "package: packages are made for linux or macos, not for \"$target\"" >&2
        exit 2
        ;;
esac
if [ "$host" = macos ] && [ "$target" = linux ]; then
    echo "package: packages for Linux are made on Debian 12, not on a Mac" >&2
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
umask 022 # cpack notes it in Debian packages
# The packages are what the sources and the presets say. CMake would take these in, and install below DESTDIR.
unset CFLAGS CXXFLAGS CPPFLAGS LDFLAGS DESTDIR

source scripts/package/common.sh
source "scripts/package/$target.sh"
rm -rf "$work"
echo "Packages in $packages"
