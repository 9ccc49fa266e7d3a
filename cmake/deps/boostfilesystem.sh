#!/usr/bin/env bash
# Builds Boost.Filesystem for Windows into build/deps/windows/lib.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=cmake/deps/source.sh
source "$root/cmake/deps/source.sh"
# shellcheck source=cmake/deps/system.sh
source "$root/cmake/deps/system.sh"

sources=$root/build/deps/src/boostfilesystem
build=$root/build/deps/obj/boostfilesystem

fetch_source "boost$(boost_version)" "$sources" '*/libs/filesystem'
cmake --fresh -G Ninja -S "$root/cmake/deps/boostfilesystem" -B "$build" \
    --toolchain "$root/cmake/mingw-w64.cmake" \
    -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$root/build/deps/windows" \
    -DBOOST_SOURCES="$sources/libs/filesystem" \
    -DBOOST_INCLUDES="$root/build/deps/windows/include"
cmake --build "$build" --parallel 2
cmake --install "$build"
