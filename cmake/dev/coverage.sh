#!/usr/bin/env bash
# Collects what the tests of a coverage build executed: coverage.sh native|windows
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
target=$1
gcov=gcov
[[ $target != windows ]] || gcov=x86_64-w64-mingw32-gcov-posix

cd "$root"
mkdir -p build/coverage
gcovr --root . --object-directory "build/$target-coverage" --gcov-executable "$gcov" \
    --filter '(util|asn1|pkcs11|include|src|app)/' \
    --exclude-throw-branches --exclude-unreachable-branches \
    --json "build/coverage/$target.json" "build/$target-coverage"
