#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# From a fresh machine to frames on disk: packages where missing, build, then 10 frames of 0.1 s from each simulated
# detector, as numbered text files and a picture in demo/.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh build
cmake --preset release -DQDL_BUILD_TESTS=OFF
cmake --build --preset release

mkdir -p demo
qdl=build/release/bin/qdl
"$qdl" list
"$qdl" acquire 0 -n 10 -t 0.1 --to-files demo/star.txt --png demo/star.png --overwrite
"$qdl" acquire 1 -n 10 -t 0.1 --to-files demo/phantom.txt --png demo/phantom.png --overwrite
# The same star put together from 2 x 2 exposures with every second pixel open: its mean agrees.
"$qdl" acquire 0 -n 1 -t 0.1 --spacing 2 --png demo/star-spaced.png --preview --overwrite
echo
echo "pictures: demo/star.png demo/phantom.png demo/star-spaced.png"
