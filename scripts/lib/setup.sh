# shellcheck shell=bash
# Sourced by the scripts beside this folder: finds the top of the tree and installs what is missing.

top=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cd "$top" || exit 1

say() { printf '== %s\n' "$*"; }

fail() {
    printf 'error: %s\n' "$*" >&2
    exit 1
}

# The library's version, as 3.0.0.
library_version() {
    sed -n 's/^#define QORMON3_VERSION_[A-Z]* //p' "$top/include/qorapi.h" | paste -sd . -
}

# The packages of a purpose, by the system's package manager.
debian_packages() {
    case $1 in
    build) echo cmake g++ ninja-build ccache ;;
    test) echo googletest libgmp-dev libssl-dev nginx-light nlohmann-json3-dev openssl tinyproxy ;;
    check) echo clang clang-format clang-tidy libclang-rt-14-dev llvm-14 npm shellcheck file \
        doxygen pkg-config dpkg-dev mandoc ;;
    bench) echo libbenchmark-dev pkg-config libssl-dev libglib2.0-dev libinih-dev \
        libiniparser-dev libsimpleini-dev libmsgpack-dev libnanopb-dev libcurl4-openssl-dev \
        libmbedtls-dev nginx-light ;;
    esac
}

homebrew_packages() {
    case $1 in
    build) echo cmake ninja ccache ;;
    test) echo googletest gmp nginx nlohmann-json openssl tinyproxy ;;
    check) echo llvm node shellcheck doxygen mandoc pkg-config ;;
    bench) echo google-benchmark pkg-config openssl glib inih iniparser msgpack nanopb \
        curl mbedtls@2 nginx ;;
    esac
}

debian_has() {
    dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'ok installed'
}

homebrew_has() {
    brew list --versions "$1" >/dev/null 2>&1
}

# Prints those of the packages named behind KIND that are missing. A command of the package's name
# that came from elsewhere is as good.
missing_packages() {
    local kind=$1 package
    shift
    for package in "$@"; do
        command -v "$package" >/dev/null || "${kind}_has" "$package" || echo "$package"
    done
}

install_debian_packages() {
    export DEBIAN_FRONTEND=noninteractive
    local log
    log=$(mktemp)
    if ! { apt-get update && apt-get install -y --no-install-recommends "$@"; } >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        rm -f "$log"
        fail "these packages could not be installed: $*"
    fi
    rm -f "$log"
}

# need_packages PURPOSE...: installs what is missing for the purposes, or names it and stops.
need_packages() {
    local kind purpose package wanted=() missing=()
    if command -v dpkg-query >/dev/null; then
        kind=debian
    elif command -v brew >/dev/null; then
        kind=homebrew
    else
        fail "neither Debian's packages nor Homebrew here; see scripts/lib/setup.sh for what is needed"
    fi
    for purpose in "$@"; do
        # shellcheck disable=SC2207 # names of packages have no blanks
        wanted+=($("${kind}_packages" "$purpose"))
    done
    # Not by mapfile, which the bash of macOS lacks.
    while IFS= read -r package; do
        missing+=("$package")
    done < <(missing_packages "$kind" "${wanted[@]}")
    [ ${#missing[@]} -eq 0 ] && return
    if [ "$kind" = homebrew ]; then
        say "installing ${missing[*]}"
        brew install --quiet "${missing[@]}"
    elif [ "$(id -u)" = 0 ]; then
        say "installing ${missing[*]}"
        install_debian_packages "${missing[@]}"
    else
        fail "please install these packages: ${missing[*]}"
    fi
}

# build_preset PRESET [TARGET...]: configures and builds; prints the output only where it fails.
build_preset() {
    local preset=$1 log
    shift
    log=$(mktemp)
    say "building $preset"
    if ! { cmake --preset "$preset" && cmake --build --preset "$preset" ${1:+--target "$@"}; } \
        >"$log" 2>&1; then
        grep -vE '^\[[0-9]+/[0-9]+\] (Building|Linking)' "$log" | tail -n 60 >&2
        rm -f "$log"
        fail "preset $preset does not build"
    fi
    rm -f "$log"
}

# run_tests PRESET: every test of the preset, some at a time; CTest's summary comes last.
run_tests() {
    ctest --preset "$1" --output-on-failure --parallel "$(getconf _NPROCESSORS_ONLN)"
}
