#!/usr/bin/env bash
# package_test.sh TEST RELEASE_TREE DEB_TREE SCRATCH: runs one of the tests below on what the build
# trees install and pack. The project beside this file calls it.
set -euo pipefail

# shellcheck source=scripts/lib/setup.sh
. "$(dirname "$0")/../../scripts/lib/setup.sh"

here=$top/tests/package
test=$1 release=$2 deb=$3
scratch=$4/$test
tree=$4/tree/prefix

# expect WHAT WANTED GOT
expect() {
    [ "$2" = "$3" ] || fail "$1: expected '$2', got '$3'"
}

version=$(library_version)
major=${version%%.*}

# expect_files TREE [SED_EXPRESSION...]: the tree holds what installed-files.txt names, renamed by
# the expressions, and nothing else.
expect_files() {
    local root=$1 names=(-e "/^#/d" -e "s/@VERSION@/$version/" -e "s/@MAJOR@/$major/") name
    shift
    for name in "$@"; do names+=(-e "$name"); done
    diff -u --label expected --label installed \
        <(sed "${names[@]}" "$here/installed-files.txt" | LC_ALL=C sort) \
        <(cd "$root" && find . ! -type d -printf '%P\n' | LC_ALL=C sort) ||
        fail "the files in $root differ from tests/package/installed-files.txt"
}

# expect_tool TREE: the tool runs, and finds the library beside itself rather than elsewhere.
expect_tool() {
    local library
    library=$(ldd "$1/bin/qormon" | sed -n 's/.*libqormon3.* => \(.*\) (0x.*/\1/p')
    case $(realpath "$library") in
    "$(realpath "$1")"/lib/*) ;;
    *) fail "$1/bin/qormon takes its library from '$library'" ;;
    esac
    "$1/bin/qormon" ip 192.168.0.1 | grep -q 0xC0A80001 || fail "$1/bin/qormon does not answer"
}

# build_consumer DIRECTORY LANGUAGE OPTION...: with CMake, and runs it.
build_consumer() {
    local build=$1/$2 log=$1/$2.log language=$2
    shift 2
    { cmake -S "$here/consumer" -B "$build" -G Ninja "-DCONSUMER_LANGUAGE=$language" \
        "-DCONSUMER_VERSION=$version" "$@" &&
        cmake --build "$build"; } >"$log" 2>&1 || {
        cat "$log" >&2
        fail "the consumer in $language does not build"
    }
    expect "the consumer in $language" "$version hello" "$("$build/consumer")"
}

# use_by_cmake TREE
use_by_cmake() {
    local language
    mkdir -p "$scratch/cmake"
    for language in C CXX; do
        build_consumer "$scratch/cmake" "$language" "-DCMAKE_PREFIX_PATH=$1"
    done
}

# use_by_pkgconfig TREE [LIBDIR]
use_by_pkgconfig() {
    export PKG_CONFIG_PATH=$1/${2:-lib}/pkgconfig
    local flags libraries program=$scratch/pkgconfig-consumer
    read -r -a flags <<<"$(pkg-config --cflags qormon3)"
    read -r -a libraries <<<"$(pkg-config --libs qormon3)"
    libraries+=("-Wl,-rpath,$(pkg-config --variable=libdir qormon3)")
    expect "the version that pkg-config tells" "$version" "$(pkg-config --modversion qormon3)"
    c++ -std=c++17 "${flags[@]}" "$here/consumer/consumer.cpp" -o "$program-cxx" "${libraries[@]}"
    expect "the program in C++" "$version hello" "$("$program-cxx")"
    cc -std=c11 "${flags[@]}" "$here/consumer/consumer.c" -o "$program-c" "${libraries[@]}"
    expect "the program in C" "$version hello" "$("$program-c")"
}

test_tree() {
    cmake --install "$release" --prefix "$tree" >/dev/null
    expect_files "$tree"
    expect_tool "$tree"
}

# Without the sources' include directory beside them.
test_headers() {
    local header
    for header in "$tree"/include/qormon3/*.h; do
        c++ -std=c++17 -fsyntax-only -Wall -Wextra -Werror -include "$header" -x c++ /dev/null ||
            fail "$header does not compile alone"
    done
}

test_soname() {
    expect soname "libqormon3.so.$major" \
        "$(readelf -d "$tree/lib/libqormon3.so" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')"
}

test_cmake() { use_by_cmake "$tree"; }

test_pkgconfig() { use_by_pkgconfig "$tree"; }

# Unpacked where nobody knew of, while the tree that was built for installation is elsewhere.
test_archive() {
    local archives=("$release"/libqormon3-"$version"-*.tar.gz)
    tar -xzf "${archives[0]}" --strip-components=1 -C "$scratch"
    mkdir "$scratch/else where"
    mv "$scratch"/{bin,include,lib,share} "$scratch/else where"
    expect_files "$scratch/else where"
    expect_tool "$scratch/else where"
    use_by_cmake "$scratch/else where"
    mv "$scratch/else where" "$scratch/elsewhere"
    use_by_pkgconfig "$scratch/elsewhere"
}

test_deb() {
    local package root=$scratch/root libdir
    package=$deb/libqormon3_${version}_$(dpkg --print-architecture).deb
    libdir=lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)
    # shellcheck disable=SC2016 # the names are dpkg's own
    expect fields "libqormon3 $version libs" \
        "$(dpkg-deb --show --showformat='${Package} ${Version} ${Section}' "$package")"
    dpkg-deb -f "$package" Depends | grep -q 'libc6 (>= .*libstdc++6 (>= ' ||
        fail "dependencies: $(dpkg-deb -f "$package" Depends)"
    expect triggers "activate-noawait ldconfig" "$(dpkg-deb -I "$package" triggers)"
    expect shlibs "libqormon3 $major libqormon3 (>= $version)" "$(dpkg-deb -I "$package" shlibs)"
    dpkg-deb -c "$package" | grep -v ' root/root ' && fail "files that root does not own"
    dpkg -x "$package" "$root"
    expect_files "$root/usr" "s,^lib/,$libdir/," "s,^share/doc/qormon3/,share/doc/libqormon3/," \
        "s,/NOTICE\$,/copyright," "s,/qormon\.1\$,&.gz,"
    gzip -t "$root/usr/share/man/man1/qormon.1.gz"
    expect_tool "$root/usr"
    use_by_pkgconfig "$root/usr" "$libdir"
}

# As a part of another project, which looks at what the library leaves behind in it.
test_subproject() {
    build_consumer "$scratch" CXX "-DQORMON3_SOURCE=$top" -DCMAKE_BUILD_TYPE=Release \
        -DQORMON3_WARNINGS_AS_ERRORS=ON "-DCMAKE_CXX_COMPILER_LAUNCHER=$(command -v ccache || true)"
}

# The manual is clean, and tells of the commands that the tool has.
test_manual() {
    mandoc -T lint -W warning "$top/docs/man/qormon.1" || fail "see docs/man/qormon.1"
    diff -u --label "qormon --help" --label "docs/man/qormon.1" \
        <("$release/qormon" --help | sed -n 's/^  \([a-z]*\) .*/\1/p' | sort) \
        <(sed -n 's/^\.Ss //p' "$top/docs/man/qormon.1" | sort) || fail "the commands differ"
}

rm -rf "$scratch"
mkdir -p "$scratch"
"test_$test"
