#!/usr/bin/env bash
# Builds and runs the benchmarks, each beside its peers in the same run. Arguments go to the
# programs, for example --benchmark_filter=Base64.
set -euo pipefail
. "$(dirname "$0")/lib/setup.sh"

need_packages build bench
build_preset bench
for source in bench/bench_*.cpp; do
    program=$(basename "$source" .cpp)
    say "$program"
    "build/bench/bench/$program" --benchmark_min_time=0.3 "$@"
done
if [ -x build/bench/bench/compare_config_edits ]; then
    say compare_config_edits
    build/bench/bench/compare_config_edits
fi
