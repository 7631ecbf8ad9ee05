#!/usr/bin/env bash
# Adds what the example host needs to the SDK: OpenSSL's libcrypto, built for x86-64 from Debian's source package.
#
#   cmake/macos/make-packages.sh [FOLDER]        build/macos-sdk by default
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
sdk=$(cd "${1:-$here/../../build/macos-sdk}" && pwd)
work=$sdk/openssl
mkdir -p "$sdk/usr/local/include" "$sdk/usr/local/lib" "$work/lists/partial" "$work/download" "$work/x86_64"

fetch_openssl()
{
    # Do not touch the system's own package lists.
    local list
    list=$({ cat /etc/apt/sources.list /etc/apt/sources.list.d/*.sources 2>/dev/null || true; } |
        awk '/^(URIs:|deb) / { for (i = 2; i <= NF; ++i) if ($i ~ "://.*/debian/?$") { print $i; exit } }')
    if [ -z "$list" ]; then
        echo "apt's lists name no Debian server" >&2
        return 1
    fi
    cat >"$work/debian.sources" <<END
Types: deb-src
URIs: $list
Suites: bookworm
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
END
    local apt=(apt-get -qq -o "Dir::Etc::SourceList=$work/debian.sources" -o Dir::Etc::SourceParts=/dev/null
        -o "Dir::State::Lists=$work/lists")
    "${apt[@]}" update
    (cd "$work/download" && "${apt[@]}" -o APT::Sandbox::User=root --download-only source openssl)
    mv "$work"/download/openssl_*.orig.tar.gz "$work/"
}

build_openssl()
{
    tar -xzf "$1" -C "$work/x86_64" --strip-components=1
    (
        cd "$work/x86_64" &&
            CC="clang-19 --target=x86_64-apple-macosx11.0 -isysroot $sdk" AR=llvm-ar-19 RANLIB=llvm-ranlib-19 \
                ./Configure darwin64-x86_64-cc --prefix=/usr/local no-asm no-async no-dso no-engine no-legacy \
                no-shared no-sock no-tests no-ui-console no-deprecated no-autoload-config no-aria no-bf no-blake2 \
                no-camellia no-cast no-chacha no-cmp no-cms no-ct no-des no-dh no-dsa no-ec no-idea no-md4 no-ocsp \
                no-poly1305 no-rc4 no-rmd160 no-seed no-siphash no-sm2 no-sm3 no-sm4 no-srp no-ts no-whirlpool &&
            make -s -j "$(getconf _NPROCESSORS_ONLN)" build_generated libcrypto.a
    ) >"$work/log" 2>&1 || {
        tail -n 20 "$work/log" >&2
        return 1
    }
}

[ -n "$(find "$work" -maxdepth 1 -name '*.orig.tar.gz')" ] || fetch_openssl
build_openssl "$work"/openssl_*.orig.tar.gz
ln -sfn "$work/x86_64/libcrypto.a" "$sdk/usr/local/lib/libcrypto.a"
ln -sfn "$work/x86_64/include/openssl" "$sdk/usr/local/include/openssl"
echo "Packages in $sdk/usr/local"
