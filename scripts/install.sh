#!/usr/bin/env bash
# Installs what is missing to build, test and try the project: Debian 12 (apt-get, as root or with sudo) or macOS
# (Homebrew).
#
#   scripts/install.sh [WORD...]
#
# Each WORD adds what one purpose needs:
#
#   abi        comparing the ABI                             macos      building for macOS on Linux
#   bench      the libraries that the benchmarks compare     models     checking the models of the protocol
#   checks     sanitizers, memcheck and source checks        mutation   testing with mutants of the product
#   coverage   measuring coverage                            package    making and testing packages
#   docs       checking the documentation                    pictures   drawing the pictures of the documentation
#   examples   the example with windows, and its tests       profile    sampling where CPU time goes, on Linux
#                                                            schedules  searching for faults with the scheduler
set -euo pipefail

# debian_packages WORD: prints the packages for that purpose; without a word, those that everything needs.
debian_packages()
{
    case ${1:-} in
        "") echo g++ cmake ninja-build libgtest-dev libgmock-dev libspdlog-dev libcli11-dev libssl-dev \
            nlohmann-json3-dev gdb ;;
        abi) echo abigail-tools ;;
        bench) echo libbenchmark-dev pkg-config python3 python3-matplotlib \
            libboost-dev libglib2.0-dev libpoco-dev libtbb-dev libuv1-dev qtbase5-dev ;;
        checks) echo clang-14 libclang-rt-14-dev llvm-14 clang-format-14 clang-tidy-14 git valgrind ;;
        coverage) echo clang-19 libclang-rt-19-dev llvm-19 python3 ;;
        docs) echo doxygen gcc git pkg-config python3 python3-markdown-it python3-mdit-py-plugins qtbase5-dev ;;
        examples) echo qt6-base-dev xauth xvfb ;;
        macos)
            echo clang-19 lld-19 llvm-19 make perl python3
            command -v npm >/dev/null || echo npm
            ;;
        models) echo gcc python3 spin ;;
        mutation) echo clang-19 libclang-rt-19-dev lld-19 llvm-19 python3-clang-19 ;;
        package) echo binutils dpkg-dev file git lintian mmdebstrap pkg-config python3 uidmap ;;
        pictures) echo python3 python3-matplotlib ;;
        profile) echo binutils linux-perf python3 ;;
        schedules) echo python3 ;;
        *) refuse "$1" ;;
    esac
}

# homebrew_formulas WORD: the same for macOS. A purpose without a formula needs none, or is for Linux only.
homebrew_formulas()
{
    case ${1:-} in
        "") echo cmake ninja googletest spdlog cli11 nlohmann-json openssl@3 coreutils ;;
        bench) echo google-benchmark pkg-config boost glib libuv poco python-matplotlib qt tbb ;;
        examples) echo qt ;;
        package) echo gnu-tar pkg-config ;;
        pictures) echo python-matplotlib ;;
        abi | checks | coverage | docs | macos | models | mutation | profile | schedules) ;;
        *) refuse "$1" ;;
    esac
}

refuse()
{
    echo "install: unknown word \"$1\"; the head of scripts/install.sh lists them" >&2
    return 2
}

# list_all COMMAND WORD...: what everything needs, and what each word adds, one a line.
list_all()
{
    local command=$1 word names
    shift
    for word in "" "$@"; do
        names=$("$command" "$word") || return
        [ -z "$names" ] || tr ' ' '\n' <<<"$names"
    done
}

install_debian()
{
    local names package missing=()
    names=$(list_all debian_packages "$@")
    for package in $names; do
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
    local names formula missing=()
    names=$(list_all homebrew_formulas "$@")
    for formula in $names; do
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
    echo "This script supports apt-get and Homebrew only. Please install: a C++17 compiler, CMake 3.22, Ninja," \
        "GoogleTest, spdlog, CLI11, JSON for Modern C++, OpenSSL." >&2
    exit 1
fi
