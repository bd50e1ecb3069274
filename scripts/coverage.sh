#!/usr/bin/env bash
# Says which lines and branches of the library the tests reach, room by room; the branches that they
# don't reach are listed in build/coverage/missing.txt.
set -euo pipefail
. "$(dirname "$0")/lib/setup.sh"

tool() {
    command -v "$1" || command -v "$1-14" || fail "$1 is missing"
}

# Each process merges what it counted into the profile of its program.
count() {
    rm -rf build/coverage/profiles
    LLVM_PROFILE_FILE=$top/build/coverage/profiles/%4m.profraw run_tests coverage
    "$(tool llvm-profdata)" merge -o build/coverage/all.profdata build/coverage/profiles/*.profraw
}

# llvm_cov COMMAND [OPTION...]: of the shared library and the programs linked with its objects, what
# lies in a wing.
llvm_cov() {
    local command=$1 program programs=()
    shift
    while IFS= read -r program; do
        programs+=(-object "$program")
    done < <(find build/coverage/tests -type f -name '*_test' -perm -u+x)
    "$(tool llvm-cov)" "$command" build/coverage/libqormon3.so "${programs[@]}" "$@" \
        -instr-profile=build/coverage/all.profdata \
        -ignore-filename-regex='(^|/)(usr|tests|tools|examples|fuzz|include)/'
}

need_packages build test check
build_preset coverage
count
llvm_cov show -show-branches=count -show-line-counts-or-regions |
    awk '/^\/.*:$/ { file = $0 } /Branch \(.*(True: 0|False: 0)/ { print file $0 }' \
        >build/coverage/missing.txt
llvm_cov report -show-region-summary=false -show-functions=false
