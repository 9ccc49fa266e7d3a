#!/usr/bin/env bash
# Links the portable header trees that the Windows build needs into build/deps/windows/include.
# With the system's own include folder on the path, mingw-w64's headers would not compile.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
include=$root/build/deps/windows/include

mkdir -p "$include"
for tree in /usr/include/boost /usr/include/CLI /usr/include/nlohmann \
    /usr/include/p11-kit-1/p11-kit /usr/include/valijson; do
    [[ -d $tree ]] || { echo "$tree is missing" >&2; exit 1; }
    ln -sfn "$tree" "$include/$(basename "$tree")"
done
