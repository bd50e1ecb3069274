# shellcheck shell=bash
# Sourced by the scripts that fuzz. Findings stay under build/fuzz, as does the corpus that grows.

# One target for a time; prints its executions, the edges it has reached, and the size of its corpus.
fuzz_one() {
    local seconds=$1 parser=$2 log=build/fuzz/$2.log dictionary=()
    [ -f "fuzz/dictionaries/$parser.dict" ] && dictionary=("-dict=fuzz/dictionaries/$parser.dict")
    mkdir -p "build/fuzz/corpus/$parser"
    "build/fuzz/fuzz/fuzz_$parser" -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
        -artifact_prefix="build/fuzz/$parser-" "${dictionary[@]}" \
        "build/fuzz/corpus/$parser" "fuzz/corpus/$parser" >"$log" 2>&1 || {
        tail -n 60 "$log" >&2
        printf 'error: fuzz target %s found something\n' "$parser" >&2
        return 1
    }
    awk -v parser="$parser" '
        match($0, /cov: [0-9]+/) { edges = substr($0, RSTART + 5, RLENGTH - 5) }
        match($0, /corp: [0-9]+/) { inputs = substr($0, RSTART + 6, RLENGTH - 6) }
        /number_of_executed_units/ { executions = $2 }
        END { printf "%-14s %11d executions  %5d edges  %5d inputs\n", parser, executions, edges, inputs }
    ' "$log"
}

# fuzz_all SECONDS [PARSER...]: as many targets at once as there are processors; all without names.
fuzz_all() {
    local seconds=$1 targets
    shift
    if [ $# -eq 0 ]; then
        targets=(fuzz/fuzz_*.cpp)
        targets=("${targets[@]#fuzz/fuzz_}")
        set -- "${targets[@]%.cpp}"
    fi
    build_preset fuzz
    say "fuzzing each of $# parsers for $seconds s"
    export -f fuzz_one
    # shellcheck disable=SC2016 # the inner shell expands them
    printf '%s\n' "$@" | xargs -I '{}' -P "$(getconf _NPROCESSORS_ONLN)" \
        bash -c 'fuzz_one "$0" "$1"' "$seconds" '{}' || fail "see above"
}
