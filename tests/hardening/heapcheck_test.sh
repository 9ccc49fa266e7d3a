#!/usr/bin/env bash
# heapcheck.sh finds what it is trusted to find.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

failed=0
for defect in write-behind write-to-freed free-twice; do
    if output=$(./heapcheck.sh heapdefects "$defect" 2>&1); then
        echo "$defect was not found"
        failed=1
    elif [[ $output != *'the heap is not as it should be'* ]]; then
        echo "$defect: $output"
        failed=1
    fi
done
./heapcheck.sh heapdefects none
exit "$failed"
