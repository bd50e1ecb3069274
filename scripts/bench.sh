#!/usr/bin/env bash
# Builds and runs the benchmarks, each beside its peers in the same run, and prints one table of
# ratios: above 1 the work is faster here. With arguments only the programs' own output, for a part
# of them: --benchmark_filter=parse.
set -euo pipefail
. "$(dirname "$0")/lib/setup.sh"
. "$(dirname "$0")/lib/ratios.sh"

need_packages build bench
build_preset bench
# Work and peers take turns three times, so that a busy moment of the machine meets both.
turns=(--benchmark_min_time=0.3 --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
    --benchmark_enable_random_interleaving=true)
results=build/bench/results
rm -rf "$results" && mkdir "$results"
for source in bench/bench_*.cpp; do
    name=$(basename "$source" .cpp)
    [ "$name" = bench_dudect ] && continue # tells about leaks, not about speed
    say "$name"
    "build/bench/bench/$name" "${turns[@]}" --benchmark_out="$results/$name.csv" --benchmark_out_format=csv "$@"
done
[ $# -eq 0 ] || exit 0
if [ -x build/bench/bench/compare_config_edits ]; then
    say compare_config_edits
    build/bench/bench/compare_config_edits
fi
say "ratios"
print_ratios bench/peers.txt "$results"/*.csv
