#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the Debian packages for: build (the default), test, check, bench. Only what is missing.
set -euo pipefail

packages="g++ cmake ninja-build libcli11-dev libpng-dev nlohmann-json3-dev"
case "${1:-build}" in
    build) ;;
    test) packages+=" libgtest-dev libgmock-dev binutils locales" ;;
    check) packages+=" libgtest-dev libgmock-dev binutils locales clang clang-format clang-tidy libclang-rt-dev git" ;;
    bench) packages+=" libbenchmark-dev python3-matplotlib" ;;
    *) echo "usage: $0 [build|test|check|bench]" >&2; exit 2 ;;
esac

missing=()
for package in $packages; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}"
root=""
[ "$(id -u)" -eq 0 ] || root="sudo"
$root apt-get update -q
$root env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends "${missing[@]}"
