#!/usr/bin/env bash
# Runs a test program on a heap that checks all its blocks at every call, and fails if the program
# fails or if the heap was damaged: heapcheck.sh PROGRAM [ARGUMENT...]
# Windows has such heaps too (gflags /i PROGRAM +hpc); this is how Wine is asked for one.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
program=$1
shift

# Under a name of its own, so that other runs of the program stay as quick as they are.
checked=heapchecked-$program.exe
ln -f "$CSU_BUILD/bin/$program.exe" "$CSU_BUILD/bin/$checked"
options='HKLM\Software\Microsoft\Windows NT\CurrentVersion\Image File Execution Options'
# Tail and free checks, and validation of parameters and of all blocks.
"$root/cmake/runwine.sh" reg add "$options\\$checked" /v GlobalFlag /t REG_DWORD /d 0xf0 /f >/dev/null

errors=$(mktemp)
trap 'rm -f "$errors"' EXIT
status=0
WINEDEBUG=-all,err+heap,warn+heap "$root/cmake/runwine.sh" "$CSU_BUILD/bin/$checked" "$@" \
    2>"$errors" || status=$?
if grep --extended-regexp '(err|warn):heap:' "$errors" | sort | uniq --count | sed -n 1,20p | grep .; then
    echo "$program: the heap is not as it should be"
    exit 1
fi
exit "$status"
