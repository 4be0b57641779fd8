#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Everything from a fresh machine to all tests passed: packages where missing, build, tests. Arguments go to cmake.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh test
cmake --preset release -DQDL_BUILD_TESTS=ON "$@"
cmake --build --preset release
ctest --test-dir build/release --output-on-failure
