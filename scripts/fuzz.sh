#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the fuzz targets with clang under the address and undefined-behaviour sanitizers, and runs each for some
# seconds:
#
#     scripts/fuzz.sh [seconds, default 20]
#
# `scripts/fuzz.sh 3600` is the long run. Inputs that reach new code are kept in build/fuzz/corpus and start the next
# run. A finding ends with failure and leaves its input in build/fuzz/findings; the program given that file repeats it.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-20}

cmake -S . -B build/fuzz -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DQDL_WERROR=ON \
    -DQDL_BUILD_APPS=OFF -DQDL_BUILD_FUZZERS=ON -DQDL_SANITIZE=fuzzer-no-link,address,undefined
cmake --build build/fuzz --target fuzzers

mkdir -p build/fuzz/findings
for seeds in tests/fuzz/corpus/*; do
    target=${seeds##*/}
    kept=build/fuzz/corpus/$target
    mkdir -p "$kept"
    printf '\n== %s, %s s\n' "$target" "$seconds"
    build/fuzz/tests/fuzz/run/"$target" -max_total_time="$seconds" -max_len=20000 -timeout=20 -verbosity=0 \
        -print_funcs=0 -print_final_stats=1 -artifact_prefix=build/fuzz/findings/ "$kept" "$seeds"
done
