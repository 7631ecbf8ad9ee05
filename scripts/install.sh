#!/usr/bin/env bash
# Installs what is missing to build, test and try the project: Debian 12 (apt-get, as root or with sudo) or
# macOS (Homebrew). With a word also what else is needed for
#
#   checks     sanitizer builds, memcheck and source checks     mutation   mutants of the product
#   coverage   counting executed code                           models     models of the protocol
#   bench      the peers of the benchmarks                      pictures   the pictures of the documentation
#   docs       checking the documentation                       package    making and trying packages
#   macos      building for macOS on Linux                      abi        reading the ABI
#   schedules  putting faults into the library
set -euo pipefail

install_debian()
{
    local packages=(g++ cmake ninja-build libgtest-dev libgmock-dev libspdlog-dev libcli11-dev libssl-dev
        nlohmann-json3-dev)
    if [ "${1:-}" = checks ]; then
        packages+=(clang-14 libclang-rt-14-dev llvm-14 clang-format-14 clang-tidy-14 git valgrind)
    fi
    if [ "${1:-}" = coverage ]; then
        packages+=(clang-19 libclang-rt-19-dev llvm-19 python3)
    fi
    if [ "${1:-}" = mutation ]; then
        packages+=(clang-19 libclang-rt-19-dev lld-19 llvm-19 python3-clang-19)
    fi
    if [ "${1:-}" = models ]; then
        packages+=(gcc python3 spin)
    fi
    if [ "${1:-}" = schedules ]; then
        packages+=(python3)
    fi
    if [ "${1:-}" = macos ]; then
        packages+=(clang-19 lld-19 llvm-19 make perl python3)
        command -v npm >/dev/null || packages+=(npm)
    fi
    if [ "${1:-}" = bench ]; then
        packages+=(libbenchmark-dev pkg-config python3 python3-matplotlib
            libboost-dev libglib2.0-dev libpoco-dev libtbb-dev libuv1-dev qtbase5-dev)
    fi
    if [ "${1:-}" = docs ]; then
        packages+=(doxygen gcc git libglib2.0-dev pkg-config python3 python3-markdown-it python3-mdit-py-plugins
            qtbase5-dev)
    fi
    if [ "${1:-}" = package ]; then
        packages+=(dpkg-dev file git lintian mmdebstrap pkg-config python3 uidmap)
    fi
    if [ "${1:-}" = abi ]; then
        packages+=(abigail-tools)
    fi
    if [ "${1:-}" = pictures ]; then
        packages+=(python3 python3-matplotlib)
    fi
    local missing=()
    for package in "${packages[@]}"; do
        if [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
            missing+=("$package")
        fi
    done
    [ "${#missing[@]}" -gt 0 ] || return 0
    echo "Installing: ${missing[*]}"
    local sudo=()
    [ "$(id -u)" -eq 0 ] || sudo=(sudo)
    "${sudo[@]}" apt-get update -qq
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

install_macos()
{
    local formulas=(cmake ninja googletest spdlog cli11 nlohmann-json openssl@3 coreutils)
    if [ "${1:-}" = bench ]; then
        formulas+=(google-benchmark pkg-config boost glib libuv poco python-matplotlib qt tbb)
    fi
    if [ "${1:-}" = package ]; then
        formulas+=(gnu-tar pkg-config)
    fi
    if [ "${1:-}" = pictures ]; then
        formulas+=(python-matplotlib)
    fi
    local missing=()
    for formula in "${formulas[@]}"; do
        brew list --versions "$formula" >/dev/null || missing+=("$formula")
    done
    command -v python3 >/dev/null || missing+=(python)
    [ "${#missing[@]}" -eq 0 ] || brew install "${missing[@]}"
}

if [ "$(uname -s)" = Darwin ]; then
    if ! command -v brew >/dev/null; then
        echo "Homebrew is missing: see https://brew.sh" >&2
        exit 1
    fi
    install_macos "$@"
elif command -v apt-get >/dev/null; then
    install_debian "$@"
else
    echo "This script knows apt-get and Homebrew. Please install: a C++17 compiler, CMake 3.22, Ninja," \
        "GoogleTest, spdlog, CLI11, JSON for Modern C++, OpenSSL." >&2
    exit 1
fi
