#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the release build into a scratch folder, builds the template HW library against it out of tree, and finds
# its device with the installed host program.
set -euo pipefail
cd "$(dirname "$0")/.."

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install build/release --prefix "$scratch/install" >/dev/null
cp -r hwlibs/template "$scratch/template"
cmake -S "$scratch/template" -B "$scratch/build" -G Ninja -DCMAKE_PREFIX_PATH="$scratch/install" >/dev/null
cmake --build "$scratch/build"
library=$(find "$scratch/install" -name libqdlctrl.so)
find "$scratch/build" -name '*.so' -exec cp {} "$(dirname "$library")/hwlibs/" \;
"$scratch/install/bin/qdl" --library "$library" list | tee "$scratch/list"
grep -q -i template "$scratch/list"
