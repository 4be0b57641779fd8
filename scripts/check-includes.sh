#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Who may know whom: prints every #include that goes against it.
set -euo pipefail
cd "$(dirname "$0")/.."

failed=0
# forbid FOLDER PATTERN REASON: no quoted include below FOLDER may match PATTERN.
forbid() {
    if grep -rnE "^\s*#\s*include \"($2)" "$1" --include='*.h' --include='*.cpp' --include='*.c' --include='*.inc'; then
        echo "^ $3" >&2
        failed=1
    fi
}

internal='registry/|device/|acquisition/|frames/|config/|platform/'
for folder in apps examples hwlibs; do
    [ -d "$folder" ] && forbid "$folder" "$internal" "only include/ may be known outside of qdlctrl/"
done
forbid apps 'qdlhw\.h' "hosts know qdlctrl.h only"
forbid hwlibs 'qdlctrl\.h' "HW libraries know qdlhw.h only"
for folder in device acquisition frames config platform; do
    forbid "qdlctrl/$folder" 'registry/(ctrl|exports)' "only the registry knows the manager"
done
free_standing="acquisition/clock frames/frametext frames/pixelops config/infotext config/cfgio platform/platform"
for module in $free_standing; do
    for file in qdlctrl/"$module".*; do
        if grep -nE '#include "(device/|registry/|qdlhw\.h)' "$file" /dev/null; then
            echo "^ free-standing modules know nothing of devices" >&2
            failed=1
        fi
    done
done
if grep -rnE '#include <(unistd|dlfcn|sys/|dirent|windows|pthread)' qdlctrl | grep -v '^qdlctrl/platform/'; then
    echo "^ system calls belong to platform/" >&2
    failed=1
fi
exit $failed
