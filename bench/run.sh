#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Each hot path beside its limit, one line per row; ends with failure when a row is short of its target.
#
#     bench/run.sh            measures; the numbers for the plot go to build/bench/results
#     bench/run.sh --plot     draws docs/performance.svg from them as well
#
# All programs run on one core, QDL_BENCH_CPU or the last one, ahead of everything else there where that is allowed: an
# exposure that is timed by looking at the clock cannot end in time while another process has the core.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh bench
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
    -DQDL_BUILD_BENCH=ON -DQDL_BUILD_TESTS=OFF -DQDL_BUILD_APPS=OFF >/dev/null
cmake --build build/bench >/dev/null

core=${QDL_BENCH_CPU:-$(($(nproc) - 1))}
results=build/bench/results
mkdir -p "$results"
failed=0
printf '%-44s %10s %8s   %-14s\n' row time/limit plain/ours target
for family in text getters runs exposures simulator; do
    nice -n -20 taskset -c "$core" "build/bench/bench/run/bench_$family" \
        --benchmark_out="$results/$family.json" --benchmark_out_format=json 2>"$results/$family.log" || failed=1
done
[ "${1:-}" != --plot ] || bench/plot.py "$results" docs/performance.svg
exit $failed
